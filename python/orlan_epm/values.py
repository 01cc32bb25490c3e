"""Values between Python and C: numbers, texts, and the types that other libraries supply."""

from __future__ import annotations

import ctypes
import operator
from typing import TYPE_CHECKING, Any, Callable, NamedTuple, Optional, SupportsIndex, Union

from .library import NO_SET, function

if TYPE_CHECKING:
    from ipaddress import IPv4Address, IPv6Address

    from .domain import Domain

    Address = Union[IPv4Address, IPv6Address]

TextLike = Union[str, bytes]


class Tlv(NamedTuple):
    """A type with a value of some bytes."""

    type: int = 0
    value: bytes = b""


def whole_number(value: SupportsIndex, size: int, is_signed: bool = False) -> int:
    """Refuses what does not fit into this many bytes."""
    number = operator.index(value)
    low, high = (-(1 << 8 * size - 1), (1 << 8 * size - 1) - 1) if is_signed else (0, (1 << 8 * size) - 1)
    if not low <= number <= high:
        raise OverflowError(f"{number} is not from {low} to {high}")
    return number


def text_of(characters: bytes) -> str:
    return characters.decode("utf-8", "surrogateescape")


def characters_of(text: TextLike) -> bytes:
    if isinstance(text, str):
        return text.encode("utf-8", "surrogateescape")
    if isinstance(text, bytes):
        return text
    raise TypeError(f"a text is a str or bytes, not {type(text).__name__}")


def octets(value: Any) -> bytes:
    """Bytes-like only: bytes(5) would be five zeros."""
    if isinstance(value, (bytes, bytearray, memoryview)):
        return bytes(value)
    raise TypeError(f"bytes are wanted, not {type(value).__name__}")


def mac_bytes(value: TextLike) -> bytes:
    if isinstance(value, str):
        parts = value.replace("-", ":").split(":")
        if len(parts) != 6 or any(len(p) != 2 for p in parts):
            raise ValueError(f"not an Ethernet address such as 02:00:00:00:00:01: {value!r}")
        return bytes(int(p, 16) for p in parts)
    address = octets(value)
    if len(address) != 6:
        raise ValueError(f"an Ethernet address has 6 bytes, not {len(address)}")
    return address


def mac_text(address: bytes) -> str:
    return address.hex(":")


def address_of(value: Union[Address, str, None]) -> Optional[Address]:
    if value is None:
        return None
    import ipaddress

    if not isinstance(value, (str, ipaddress.IPv4Address, ipaddress.IPv6Address)):
        raise TypeError(f"an address is a str, an ipaddress object or None, not {type(value).__name__}")
    address = ipaddress.ip_address(value)
    if isinstance(address, ipaddress.IPv6Address) and address.scope_id is not None:
        raise ValueError(f"an address without a scope is wanted, not {value}")
    return address


def address_from(family: int, octets: bytes) -> Optional[Address]:
    import ipaddress

    if not family:
        return None
    return ipaddress.IPv4Address(octets) if family == 4 else ipaddress.IPv6Address(octets)


# ---- objects in a record ----


def _read_mac(pointer: int) -> str:
    return mac_text(ctypes.string_at(pointer, 6))


def _read_run(type: str, pointer: int) -> bytes:
    length = ctypes.c_uint32()
    found = function(f"platform_{type}_read")(pointer, ctypes.byref(length))
    return ctypes.string_at(found, length.value) if length.value else b""


def _read_address(pointer: int) -> Optional[Address]:
    room = ctypes.create_string_buffer(16)
    family = function("platform_ip_address_read")(pointer, room)
    return address_from(family, room.raw[: 4 if family == 4 else 16])


def _write_address(value: Any) -> tuple[Any, ...]:
    address = address_of(value)
    return (address.version, address.packed) if address else (0, None)


def _read_tlv(pointer: int) -> Tlv:
    type, length = ctypes.c_uint32(), ctypes.c_uint32()
    found = function("platform_aaa_tlv_read")(pointer, ctypes.byref(type), ctypes.byref(length))
    return Tlv(type.value, ctypes.string_at(found, length.value) if length.value else b"")


def _write_tlv(value: Any) -> tuple[Any, ...]:
    type, content = value
    return (whole_number(type, 4), *_counted(octets(content)))


def _counted(characters: bytes) -> tuple[bytes, int]:
    return characters, whole_number(len(characters), 4)


class Object(NamedTuple):
    """How an object is read through its address, and the arguments that its writer gets for a value."""

    read: Callable[[int], Any]
    arguments: Callable[[Any], tuple[Any, ...]]


def _number_object(type: str, size: int) -> Object:
    return Object(lambda pointer: function(f"platform_{type}_read")(pointer),
                  lambda value: (whole_number(value, size),))


OBJECTS = {
    "zur_mac_addr": Object(_read_mac, lambda value: (mac_bytes(value),)),
    "zur_vstring": Object(lambda pointer: text_of(_read_run("zur_vstring", pointer)),
                          lambda value: _counted(characters_of(value))),
    "kesh_bytestr": Object(lambda pointer: _read_run("kesh_bytestr", pointer), lambda value: _counted(octets(value))),
    "ip_address": Object(_read_address, _write_address),
    "aaa_tlv": Object(_read_tlv, _write_tlv),
    "sess_mgr_conn_hdl": _number_object("sess_mgr_conn_hdl", 8),
    "sess_mgr_client_hdl": _number_object("sess_mgr_client_hdl", 8),
    "sess_mgr_session_label": _number_object("sess_mgr_session_label", 8),
    "sess_mgr_authorize_result": _number_object("sess_mgr_authorize_result", 4),
}


class TemporaryObject:
    """An object with a value, for a setter that moves it into a record. What was not moved is released at the end."""

    def __init__(self, domain: Domain, type: str, size: int, value: Any) -> None:
        arguments = OBJECTS[type].arguments(value)
        self._domain = domain
        self._type = type
        self.memory = (ctypes.c_uint64 * ((size + 7) // 8))()
        domain._call(function(f"platform_{type}_write"), self.memory, *arguments, type=type)

    def __enter__(self) -> Any:
        return self.memory

    def __exit__(self, *_: object) -> None:
        function(f"{self._type}_destroy_internal")(self._domain._c, NO_SET, self.memory, 0)
