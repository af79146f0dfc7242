"""Prints the benchmark results as ratios: each of the component's times beside the other entries
of the same operation and input (compare_bench's JSON), then the process measurements."""

import json
import sys
from collections import OrderedDict


def library_ratios(json_file):
    results = json.load(open(json_file))['benchmarks']
    groups = OrderedDict()
    for result in results:
        if result.get('error_occurred'):
            print(f"  {result['name']}: {result.get('error_message')}")
            continue
        operation, data, who = result['name'].split('/')[:3]
        scale = {'ns': 1e-3, 'us': 1.0, 'ms': 1e3, 's': 1e6}[result['time_unit']]
        # CPU time: on a shared machine the wall time mostly measures the neighbours.
        groups.setdefault((operation, data), {})[who] = result['cpu_time'] * scale
    # tivalo is the UBL 2.0 library, tivalo21 the UBL 2.1 library on the same 2.0 input.
    libraries = ('tivalo', 'tivalo21')
    print(f"{'operation':<9} {'input':<12} {'library':<8} {'time':>12}   ratio to each baseline (library / baseline)")
    for (operation, data), times in groups.items():
        for library in libraries:
            own = times.get(library)
            if own is None:
                continue
            others = '  '.join(f'{who} {own / t:.2f}x ({t:.1f} us)' for who, t in times.items()
                               if who not in libraries)
            print(f'{operation:<9} {data:<12} {library:<8} {own:>9.1f} us   {others}')


def main(json_file, process_file):
    print('== Library calls (CPU time per call)')
    library_ratios(json_file)
    print()
    print('== Processes (median wall time per run, peak resident memory)')
    rows = {}
    for line in open(process_file):
        name, values = line.rstrip('\n').split(' ', 1)
        rows[name] = dict(item.split('=') for item in values.split())
    pairs = [('validate one file', 'validate-one/tivalo', 'validate-one/xmllint'),
             ('validate 50 files', 'validate-50/tivalo', 'validate-50/xmllint'),
             ('start-up', 'startup/tivalo', 'startup/xmllint'),
             ('XSLT 2.0, 1000', 'xslt2-1000/tivalo', 'xslt2-1000/saxon'),
             ('  rules alone', 'xslt2-1000/tivalo-rules-only', 'xslt2-1000/saxon')]
    for title, own, other in pairs:
        if own in rows and other in rows:
            a, b = float(rows[own]['median_ms']), float(rows[other]['median_ms'])
            who = other.split('/')[1]
            print(f'{title:<18} tivalo {a:8.2f} ms   {who} {b:8.2f} ms   ratio {a / b:.2f}x')
    print()
    print('== Peak memory of a Read (read_document) and of a plain parse (xmllint --noout)')
    sizes = {name.split('/')[1]: int(rows[name]['bytes']) for name in rows if name.startswith('read/')}
    base = {who: int(rows[f'{who}/lines-1']['peak_kb']) for who in ('read', 'parse')}
    for data, size in sizes.items():
        line = f'{data:<12} {size:>10} bytes'
        for who in ('read', 'parse'):
            peak = int(rows[f'{who}/{data}']['peak_kb'])
            per_byte = (peak - base[who]) * 1024 / max(1, size - sizes['lines-1'])
            line += f'   {who} {peak / 1024:7.1f} MB ({per_byte:5.1f} B per input byte above lines-1)'
        print(line)
    print()
    print('== The object model a Read leaves, and the Read\'s peak above what the process held before it')
    for data, size in sizes.items():
        model = rows.get(f'model/{data}')
        if not model or size < 1 << 20:
            continue  # below a megabyte of document the parsers' own first allocations dominate
        kb, peak = int(model['model_kb']), int(model['read_peak_kb'])
        print(f'{data:<12} model {kb / 1024:7.1f} MB ({kb * 1024 / size:4.2f}x the document)'
              f'   peak {peak / 1024:7.1f} MB ({peak / kb:4.2f}x the model)')


if __name__ == '__main__':
    main(*sys.argv[1:])
