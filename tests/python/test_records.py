"""Ownership, sequences, state flags, errors: once in a Domain that tracks, once in one that does not."""

import copy
import gc
import ipaddress
import pickle

import pytest

import orlan_epm
from orlan_epm import (Acl, AclFeatureConfig, AclFeatureContext, AuthorizeAck, ClientAcl, ClientMacro, ClientTemplate,
                       ClientTemplateList, ClientVlan, CoaRequest, DomainName, Domain, DomainNamesNotice, Error,
                       GoneError, Grant, IpAddressNotice, LinksecKeys, LinksecStart, Message, MessageType,
                       NotInVariantError, OwnershipError, SgtInfo, Tlv, VlanGroup, WebauthWatchList)


@pytest.fixture(params=[False, True], ids=["untracked", "tracked"], autouse=True)
def domain(request):
    with Domain(tracked=request.param, memory_limit=256 << 10) as chosen:
        yield chosen


def names(records):
    return [r.name for r in records]


def grant():
    g = Grant(vlan=ClientVlan(vlan_value=7, ieee_mac="abc", domain=3),
              intf_templ_list=ClientTemplateList(data=[ClientTemplate(name=n) for n in "abc"]),
              cfg_macro_data=ClientMacro(cfg_macro_name="macro"))
    context = AclFeatureContext(handle=5, bm_feat_conf_list=[AclFeatureConfig(acl_name=b"xy")])
    g.acl = ClientAcl(bm_feat_ctx_list=[context, AclFeatureContext(handle=6)])
    return g


# ---- values ----


@pytest.mark.parametrize("cls, field, given, read", [
    (Acl, "acl_name", "gäst\0\udcff", "gäst\0\udcff"),
    (Acl, "acl_name", b"\xffa", "\udcffa"),
    (Acl, "is_dacl", 1, True),
    (Acl, "is_dacl", 77, 77),
    (Acl, "sequence", 0xFFFFFFFF, 0xFFFFFFFF),
    (SgtInfo, "flag", -128, -128),
    (SgtInfo, "gen_num", "a\0b", "a\0b"),
    (ClientVlan, "mac", "0A-00-00-00-00-01", "0a:00:00:00:00:01"),
    (ClientVlan, "mac", bytes(range(6)), "00:01:02:03:04:05"),
    (ClientMacro, "cfg_macro_name", "a\0\udc80", "a\0\udc80"),
    (LinksecKeys, "msk", bytearray(b"\0\xff"), b"\0\xff"),
    (WebauthWatchList, "wl_ip", "10.0.0.1", ipaddress.ip_address("10.0.0.1")),
    (WebauthWatchList, "wl_ip", ipaddress.ip_address("2001:db8::1"), ipaddress.ip_address("2001:db8::1")),
    (AuthorizeAck, "session_identity", (5, b"ab"), Tlv(5, b"ab")),
    (AuthorizeAck, "conn_hdl", (1 << 64) - 1, (1 << 64) - 1),
    (CoaRequest, "request_type", 1, orlan_epm.CoaRequestType.COA_DISABLE_HOST_PORT),
])
def test_values(cls, field, given, read):
    record = cls(**{field: given})
    value = getattr(record, field)
    assert value == read and type(value) is type(read)
    assert getattr(cls.unmarshal(record.marshal()), field) == read
    setattr(record, field, getattr(cls(), field))
    assert getattr(record, field) == getattr(cls(), field)


@pytest.mark.parametrize("cls, field, value, refusal", [
    (Acl, "sequence", 1 << 32, OverflowError), (Acl, "sequence", -1, OverflowError), (Acl, "sequence", 1.5, TypeError),
    (Acl, "acl_name", 5, TypeError), (Acl, "acl_name", "\ud800", ValueError),
    (Acl, "max_acl_length", 3, AttributeError), (Acl, "no_field", 3, AttributeError),
    (SgtInfo, "flag", 128, OverflowError), (SgtInfo, "gen_num", "x" * 65, ValueError),
    (DomainName, "name", "x" * 65536, ValueError), (ClientVlan, "mac", "02:00", ValueError),
    (ClientVlan, "mac", b"12345", ValueError), (ClientVlan, "mac", 5, TypeError), (LinksecKeys, "msk", 5, TypeError),
    (LinksecKeys, "msk", "ab", TypeError), (WebauthWatchList, "wl_ip", 5, TypeError),
    (WebauthWatchList, "wl_ip", "fe80::1%eth0", ValueError),
    (AuthorizeAck, "session_identity", (1 << 32, b""), OverflowError),
    (AuthorizeAck, "result", 1 << 32, OverflowError), (CoaRequest, "request_type", 9, NotInVariantError),
    (VlanGroup, "vlans", [1, "a"], TypeError), (VlanGroup, "vlans", [1 << 32], OverflowError),
    (AclFeatureConfig, "acl_name", bytes(257), ValueError), (Message, "acl_data", 5, TypeError),
    (Grant, "vlan", None, TypeError), (DomainNamesNotice, "domain_names", [None], TypeError),
])
def test_values_that_are_refused(cls, field, value, refusal):
    record = cls()
    before = record.copy()
    with pytest.raises(refusal):
        setattr(record, field, value)
    assert record == before


