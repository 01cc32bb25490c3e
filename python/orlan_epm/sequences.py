"""What a record holds many of: numbers, records in a list, records in an array."""

from __future__ import annotations

import ctypes
from typing import TYPE_CHECKING, Any, Generic, Iterable, Iterator, MutableSequence, Optional, TypeVar, Union, overload

from .values import whole_number

if TYPE_CHECKING:
    from .fields import Sequence as SequenceField
    from .records import Record

T = TypeVar("T")
R = TypeVar("R", bound="Record")


class Elements(MutableSequence[T]):
    """What the three have in common: the record and the field, slices, comparison."""

    __slots__ = ("_field", "_record")
    is_fixed = False

    def __init__(self, field: SequenceField, record: Record) -> None:
        self._field = field
        self._record = record

    def _call(self, operation: str, *arguments: Any) -> Any:
        return self._field._call(self._record, operation, *arguments)

    def _replace(self, values: Iterable[T]) -> None:
        """Makes the values all that there is."""
        if values is not self and not (isinstance(values, Elements) and values._is_same(self)):
            self[:] = values

    def _is_same(self, other: Elements[Any]) -> bool:
        return self._record is other._record and self._field is other._field

    def _index(self, index: int) -> int:
        count = len(self)
        place = index.__index__()
        place = place + count if place < 0 else place
        if not 0 <= place < count:
            raise IndexError(f"{type(self).__name__} of {count} has no element {index}")
        return place

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, (Elements, list, tuple)):
            return NotImplemented
        return len(self) == len(other) and all(a == b for a, b in zip(self, other))

    __hash__ = None  # type: ignore[assignment]

    def __repr__(self) -> str:
        return repr(list(self))

    def reverse(self) -> None:
        for index in range(1, len(self)):
            self.insert(0, self.pop(index))


class NumberSequence(Elements[int]):
    """An array of numbers, or a fixed run of them, which always has the same length."""

    __slots__ = ("_size", "_capacity")

    def __init__(self, field: SequenceField, record: Record, size: int, capacity: int) -> None:
        super().__init__(field, record)
        self._size = size
        self._capacity = capacity

    @property
    def is_fixed(self) -> bool:  # type: ignore[override]
        return self._capacity != 0

    def __len__(self) -> int:
        length: int = self._capacity or getattr(self._record, self._field.data.length_field or "")
        return length

    def _buffer(self, numbers: Iterable[int]) -> Any:
        checked = [whole_number(n, self._size) for n in numbers]
        number = {1: ctypes.c_uint8, 2: ctypes.c_uint16, 4: ctypes.c_uint32, 8: ctypes.c_uint64}[self._size]
        return (number * len(checked))(*checked)

    def _all(self) -> list[int]:
        buffer = self._buffer([0] * len(self))
        if len(buffer):
            self._call("get_mem", buffer, len(buffer))
        return list(buffer)

    def _set_all(self, numbers: Iterable[int]) -> None:
        buffer = self._buffer(numbers)
        if len(buffer):
            self._call("set_mem", buffer, len(buffer))
        else:
            self._record._operation(f"{self._field.data.name}_remove_elements")(
                self._record._domain._c, 0xFFFFFFFF, self._record._address())

    @overload
    def __getitem__(self, index: int) -> int: ...
    @overload
    def __getitem__(self, index: slice) -> list[int]: ...
    def __getitem__(self, index: Union[int, slice]) -> Union[int, list[int]]:
        if isinstance(index, slice):
            return self._all()[index]
        number: int = self._call("get_value", self._index(index))
        return number

    @overload
    def __setitem__(self, index: int, value: int) -> None: ...
    @overload
    def __setitem__(self, index: slice, value: Iterable[int]) -> None: ...
    def __setitem__(self, index: Any, value: Any) -> None:
        if isinstance(index, slice):
            self._change(index, list(value))
        else:
            self._call("set_value", self._index(index), whole_number(value, self._size))

    def __delitem__(self, index: Union[int, slice]) -> None:
        if isinstance(index, slice):
            numbers = self._all()
            del numbers[index]
            self._require_length(len(numbers))
            self._set_all(numbers)
        else:
            place = self._index(index)
            del self[place : place + 1]

    def insert(self, index: int, value: int) -> None:
        numbers = self._all()
        numbers.insert(index, value)
        self._require_length(len(numbers))
        self._set_all(numbers)

    def append(self, value: int) -> None:
        self._require_length(len(self) + 1)
        self._call("set_value", len(self), whole_number(value, self._size))

    def extend(self, values: Iterable[int]) -> None:
        self[len(self) :] = values

    def __iter__(self) -> Iterator[int]:
        return iter(self._all())

    def _change(self, index: slice, values: list[int]) -> None:
        numbers = self._all()
        numbers[index] = values
        if self._capacity and index == slice(None) and len(numbers) < self._capacity:
            numbers += [0] * (self._capacity - len(numbers))
        self._require_length(len(numbers))
        self._set_all(numbers)

    def _require_length(self, length: int) -> None:
        if self._capacity and length != self._capacity:
            raise ValueError(f"a fixed run always has {self._capacity} elements, not {length}")


