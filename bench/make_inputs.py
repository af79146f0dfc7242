"""Generates the benchmark inputs from the bundled sample invoice: the sample itself, invoices of
1, 100, 2,000 and 50,000 lines, one of about 10 KB, a batch of 50 invoices, and a folder of 1,000
invoices of 1 to 20 lines for the XSLT 2.0 rule set, one in ten with a currency outside its code
list."""

import re
import shutil
import sys
from pathlib import Path


def invoice_with_lines(sample, count):
    lines = re.findall(r'  <cac:InvoiceLine>.*?</cac:InvoiceLine>\n', sample, re.S)
    head = sample[:sample.index(lines[0])]
    tail = sample[sample.index(lines[-1]) + len(lines[-1]):]
    body = []
    for n in range(1, count + 1):
        line = lines[(n - 1) % len(lines)]
        body.append(re.sub(r'<cbc:ID>\d+</cbc:ID>', f'<cbc:ID>{n}</cbc:ID>', line, count=1))
    return head + ''.join(body) + tail


def main(source_dir, out_dir):
    source_dir, out_dir = Path(source_dir), Path(out_dir)
    out_dir.mkdir(parents=True, exist_ok=True)
    sample = (source_dir / 'samples' / 'invoice.xml').read_text(encoding='utf-8')
    (out_dir / 'sample.xml').write_text(sample, encoding='utf-8')
    for count in (1, 100, 2000, 50000):
        (out_dir / f'lines-{count}.xml').write_text(invoice_with_lines(sample, count), encoding='utf-8')
    count = 1
    while len(invoice_with_lines(sample, count).encode()) < 10 * 1024:
        count += 1
    (out_dir / '10kb.xml').write_text(invoice_with_lines(sample, count), encoding='utf-8')
    batch = out_dir / 'batch'
    batch.mkdir(exist_ok=True)
    for n in range(50):
        text = sample.replace('INV-2024-0042', f'INV-2024-{n:04d}')
        (batch / f'invoice-{n:02d}.xml').write_text(text, encoding='utf-8')
    shutil.copy(source_dir / 'bench' / 'rules.xsl', out_dir / 'rules.xsl')
    thousand = out_dir / 'batch-1000'
    thousand.mkdir(exist_ok=True)
    for n in range(1000):
        text = invoice_with_lines(sample, 1 + n % 20).replace('INV-2024-0042', f'INV-2024-{n:04d}')
        if n % 10 == 3:
            text = text.replace('>EUR</cbc:DocumentCurrencyCode>', '>QQQ</cbc:DocumentCurrencyCode>')
        (thousand / f'invoice-{n:04d}.xml').write_text(text, encoding='utf-8')


if __name__ == '__main__':
    main(*sys.argv[1:])
