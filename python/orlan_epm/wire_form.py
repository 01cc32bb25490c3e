"""Messages as plain values and back, by the description alone.

The values are dicts, lists, strings, numbers and truth values, as docs/json.md describes them. They hold everything
that a message has, so the same bytes come out again.
"""

from __future__ import annotations

from typing import Any, Optional

from . import catalogue
from .catalogue import Field, Type
from .errors import DocumentError, WrongLengthError, suggestion
from .values import address_from, address_of, mac_bytes, mac_text

TRACKED, RA_DATA = 0x08, 0x20
RA_LENGTH = 9


def decode(type: Type, message: bytes) -> Any:
    """The values of a whole message of the type."""
    reader = _Reader(message)
    value = reader.enumeration(type) if type.kind == "enum" else reader.record(type)
    if reader.rest():
        raise reader.damage(type.name, f"{reader.rest()} bytes behind the end")
    return value


def encode(type: Type, value: Any) -> bytes:
    """The message with these values; what is missing is zero or empty."""
    writer = _Writer()
    if type.kind == "enum":
        writer.enumeration(type, value, "", 0)
    else:
        writer.record(type, value, "")
    return bytes(writer.message)


def _has_no_flags(field: Field, present: int) -> bool:
    return field.kind in ("text", "array") and present == 0


class _Reader:
    def __init__(self, message: bytes) -> None:
        self.message = message
        self.at = 0

    def rest(self) -> int:
        return len(self.message) - self.at

    def damage(self, name: str, reason: str) -> WrongLengthError:
        return WrongLengthError(90, name, more=f"at offset {self.at}: {reason}")

    def take(self, length: int, name: str) -> bytes:
        if length > self.rest():
            raise self.damage(name, f"needs {length} bytes, {self.rest()} left")
        self.at += length
        return self.message[self.at - length : self.at]

    def number(self, length: int, name: str, is_signed: bool = False) -> int:
        return int.from_bytes(self.take(length, name), "big", signed=is_signed)

    def enumeration(self, type: Type) -> Any:
        variant = self.number(1, type.name, True)
        number = self.number(4, type.name)
        value: Any = type.enumerators[number][0] if number < len(type.enumerators) else number
        return _with_variant(variant, type.top, value)

    def record(self, type: Type) -> dict[str, Any]:
        content: dict[str, Any] = {}
        variant = self.number(1, type.name, True)
        flags = self.number(1, type.name)
        if variant != type.top:
            content["$variant"] = variant
        if flags & ~(TRACKED | RA_DATA):
            content["$flags"] = flags
        if flags & RA_DATA:
            content["$ra"] = self.take(RA_LENGTH, type.name).hex()
        goal = self.at + self.number(4, type.name)
        state: Optional[dict[str, str]] = {} if flags & TRACKED else None
        self.fields(type, variant, content, state, goal)
        if state is not None:
            content["$state"] = state
        if goal > self.at:
            content["$rest"] = self.take(goal - self.at, type.name).hex()
        return content

    def fields(self, type: Type, variant: int, content: dict[str, Any], state: Optional[dict[str, str]],
               goal: int) -> None:
        lengths: dict[str, int] = {}
        tag = 0
        for name, field in type.fields.items():
            if field.since > variant:
                continue
            if field.kind == "length":
                lengths[name] = self.number(field.size, f"{type.name}.{name}")
                continue
            present = lengths[field.length_field] if field.length_field else field.elements
            if field.kind == "arm":
                if tag == field.tag:
                    content[name] = self.record(catalogue.types()[field.type])
            else:
                at = self.at
                content[name] = self.field(field, f"{type.name}.{name}", present)
                if name == type.tag_field:
                    tag = int.from_bytes(self.message[at + 1 : at + 5], "big")
            if state is not None:
                flags = self.state_flags(field, present, goal)
                if any(flags):
                    state[name] = flags.hex()

    def field(self, field: Field, name: str, present: int) -> Any:
        if field.kind == "text":
            return _text(self.take(present, name))
        if field.kind == "characters":
            return _text(self.take(present, name).rstrip(b"\0"))
        if field.kind == "run":
            return _run(self.take(present, name))
        if field.kind == "list":
            present = self.number(4, name)
        if field.kind in ("list", "array"):
            return [self.value(field.type, name) for _ in range(present)]
        return self.value(field.type, name)

    def state_flags(self, field: Field, present: int, goal: int) -> bytes:
        """A writer leaves out the last flags when its buffer is full; the jump word shows whether more is missing."""
        if _has_no_flags(field, present) or (field.kind == "list" and self.rest() == 1 and goal <= self.at):
            return b""
        wanted = 1 + present if field.has_element_flags else 1
        return self.take(min(wanted, self.rest()), field.name)

    def value(self, type_name: str, name: str) -> Any:
        own = catalogue.types().get(type_name)
        if own is not None:
            return self.enumeration(own) if own.kind == "enum" else self.record(own)
        type = catalogue.imported()[type_name]
        if type.framing == "number":
            number = self.number(type.wire_length, name)
            if type.name == "zur_boolean" and number <= 1:
                return number == 1
            return str(number) if type.wire_length > 4 else number
        if type.framing == "character":
            return self.number(1, name, True)
        if type.framing == "enumerated":
            return _with_variant(self.number(1, name, True), 0, self.number(4, name))
        if type.framing == "mac":
            return mac_text(self.take(6, name))
        if type.framing == "address":
            family = self.number(1, name)
            if family not in (0, 4, 6):
                raise self.damage(name, f"family {family} is none of 0, 4 and 6")
            address = address_from(family, self.take({0: 0, 4: 4, 6: 16}[family], name))
            return None if address is None else str(address)
        front = self.number(4, name) if type.framing == "typed" else 0
        content = self.take(self.number(4, name), name)
        if type.framing == "typed":
            return {"type": front, "value": content.hex()}
        return _text(content) if type.framing == "text" else content.hex()


