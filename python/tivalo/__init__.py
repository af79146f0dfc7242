"""TivaloCOM's UBL 2.0 object model, late-bound over IDispatch as a script host uses it.

    import tivalo
    invoice = tivalo.Dispatch("TivaloCOM.Invoice")
    invoice.Read("samples/invoice.xml")
    for line in invoice.InvoiceLine:
        print(line.ID.Value)

Names are matched without regard to case. A failed call raises tivalo.ComError (hresult,
source, description); an index out of range raises IndexError. help() on an object or one of
its methods shows the members with their definitions from the UBL schemas.

tivalo.validate(paths) checks documents and folders against their bundled UBL schema and a rule
stylesheet, as the `tivalo validate` tool does, and returns every finding; with a Dask client it
spreads a batch over the client's cluster.
"""

import os as _os
import sys as _sys

# Python loads extensions with every symbol bound at once; the library and its parsers bind
# theirs on first call instead, as programs do, which takes a good part off the import.
_flags = _sys.getdlopenflags()
if hasattr(_os, "RTLD_LAZY"):
    _sys.setdlopenflags((_flags & ~_os.RTLD_NOW) | _os.RTLD_LAZY)
try:
    from tivalo._tivalo import ComError, Dispatch, List, Method, __version__
finally:
    _sys.setdlopenflags(_flags)

__all__ = ["ComError", "Dispatch", "Finding", "List", "Method", "ValidationError", "__version__",
           "read", "schema_path", "validate"]

_UBL = "urn:oasis:names:specification:ubl:schema:xsd:"


def _document_kind(path):
    """(root element name, UBLVersionID text or None) of a UBL document, read only as far as the
    version identifier, which stands among the root's first children."""
    import xml.etree.ElementTree as ElementTree
    parser = ElementTree.XMLPullParser(events=("start", "end"))
    root, depth, version = None, 0, None
    with open(path, "rb") as document:
        while True:
            piece = document.read(65536)
            if not piece:
                break
            parser.feed(piece)
            for event, element in parser.read_events():
                depth += 1 if event == "start" else -1
                namespace, _, local = element.tag[1:].partition("}")
                if event == "start" and root is None:
                    if not (namespace.startswith(_UBL) and namespace == f"{_UBL}{local}-2"):
                        raise ValueError(f"{path}: the root element is not a UBL document's")
                    root = local
                elif event == "end" and depth == 1:  # a child of the root, read whole
                    if local == "UBLVersionID":
                        version = (element.text or "").strip()
                    if local not in ("UBLExtensions", "UBLVersionID"):
                        return root, version
                    element.clear()
                elif event == "end" and depth == 0:
                    return root, version
    if root is None:
        raise ValueError(f"{path}: no root element")
    return root, version


def read(path):
    """The document at path, read into an object of its class: of the UBL 2.0 library when its
    UBLVersionID says 2.0, else of the UBL 2.1 library (2.1 documents often carry none, and a
    2.0 document without one is also a 2.1 document)."""
    name, version = _document_kind(path)
    library = "TivaloCOM." if version == "2.0" else "TivaloCOM21."
    document = Dispatch(library + name)
    document.Read(_os.fspath(path))
    return document

_stubs = None


def __getattr__(name):
    """The interface classes (tivalo.IInvoice, ...), as the stubs name them."""
    if name[:1] == "I" and name[1:2].isupper():
        try:
            return type(Dispatch("TivaloCOM." + name[1:]))
        except ComError:
            pass
    raise AttributeError(f"module 'tivalo' has no attribute '{name}'")


def _stub_classes():
    """The interfaces as the generated stubs describe them, read once on first use."""
    global _stubs
    if _stubs is None:
        path = _os.path.join(_os.path.dirname(__file__), "__init__.pyi")
        namespace = {"__name__": "tivalo"}
        try:
            with open(path, encoding="utf-8") as stub:
                text = stub.read()
        except OSError:  # installed without its stubs: no help beyond the names
            text = ""
        exec(compile(text, path, "exec"), namespace)
        _stubs = namespace
    return _stubs


def _stub_class(interface):
    stub = _stub_classes().get(interface)
    return stub if isinstance(stub, type) else None


def _member_help(interface, name):
    """(signature, docstring) of a method of an interface, from the stubs."""
    import inspect
    function = getattr(_stub_class(interface), name, None)
    if not inspect.isfunction(function):
        return None, None
    try:
        signature = inspect.signature(function, eval_str=True)
    except Exception:  # annotations this interpreter cannot evaluate stay text
        signature = inspect.signature(function)
    parameters = list(signature.parameters.values())[1:]  # bound: without self
    return signature.replace(parameters=parameters), inspect.getdoc(function)