# ---- ownership ----


def test_arms_move_and_come_back():
    message, first, second = Message(), Acl(acl_name="1"), Acl(acl_name="2")
    message.acl_data = first
    assert message.acl_data is first and message.epm_type is MessageType.ORLAN_IAL_SVM_EPM_TYPE_ACL
    with pytest.raises(OwnershipError):
        Message().acl_data = first
    message.acl_data = message.acl_data
    message.acl_data = second
    with pytest.raises(GoneError):
        first.sequence
    message.epm_type = 2  # the arm stays in its slot
    assert message.acl_data is None and message.detach("acl_data") is None
    message.epm_type = 1
    assert message.detach("acl_data") is second and second.acl_name == "2" and message.acl_data is None
    message.acl_data = second
    message.epm_type = 0
    message.acl_data = Acl()
    del message.acl_data
    message.acl_data = None
    assert message.epm_type == 0 and repr(second) == "<Acl, gone>"
    for refused in (lambda: message.detach("epm_type"), lambda: message.__init__()):
        with pytest.raises(TypeError):
            refused()
    with pytest.raises(AttributeError):
        del message.epm_type


def test_embedded_records_move():
    g = grant()
    old, new = g.intf_templ_list, ClientTemplateList(data=[ClientTemplate(name=n) for n in "uvw"])
    element, old_element = new.data[2], old.data[0]
    g.intf_templ_list = new
    assert g.intf_templ_list is new and new.data[2] is element and element.name == "w"
    for gone in (lambda: old.data, lambda: old_element.name):
        with pytest.raises(GoneError):
            gone()
    context = g.acl.bm_feat_ctx_list[0]
    acl = ClientAcl(bm_feat_ctx_list=[AclFeatureContext(handle=9)])
    g.acl = acl
    with pytest.raises(GoneError):
        context.handle
    assert Message(bm_data=g).bm_data.acl.bm_feat_ctx_list[0].handle == 9
    with pytest.raises(OwnershipError):
        Grant().acl = acl


def test_a_view_keeps_its_owner(domain):
    element = Message(bm_data=grant()).bm_data.acl.bm_feat_ctx_list[0].bm_feat_conf_list[0]
    gc.collect()
    assert element.acl_name[:3] == [120, 121, 0]


def test_another_domain_is_refused():
    other = Domain()
    with pytest.raises(OwnershipError):
        Message(other, acl_data=Acl())
    assert Message(other, acl_data=Acl.unmarshal(Acl(sequence=4).marshal(), other)).acl_data.sequence == 4
    with pytest.raises(TypeError):
        Acl("guest-in")


def test_nothing_is_lost(domain):
    """A leak of a few bytes in each round would reach the Domain's limit."""
    old = LinksecStart(Domain(tracked=domain.tracked, variant=0, memory_limit=200 << 10))
    for _ in range(600):
        message = Message(bm_data=grant())
        message.bm_data.acl = ClientAcl(bm_feat_ctx_list=[AclFeatureContext(bm_feat_conf_list=[AclFeatureConfig()])])
        message.bm_data.intf_templ_list = ClientTemplateList(data=[ClientTemplate(name="x" * 400)])
        message.bm_data.intf_templ_list.data.insert(0, ClientTemplate(name="y" * 400))
        message.bm_data.intf_templ_list.data.pop()
        message.bm_data = grant()
        message.bm_data.authz_ack.session_identity = (1, b"x" * 400)
        message.bm_data.authz_ack = AuthorizeAck(session_identity=(1, b"z" * 400))
        message.copy().detach("bm_data")
        with pytest.raises(Error):
            Message.unmarshal(message.marshal()[:-3])
        with pytest.raises(NotInVariantError):
            old.macsec_cipher_suite = b"x" * 400


def test_a_domain_lives_as_long_as_its_records():
    destroyed = []
    chosen = Domain()
    chosen._destroy = destroyed.append
    view = Message(chosen, acl_data=Acl(chosen)).acl_data
    del chosen
    gc.collect()
    assert not destroyed and view.sequence == 0
    del view
    assert len(destroyed) == 1


