"""Domains: the mode, the variants agreed with a peer, and the limits under which records are made."""

from __future__ import annotations

import ctypes
import sys
import threading
from typing import TYPE_CHECKING, Any, Callable, Mapping, Optional, Union

from . import catalogue
from .errors import GoneError, status_error
from .library import NO_SET, Function, function

if TYPE_CHECKING:
    from .records import Enumeration, Record

    TypeName = Union[str, type[Record], type[Enumeration]]

_TRACKED_MODE = 0xEEEE


class _Options(ctypes.Structure):
    _fields_ = [(name, ctypes.c_uint32) for name in ("tracking", "store_mode", "workspace_size")] + [
        (name, ctypes.c_void_p) for name in ("obj_store", "obj_alloc_fn", "obj_free_fn")] + [
        (name, ctypes.c_size_t) for name in ("block_limit", "memory_limit")]


class Domain:
    """A context in which records live; a record stays in the Domain that it was made in.

    tracked: records have state flags. variant: the variant of every type that the peer speaks; variants: of single
    types, named by class, title or C name. A negative variant means that the peer does not know the type. block_limit
    and memory_limit: most bytes of one block and of all; None is the runtime's default.

    `with domain:` makes it the one that this thread's new records live in. It is released when its last record is gone.
    """

    __slots__ = ("_c", "_destroy", "tracked", "__weakref__")

    def __init__(self, *, tracked: bool = False, variant: Optional[int] = None,
                 variants: Optional[Mapping[TypeName, int]] = None, block_limit: Optional[int] = None,
                 memory_limit: Optional[int] = None) -> None:
        options = _Options(tracking=_TRACKED_MODE if tracked else 0, block_limit=_limit(block_limit),
                           memory_limit=_limit(memory_limit))
        self.tracked = bool(tracked)
        self._destroy = function("platform_domain_destroy")
        self._c: int = function("platform_domain_create")(ctypes.byref(options)) or 0
        if not self._c:
            raise status_error(12)
        self.agree(variant, variants)

    def agree(self, variant: Optional[int] = None, variants: Optional[Mapping[TypeName, int]] = None) -> None:
        """Agrees with the peer on the variant of every type, or of single ones.

        Records that exist keep their variant until a field of theirs is set.
        """
        if variant is not None:
            function("platform_domain_agree_all")(self._address(), _variant(variant))
        for type, of_type in (variants or {}).items():
            name = catalogue.find(type if isinstance(type, str) else type._type.name).name
            status = function("platform_domain_agree")(self._address(), name.encode(), _variant(of_type))
            if status:
                raise status_error(status, name)

    def __enter__(self) -> Domain:
        _defaults.stack.append(self)
        return self

    def __exit__(self, *_: object) -> None:
        _defaults.stack.pop()

    def __del__(self, is_finalizing: Callable[[], bool] = sys.is_finalizing) -> None:
        context = getattr(self, "_c", 0)
        if context and not is_finalizing():
            self._c = 0
            self._destroy(context)

    def _address(self) -> int:
        if not self._c:
            raise GoneError("this Domain is gone: the collector has released it")
        return self._c

    def _call(self, function: Function, *arguments: Any, type: str = "", field: str = "") -> Any:
        """Calls a function that has a status word behind its other arguments."""
        status = ctypes.c_uint32()
        result = function(self._address(), NO_SET, *arguments, ctypes.byref(status))
        if status.value:
            raise self._error(status.value, type, field)
        return result

    def _error(self, number: int, type: str = "", field: str = "") -> Exception:
        refusal = None
        if number == 12:
            refusal = function("platform_domain_refusal")(self._c)
        return status_error(number, type, field, ctypes.string_at(refusal).decode() if refusal else "")


class _Defaults(threading.local):
    """A Domain belongs to one thread at a time, so each thread has its own default."""

    def __init__(self) -> None:
        self.stack: list[Domain] = []


_defaults = _Defaults()


def current_domain() -> Domain:
    """The Domain of the innermost `with`; outside of any, a Domain of this thread with all defaults."""
    if not _defaults.stack:
        _defaults.stack.append(Domain())
    return _defaults.stack[-1]


def _limit(limit: Optional[int]) -> int:
    if limit is None:
        return 0
    if not 0 < limit < 1 << 64:
        raise ValueError(f"a limit is a positive number of bytes, not {limit}")
    return limit


def _variant(variant: int) -> int:
    if not -128 <= variant <= 127:
        raise ValueError(f"a variant is a number from -128 to 127, not {variant}")
    return variant