def _interface_doc(interface):
    """The documentation of an interface: its definition, then every member with its own."""
    import inspect
    stub = _stub_class(interface)
    if stub is None:
        return None
    lines = [inspect.getdoc(stub), "", "Members (names match without regard to case):"]
    for name, member in vars(stub).items():
        if isinstance(member, property):
            kind = inspect.signature(member.fget).return_annotation
            settable = "" if member.fset is None else ", settable"
            lines += ["", f"{name}: {kind}{settable}"]
            doc = inspect.getdoc(member)
        elif inspect.isfunction(member) and not name.startswith("_"):
            signature, doc = _member_help(interface, name)
            lines += ["", f"{name}{signature}"]
        else:
            continue
        if doc:
            lines.append("    " + doc)
    return "\n".join(lines)


class _InterfaceDoc:
    """An interface class's __doc__, read from the stubs when first asked for."""

    def __get__(self, instance, owner):
        owner = owner or type(instance)
        if "_doc" not in vars(owner):
            owner._doc = _interface_doc(owner.__name__)
        return owner._doc


def _interface_type(interface):
    """The class of the objects that have this interface."""
    return type(interface, (Dispatch,), {"__slots__": (), "__module__": __name__,
                                         "__doc__": _InterfaceDoc()})


# --- validation ---------------------------------------------------------------------------
# The package carries the tool (bin/tivalo) and the UBL schemas (schemas/ubl-<version>/xsd);
# validate() runs that tool, so that its findings are the tool's, field for field.

_PACKAGE_DIR = _os.path.dirname(__file__)

# UBL version (as UBLVersionID writes it) -> the schema folder and the main schemas' suffix.
_SCHEMA_VERSIONS = {
    "2.0": ("ubl-2.0", "-2.0.xsd"),
    "2.1": ("ubl-2.1", "-2.1.xsd"),
}


def schema_path(document_class, version="2.0"):
    """The bundled main schema of a document class: schema_path("Invoice") ends in
    schemas/ubl-2.0/xsd/maindoc/UBL-Invoice-2.0.xsd. Raises ValueError for a class or version
    without one."""
    try:
        folder, suffix = _SCHEMA_VERSIONS[version]
    except KeyError:
        raise ValueError(f"no bundled schemas for UBL {version!r} "
                         f"(bundled: {', '.join(sorted(_SCHEMA_VERSIONS))})") from None
    path = _os.path.join(_PACKAGE_DIR, "schemas", folder, "xsd", "maindoc",
                         f"UBL-{document_class}{suffix}")
    if not _os.path.isfile(path):
        raise ValueError(f"no bundled UBL {version} schema for {document_class!r}: {path}")
    return path


class Finding:
    """One finding of validate(), with the fields of the tool's JSON: file, source ("schema",
    "rules" or "document"), severity ("error", "warning", "info"), line, column, location, rule
    (None when not known) and message."""

    __slots__ = ("file", "source", "severity", "line", "column", "location", "rule", "message")

    def __init__(self, file, source, severity, message, line=None, column=None, location=None,
                 rule=None):
        self.file, self.source, self.severity, self.message = file, source, severity, message
        self.line, self.column, self.location, self.rule = line, column, location, rule

    def _fields(self):
        return tuple(getattr(self, name) for name in self.__slots__)

    def __eq__(self, other):
        return isinstance(other, Finding) and self._fields() == other._fields()

    def __hash__(self):
        return hash(self._fields())

    def __reduce__(self):
        return (Finding, (self.file, self.source, self.severity, self.message, self.line,
                          self.column, self.location, self.rule))

    def __repr__(self):
        fields = ", ".join(f"{name}={getattr(self, name)!r}" for name in self.__slots__
                           if getattr(self, name) is not None)
        return f"Finding({fields})"

    def __str__(self):
        """The tool's text line: FILE[:LINE[:COLUMN]]: SEVERITY: [RULE] MESSAGE (at LOCATION)."""
        where = self.file + "".join(f":{n}" for n in (self.line, self.column) if n)
        rule = f"[{self.rule}] " if self.rule else ""
        location = f" (at {self.location})" if self.location else ""
        return f"{where}: {self.severity}: {rule}{self.message}{location}"


class ValidationError(Exception):
    """The check could not run: a schema or stylesheet that cannot be used, a file that cannot be
    read. `findings` holds what the other files gave."""

    def __init__(self, message, findings=()):
        super().__init__(message)
        self.findings = list(findings)


