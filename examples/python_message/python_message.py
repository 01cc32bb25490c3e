"""Sends one access-control entry to a peer through a socket, and prints what arrives."""

import socket

from orlan_epm import Acl, Message

ours, peers = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)

# Build and send. The message owns the entry; `entry` goes on as a view of it.
entry = Acl(acl_name="guest-in")
message = Message(acl_data=entry)
entry.sequence = 10
ours.send(message.marshal())

# Receive. A message that is cut short raises an exception.
received = Message.unmarshal(peers.recv(65536))
assert received == message
print(received)
print(repr(received))
print(received.to_json(indent=2))
