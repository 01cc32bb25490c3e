"""Records and enumerations: what all of their classes have in common, and how a class is made from its description.

A record either owns its C Instance or is a view of one that lies in another record. A view keeps its owner alive. Each
record has a table of the views of what it owns, and a view is good as long as it and the owners above it are in their
tables. So whatever goes away is taken out of its table first. The table alone decides, because the collector may run
somebody's __del__() with a view after it has dropped the weak references to that view.
"""

from __future__ import annotations

import ctypes
import enum
import functools
import operator
import sys
import weakref
from typing import TYPE_CHECKING, Any, Callable, ClassVar, Hashable, Optional, TypeVar, Union

from . import catalogue, json_form, wire_form
from .domain import Domain, current_domain
from .errors import DocumentError, Error, GoneError, OwnershipError, StatusError, WrongLengthError, suggestion
from .library import NO_SET, Function, function
from .state import State

if TYPE_CHECKING:
    from typing_extensions import Self

R = TypeVar("R", bound="Record")

_BUFFER_TOO_SMALL, _ABSENT = 28, 2
_FIRST_ROOM, _MOST_ROOM = 4096, 1 << 30


# The Domains of all owned Instances, by address: none is released before its records, in whatever order the collector
# comes upon them.
_domains: dict[int, Domain] = {}


def _text(write: Callable[[Any, int], Any]) -> bytes:
    """Calls write(buffer, size) with larger buffers until the text fits."""
    room = _FIRST_ROOM
    while True:
        buffer = ctypes.create_string_buffer(room)
        try:
            length = write(buffer, room)
            return buffer.raw[:length]
        except StatusError as failure:
            room *= 4
            if failure.number != _BUFFER_TOO_SMALL or room > _MOST_ROOM:
                raise


def _message(data: Any) -> tuple[bytes, int]:
    """The bytes, which Python closes with a NUL that a reader may look at, and their length."""
    message = bytes(memoryview(data))
    if len(message) > 0x7FFFFFFF:
        raise WrongLengthError(90, more=f"{len(message)} bytes are more than a message can have")
    return message, len(message)


def _comparison(test: Callable[[int, int], bool]) -> Callable[[Any, object], bool]:
    def compare(self: Record, other: object) -> bool:
        if type(other) is not type(self) or not isinstance(other, Record):
            return NotImplemented
        return test(self._operation("compare")(self._address(), other._address()), 0)

    return compare


