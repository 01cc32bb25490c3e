"""A program for type checkers. Each remark says which mistake of its line they must find."""

from __future__ import annotations

from ipaddress import IPv4Address, IPv6Address
from typing import Optional, Union

from orlan_epm import (Acl, ClientVlan, CoaRequest, CoaRequestType, Domain, DomainName, DomainNamesNotice, Message,
                       MessageType, Tlv, VlanGroup, WebauthWatchList)

domain = Domain(tracked=True, variants={Message: 1, "Acl": 2})
message = Message(domain, acl_data=Acl(domain, acl_name="guest-in", is_dacl=True))
kind: MessageType = message.epm_type
arm: Optional[Acl] = message.acl_data
message.acl_data.sequence = 5  # type: ignore[union-attr]
if arm is not None:
    name: str = arm.acl_name
    arm.sequence = "5"  # type: ignore[assignment]
    arm.max_acl_length = 3  # type: ignore[assignment]
    arm.no_field = 3  # type: ignore[attr-defined]
message.acl_data = VlanGroup()  # type: ignore[assignment]
message.acl_data = None
Acl(acl_nam="x")  # type: ignore[call-arg]
Acl(acl_name=5)  # type: ignore[arg-type]
vlan = ClientVlan(mac="02:00:00:00:00:01", domain=3)
address: Union[IPv4Address, IPv6Address, None] = WebauthWatchList(wl_ip="10.0.0.1").wl_ip
group = VlanGroup(vlans=[1, 2])
group.vlans.append(3)
group.vlans.append("3")  # type: ignore[arg-type]
first: int = group.vlans[0]
notice = DomainNamesNotice(domain_names=[DomainName(name="a")])
names: list[str] = [d.name for d in notice.domain_names]
last: DomainName = notice.domain_names.pop()
copied: Message = Message.unmarshal(message.marshal(), domain).copy()
flag: int = copied.state["acl_data"]
request = CoaRequest(request_type=CoaRequestType.COA_BOUNCE_HOST_PORT)
tlv = Tlv(1, b"x")