def _with_variant(variant: int, usual: int, value: Any) -> Any:
    return value if variant == usual else {"$variant": variant, "value": value}


def _text(characters: bytes) -> Any:
    try:
        return characters.decode()
    except UnicodeDecodeError:
        return {"$hex": characters.hex()}


def _run(run: bytes) -> Any:
    """Text where it is one; its zeros at the end fill it up."""
    text = _text(run.rstrip(b"\0"))
    is_text = isinstance(text, str) and not any(character < " " or character == "\x7f" for character in text)
    return text if is_text else list(run)


# ---- writing ----


def _below(at: str, name: object) -> str:
    return f"{at}/{str(name).replace('~', '~0').replace('/', '~1')}"


def _number(value: Any, at: str, length: int, is_signed: bool = False) -> int:
    low, high = (-(1 << 8 * length - 1), (1 << 8 * length - 1) - 1) if is_signed else (0, (1 << 8 * length) - 1)
    number = value
    if length == 8 and isinstance(value, str) and value.isascii() and value.isdigit() and len(value) <= 20:
        number = int(value)
    if isinstance(number, bool) or not isinstance(number, int) or not low <= number <= high:
        raise DocumentError(f"not a whole number from {low} to {high}", at)
    return number


def _hex(value: Any, at: str) -> bytes:
    if isinstance(value, str) and value.isascii() and not any(c.isspace() for c in value):
        try:
            return bytes.fromhex(value)
        except ValueError:
            pass
    raise DocumentError("not a string of pairs of hexadecimal digits", at)


def _object(value: Any, at: str, *names: str) -> dict[str, Any]:
    if not isinstance(value, dict):
        raise DocumentError(f"not an object of {', '.join(names)}", at)
    for name in value:
        if name not in names:
            raise DocumentError(f"no member here, only {', '.join(names)}", _below(at, name))
    return value


def _characters(value: Any, at: str) -> bytes:
    if isinstance(value, str):
        try:
            return value.encode()
        except UnicodeEncodeError:
            raise DocumentError("half of a surrogate pair", at) from None
    if not isinstance(value, dict):
        raise DocumentError("not a string", at)
    return _hex(_object(value, at, "$hex").get("$hex", ""), _below(at, "$hex"))


def _elements(value: Any, at: str, most: int) -> list[Any]:
    if not isinstance(value, list):
        raise DocumentError("not an array", at)
    if len(value) > most:
        raise DocumentError(f"more than {most} elements", at)
    return value


_MEMBERS = ("$variant", "$flags", "$ra", "$state", "$rest")


