"""The fields of records: one descriptor class for each kind of field."""

from __future__ import annotations

import ctypes
from typing import TYPE_CHECKING, Any, Generic, Iterable, Optional, TypeVar, Union, overload

from . import catalogue
from .errors import status_error
from .library import Function, function
from .records import Record, class_of
from .sequences import NumberSequence, RecordArray, RecordList
from .values import OBJECTS, TemporaryObject, TextLike, characters_of, text_of, whole_number

if TYPE_CHECKING:
    from typing_extensions import Self

Read = TypeVar("Read", covariant=True)
Write = TypeVar("Write", contravariant=True)


class Field(Generic[Read, Write]):
    """A field as its class sees it. Subclasses have _read() and _write()."""

    def __init__(self, type: catalogue.Type, data: catalogue.Field) -> None:
        self.data = data
        self.type = type
        since = f" From variant {data.since}." if data.since else ""
        self.__doc__ = data.description + since
        self._functions: dict[str, Function] = {}

    @overload
    def __get__(self, record: None, owner: object) -> Self: ...
    @overload
    def __get__(self, record: Record, owner: object) -> Read: ...
    def __get__(self, record: Optional[Record], owner: object) -> Union[Self, Read]:
        if record is None:
            return self
        value: Read = self._read(record)
        return value

    def __set__(self, record: Record, value: Write) -> None:
        try:
            self._write(record, value)
        except (TypeError, ValueError, OverflowError) as refusal:
            if type(refusal) in (TypeError, ValueError, OverflowError):
                refusal.args = (f"{type(record).__name__}.{self.data.name}: {refusal}",)
            raise

    def __delete__(self, record: Record) -> None:
        raise AttributeError(f"{type(record).__name__}.{self.data.name} cannot be deleted, only set")

    def _read(self, record: Record) -> Any:
        raise NotImplementedError

    def _write(self, record: Record, value: Any) -> None:
        raise NotImplementedError

    def _call(self, record: Record, operation: str, *arguments: Any) -> Any:
        """Calls an accessor of the field with the arguments behind the Instance."""
        found = self._functions.get(operation)
        if found is None:
            found = self._functions[operation] = function(f"{self.type.name}_{self.data.name}_{operation}")
        return record._domain._call(found, record._address(), *arguments, type=self.type.name, field=self.data.name)

    def _memory(self, record: Record) -> int:
        """The address of the field, for contents that an accessor would cut at a NUL."""
        if record.variant < self.data.since:
            raise status_error(43, self.type.name, self.data.name)
        return record._address() + self.data.offset


class Number(Field[Any, Any]):
    """A number, a truth value or an enumerator."""

    def _convert(self, number: int) -> Any:
        return number

    def _read(self, record: Record) -> Any:
        return self._convert(self._call(record, "get_value"))

    def _write(self, record: Record, value: Any) -> None:
        number = whole_number(value, _number_size(self.data), self.data.type == "char")
        self._call(record, "set_value", number)


class Truth(Number):
    """A truth value. A number that a peer sent and that is neither 0 nor 1 is read as that number."""

    def _convert(self, number: int) -> Any:
        return bool(number) if number <= 1 else number


class Enumerator(Number):
    def _convert(self, number: int) -> Any:
        return class_of(self.data.type)(number)


class Length(Number):
    """The length of a text or array, which follows from that."""

    def _write(self, record: Record, value: Any) -> None:
        counted = next(f.name for f in self.type.fields.values() if f.length_field == self.data.name)
        raise AttributeError(f"{type(record).__name__}.{self.data.name} follows from {counted} and cannot be set")


class Text(Field[str, TextLike]):
    """A counted text."""

    def _read(self, record: Record) -> str:
        length = getattr(record, self.data.length_field or "")
        pointer = ctypes.c_void_p.from_address(self._memory(record)).value
        return text_of(ctypes.string_at(pointer, length)) if pointer and length else ""

    def _write(self, record: Record, value: TextLike) -> None:
        characters = characters_of(value)
        length = len(characters)
        most = (1 << 8 * self.type.fields[self.data.length_field or ""].size) - 1
        if length > most:
            raise ValueError(f"{length} bytes are more than {most}")
        self._call(record, "set", characters, length)
        if b"\0" in characters:  # where the setter stops to copy
            pointer = ctypes.c_void_p.from_address(self._memory(record)).value
            assert pointer
            ctypes.memmove(pointer, characters, length)


