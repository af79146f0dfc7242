"""TivaloCOM's UBL 2.0 object model, late-bound over IDispatch as a script host uses it.

    import tivalo
    invoice = tivalo.Dispatch("TivaloCOM.Invoice")
    invoice.Read("samples/invoice.xml")
    for line in invoice.InvoiceLine:
        print(line.ID.Value)

Names are matched without regard to case. A failed call raises tivalo.ComError (hresult,
source, description); an index out of range raises IndexError. help() on an object or one of
its methods shows the members with their definitions from the UBL schemas.
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

__all__ = ["ComError", "Dispatch", "List", "Method", "read", "__version__"]

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
