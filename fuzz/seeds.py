#!/usr/bin/env python3
"""Seeds for the fuzzers, from the rows that were measured on a device: seeds.py DATA OUT.

A fuzzer takes its selectors from the end of an input and contents from its front (see Fuzz.h and each fuzzer).
"""

import json
import re
import struct
import sys
from pathlib import Path

# In the order of their declaration, which is that of the fuzzer's list.
RECORDS = re.findall(r"^struct (\w+)", (Path(__file__).parent.parent / "aidl/Records.h").read_text(), re.M)
DESCRIPTOR = 32  # bytes of a file descriptor among arguments
BINDER = 28


def rows(path):
    return [json.loads(line) for line in path.read_text().splitlines()]


def main(data, out):
    data, out = Path(data), Path(out)
    records = [(row["record"], bytes.fromhex(row["hex"])) for row in rows(data / "records.jsonl")]

    def seed(fuzzer, content):
        folder = out / fuzzer
        folder.mkdir(parents=True, exist_ok=True)
        (folder / f"row-{len(list(folder.iterdir())):03}").write_bytes(content)

    for name, content in records:
        seed("records", content + bytes([0, RECORDS.index(name)]))
    for row in rows(data / "transactions.jsonl"):
        if "hex" not in row:  # the proxy refused to send it
            continue
        content = bytes.fromhex(row["hex"])
        kind, place = 0, 0
        if row["method"] == "registerRequest":
            kind, content = 1, content[BINDER:]
        if row["method"] in ("sendFdforUID", "sendSocketFd"):
            kind, place, content = 2, (len(content) - DESCRIPTOR) // 4, content[:-DESCRIPTOR]
        fuzzer = "service" if row["interface"] == "IOrvixService" else "request"
        seed(fuzzer, content + bytes([place, kind, row["code"], 0]))

    def java(which, parcels):
        lengths = b"".join(struct.pack("<H", len(parcel)) for parcel in reversed(parcels))
        seed("java", b"".join(parcels) + lengths + bytes([0, len(parcels) - 1]) + struct.pack("<iB", 7, which))

    by_name = {}
    for name, content in records:
        by_name.setdefault(name, []).append(content)
    for content in by_name["NetworkStatsParams"]:
        java(0, [b"", content, content])
    for content in by_name["ByteTuple"]:
        java(1, [content])
    for content in by_name["NetworkInfo"]:
        java(2, [content])
    for content, info in zip(by_name["BuildInfoParams"], by_name["TelephonyInfoParams"]):
        java(3, [content, info, info])
    seed("java", b"\x00\xff" + struct.pack("<iB", 5, 4))
    seed("frames", bytes(range(256)))
    # A return, a drain, a request, a death, a drain: read from the end.
    seed("events", bytes([7, 0, 7, 0, 3, 0, 7, 0, 9, 7, 1, 7, 7, 7, 2]))
    (out / "made").touch()


if __name__ == "__main__":
    main(*sys.argv[1:])
