// The rule check for XSLT 2.0 and 3.0 stylesheets, run by the tivalo tool as one child process per
// validation run: the stylesheet is compiled once, then applied to every document the tool sends.
//
//   java -cp Saxon-HE.jar:tivalo-rules.jar TivaloRules STYLESHEET THREADS
//
// Standard input carries documents: "D <id> <uri length> <byte length>\n", the document's URI,
// its bytes. Standard output carries answers, each written whole: first "C 0\n" (compiled) or
// "X <length>\n<reasons>" (not compiled, then exit); then per document
// "R <id> <record count>\n" and the records, each "<kind> <length>\n<UTF-8 bytes>": M a message,
// T a message that stopped the run, S the result document, E why the run failed.
// Nothing is read from or written to the network, and no file is written.

import net.sf.saxon.Configuration;
import net.sf.saxon.s9api.*;
import net.sf.saxon.trans.XPathException;

import javax.xml.transform.ErrorListener;
import javax.xml.transform.Source;
import javax.xml.transform.SourceLocator;
import javax.xml.transform.TransformerException;
import javax.xml.transform.URIResolver;
import javax.xml.transform.stream.StreamSource;
import java.io.*;
import java.net.URI;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.TimeUnit;

public final class TivaloRules {
  private static final OutputStream out = new BufferedOutputStream(new FileOutputStream(FileDescriptor.out), 1 << 16);

  private static final class Record {
    final char kind;
    final byte[] bytes;
    Record(char kind, String text) { this(kind, text.getBytes(StandardCharsets.UTF_8)); }
    Record(char kind, byte[] bytes) { this.kind = kind; this.bytes = bytes; }
  }

  private static String where(SourceLocator locator) {
    if (locator == null) return "";
    StringBuilder where = new StringBuilder();
    if (locator.getSystemId() != null) where.append("file ").append(locator.getSystemId().replaceFirst("^file:(//)?", ""));
    if (locator.getLineNumber() > 0) where.append(where.length() > 0 ? " " : "").append("line ").append(locator.getLineNumber());
    return where.toString();
  }

  private static String describe(TransformerException error) {
    String where = where(error.getLocator());
    String message = error.getMessage();
    return where.isEmpty() ? message : where + ": " + message;
  }

  // Only local files may be read: any other scheme is refused.
  private static void refuseRemote(String uri) throws XPathException {
    if (uri == null) return;
    String scheme = URI.create(uri.trim().replace(" ", "%20")).getScheme();
    if (scheme != null && !scheme.equalsIgnoreCase("file"))
      throw new XPathException("Tivalo: Network access refused: " + uri);
  }

  private static final class LocalOnly implements URIResolver {
    public Source resolve(String href, String base) throws XPathException {
      try {
        URI resolved = base == null || base.isEmpty() ? new URI(href) : new URI(base).resolve(new URI(href));
        refuseRemote(resolved.toString());
      } catch (java.net.URISyntaxException e) {
        throw new XPathException("Tivalo: Not a URI: " + href);
      }
      return null;  // the processor's own resolution, for a local file
    }
  }

  private static synchronized void write(String head, List<Record> records) throws IOException {
    out.write(head.getBytes(StandardCharsets.UTF_8));
    for (Record record : records) {
      out.write((record.kind + " " + record.bytes.length + "\n").getBytes(StandardCharsets.UTF_8));
      out.write(record.bytes);
    }
    out.flush();
  }