class RecordElements(Elements[R], Generic[R]):
    """Elements that are records: a record that is put in becomes a view, and pop() gives it an owner again."""

    __slots__ = ("_class",)

    def __init__(self, field: SequenceField, record: Record, cls: type[R]) -> None:
        super().__init__(field, record)
        self._class = cls

    def _movable(self, values: Iterable[Any]) -> list[R]:
        """Checks all values before the first is put in."""
        records = [self._record._require_movable(v, self._class) for v in values]
        if len({id(r) for r in records}) != len(records):
            raise ValueError("the same record twice")
        return records

    def _places(self, index: Union[int, slice]) -> list[int]:
        return list(range(len(self)))[index] if isinstance(index, slice) else [self._index(index)]

    def _all(self) -> list[R]:
        """Views of all elements."""
        raise NotImplementedError

    def __iter__(self) -> Iterator[R]:
        """Goes over the elements that there are now, so the loop may remove them."""
        return iter(self._all())

    def __reversed__(self) -> Iterator[R]:
        return reversed(self._all())

    @overload
    def __getitem__(self, index: int) -> R: ...
    @overload
    def __getitem__(self, index: slice) -> list[R]: ...
    def __getitem__(self, index: Union[int, slice]) -> Union[R, list[R]]:
        if isinstance(index, slice):
            return self._all()[index]
        return self._at(self._index(index))

    def _at(self, index: int) -> R:
        raise NotImplementedError

    def _put_in(self, index: int, records: list[R]) -> None:
        """Inserts records that were checked."""
        raise NotImplementedError

    def _take_out(self, places: list[int]) -> list[R]:
        """Removes the elements at these places, and gives each an owner."""
        raise NotImplementedError

    @overload
    def __setitem__(self, index: int, value: R) -> None: ...
    @overload
    def __setitem__(self, index: slice, value: Iterable[R]) -> None: ...
    def __setitem__(self, index: Any, value: Any) -> None:
        places = self._places(index)
        if not isinstance(index, slice):
            if value is self._at(places[0]):
                return
            value = [value]
        records = self._movable(value)
        if isinstance(index, slice) and index.step not in (None, 1):
            if len(records) != len(places):
                raise ValueError(f"{len(records)} records for {len(places)} places")
            for place, record in zip(places, records):
                self[place] = record
            return
        start = places[0] if places else index.indices(len(self))[0]
        self._discard(places)
        self._put_in(start, records)

    def __delitem__(self, index: Union[int, slice]) -> None:
        self._discard(self._places(index))

    def _discard(self, places: list[int]) -> None:
        for record in self._take_out(places) if places else ():
            record._destroy()

    def insert(self, index: int, value: R) -> None:
        count = len(self)
        place = max(0, index + count) if index < 0 else min(index, count)
        self._put_in(place, self._movable([value]))

    def extend(self, values: Iterable[R]) -> None:
        self._put_in(len(self), self._movable(values))

    def append(self, value: R) -> None:
        self.extend([value])

    def pop(self, index: int = -1) -> R:
        """Takes an element out; the result owns it."""
        return self._take_out([self._index(index)])[0]

    def clear(self) -> None:
        del self[:]


class RecordList(RecordElements[R]):
    """A list whose elements are Instances of their own."""

    __slots__ = ()

    def __len__(self) -> int:
        count: int = self._call("get_count")
        return count

    def _all(self) -> list[R]:
        views = []
        element = self._call("get_first")
        while element:
            views.append(self._view(element))
            element = self._call("get_next", element)
        return views

    def _view(self, element: int) -> R:
        return self._record._view(self._class, (self._field.data.name, element), element)

    def _at(self, index: int) -> R:
        element = self._call("get_first")
        for _ in range(index):
            element = self._call("get_next", element)
        return self._view(element)

    def _put_in(self, index: int, records: list[R]) -> None:
        reference: Optional[R] = self._at(index) if index < len(self) else None
        for record in records:
            if reference is None:
                self._call("set_last", record._at)
            else:
                self._call("set_before", reference._at, record._at)
            self._record._adopt(record, (self._field.data.name, record._at))

    def _take_out(self, places: list[int]) -> list[R]:
        views = self._all()
        taken = []
        for place in places:
            at = views[place]._at
            self._call("remove", at)
            taken.append(self._record._give_back(self._class, (self._field.data.name, at), at))
        return taken


class RecordArray(RecordElements[R]):
    """An array of records in one block. Only its end can grow in place; any other change builds it anew."""

    __slots__ = ()

    def __len__(self) -> int:
        length: int = getattr(self._record, self._field.data.length_field or "")
        return length

    def _all(self) -> list[R]:
        return [self._at(index) for index in range(len(self))]

    def _slot(self, index: int) -> tuple[str, int]:
        return self._field.data.name, index

    def _at(self, index: int) -> R:
        return self._record._view(self._class, self._slot(index), self._call("get", index))

    def _put_in(self, index: int, records: list[R]) -> None:
        behind = self._take_out(list(range(index, len(self)))) if records else []
        self._append(records + behind)

    def _take_out(self, places: list[int]) -> list[R]:
        """Elements are given back as copies. A view that somebody holds goes on with the copy."""
        if not places:
            return []
        former = self._all()
        copies = [view.copy() for view in former]
        remove = self._record._operation(f"{self._field.data.name}_remove_elements")
        remove(self._record._domain._c, 0xFFFFFFFF, self._record._address())
        elements = []
        for index, (view, copy) in enumerate(zip(former, copies)):
            self._record._drop_view(self._slot(index))
            view._become(copy)
            elements.append(view)
        taken = set(places)
        self._append([e for i, e in enumerate(elements) if i not in taken])
        return [elements[i] for i in places]

    def _append(self, records: list[R]) -> None:
        """The last one first, so that the array grows once."""
        first = len(self)
        for offset in reversed(range(len(records))):
            self._call("set", first + offset, records[offset]._at, 1)
            if offset == len(records) - 1:
                self._move_views(first)
        for offset, record in enumerate(records):
            index = first + offset
            self._record._adopt_content(record, self._slot(index), self._call("get", index))

    def _move_views(self, count: int) -> None:
        """The array has grown, and its elements are elsewhere."""
        children = self._record._children()
        for index in range(count):
            view = children.get(self._slot(index))
            if view is not None:
                view._move(self._call("get", index))
