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

from tivalo._tivalo import ComError, Dispatch, List, Method, __version__

__all__ = ["ComError", "Dispatch", "List", "Method", "__version__"]

_stubs = None


def _stub_classes():
    """The interfaces as the generated stubs describe them, read once on first use."""
    global _stubs
    if _stubs is None:
        import os
        path = os.path.join(os.path.dirname(__file__), "__init__.pyi")
        namespace = {"__name__": "tivalo"}
        with open(path, encoding="utf-8") as stub:
            exec(compile(stub.read(), path, "exec"), namespace)
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
    """The documentation of an object's interface: its definition and every member's."""
    stub = _stub_class(interface)
    if stub is None:
        return Dispatch.__doc__
    import pydoc
    return pydoc.plain(pydoc.render_doc(stub, title="%s", renderer=pydoc.plaintext))