  private static List<Record> check(XsltExecutable stylesheet, Processor processor, String uri, byte[] document) {
    List<Record> records = new ArrayList<>();
    Xslt30Transformer transformer = stylesheet.load30();
    boolean[] terminated = {false};
    transformer.setMessageListener((MessageListener) (content, terminate, locator) -> {
      records.add(new Record(terminate ? 'T' : 'M', content.getStringValue()));
      terminated[0] |= terminate;
    });
    transformer.setURIResolver(new LocalOnly());
    transformer.setResultDocumentHandler(target -> {
      throw new SaxonApiUncheckedException(new SaxonApiException("Tivalo: Stylesheets may not write files: " + target));
    });
    List<String> warnings = new ArrayList<>();
    transformer.setErrorListener(new ErrorListener() {
      public void warning(TransformerException e) { }
      public void error(TransformerException e) { warnings.add(describe(e)); }
      public void fatalError(TransformerException e) { warnings.add(describe(e)); }
    });
    ByteArrayOutputStream result = new ByteArrayOutputStream();
    try {
      StreamSource source = new StreamSource(new ByteArrayInputStream(document), uri.isEmpty() ? null : uri);
      Serializer serializer = processor.newSerializer(result);
      serializer.setOutputProperty(Serializer.Property.ENCODING, "UTF-8");
      transformer.applyTemplates(source, serializer);
      records.add(new Record('S', result.toByteArray()));
    } catch (SaxonApiException | SaxonApiUncheckedException error) {
      if (!terminated[0]) {
        String reason = error.getMessage();
        if (error.getCause() instanceof TransformerException)
          reason = describe((TransformerException) error.getCause());
        else if (error instanceof SaxonApiException && ((SaxonApiException) error).getLineNumber() > 0)
          reason = "line " + ((SaxonApiException) error).getLineNumber() + ": " + reason;
        if (reason == null) reason = "the stylesheet stopped without saying why";
        records.add(new Record('E', reason.replace(SaxonApiUncheckedException.class.getName() + ": ", "")));
      }
    } catch (RuntimeException | StackOverflowError | OutOfMemoryError error) {
      records.add(new Record('E', String.valueOf(error)));
    }
    return records;
  }

  private static String readLine(InputStream in) throws IOException {
    StringBuilder line = new StringBuilder();
    for (int c; (c = in.read()) != '\n';) {
      if (c < 0) return line.length() == 0 ? null : line.toString();
      line.append((char) c);
    }
    return line.toString();
  }

  private static byte[] readBytes(InputStream in, int length) throws IOException {
    byte[] bytes = new byte[length];
    for (int done = 0; done < length;) {
      int got = in.read(bytes, done, length - done);
      if (got < 0) throw new EOFException();
      done += got;
    }
    return bytes;
  }

  public static void main(String[] arguments) throws Exception {
    // The parser the processor uses for the stylesheet and every document it reads.
    System.setProperty("javax.xml.accessExternalDTD", "file");
    System.setProperty("javax.xml.accessExternalSchema", "file");
    Processor processor = new Processor(false);
    Configuration configuration = processor.getUnderlyingConfiguration();
    configuration.setUnparsedTextURIResolver((uri, encoding, config) -> {
      refuseRemote(uri.toString());
      return new net.sf.saxon.lib.StandardUnparsedTextResolver().resolve(uri, encoding, config);
    });
    XsltCompiler compiler = processor.newXsltCompiler();
    compiler.setURIResolver(new LocalOnly());
    List<String> problems = new ArrayList<>();
    compiler.setErrorListener(new ErrorListener() {
      public void warning(TransformerException e) { }
      public void error(TransformerException e) { problems.add(describe(e)); }
      public void fatalError(TransformerException e) { problems.add(describe(e)); }
    });
    XsltExecutable stylesheet;
    try {
      stylesheet = compiler.compile(new StreamSource(new File(arguments[0])));
    } catch (SaxonApiException | RuntimeException error) {
      if (problems.isEmpty()) problems.add(String.valueOf(error.getMessage()));
      byte[] text = String.join("; ", problems).getBytes(StandardCharsets.UTF_8);
      out.write(("X " + text.length + "\n").getBytes(StandardCharsets.UTF_8));
      out.write(text);
      out.flush();
      System.exit(3);
      return;
    }
    write("C 0\n", List.of());

    int threads = Math.max(1, Integer.parseInt(arguments[1]));
    ExecutorService pool = Executors.newFixedThreadPool(threads);
    InputStream in = new BufferedInputStream(new FileInputStream(FileDescriptor.in), 1 << 16);
    for (String line; (line = readLine(in)) != null;) {
      String[] fields = line.split(" ");
      if (fields.length != 4 || !fields[0].equals("D")) throw new IOException("bad request: " + line);
      String id = fields[1];
      String uri = new String(readBytes(in, Integer.parseInt(fields[2])), StandardCharsets.UTF_8);
      byte[] document = readBytes(in, Integer.parseInt(fields[3]));
      pool.execute(() -> {
        List<Record> records = check(stylesheet, processor, uri, document);
        try {
          write("R " + id + " " + records.size() + "\n", records);
        } catch (IOException gone) {
          System.exit(4);  // the tool is gone
        }
      });
    }
    pool.shutdown();
    pool.awaitTermination(Long.MAX_VALUE, TimeUnit.DAYS);
    out.flush();
  }
}
