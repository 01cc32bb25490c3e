"""Every kept image is read, written and built anew, field by field and through JSON and XML."""

import json
import os
import pathlib
import re
import subprocess

import pytest

import orlan_epm
from orlan_epm import Domain, Record

ROOT = pathlib.Path(__file__).parents[2]


def kept_images():
    for path in sorted((ROOT / "tests" / "golden").glob("*.hex")):
        lines = path.read_text().splitlines()
        for title, digits in zip(lines[::2], lines[1::2]):
            yield orlan_epm.type_named(path.stem), title, bytes.fromhex(digits)


IMAGES = list(kept_images())
RECORDS = [i for i in IMAGES if issubclass(i[0], Record)]


def variants(cls, content):
    """The variants that a record shows, by type: what its writer and its peer had agreed on."""
    found = {cls.c_name: content.get("$variant", cls._type.top)}
    for name, field in cls._type.fields.items():
        for value in content.get(name, []) if field.kind in ("list", "array", "run") else [content.get(name)]:
            if not isinstance(value, dict) or field.type not in orlan_epm.catalogue.types():
                continue
            of = orlan_epm.type_named(field.type)
            found |= variants(of, value) if issubclass(of, Record) else {field.type: value["$variant"]}
    return found


def domain_of(cls, title, data):
    tracked = title.find(", tracked") > 0
    return Domain(tracked=tracked, variants=variants(cls, cls.unmarshal(data, Domain(tracked=tracked)).to_dict()))


def test_all_types_have_images():
    assert {cls.c_name for cls, _, _ in IMAGES} == {t["name"] for t in orlan_epm.catalogue.document()["types"]}


def test_enumerations():
    for cls, title, data in IMAGES:
        if not issubclass(cls, Record):
            domain = Domain(variants={cls: int(re.search(r"variant (-?\d)", title)[1])})
            assert cls.unmarshal(data, domain).marshal(domain) == data, title
            with pytest.raises(orlan_epm.WrongLengthError):
                cls.unmarshal(data[:-1])
    assert orlan_epm.MessageType.ORLAN_IAL_SVM_EPM_TYPE_BM.marshal() == bytes.fromhex("0100000003")


def test_read_and_written():
    for cls, title, data in RECORDS:
        record = cls.unmarshal(data, domain_of(cls, title, data))
        assert record.marshal() == data, title
        assert record.wire_length() >= len(data) if record._domain.tracked else record.wire_length() == len(data), title
        assert record.copy().marshal() == data, title


def test_through_json_and_xml():
    for cls, title, data in RECORDS:
        domain = domain_of(cls, title, data)
        record = cls.unmarshal(data, domain)
        for indent in (None, 2):
            assert cls.from_json(record.to_json(indent), domain).marshal() == data, title
        # XML has neither the flags nor what lies beyond a variant.
        if not domain.tracked and record.variant >= 0:
            assert cls.from_xml(record.to_xml(), domain).marshal() == data, title


def fill(empty, full):
    """Sets each field to what another record has there; what that owns is built anew."""
    domain = empty._domain

    def new(record):
        return fill(type(record)(domain), record)

    for name, value in full._contents():
        if isinstance(value, Record):
            setattr(empty, name, new(value))
        elif isinstance(value, (orlan_epm.RecordList, orlan_epm.RecordArray)):
            setattr(empty, name, [new(element) for element in value])
        elif value is not None and name != full._type.tag_field:
            setattr(empty, name, value)
    return empty


def copy_flags(to, record):
    for name in record.state:
        to.state[name] = record.state[name]
        value = getattr(record, name)
        if record._type.fields[name].has_element_flags:
            for index in range(len(value)):
                to.state[name, index] = record.state[name, index]
        if isinstance(value, Record):
            copy_flags(getattr(to, name), value)
        elif isinstance(value, (orlan_epm.RecordList, orlan_epm.RecordArray)):
            for target, source in zip(getattr(to, name), value):
                copy_flags(target, source)


def test_built_field_by_field():
    for cls, title, data in RECORDS:
        domain = domain_of(cls, title, data)
        record = cls.unmarshal(data, domain)
        built = fill(cls(domain), record)
        assert built == record and not built < record and built.hash(7) == record.hash(7), title
        if domain.tracked:
            copy_flags(built, record)
        assert built.marshal() == data, title


def test_truncation_never_passes():
    for cls, title, data in RECORDS:
        domain = domain_of(cls, title, data)
        for end in range(0, len(data), 1 + len(data) // 64):
            with pytest.raises(orlan_epm.WrongLengthError):
                cls.unmarshal(data[:end], domain)


def test_agrees_with_the_tool():
    """One image of each record, and the kept ones of the messages, as the tool decodes and encodes them."""
    chosen = {cls: (cls, title, data) for cls, title, data in RECORDS if "-1" not in title}
    chosen |= {title: (cls, title, data) for cls, title, data in RECORDS if cls._type.tag_field}
    environment = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}

    def tool(command, cls, data):
        return subprocess.run([os.environ["ORLAN_EPM_TOOL"], command, "--json", cls.c_name, "-"], input=data,
                              env=environment, capture_output=True, check=True).stdout

    for cls, title, data in chosen.values():
        content = orlan_epm.wire_form.decode(cls._type, data)
        assert orlan_epm.json_form.loads(tool("decode", cls, data)) == content, title
        assert tool("encode", cls, json.dumps(content).encode()) == data, title
