"""JSON documents, of the values that wire_form.py makes of a message."""

from __future__ import annotations

from typing import Any, NoReturn, Optional, Union

from .errors import DocumentError


def dumps(content: Any, indent: Optional[int] = None) -> str:
    import json

    return json.dumps(content, ensure_ascii=False, indent=indent)


def loads(document: Union[str, bytes]) -> Any:
    """Refuses what a reader would have to guess about: members that are there twice, numbers that JSON lacks."""
    import json

    try:
        return json.loads(document, object_pairs_hook=_members, parse_constant=_refuse)
    except (ValueError, RecursionError) as fault:
        if isinstance(fault, DocumentError):
            raise
        raise DocumentError(str(fault)) from None


def _members(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    members = dict(pairs)
    if len(members) != len(pairs):
        names = [name for name, _ in pairs]
        raise DocumentError(f"a second member {next(n for n in names if names.count(n) > 1)}")
    return members


def _refuse(constant: str) -> NoReturn:
    raise DocumentError(f"{constant} is no number of JSON")
