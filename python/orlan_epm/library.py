"""The C library: where it is found, and its functions with their prototypes.

All calls keep the interpreter's lock. They are short, and the collector may destroy a record in any thread while
another one is in a call of the same Domain.
"""

from __future__ import annotations

import ctypes
import os
from typing import Any, Callable, Optional

from . import catalogue
from .errors import LoadError

Function = Callable[..., Any]

NO_SET = 0xFFFFFFFF

_NUMBERS: dict[str, Any] = {
    "void": None, "char": ctypes.c_int8, "int8_t": ctypes.c_int8, "uint8_t": ctypes.c_uint8,
    "uint16_t": ctypes.c_uint16, "int32_t": ctypes.c_int32, "uint32_t": ctypes.c_uint32, "uint64_t": ctypes.c_uint64,
    "size_t": ctypes.c_size_t,
}

# What the package uses of the runtime below the library.
_RUNTIME = {
    "platform_domain_create": "void* (void* options)",
    "platform_domain_destroy": "void (void* D)",
    "platform_domain_refusal": "char* (void* D)",
    "platform_domain_agree": "uint32_t (void* D, char* type, int8_t variant)",
    "platform_domain_agree_all": "void (void* D, int8_t variant)",
    "platform_xml_parse": "void* (char* text, size_t length, void* limits, char* message, size_t size)",
    "platform_xml_free": "void (void* document)",
    "platform_xml_lay_out": "size_t (char* text, size_t length, size_t width, char* buffer, size_t size)",
    "xml_get_element_nodecount": "uint32_t (void* document, char* path, uint32_t* count)",
    "zur_get_instance_variant": "int8_t (void* x, int32_t a, int32_t b)",
}
_WRITE = "void (void* D, uint32_t S, void* object, "
for _name, _written, _result, _read in (
    ("zur_mac_addr", "void* bytes", "void", ", void* bytes"),
    ("zur_vstring", "void* bytes, uint32_t length", "void*", ", uint32_t* length"),
    ("kesh_bytestr", "void* bytes, uint32_t length", "void*", ", uint32_t* length"),
    ("ip_address", "uint32_t family, void* bytes", "uint32_t", ", void* bytes"),
    ("aaa_tlv", "uint32_t type, void* bytes, uint32_t length", "void*", ", uint32_t* type, uint32_t* length"),
    ("sess_mgr_conn_hdl", "uint64_t value", "uint64_t", ""),
    ("sess_mgr_client_hdl", "uint64_t value", "uint64_t", ""),
    ("sess_mgr_session_label", "uint64_t value", "uint64_t", ""),
    ("sess_mgr_authorize_result", "uint32_t value", "uint32_t", ""),
):
    _RUNTIME[f"platform_{_name}_write"] = f"{_WRITE}{_written}, uint32_t* st)"
    _RUNTIME[f"platform_{_name}_read"] = f"{_result} (void* object{_read})"
    _RUNTIME[f"{_name}_destroy_internal"] = "void (void* D, uint32_t S, void* object, uint32_t free_memory)"

_dll: Optional[ctypes.PyDLL] = None
_functions: dict[str, Function] = {}


def load(path: Optional[str | os.PathLike[str]] = None) -> None:
    """Loads the library from a file, before it is first used.

    Without a path it is the file that ORLAN_EPM_LIBRARY names, the one that was installed with this package, or the one
    that the loader finds.
    """
    global _dll
    if _dll is not None:
        raise LoadError("the library has been loaded already")
    soname: str = catalogue.document()["soname"]
    beside = os.path.join(os.path.dirname(__file__), "..", "..", "..", soname)
    found = beside if os.path.exists(beside) else soname
    name = os.fspath(path) if path else os.environ.get("ORLAN_EPM_LIBRARY") or found
    try:
        dll = ctypes.PyDLL(name)
    except OSError as refusal:
        raise LoadError(f"the library cannot be loaded: {refusal}; install it, set ORLAN_EPM_LIBRARY or call "
                        "orlan_epm.load(path)") from None
    # The library's own dependencies are searched too, so this finds the runtime that it is linked with.
    if not hasattr(dll, "platform_domain_create"):
        raise LoadError(f"{name} runs on a runtime without platform_domain_create(), which this package needs")
    _dll = dll


def function(name: str) -> Function:
    """The C function of this name, with its prototype."""
    found = _functions.get(name)
    if found is None:
        if _dll is None:
            load()
        signature = catalogue.signatures().get(name) or _RUNTIME.get(name)
        if signature is None:
            raise LookupError(f"no function {name}")
        try:
            found = _prototyped(getattr(_dll, name), signature)
        except AttributeError:
            raise LoadError(f"the library has no function {name}") from None
        _functions[name] = found
    return found


def _prototyped(function: Any, signature: str) -> Function:
    result, parameters = signature.rstrip(")").split(" (", 1)
    function.restype = _c_type(result)
    function.argtypes = [_c_type(p.rsplit(" ", 1)[0]) for p in parameters.split(", ") if p != "void"]
    typed: Function = function
    return typed


def _c_type(name: str) -> Any:
    return ctypes.c_void_p if name.endswith("*") else _NUMBERS[name]