class Characters(Field[str, TextLike]):
    """A fixed run of characters, filled up with NULs."""

    def _read(self, record: Record) -> str:
        return text_of(ctypes.string_at(self._memory(record), self.data.elements).rstrip(b"\0"))

    def _write(self, record: Record, value: TextLike) -> None:
        characters = characters_of(value)
        if len(characters) > self.data.elements:
            raise ValueError(f"{len(characters)} bytes are more than {self.data.elements}")
        whole = characters.ljust(self.data.elements, b"\0")
        self._call(record, "set", whole, len(whole))
        ctypes.memmove(self._memory(record), whole, len(whole))  # the setter stops to copy at a NUL


class Object(Field[Any, Any]):
    """A value of a type that another library supplies."""

    def _read(self, record: Record) -> Any:
        return OBJECTS[self.data.type].read(self._call(record, "get"))

    def _write(self, record: Record, value: Any) -> None:
        record._address()
        with TemporaryObject(record._domain, self.data.type, self.data.size, value) as source:
            self._call(record, "set", source)


class Embedded(Field[Any, Any]):
    """A record inside the record. Setting it moves the content of another record here."""

    def _read(self, record: Record) -> Record:
        at = self._call(record, "get")
        view: Record = record._view(class_of(self.data.type), self.data.name, at)
        return view

    def _write(self, record: Record, value: Any) -> None:
        cls = class_of(self.data.type)
        at = self._call(record, "get")
        if isinstance(value, Record) and value._parent is record and value is record._children().get(self.data.name):
            return
        source = record._require_movable(value, cls)
        empty = cls(record._domain)
        if source.variant > empty.variant:
            raise status_error(43, self.type.name, self.data.name)
        record._drop_view(self.data.name)
        # The move does not release what is there, but reading an empty message does.
        message = empty.marshal()
        empty._call("unmarshal", message, at, len(message), 1)
        self._call(record, "set", source._at)
        record._adopt_content(source, self.data.name, at)


class Arm(Field[Any, Any]):
    """An arm of a message, None unless the tag selects it. Setting it makes the message own the record."""

    def _tag(self, record: Record) -> int:
        return int(getattr(record, self.type.tag_field or ""))

    def _read(self, record: Record) -> Optional[Record]:
        at = self._call(record, "get")
        if not at or self._tag(record) != self.data.tag:
            return None
        view: Record = record._view(class_of(self.data.type), self.data.name, at)
        return view

    def _detach(self, record: Record) -> Optional[Record]:
        at = self._call(record, "get_detach")
        if not at:
            return None
        arm: Record = record._give_back(class_of(self.data.type), self.data.name, at)
        return arm

    def _destroy(self, record: Record) -> None:
        """Empties the slot; the arm and its views are gone."""
        arm = self._detach(record)
        if arm is not None:
            arm._destroy()

    def _write(self, record: Record, value: Any) -> None:
        if value is None:
            self._destroy(record)
            return
        at = self._call(record, "get")
        if isinstance(value, Record) and value._parent is record and value._at == at != 0:
            setattr(record, self.type.tag_field or "", self.data.tag)  # it may be another's turn
            return
        source = record._require_movable(value, class_of(self.data.type))
        if at:
            setattr(record, self.type.tag_field or "", self.data.tag)
            self._destroy(record)
        self._call(record, "set", source._at)
        record._adopt(source, self.data.name)

    def __delete__(self, record: Record) -> None:
        self._destroy(record)


class Sequence(Field[Any, Iterable[Any]]):
    """An array, a list or a fixed run."""

    def _read(self, record: Record) -> Any:
        data = self.data
        if record.variant < data.since:
            raise status_error(43, self.type.name, data.name)
        if data.kind == "list":
            return RecordList(self, record, class_of(data.type))
        if data.type in catalogue.types():
            return RecordArray(self, record, class_of(data.type))
        return NumberSequence(self, record, catalogue.imported()[data.type].size, data.elements)

    def _write(self, record: Record, value: Iterable[Any]) -> None:
        self._read(record)._replace(value)


def _number_size(data: catalogue.Field) -> int:
    imported = catalogue.imported().get(data.type)
    return 4 if imported is None or imported.framing == "enumerated" else imported.size


_KINDS: dict[str, type[Field[Any, Any]]] = {
    "length": Length, "text": Text, "characters": Characters, "object": Object, "embedded": Embedded, "arm": Arm,
    "array": Sequence, "list": Sequence, "run": Sequence,
}


def descriptor(type: catalogue.Type, data: catalogue.Field) -> Field[Any, Any]:
    kind = _KINDS.get(data.kind)
    if kind is None:
        kind = Enumerator if data.type in catalogue.types() else Truth if data.type == "zur_boolean" else Number
    return kind(type, data)