class Record:
    """Base of all record classes.

    Each takes the Domain to live in, else the current one, and the fields to set by keyword. Records compare by value
    and are ordered as the library orders them. They are mutable, so they cannot be keys; hash() gives the library's
    hash.
    """

    __slots__ = ("_at", "_domain", "_parent", "_slot", "_views", "__weakref__")

    c_name: ClassVar[str]
    _type: ClassVar[catalogue.Type]

    _at: int
    _domain: Domain
    _parent: Optional[Record]
    _slot: Hashable
    _views: Optional[weakref.WeakValueDictionary[Hashable, Record]]

    def __init__(self, in_domain: Optional[Domain] = None, /, **fields: Any) -> None:
        if hasattr(self, "_at"):
            raise TypeError(f"this {type(self).__name__} is there already")
        for name in fields:
            if name not in self._type.fields:
                raise TypeError(f"{type(self).__name__} has no field {name}{suggestion(name, list(self._type.fields))}")
        if in_domain is None:
            in_domain = current_domain()
        elif not isinstance(in_domain, Domain):
            raise TypeError(f"a Domain is wanted, not {type(in_domain).__name__}; fields are set by keyword")
        self._own(in_domain, self._operation("create")(in_domain._address(), NO_SET))
        for name, value in fields.items():
            setattr(self, name, value)

    # ---- wire form ----

    def marshal(self) -> bytes:
        """The record as a message."""
        # In tracked mode the last flags are written only if there is room left, and one byte behind the room is used.
        room = self.wire_length() + 8
        buffer = ctypes.create_string_buffer(room + 1)
        written: int = self._call("marshal", buffer, self._address(), room)
        return buffer.raw[:written]

    @classmethod
    def unmarshal(cls, data: Union[bytes, bytearray, memoryview], domain: Optional[Domain] = None) -> Self:
        """A record from a whole message. Raises when the message is cut short or other bytes follow it."""
        message, length = _message(data)
        record = cls(domain)
        used: int = record._call("unmarshal", message, record._at, length, 0)
        if used != length:
            raise WrongLengthError(90, cls.c_name, more=f"{used} bytes are read of {length}")
        return record

    def wire_length(self) -> int:
        """The length of the record's message, as the library counts it: exact where the Domain does not track, and an
        upper bound where it does.
        """
        return int(self._operation("len")(self._domain._c, NO_SET, self._address()))

    @property
    def variant(self) -> int:
        """The variant in force; negative when the peer does not know the type."""
        return int(function("zur_get_instance_variant")(self._address(), 1, 0))

    # ---- texts ----

    def __str__(self) -> str:
        """The print form."""
        text = _text(lambda buffer, room: self._call("print", buffer, 0, self.c_name.encode(), self._address(), room))
        # The closing line of a record skips its indentation.
        return text.replace(b"\0", b" ").decode("utf-8", "replace")

    def to_xml(self, width: Optional[int] = None) -> str:
        """The record as an XML document; with a width, on lines that are not wider where they can be broken."""
        text = _text(lambda buffer, room: self._call("to_xml", self.c_name.encode(), buffer, self._address(), room, 0))
        if width is not None:
            lay_out = function("platform_xml_lay_out")
            room = lay_out(text, len(text), width, None, 0)
            buffer = ctypes.create_string_buffer(room)
            lay_out(text, len(text), width, buffer, room)
            text = buffer.raw
        return text.decode()

    @classmethod
    def from_xml(cls, document: Union[str, bytes], domain: Optional[Domain] = None) -> Self:
        """A record from an XML document whose root element has the type's C name.

        The library's reader passes over elements that it does not know, and of a document that leaves out a text also
        over the element behind the text.
        """
        text = document.encode() if isinstance(document, str) else bytes(memoryview(document))
        words = ctypes.create_string_buffer(512)
        record = cls(domain)
        parsed = function("platform_xml_parse")(text, len(text), None, words, len(words))
        if not parsed:
            raise DocumentError(words.value.decode("utf-8", "replace"))
        try:
            path = cls.c_name.encode()
            count, status = ctypes.c_uint32(), ctypes.c_uint32()
            function("xml_get_element_nodecount")(parsed, path, ctypes.byref(count))
            if not count.value:
                raise DocumentError(f"the root element is not {cls.c_name}")
            cls._operation("from_xml")(record._domain._c, NO_SET, path, parsed, record._at, ctypes.byref(status), words,
                                       len(words))
            # A record whose last text is not there leaves this.
            if status.value not in (0, _ABSENT):
                reason = words.value.decode("utf-8", "replace")
                raise DocumentError(reason) if reason else record._domain._error(status.value, cls.c_name)
        finally:
            function("platform_xml_free")(parsed)
        return record

    def to_dict(self) -> dict[str, Any]:
        """All contents of the record's message, as the plain values that docs/json.md describes."""
        content: dict[str, Any] = wire_form.decode(self._type, self.marshal())
        return content

    @classmethod
    def from_dict(cls, content: dict[str, Any], domain: Optional[Domain] = None) -> Self:
        """A record from what to_dict() returns, or from a part of it: what is missing is zero or empty."""
        return cls.unmarshal(wire_form.encode(cls._type, content), domain)

    def to_json(self, indent: Optional[int] = None) -> str:
        """to_dict() as a JSON document."""
        return json_form.dumps(self.to_dict(), indent)

    @classmethod
    def from_json(cls, document: Union[str, bytes], domain: Optional[Domain] = None) -> Self:
        """A record from a JSON document such as to_json() writes."""
        return cls.from_dict(json_form.loads(document), domain)

    def __repr__(self) -> str:
        """The fields that are neither zero nor empty."""
        try:
            self._address()
        except GoneError:
            return f"<{type(self).__name__}, gone>"
        shown = (f"{name}={value!r}" for name, value in self._contents() if _is_set(value))
        return f"{type(self).__name__}({', '.join(shown)})"

    def _contents(self) -> Any:
        """Name and value of each field that the variant has, without the length fields."""
        variant = self.variant
        for field in self._type.fields.values():
            if field.kind != "length" and field.since <= variant:
                yield field.name, getattr(self, field.name)

    # ---- values ----

    __eq__ = _comparison(operator.eq)
    __lt__ = _comparison(operator.lt)
    __le__ = _comparison(operator.le)
    __gt__ = _comparison(operator.gt)
    __ge__ = _comparison(operator.ge)
    __hash__ = None  # type: ignore[assignment]

    def hash(self, seed: int = 0) -> int:
        """The library's hash of the contents."""
        return int(self._operation("hash")(self._address(), seed & 0xFFFFFFFF))

    def copy(self) -> Self:
        """A deep copy, with an owner of its own, in the same Domain."""
        room = self.wire_length() + 8
        at = ctypes.c_void_p()
        self._call("clone", self._address(), ctypes.byref(at), ctypes.create_string_buffer(room), room)
        record = type(self).__new__(type(self))
        record._own(self._domain, at.value or 0)
        return record

    def __copy__(self) -> Self:
        return self.copy()

    def __deepcopy__(self, memo: object) -> Self:
        return self.copy()

    def __reduce__(self) -> tuple[Any, ...]:
        return type(self).unmarshal, (self.marshal(),)

    @property
    def state(self) -> State:
        """The state flags, by field."""
        return State(self)

    def detach(self, name: str) -> Any:
        """Takes the selected arm out of a message. Returns None when `name` is not selected or empty."""
        field = self._type.fields.get(name)
        if field is None or field.kind != "arm":
            raise TypeError(f"{type(self).__name__} has no arm {name}")
        return getattr(type(self), name)._detach(self)

    # ---- for the other modules of this package ----

    @classmethod
    def _operation(cls, name: str) -> Function:
        return function(f"{cls.c_name}_{name}")

    def _call(self, operation: str, *arguments: Any) -> Any:
        """Calls an operation of the type with the arguments between store set and status word."""
        return self._domain._call(self._operation(operation), *arguments, type=self.c_name)

    def _address(self) -> int:
        record = self
        while record._parent is not None:
            views = record._parent._views
            if views is None or views.get(record._slot) is not record:
                raise self._gone()
            record = record._parent
        if not record._at:
            raise self._gone()
        return self._at

    def _gone(self) -> GoneError:
        return GoneError(f"this {type(self).__name__} is gone: it was removed, replaced or destroyed")

    def _own(self, domain: Domain, at: int) -> None:
        """Makes the object the owner of an Instance. The end of the process leaves it to the system."""
        if not at:
            raise domain._error(12, self.c_name)
        _domains[at] = domain
        self._at = at
        self._domain = domain
        self._parent = None
        self._slot = None
        self._views = None

    def _disown(self) -> int:
        """The Instance, which somebody else owns now."""
        at, self._at = self._at, 0
        del _domains[at]
        return at

    def _destroy(self) -> None:
        """Destroys an owned Instance."""
        destroy = self._operation("destroy")
        destroy(self._domain._c, NO_SET, self._disown())

    def __del__(self, is_finalizing: Callable[[], bool] = sys.is_finalizing) -> None:
        if getattr(self, "_at", 0) and self._parent is None and not is_finalizing():
            self._destroy()

    def _children(self) -> weakref.WeakValueDictionary[Hashable, Record]:
        if self._views is None:
            self._views = weakref.WeakValueDictionary()
        return self._views

    def _view(self, cls: type[R], slot: Hashable, at: int) -> R:
        """The view of an Instance that lies in this record; the same object as long as somebody holds it."""
        view = self._views.get(slot) if self._views is not None else None
        if view is None:
            view = cls.__new__(cls)
            view._at = at
            view._domain = self._domain
            view._parent = self
            view._slot = slot
            view._views = None
            self._children()[slot] = view
        assert isinstance(view, cls)
        return view

    def _drop_view(self, slot: Hashable) -> None:
        """What this slot holds is about to go, and with it all views of it."""
        if self._views is not None:
            self._views.pop(slot, None)

    def _move(self, at: int) -> None:
        """The Instance is now at another address, and what is embedded in it moved along."""
        views = list(self._views.items()) if self._views is not None else []
        for slot, view in views:
            if isinstance(slot, str) and self._type.fields[slot].kind == "embedded":
                view._move(view._at - self._at + at)
        self._at = at

    def _require_movable(self, record: Any, cls: type[R]) -> R:
        """Checks that a value can be handed over to this record."""
        if not isinstance(record, cls):
            raise TypeError(f"a {cls.__name__} is wanted, not {type(record).__name__}")
        record._address()
        if record._parent is not None:
            raise OwnershipError(f"a {type(record._parent).__name__} owns this {cls.__name__}; "
                                 "hand over a copy(), or take it out first")
        if record._domain is not self._domain:
            raise OwnershipError(f"this {cls.__name__} lives in another Domain; unmarshal() a copy in this one")
        return record

    def _adopt(self, record: Record, slot: Hashable) -> None:
        """This record owns the Instance of another from now on, and that one is a view."""
        record._at = record._disown()
        record._parent = self
        record._slot = slot
        self._children()[slot] = record

    def _adopt_content(self, record: Record, slot: Hashable, at: int) -> None:
        """As _adopt(), when only the content has moved and the Instance is left."""
        husk = record._at
        self._adopt(record, slot)
        record._move(at)
        destroy = record._operation("destroy")
        destroy(record._domain._c, NO_SET, husk)

    def _give_back(self, cls: type[R], slot: Hashable, at: int) -> R:
        """An Instance that has been taken out of this record, with an owner of its own."""
        record = self._view(cls, slot, at)
        views = record._views
        self._drop_view(slot)
        record._own(self._domain, at)
        record._views = views
        return record

    def _become(self, other: Record) -> None:
        """Takes over the Instance that another record owns. Views of what this one had are gone."""
        self._own(other._domain, other._disown())


