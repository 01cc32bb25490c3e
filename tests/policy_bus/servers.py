"""Servers of the bus on free ports of this machine, a client that sends what policy_bus never would, and the programs
under test."""
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time
import urllib.request

SOURCE = pathlib.Path(__file__).resolve().parents[2]
CAMPUS = SOURCE / "examples/policy_exchange/campus.policy"
SITE = "campus"


def free_ports(count):
    sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(count)]
    ports = [held.getsockname()[1] for held in sockets]
    for held in sockets:
        held.close()
    return ports


def wait_until(is_true, what, seconds=60):
    end = time.monotonic() + seconds
    while not is_true():
        assert time.monotonic() < end, f"not within {seconds} s: {what}"
        time.sleep(0.05)


class Bus:
    """One server or a cluster, in a folder of its own; everything that was started ends with it."""

    def __init__(self, programs, servers=1, arguments=()):
        self.programs, self.replicas, self.arguments = pathlib.Path(programs).resolve(), servers, arguments
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="policy_bus."))
        self.clients, self.routes, self.monitors = (free_ports(servers) for _ in range(3))
        self.url = ",".join(f"nats://127.0.0.1:{port}" for port in self.clients)
        self.environment = {**{k: v for k, v in os.environ.items() if not k.startswith("NATS_")}, "NATS_URL": self.url}
        self.servers, self.started = [None] * servers, []

    def __enter__(self):
        try:
            for index in range(self.replicas):
                self.start_server(index)
            self.wait_for_leader()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for process in [*self.started, *filter(None, self.servers)]:
            if process.poll() is None:
                process.kill()
            process.wait()
        shutil.rmtree(self.folder)

    def start_server(self, index):
        command = ["nats-server", "-a", "127.0.0.1", "-p", self.clients[index], "-m", self.monitors[index], "-js",
                   "-sd", self.folder / f"store{index}", "-n", f"s{index}", *self.arguments]
        if self.replicas > 1:
            command += ["--cluster_name", "test", "--cluster", f"nats://127.0.0.1:{self.routes[index]}", "--routes",
                        ",".join(f"nats://127.0.0.1:{port}" for port in self.routes)]
        with open(self.folder / f"server{index}.log", "ab") as log:
            self.servers[index] = subprocess.Popen([str(word) for word in command], stderr=log)

    def kill_server(self, index):
        self.servers[index].kill()
        self.servers[index].wait()

    def facts(self, index, page):
        try:
            with urllib.request.urlopen(f"http://127.0.0.1:{self.monitors[index]}/{page}", timeout=2) as answer:
                return json.load(answer)
        except OSError:
            return {}

    def wait_for_leader(self):
        for index in range(self.replicas):
            wait_until(lambda: self.facts(index, "healthz").get("status") == "ok" and
                       (self.replicas == 1 or self.facts(index, "jsz").get("meta_cluster", {}).get("leader")),
                       f"server {index} is ready")

    def stream(self):
        """What the leader of the stream of policy says about it; nothing while there is no leader."""
        for index, server in enumerate(self.servers):
            for account in self.facts(index, "jsz?streams=true").get("account_details", []):
                for found in account.get("stream_detail", []):
                    if found["name"] == f"POLICY-{SITE}" and server.poll() is None and \
                            found.get("cluster", {}).get("leader", "s0") == f"s{index}":
                        return found
        return None

    def stored(self):
        found = self.stream()
        return found["state"]["messages"] if found else 0

    def stream_leader(self):
        wait_until(self.stream, "the stream has a leader")
        return int(self.stream()["cluster"]["leader"][1:])

    def wait_for_replicas(self):
        replicas = lambda: (self.stream() or {}).get("cluster", {}).get("replicas", [])
        wait_until(lambda: [replica["current"] for replica in replicas()] == [True] * (self.replicas - 1),
                   "the replicas of the stream are whole", 120)

    # ---- programs ----

    def start(self, *words, **options):
        command = [self.programs / "policy_bus", *map(str, words)]
        process = subprocess.Popen(command, env={**self.environment, **options.pop("environment", {})}, text=True,
                                   cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)
        self.started.append(process)
        return process

    def run(self, *words, status=0, **options):
        process = self.start(*words, **options)
        output, error = process.communicate(timeout=300)
        assert process.returncode == status, f"{words}: {process.returncode}\n{output}{error}"
        return output if status == 0 else error

    def publish(self, policy, *words, **options):
        return self.run("publish", policy, "--site", SITE, *(["--replicas", 3] if self.replicas > 1 else []), *words,
                        **options)

    def start_device(self, name, variant, *words, **options):
        return self.start("device", *name.split(), "--variant", variant, "--site", SITE, "--state", self.folder, *words,
                          **options)

    # ---- what devices hold ----

    def expect(self, policy, devices):
        """Each device shows what the policy exchange's peer of its variant shows, and applied nothing twice."""
        variants = sorted(set(devices.values()))
        folder = self.folder / "peers"
        folder.mkdir(exist_ok=True)
        subprocess.run([self.programs / "policy_exchange", "-o", folder, *(f"--peer={v}" for v in variants), policy],
                       check=True, stdout=subprocess.DEVNULL)
        peers = {v: (folder / f"peer-{i + 1}.txt").read_text() for i, v in enumerate(variants)}
        assert len(set(peers.values())) == len(variants)
        for name, variant in devices.items():
            assert self.run("show", f"{name}.policy") == peers[variant], f"{name} differs from its peer"
            ids = [(revision, line) for revision, line, _, _ in self.records(name)]
            assert len(ids) == len(set(ids)), f"{name} applied a message twice"

    def records(self, name):
        """The records of a device's file, each an application: revision, line, messages of the revision, message."""
        content = (self.folder / f"{name}.policy").read_bytes()
        offset = content.index(b"\n") + 1
        while offset < len(content):
            revision, line, total, size = struct.unpack_from(">QIII", content, offset + 8)
            yield revision, line, total, content[offset + 28:offset + 28 + size]
            offset += 28 + size


def lines_of(policy):
    """A count of a summary, by its name: the sums of all audiences."""
    return {name: sum(map(int, re.findall(rf"^  {name} +(\d+)$", policy, re.M)))
            for name in ("messages", "stored", "stored before", "messages not sent")}


def applied(summary):
    """A device's counts by their names."""
    return {name: int(count) for name, count in re.findall(r"(applied|repeated|outdated|refused) (\d+)", summary)}


def stop(process):
    process.send_signal(signal.SIGTERM)
    output, error = process.communicate(timeout=60)
    assert process.returncode in (0, 1), error
    return output


class Client:
    """Speaks to a server by its protocol."""

    def __init__(self, port):
        self.file = socket.create_connection(("127.0.0.1", port)).makefile("rwb")
        self.file.readline()
        self.send('CONNECT {"verbose":false,"headers":true}')

    def send(self, line, payload=b""):
        self.file.write(line.encode() + b"\r\n" + payload)
        self.file.flush()

    def publish(self, subject, message, headers):
        block = "NATS/1.0\r\n" + "".join(f"{key}: {value}\r\n" for key, value in headers.items()) + "\r\n"
        self.send(f"HPUB {subject} {len(block)} {len(block) + len(message)}", block.encode() + message + b"\r\n")

    def flush(self):
        self.send("PING")
        while self.file.readline() != b"PONG\r\n":
            pass
