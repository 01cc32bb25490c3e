"""The description of all types, read from orlan_epm.json when the first type is asked for."""

from __future__ import annotations

import functools
import os.path
from typing import Any, NamedTuple, Optional

from .errors import suggestion


class Field(NamedTuple):
    """One field of a record; offset and size are those in memory."""

    name: str
    kind: str
    type: str
    since: int
    offset: int
    size: int
    description: str
    is_tracked: bool
    length_field: Optional[str]
    elements: int
    tag: Optional[int]

    @property
    def has_element_flags(self) -> bool:
        return self.kind in ("array", "run")


class Type(NamedTuple):
    """A record with its fields, or an enumeration with its enumerators: name, number, first variant, description."""

    name: str
    title: str
    kind: str
    description: str
    top: int
    fields: dict[str, Field]
    enumerators: list[tuple[str, int, int, str]]

    @property
    def tag_field(self) -> Optional[str]:
        """The field that selects a union's arm, always the first."""
        return next(iter(self.fields)) if any(f.kind == "arm" for f in self.fields.values()) else None


class Imported(NamedTuple):
    """A field type that another library supplies. wire_length is 0 unless it is framed as a number."""

    name: str
    shape: str
    size: int
    framing: str
    wire_length: int


@functools.cache
def document() -> dict[str, Any]:
    """The whole file, as docs/python.md describes it."""
    import json

    with open(os.path.join(os.path.dirname(__file__), "orlan_epm.json"), encoding="utf-8") as file:
        content: dict[str, Any] = json.load(file)
    return content


def _field(f: dict[str, Any]) -> Field:
    return Field(f["name"], f["kind"], f["type"], f["since"], f["offset"], f["size"], f["description"],
                 f["state_flag"] is not None, f.get("length_field"), f.get("elements", 0), f.get("tag"))


def _type(t: dict[str, Any]) -> Type:
    return Type(t["name"], t["title"], t["kind"], t["description"], t["top_variant"],
                {f["name"]: _field(f) for f in t.get("fields", ())},
                [(e["name"], e["number"], e["since"], e["description"]) for e in t.get("enumerators", ())])


@functools.cache
def types() -> dict[str, Type]:
    """All types by C name, in the order of the type table."""
    return {t["name"]: _type(t) for t in document()["types"]}


@functools.cache
def titles() -> dict[str, str]:
    """The C name of each title."""
    return {t.title: t.name for t in types().values()}


@functools.cache
def imported() -> dict[str, Imported]:
    return {t["name"]: Imported(t["name"], t["shape"], t["size"], t["framing"], t.get("wire_length", 0))
            for t in document()["imported_types"]}


@functools.cache
def signatures() -> dict[str, str]:
    """The declaration of each exported function, in C without the name."""
    return {f["name"]: f["signature"] for f in document()["functions"]}


def find(name: str) -> Type:
    """The type with this C name or title."""
    found = types().get(titles().get(name, name))
    if found is None:
        raise LookupError(f"no type {name}{suggestion(name, [*types(), *titles()])}")
    return found
