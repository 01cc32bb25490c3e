# Runs tshark with the dissector on packets, either bare IPv4 or in the transport of by_name.lua. Settings of the user
# have no effect. Where the package is installed, tshark refuses to load a second dissector, and the tests fail.
import os
import pathlib
import struct
import subprocess
import sys
import tempfile

BARE_IP, USER_0 = 101, 147


def shown(packets, *options):
    """What it prints. A packet is cut where its bytes end before the length that IPv4 says."""
    by_name = pathlib.Path(__file__).with_name("by_name.lua")
    is_ip = packets[0][0] == 0x45
    with tempfile.NamedTemporaryFile() as file, tempfile.TemporaryDirectory() as empty:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, BARE_IP if is_ip else USER_0))
        for packet in packets:
            length = int.from_bytes(packet[2:4], "big") if is_ip else len(packet)
            file.write(struct.pack("<4I", 0, 0, len(packet), length) + packet)
        file.flush()
        run = [sys.argv[1], "-n", "-r", file.name, "-X", f"lua_script:{sys.argv[2]}", "-X", f"lua_script:{by_name}"]
        alone = {**os.environ, "HOME": empty, "WIRESHARK_CONFIG_DIR": empty}
        done = subprocess.run([*run, *options], check=True, capture_output=True, text=True, env=alone)
    if "Lua" in done.stderr or "Lua Error" in done.stdout:
        sys.exit(f"the dissector fails: {done.stderr}")
    return done.stdout
