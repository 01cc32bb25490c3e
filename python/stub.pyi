from ipaddress import IPv4Address, IPv6Address
from typing import Any, Iterable, NoReturn, SupportsIndex

from .domain import Domain as Domain
from .domain import current_domain as current_domain
from .errors import AbsentError as AbsentError
from .errors import DocumentError as DocumentError
from .errors import Error as Error
from .errors import GoneError as GoneError
from .errors import LoadError as LoadError
from .errors import NoMemoryError as NoMemoryError
from .errors import NotInVariantError as NotInVariantError
from .errors import OwnershipError as OwnershipError
from .errors import StatusError as StatusError
from .errors import WrongLengthError as WrongLengthError
from .fields import Field as Field
from .library import load as load
from .records import Enumeration as Enumeration
from .records import Record as Record
from .sequences import NumberSequence as NumberSequence
from .sequences import RecordArray as RecordArray
from .sequences import RecordList as RecordList
from .state import State as State
from .values import Tlv as Tlv

__version__: str

def type_named(name: str) -> Any: ...