def test_texts():
    text = str(Message(bm_data=grant()))
    assert "vlan_value@u_int32:7\n" in text and "\0" not in text and len(text) > 4096
    assert repr(grant().vlan) == "ClientVlan(vlan_value=7, ieee_mac='abc', domain=3)"
    assert repr(Message(acl_data=Acl(is_dacl=True))).endswith("acl_data=Acl(is_dacl=True))")
    assert max(map(len, Acl().to_xml(60).splitlines())) <= 60 and Acl.from_xml(Acl(sequence=3).to_xml(60)).sequence == 3


def test_copies():
    message = Message(bm_data=grant())
    for other in (message.copy(), copy.copy(message), copy.deepcopy(message), pickle.loads(pickle.dumps(message))):
        assert other == message and other is not message
        other.bm_data.vlan.vlan_value = 8
        assert other > message and other != message and not other <= message and message.bm_data.vlan.vlan_value == 7
    assert message != "message" and Acl() != DomainName()
    with pytest.raises(TypeError):
        {message}


# ---- sequences ----


def sequences():
    """A list and an array, with what makes an element."""
    yield ClientAcl().bm_feat_ctx_list, lambda n: AclFeatureContext(handle=n), lambda e: e.handle
    yield ClientTemplateList().data, lambda n: ClientTemplate(gidb_handle=n), lambda e: e.gidb_handle


def test_sequences_of_records():
    for sequence, new, number in sequences():
        expected, views = [], []

        def check():
            assert [number(e) for e in sequence] == expected and len(sequence) == len(expected)
            assert [number(e) for e in views] == expected and all(a is b for a, b in zip(sequence, views))

        for n, place in enumerate((0, 0, 1, -1, 99, 2, -99)):
            expected.insert(place, n)
            views.insert(place, new(n))
            sequence.insert(place, views[views.index(next(v for v in views if number(v) == n))])
            check()
        for place in (0, -1, 2):
            expected.pop(place)
            popped = sequence.pop(place)
            assert popped is views.pop(place)
            assert type(popped).unmarshal(popped.marshal()) == popped
            check()
        expected.reverse(), views.reverse(), sequence.reverse()
        check()
        gone = views[1:3]
        expected[1:3], views[1:3] = [50, 51, 52], [new(n) for n in (50, 51, 52)]
        sequence[1:3] = views[1:4]
        check()
        replaced = views[::2]
        expected[::2], views[::2] = range(60, 60 + len(replaced)), [new(60 + n) for n in range(len(replaced))]
        sequence[::2] = views[::2]
        check()
        with pytest.raises(ValueError):
            sequence[::2] = [new(1)]
        with pytest.raises(ValueError):
            sequence.extend([views[0].copy()] + [new(1)] * 2)
        with pytest.raises(OwnershipError):
            sequence.append(sequence[0])
        with pytest.raises(IndexError):
            sequence[len(expected)]
        check()
        for element in sequence:
            if number(element) % 2:
                sequence.remove(element)
                gone.append(element)
        for element in gone + replaced:
            with pytest.raises(GoneError):
                number(element)
        sequence.clear()
        assert sequence == [] and not sequence


def test_sequences_of_numbers(domain):
    group = VlanGroup(vlans=range(3))
    vlans, expected = group.vlans, [0, 1, 2]
    for change in (lambda s: s.append(7), lambda s: s.insert(1, 8), lambda s: s.__setitem__(0, 9), lambda s: s.pop(2),
                   lambda s: s.__setitem__(slice(1, 2), [4, 5, 6]), lambda s: s.reverse(), lambda s: s.extend([1, 1]),
                   lambda s: s.remove(1), lambda s: s.__delitem__(slice(None, None, 2)), lambda s: s.clear()):
        change(vlans), change(expected)
        assert vlans == expected and group.max_vlan == len(expected)
    group.vlans += [1, 2]
    assert VlanGroup.unmarshal(group.marshal()).vlans == [1, 2]
    run = AclFeatureConfig(acl_name=b"abc").acl_name
    run[1] = 0
    run[2:4] = b"xy"
    assert len(run) == 256 and bytes(run[:5]) == b"a\0xy\0"
    for change in (lambda: run.append(1), lambda: run.pop(), lambda: run.__setitem__(slice(0, 2), b"a")):
        with pytest.raises(ValueError):
            change()


# ---- variants, state flags, errors ----


