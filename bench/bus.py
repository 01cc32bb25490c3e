#!/usr/bin/env python3
"""Measures policy_bus on one server of this machine: bus.py FOLDER-OF-PROGRAMS. Progress goes to standard error, the
tables to standard output. Rates are of one run, and everything shares this machine's processors."""
import pathlib
import re
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests/policy_bus"))
from servers import CAMPUS, SITE, Bus, wait_until

PROCESSES = 6  # that share the devices, a multiple of each number of variants
OURS = ("liborlan_epm.so", "libzur.so")


def figures(bus, processes, name):
    pattern = re.compile(rf"^policy_bus_{name}{{.*}} (\S+)$", re.M)
    return [float(value) for i in range(processes) if (bus.folder / f"figures{i}").exists()
            for value in pattern.findall((bus.folder / f"figures{i}").read_text())]


def measure(programs, devices, variants, is_each, policy_text):
    """Devices have a first revision, and with it their consumers, when the measured one is published."""
    with Bus(programs) as bus:
        first, policy = bus.folder / "first.policy", bus.folder / "policy"
        first.write_text("preauth create\n")
        policy.write_text(policy_text)
        processes = max(variants, min(PROCESSES, devices))
        speaks = {f"device-{i}": i % processes % variants for i in range(devices)}
        audiences = [f"--device={name}:{variant}" for name, variant in speaks.items()] if is_each else [
            "--variants", ",".join(str(v) for v in range(variants))]
        bus.publish(first, "--revision", 1, *audiences)
        for i in range(processes):
            names = [name for j, name in enumerate(speaks) if j % processes == i]
            if names:
                bus.start_device(" ".join(names), i % variants, "--metrics", f"figures{i}", "--ack-wait", 300,
                                 *(["--own"] if is_each else []))
        complete = lambda revision: figures(bus, processes, "revision").count(revision) == devices
        wait_until(lambda: complete(1), "the first revision", 120)
        start = time.time()
        published = bus.publish(policy, "--revision", 2, *audiences)
        wait_until(lambda: complete(2), "the measured revision", 280)
        time.sleep(1.1)  # figures are written each second
        seconds = max(figures(bus, processes, "revision_since_seconds")) - start
        applied = sum(figures(bus, processes, "applied_total")) - devices
        assert sum(figures(bus, processes, "repeated_total")) == 0
        count, rate, marshal = re.search(r"^(\d+) messages in .* s, (\d+) a second; marshalled in (\S+) s", published,
                                         re.M).groups()
        running = [process for process in bus.started if process.poll() is None]
        return {"server": memory(bus.servers[0]), "device": sum(map(memory, running)) * 1e3 / devices,
                "published": int(count), "rate": int(rate), "marshal": float(marshal) * 1e3,
                "stored": bus.stream()["state"]["bytes"] / 1e6, "applied": applied / seconds, "seconds": seconds}


def memory(process):
    """What a process holds, in MB."""
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return int(re.search(r"^VmRSS:\s+(\d+) kB", status, re.M)[1]) / 1e3


def library_share(programs):
    """Parts of the processor time of a publisher and of a device, by library, of a policy of 11,400 messages."""
    with Bus(programs) as bus:
        policy = bus.folder / "policy"
        policy.write_text(CAMPUS.read_text() * 40)
        shares = {}
        for who, words in (("publisher", ["publish", policy, "--site", SITE, "--variants", "2"]),
                           ("device", ["device", "one", "--site", SITE, "--variant", "2", "--once"])):
            data = bus.folder / f"{who}.perf"
            subprocess.run(["perf", "record", "-q", "-e", "cpu-clock", "-F", "20000", "-o", data,
                            bus.programs / "policy_bus", *words], cwd=bus.folder, env=bus.environment, check=True,
                           stdout=subprocess.DEVNULL)
            report = subprocess.run(["perf", "report", "-i", data, "--sort", "dso", "--stdio", "-q"], check=True,
                                    capture_output=True, text=True).stdout
            parts = {dso: float(part) for part, dso in re.findall(r"^\s*([\d.]+)%\s+(\S+)", report, re.M)}
            ours = [sum(part for dso, part in parts.items() if dso.startswith(name)) for name in OURS]
            shares[who] = [*ours, parts.get("[kernel.kallsyms]", parts.get("[kernel]", 0.0)),
                           sum(part for dso, part in parts.items() if dso.startswith("libnats"))]
        return shares


def main(programs):
    print("                         once for each variant                          once for each device\n"
          "devices variants  published marshal stored  applied  until  server device   published marshal stored  applied"
          "  until\n"
          "                      per s      ms     MB    per s  all, s     MB     kB       per s      ms     MB    per s"
          "  all, s")
    campus = CAMPUS.read_text()
    start = "".join(campus.splitlines(keepends=True)[:60])
    for devices, policy in ((1, campus * 40), (10, campus * 40), (100, campus * 3), (1000, start)):
        for variants in (1, 2, 3):
            if variants > devices:
                continue
            line = f"{devices:7} {variants:8}"
            for is_each in (False, True):
                print(f"bus: {devices} devices, {variants} variants, {'each' if is_each else 'once'}", file=sys.stderr)
                f = measure(programs, devices, variants, is_each, policy)
                line += f"{f['rate']:11,}{f['marshal']:8.1f}{f['stored']:7.1f}{f['applied']:9,.0f}{f['seconds']:8.2f}"
                line += "" if is_each else f"{f['server']:7.0f}{f['device']:7,.0f} "
            print(line, flush=True)
    print("\nprocessor time, %   library  runtime  kernel  libnats")
    for who, parts in library_share(programs).items():
        print(f"{who:17}" + "".join(f"{part:9.1f}" for part in parts))
    print("\npolicies: the campus policy 40 times for 1 and 10 devices, 3 times for 100, its first 60 lines for 1,000")


main(sys.argv[1])