def _is_set(value: Any) -> bool:
    """Whether a field's value is other than that of a fresh record."""
    if isinstance(value, Record):
        return any(_is_set(v) for _, v in value._contents())
    if isinstance(value, tuple) or getattr(value, "is_fixed", False):
        return any(value)
    return bool(value) and value != "00:00:00:00:00:00"


class _Named:
    c_name: ClassVar[str]
    _type: ClassVar[catalogue.Type]


class Enumeration(_Named, enum.IntEnum):
    """Base of all enumerations. A number without an enumerator, which a peer may send, is a member UNKNOWN_<number>."""

    @classmethod
    def _missing_(cls, value: object) -> Optional[Enumeration]:
        if not isinstance(value, int) or not 0 <= value < 1 << 32:
            return None
        member = int.__new__(cls, value)
        member._name_ = f"UNKNOWN_{value}"
        member._value_ = value
        return member

    def marshal(self, domain: Optional[Domain] = None) -> bytes:
        """The enumerator as a message of its own, in the Domain's variant."""
        domain = domain or current_domain()
        with _EnumInstance(type(self), domain) as at:
            if self:
                self._call(domain, "set_value", at, self.value)
            buffer = ctypes.create_string_buffer(16)
            length = self._call(domain, "marshal", buffer, at, 16)
            return buffer.raw[:length]

    @classmethod
    def unmarshal(cls, data: Union[bytes, bytearray, memoryview], domain: Optional[Domain] = None) -> Self:
        """The enumerator of such a message."""
        message, length = _message(data)
        domain = domain or current_domain()
        with _EnumInstance(cls, domain) as at:
            used = cls._call(domain, "unmarshal", message, at, length, 0)
            if used != length:
                raise WrongLengthError(90, cls._type.name, more=f"{used} bytes are read of {length}")
            return cls(cls._call(domain, "get_value", at))

    @classmethod
    def _call(cls, domain: Domain, operation: str, *arguments: Any) -> Any:
        return domain._call(function(f"{cls._type.name}_{operation}"), *arguments, type=cls._type.name)