class _Writer:
    def __init__(self) -> None:
        self.message = bytearray()

    def put(self, number: int, length: int) -> None:
        self.message += number.to_bytes(length, "big", signed=number < 0)

    def enumeration(self, type: Type, value: Any, at: str, absent: int) -> int:
        """Writes an enumerator, and returns its number."""
        value, at = self.variant(value, at, type.top)
        if value is None:
            number = absent
        elif isinstance(value, str):
            numbers = {name: n for name, n, _, _ in type.enumerators}
            if value not in numbers:
                raise DocumentError(f"{value}, no enumerator of {type.name}{suggestion(value, list(numbers))}", at)
            number = numbers[value]
        else:
            number = _number(value, at, 4)
        self.put(number, 4)
        return number

    def variant(self, value: Any, at: str, usual: int) -> tuple[Any, str]:
        """Writes the variant of an enumerated value, and returns the value with its place."""
        if isinstance(value, dict):
            _object(value, at, "$variant", "value")
            usual = _number(value.get("$variant", usual), _below(at, "$variant"), 1, True)
            value, at = value.get("value"), _below(at, "value")
        self.put(usual, 1)
        return value, at

    def record(self, type: Type, content: Any, at: str) -> None:
        if not isinstance(content, dict):
            raise DocumentError(f"not an object of {type.name}'s fields", at)
        variant = _number(content.get("$variant", type.top), _below(at, "$variant"), 1, True)
        self.require_fields(type, content, at, variant, False)
        state = content.get("$state")
        if "$state" in content:
            if not isinstance(state, dict):
                raise DocumentError("not an object of state flags", _below(at, "$state"))
            self.require_fields(type, state, _below(at, "$state"), variant, True)
        self.put(variant, 1)
        self.flags(content, at)
        jump_word = len(self.message)
        self.put(0, 4)
        self.fields(type, variant, content, state, at)
        self.message += _hex(content.get("$rest", ""), _below(at, "$rest"))
        self.message[jump_word : jump_word + 4] = (len(self.message) - jump_word).to_bytes(4, "big")

    @staticmethod
    def require_fields(type: Type, content: dict[str, Any], at: str, variant: int, is_state: bool) -> None:
        for name in content:
            if not is_state and name in _MEMBERS:
                continue
            field = type.fields.get(name)
            if field is None or (is_state and not field.is_tracked):
                names = [*type.fields, *(() if is_state else _MEMBERS)]
                what = "no field with a state flag in" if is_state else "no field of"
                raise DocumentError(f"{what} {type.name}{suggestion(str(name), names)}", _below(at, name))
            if field.since > variant:
                raise DocumentError(f"comes with variant {field.since}, and the record is of variant {variant}",
                                    _below(at, name))

    def flags(self, content: dict[str, Any], at: str) -> None:
        ra = _hex(content.get("$ra", ""), _below(at, "$ra"))
        if "$ra" in content and len(ra) != RA_LENGTH:
            raise DocumentError(f"not of {RA_LENGTH} bytes", _below(at, "$ra"))
        shown = (TRACKED if "$state" in content else 0) | (RA_DATA if "$ra" in content else 0)
        byte = _number(content.get("$flags", shown), _below(at, "$flags"), 1)
        if byte & (TRACKED | RA_DATA) != shown:
            raise DocumentError("8 is set with $state and only then, 32 with $ra", _below(at, "$flags"))
        self.put(byte, 1)
        self.message += ra

    def fields(self, type: Type, variant: int, content: dict[str, Any], state: Optional[dict[str, Any]],
               at: str) -> None:
        tag = 0
        for name, field in type.fields.items():
            if field.since > variant:
                continue
            own = _below(at, name)
            if field.kind == "length":
                self.length(type, field, content, at)
                continue
            present = 1
            if field.kind == "arm":
                if tag == field.tag:
                    self.record(catalogue.types()[field.type], content.get(name, {}), own)
                elif name in content:
                    raise DocumentError(f"not the arm that {type.tag_field} selects", own)
            elif name == type.tag_field:
                arms = (f.tag or 0 for f in type.fields.values() if f.kind == "arm" and f.name in content)
                tag = self.enumeration(catalogue.types()[field.type], content.get(name), own, next(arms, 0))
            else:
                present = self.field(field, content, own)
            if state is not None:
                self.state_flags(field, state.get(name, ""), _below(_below(at, "$state"), name), present)

    def length(self, type: Type, field: Field, content: dict[str, Any], at: str) -> None:
        counted = next(f for f in type.fields.values() if f.length_field == field.name)
        own = _below(at, counted.name)
        most = (1 << 8 * field.size) - 1
        if counted.kind == "text":
            count = len(_characters(content.get(counted.name, ""), own))
        else:
            count = len(_elements(content.get(counted.name, []), own, most))
        if count > most:
            raise DocumentError(f"longer than {most} bytes", own)
        if field.name in content and _number(content[field.name], _below(at, field.name), field.size) != count:
            reason = f"not the length of {counted.name}, {count}; it can be left out"
            raise DocumentError(reason, _below(at, field.name))
        self.put(count, field.size)

    def field(self, field: Field, content: dict[str, Any], at: str) -> int:
        """Writes a field; returns the number of its elements or characters."""
        is_text_run = field.kind == "run" and isinstance(content.get(field.name), str)
        if field.kind in ("text", "characters") or is_text_run:
            text = _characters(content.get(field.name, ""), at)
            if field.kind != "text":
                if len(text) > field.elements:
                    raise DocumentError(f"longer than {field.elements} bytes", at)
                text = text.ljust(field.elements, b"\0")
            self.message += text
            return len(text)
        if field.kind in ("list", "array", "run"):
            elements = _elements(content.get(field.name, []), at, field.elements or (1 << 32) - 1)
            if field.kind == "list":
                self.put(len(elements), 4)
            for i, element in enumerate(elements):
                self.value(field.type, element, True, _below(at, i))
            for _ in range(field.elements - len(elements)):
                self.value(field.type, None, False, at)
            return max(len(elements), field.elements)
        self.value(field.type, content.get(field.name), field.name in content, at)
        return 1

    def state_flags(self, field: Field, value: Any, at: str, present: int) -> None:
        wanted = 0 if _has_no_flags(field, present) else 1 + present if field.has_element_flags else 1
        flags = _hex(value, at)
        if len(flags) > wanted:
            raise DocumentError(f"more than {wanted} state flag{'' if wanted == 1 else 's'}", at)
        self.message += flags.ljust(wanted, b"\0")

    def value(self, type_name: str, value: Any, is_there: bool, at: str) -> None:
        own = catalogue.types().get(type_name)
        if own is not None:
            if own.kind == "enum":
                self.enumeration(own, value if is_there else 0, at, 0)
            else:
                self.record(own, value if is_there else {}, at)
            return
        type = catalogue.imported()[type_name]
        if not is_there:
            value = _EMPTY.get(type.framing, 0)
        if type.framing == "number":
            is_truth = type.name == "zur_boolean" and isinstance(value, bool)
            self.put(int(value) if is_truth else _number(value, at, type.wire_length), type.wire_length)
        elif type.framing == "character":
            self.put(_number(value, at, 1, True), 1)
        elif type.framing == "enumerated":
            value, at = self.variant(value, at, 0)
            self.put(_number(0 if value is None else value, at, 4), 4)
        elif type.framing == "mac":
            self.message += _mac(value, at)
        elif type.framing == "address":
            self.address(value, at)
        else:
            if type.framing == "typed":
                _object(value, at, "type", "value")
                self.put(_number(value.get("type", 0), _below(at, "type"), 4), 4)
                value, at = value.get("value", ""), _below(at, "value")
            content = _characters(value, at) if type.framing == "text" else _hex(value, at)
            self.put(len(content), 4)
            self.message += content

    def address(self, value: Any, at: str) -> None:
        if value is None:
            self.put(0, 1)
            return
        try:
            address = address_of(value) if isinstance(value, str) else None
        except ValueError:
            address = None
        if address is None:
            raise DocumentError('neither an address such as "10.0.0.1" or "2001:db8::1" nor null', at)
        self.put(address.version, 1)
        self.message += address.packed


_EMPTY: dict[str, Any] = {"mac": "00:00:00:00:00:00", "address": None, "text": "", "bytes": "", "typed": {}}


def _mac(value: Any, at: str) -> bytes:
    try:
        if isinstance(value, str) and "-" not in value:
            return mac_bytes(value)
    except ValueError:
        pass
    raise DocumentError('not an Ethernet address such as "02:00:00:00:00:01"', at)
