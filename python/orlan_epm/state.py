"""State flags of a record in a Domain that tracks."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, Iterator, Mapping, Union

from .catalogue import Field
from .errors import suggestion
from .values import whole_number

if TYPE_CHECKING:
    from .records import Record


class State(Mapping[Union[str, "tuple[str, int]"], int]):
    """The state flags of a record by field: 0 until a field is written, then 2.

    For an array, state["vlans"] is the flag of the whole and state["vlans", 3] that of an element.
    """

    __slots__ = ("_record",)

    def __init__(self, record: Record) -> None:
        self._record = record

    def __getitem__(self, key: Union[str, tuple[str, int]]) -> int:
        flag: int = self._call("get", key)
        return flag

    def __setitem__(self, key: Union[str, tuple[str, int]], flag: int) -> None:
        self._call("set", key, whole_number(flag, 1))

    def __iter__(self) -> Iterator[str]:
        variant = self._record.variant
        return (f.name for f in self._record._type.fields.values() if f.is_tracked and f.since <= variant)

    def __len__(self) -> int:
        return sum(1 for _ in self)

    def __repr__(self) -> str:
        return f"State({dict(self)})"

    def clear(self) -> None:
        """Clears the flags of the record and of all that it owns, as after sending it."""
        self.set_all(0)

    def set_all(self, flag: int) -> None:
        """Gives the same flag to each field of the record and of all that it owns."""
        for name in self:
            assert isinstance(name, str)
            field = self._record._type.fields[name]
            value = getattr(self._record, name)
            self[name] = flag
            if field.has_element_flags:
                for index in range(len(value)):
                    if self[name, index] != flag:
                        self[name, index] = flag
            if field.kind in ("embedded", "arm"):
                if value is not None:
                    value.state.set_all(flag)
            elif field.kind in ("list", "array"):
                for element in value:
                    if hasattr(element, "state"):
                        element.state.set_all(flag)

    def _field(self, name: str) -> Field:
        fields = self._record._type.fields
        field = fields.get(name)
        if field is None or not field.is_tracked:
            raise KeyError(f"no state flag of {name}{suggestion(name, [f for f in fields if fields[f].is_tracked])}")
        return field

    def _call(self, access: str, key: Union[str, tuple[str, int]], *flag: int) -> Any:
        name, index = key if isinstance(key, tuple) else (key, None)
        field = self._field(name)
        operation = f"{name}_state_flag_{access}"
        at = self._record._address()
        if index is not None:
            if not field.has_element_flags:
                raise KeyError(f"the elements of {name} have no state flags here")
            return self._record._call(operation, at, whole_number(index, 4), *flag)
        if field.has_element_flags:
            operation = f"{name}_state_flag_whole_{access}"
        return self._record._call(operation, at, *flag)
