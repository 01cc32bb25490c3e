"""Records of client policy: build, send, receive and show the messages of the library orlan_epm.

    >>> from orlan_epm import Acl, Message
    >>> data = Message(acl_data=Acl(acl_name="guest-in", sequence=10)).marshal()
    >>> Message.unmarshal(data).acl_data.acl_name
    'guest-in'

Each type of the library is a class of this module, made when it is first asked for; `dir(orlan_epm)` lists them, and
`type_named()` finds one by its name in C.
"""

from __future__ import annotations

from typing import Any

from . import catalogue as _catalogue
from .domain import Domain, current_domain
from .errors import (AbsentError, DocumentError, Error, GoneError, LoadError, NoMemoryError, NotInVariantError,
                     OwnershipError, StatusError, WrongLengthError)
from .library import load
from .records import Enumeration, Record, class_of as _class_of
from .sequences import NumberSequence, RecordArray, RecordList
from .state import State
from .values import Tlv

_NAMES = ["AbsentError", "DocumentError", "Domain", "Enumeration", "Error", "GoneError", "LoadError", "NoMemoryError",
          "NotInVariantError", "NumberSequence", "OwnershipError", "Record", "RecordArray", "RecordList", "State",
          "StatusError", "Tlv", "WrongLengthError", "current_domain", "load", "type_named"]


def type_named(name: str) -> Any:
    """The class of a type by its name in C, or by its title."""
    return _class_of(_catalogue.find(name).name)


def __getattr__(name: str) -> Any:
    if name == "__all__":
        return __dir__()
    if name == "__version__":
        return _catalogue.document()["version"]
    if name.startswith("_") or name not in _catalogue.titles():
        raise AttributeError(f"module {__name__} has no attribute {name}")
    globals()[name] = found = type_named(name)
    return found


def __dir__() -> list[str]:
    return sorted([*_NAMES, *_catalogue.titles()])