class _EnumInstance:
    def __init__(self, cls: type[Enumeration], domain: Domain) -> None:
        self._domain = domain
        self._name = cls._type.name
        self._at: int = function(f"{self._name}_create")(domain._address(), NO_SET)
        if not self._at:
            raise domain._error(12, self._name)

    def __enter__(self) -> int:
        return self._at

    def __exit__(self, *_: object) -> None:
        function(f"{self._name}_destroy")(self._domain._c, NO_SET, self._at)


# ---- classes from the description ----


@functools.cache
def class_of(c_name: str) -> Any:
    """The class of a type."""
    from .fields import descriptor

    type_ = catalogue.types()[c_name]
    if type_.kind == "enum":
        lines = "".join(f"\n    {name} = {number}: {text}" for name, number, _, text in type_.enumerators)
        make: Any = Enumeration
        made: Any = make(type_.title, [(name, number) for name, number, _, _ in type_.enumerators], module="orlan_epm")
        made.__doc__ = f"{type_.description}\n{lines}\n\nIn C: {c_name}."
        made.c_name = c_name
        made._type = type_
        return made
    clash = [name for name in type_.fields if hasattr(Record, name)]
    if clash:
        raise Error(f"{c_name} has fields that are named as methods: {clash}")
    fields: dict[str, Any] = {name: descriptor(type_, field) for name, field in type_.fields.items()}
    return type(type_.title, (Record,),
                {"__slots__": (), "__module__": "orlan_epm", "c_name": c_name, "_type": type_,
                 "__doc__": f"{type_.description}\n\nIn C: struct {c_name}.", **fields})