def _tool():
    tool = _os.path.join(_PACKAGE_DIR, "bin", "tivalo")
    if not _os.access(tool, _os.X_OK):
        raise ValidationError(f"this installation of tivalo has no validation tool ({tool})")
    return tool


def _as_list(path_or_paths):
    if isinstance(path_or_paths, (str, bytes)) or hasattr(path_or_paths, "__fspath__"):
        return [_os.fspath(path_or_paths)]
    return [_os.fspath(path) for path in path_or_paths]


def _options(schema, rules, no_schema, jobs, ubl):
    options = ["--format", "json"]
    if ubl is not None:
        options += ["--ubl", str(ubl)]
    if schema is not None:
        options += ["--schema", _os.path.abspath(_os.fspath(schema))]
    if rules is not None:
        options += ["--rules", _os.path.abspath(_os.fspath(rules))]
    if no_schema:
        options.append("--no-schema")
    if jobs is not None:
        options += ["--jobs", str(jobs)]
    return options


def _run_tool(paths, options):
    """Findings and failures of one run of the tool over `paths`."""
    import json
    import subprocess
    result = subprocess.run([_tool(), "validate", *options, "--", *paths],
                            stdin=subprocess.DEVNULL, capture_output=True)
    try:
        reports = json.loads(result.stdout.decode("utf-8", "surrogateescape")) if result.stdout else []
    except ValueError:
        reports = []
    findings, failures = [], []
    for report in reports:
        for found in report["findings"]:
            findings.append(Finding(report["file"], found["source"], found["severity"],
                                    found["message"], found.get("line"), found.get("column"),
                                    found.get("location"), found.get("rule")))
        if "error" in report:
            failures.append(f"{report['file']}: {report['error']}")
    if result.returncode not in (0, 1) or failures:
        said = result.stderr.decode("utf-8", "replace").strip()
        raise ValidationError(said or "; ".join(failures) or
                              f"tivalo validate stopped with status {result.returncode}", findings)
    return findings


def _batches(paths, limit=200_000):
    """Runs of paths short enough for one command line."""
    batch, size = [], 0
    for path in paths:
        length = len(_os.fsencode(path)) + 1
        if batch and size + length > limit:
            yield batch
            batch, size = [], 0
        batch.append(path)
        size += length
    if batch:
        yield batch


def _documents_below(paths):
    """The documents as the tool takes them: a folder is every *.xml file below it, sorted."""
    documents = []
    for path in paths:
        if path == "-" or not _os.path.isdir(path):
            documents.append(path)
            continue
        found = []
        for folder, _, names in _os.walk(path):
            found += [_os.path.join(folder, name) for name in names
                      if _os.fsdecode(_os.path.splitext(name)[1]).lower() == ".xml"
                      and _os.path.isfile(_os.path.join(folder, name))]
        documents += sorted(found, key=_os.fsencode)
    return documents


def _validate_batch(paths, options):
    return [finding for batch in _batches(paths) for finding in _run_tool(batch, options)]


def validate(path_or_paths, schema=None, rules=None, no_schema=False, *, ubl=None, jobs=None,
             client=None, batch_size=None):
    """Checks documents as `tivalo validate` does and returns every finding, in file order.

    path_or_paths: a file, a folder (every *.xml file below it) or a list of them.
    schema: the XML Schema to check against; by default each document's bundled UBL schema, of
    UBL 2.0 when its UBLVersionID says 2.0 and of UBL 2.1 otherwise. ubl: "2.0" or "2.1" reads
    every document as that version.
    rules: a rule stylesheet (XSLT 1.0, or 2.0 and 3.0 on Saxon-HE); its messages and SVRL
    assertions are findings. no_schema: run the rules alone.
    client: a dask.distributed Client: the documents are split into batches (batch_size each,
    by default one per worker) that the cluster's workers check; they must see the same paths.

    An empty list means every document is clean. Raises ValidationError when the check cannot
    run (a missing file, a schema or stylesheet that cannot be used).
    """
    paths = _as_list(path_or_paths)
    options = _options(schema, rules, no_schema, jobs, ubl)
    if client is None:
        return _validate_batch(paths, options)
    documents = _documents_below(paths)
    if not documents:
        return []
    if batch_size is None:
        workers = max(1, len(client.scheduler_info().get("workers", {})))
        batch_size = -(-len(documents) // workers)
    batches = [documents[i:i + batch_size] for i in range(0, len(documents), batch_size)]
    futures = client.map(_validate_batch, batches, options=options, pure=False)
    return [finding for part in client.gather(futures) for finding in part]