def test_variants(domain):
    with Domain(tracked=domain.tracked, variant=0) as peer:
        acl = Acl(sequence=1)
        assert acl.variant == 0 and getattr(acl, "ip_addr", None) is None
        with pytest.raises(NotInVariantError) as refusal:
            acl.ip_addr = 1
        assert (refusal.value.number, refusal.value.name, refusal.value.field) == (43, "EIDRM", "ip_addr")
        with pytest.raises(NotInVariantError):
            Message(dacl_dnld_comp_data=orlan_epm.DaclDownloadComplete())
        with pytest.raises(NotInVariantError):
            Grant(acl=ClientAcl())
        assert "ip_addr" not in acl.to_dict() and acl.to_dict()["$variant"] == 0
        new = Acl.unmarshal(Acl(domain, ip_addr=5).marshal())
        with pytest.raises(NotInVariantError):
            new.marshal()
        peer.agree(variants={Acl: 2, "orlan_ial_svm_bm_data": 1, "Message": -1})
        assert new.marshal() == Acl(domain, ip_addr=5).marshal() and Grant().variant == 1 and Message().variant == -1
    assert orlan_epm.current_domain() is domain
    notice, name = IpAddressNotice(domain_name=DomainName(name="old")), DomainName(name="new")
    domain.agree(variants={DomainName: -1})
    with pytest.raises(NotInVariantError):
        notice.domain_name = name
    assert notice.domain_name.name == "old" and name.name == "new"
    for wrong in ({"variant": 128}, {"variants": {"Acll": 0}}, {"memory_limit": 0}):
        with pytest.raises((ValueError, LookupError)):
            Domain(**wrong)


def test_state_flags(domain):
    message = Message(bm_data=grant())
    g = message.bm_data
    if not domain.tracked:
        with pytest.raises(orlan_epm.StatusError):
            message.state["bm_data"]
        assert "$state" not in message.to_dict()
        return
    assert g.vlan.state["vlan_value"] == 2 and g.vlan.state["pref"] == 0 and g.acl.state["mac"] == 0
    g.intf_templ_list.state["data", 1] = 9
    assert g.intf_templ_list.state["data", 1] == 9 and g.to_dict()["intf_templ_list"]["$state"] == {"data": "02020902"}
    other = Message.unmarshal(message.marshal())
    message.state.clear()
    assert message.to_dict()["bm_data"]["acl"]["bm_feat_ctx_list"][0]["bm_feat_conf_list"][0]["$state"] == {}
    assert not any(g.state.values()) and g.intf_templ_list.state["data", 1] == 0
    assert names(g.intf_templ_list.data) == ["a", "b", "c"]
    assert other.bm_data.intf_templ_list.state["data", 1] == 9
    g.state.set_all(3)
    assert set(g.vlan.state.values()) == {3} and g.intf_templ_list.data[2].state["name"] == 3
    for key in ("no_field", "max_acl_length", ("vlan", 0)):
        with pytest.raises(KeyError):
            g.state[key]
    with pytest.raises(orlan_epm.AbsentError):
        g.intf_templ_list.state["data", 3]
    with pytest.raises(OverflowError):
        g.state["vlan"] = 256


def test_documents():
    for document, pointer in (
        ('{"acl_name": 5}', "/acl_name"), ('{"sequence": -1}', "/sequence"), ("[]", ""), ("{", ""),
        ('{"sequence": NaN}', ""), ('{"sequence": 1, "sequence": 2}', ""), ('{"$ra": "00"}', "/$ra"),
        ('{"acl_name": {"$hex": "0"}}', "/acl_name/$hex"), ('{"max_acl_length": 1}', "/max_acl_length"),
        ('{"$variant": 0, "ip_addr": 1}', "/ip_addr"), ('{"$flags": 8}', "/$flags"),
        ('{"$state": {"max_acl_length": "00"}}', "/$state/max_acl_length"),
    ):
        with pytest.raises(orlan_epm.DocumentError) as refusal:
            Acl.from_json(document)
        assert refusal.value.pointer == pointer
    with pytest.raises(orlan_epm.DocumentError):
        Message.from_dict({"epm_type": 1, "apply_acl": {}})
    assert Message.from_dict({"apply_acl": {"iif_id": "5"}}).apply_acl.iif_id == 5
    unknown = Acl.from_dict({"$variant": 3, "$rest": "0102", "sequence": 1})
    assert unknown.variant == 2 and unknown.sequence == 1
    for document in ("<a", "<a/>", Acl().to_xml().replace("<sequence>0", "<sequence>x"), "\0"):
        with pytest.raises(orlan_epm.DocumentError):
            Acl.from_xml(document)


def test_refused_memory_is_an_exception(domain):
    whole = Message(bm_data=grant()).marshal()
    done = 0
    for limit in range(16, 9000, 64):
        with Domain(tracked=domain.tracked, memory_limit=limit):
            for attempt in (lambda: Message(bm_data=grant()), lambda: Message.unmarshal(whole)):
                try:
                    str(attempt().copy())
                    done += 1
                except orlan_epm.NoMemoryError as refusal:
                    assert refusal.number == 12
    assert 0 < done < 200
    with pytest.raises(orlan_epm.NoMemoryError, match="block_limit is 100"):
        Acl(Domain(block_limit=100), acl_name="x" * 200)
