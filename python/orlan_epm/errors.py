"""The exceptions of this package. Those of a failed call of the library are named by its status number."""

from __future__ import annotations

import errno


class Error(Exception):
    """Base of all exceptions that are this package's own."""


class LoadError(Error, OSError):
    """The library, or a function of it, is not there."""


class GoneError(Error, ReferenceError):
    """What this object showed has been removed, replaced or destroyed."""


class OwnershipError(Error, ValueError):
    """A record cannot be handed over, because another record owns it or it belongs to another Domain."""


class DocumentError(Error, ValueError):
    """A JSON or XML document does not describe a record.

    pointer is the JSON pointer of the place; empty for XML and for the document as a whole.
    """

    def __init__(self, reason: str, pointer: str = "") -> None:
        super().__init__(f"{pointer}: {reason}" if pointer else reason)
        self.pointer = pointer


class StatusError(Error):
    """A call of the library failed.

    number is the status number and name its errno name; type and field are the C names, as far as they are known.
    """

    number: int
    name: str
    type: str
    field: str

    def __init__(self, number: int, type: str = "", field: str = "", more: str = "") -> None:
        name = errno.errorcode.get(number, str(number))
        place = f"{type}.{field}" if field else type
        sentence = _SENTENCES.get(number, "the call failed")
        words = f"{place}: {sentence}" if place else sentence
        super().__init__(f"{words}{'; ' + more if more else ''} ({number} {name})")
        self.number = number
        self.name = name
        self.type = type
        self.field = field


class AbsentError(StatusError, LookupError):
    """Status 2: what was asked for is not there."""


class NoMemoryError(StatusError, MemoryError):
    """Status 12: the Domain refused memory."""


class NotInVariantError(StatusError, AttributeError):
    """Status 43: the field or the enumerator does not exist in the record's variant."""


class WrongLengthError(StatusError, ValueError):
    """Status 90: a message is cut short, or other bytes follow it."""


_SENTENCES = {
    errno.ENOENT: "it is not there",
    errno.ENOMEM: "memory is refused",
    errno.EINVAL: "wrong argument, or the record has no state flags",
    errno.ENOSPC: "the buffer is too small",
    errno.EIDRM: "does not exist in the record's variant",
    errno.EMSGSIZE: "a length is wrong",
}
_CLASSES: dict[int, type[StatusError]] = {
    errno.ENOENT: AbsentError,
    errno.ENOMEM: NoMemoryError,
    errno.EIDRM: NotInVariantError,
    errno.EMSGSIZE: WrongLengthError,
}


def status_error(number: int, type: str = "", field: str = "", more: str = "") -> StatusError:
    return _CLASSES.get(number, StatusError)(number, type, field, more)


def suggestion(word: str, names: list[str]) -> str:
    """The end of a sentence about an unknown name."""
    import difflib

    near = difflib.get_close_matches(word, names, 3)
    return f"; did you mean {', '.join(near)}?" if near else ""
