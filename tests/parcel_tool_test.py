#!/usr/bin/env python3
"""Drives orvix-parcel: bytes measured on a device both ways, damaged bytes, and the errors that people see.

usage: parcel_tool_test.py DATA_DIR COMMAND...
"""
import collections
import json
import pathlib
import re
import subprocess
import sys
import unittest

# An error's line, and the one of a note about what is odd.
TOLD = re.compile(r"orvix-parcel: line \d+: (?:note: .+|[A-Za-z.]+: (?:NOT_ENOUGH_DATA|BAD_VALUE|BAD_TYPE|NO_MEMORY"
                  r"|UNEXPECTED_NULL) at byte \d+ in \S.* \([A-Za-z\[\]@ ]+\))")
TRUE_7 = '{"int1":7,"flag1":true}'
BATTERY = "0c0000000700000001000000"
DESCRIPTOR = "852a6466" + "00" * 20
NO_PATH = "a descriptor's path is not in the bytes: reading gives /dev/null for any"
TOKEN = "00000080" "ffffffff" "53595354" "27000000" + "vendor.nuvel.data.orvixservice.IRequest\0".encode("utf-16-le").hex()
CASES = {  # command: output, and error output, as a regular expression
    f"decode BatteryState {BATTERY.upper()}": (TRUE_7, ""),
    # As captured.
    f"decode BatteryState 0x0c 0X00,0x00 0x00\n{BATTERY[8:]}\r\n": (TRUE_7, ""),
    f"decode IRequest.getFdforUID {TOKEN}07000000": ("[7]", "note: the interface token in front takes 96 bytes, .*"),
    f"decode IOrvixService.sendLPMStatus {TOKEN}01000000": ("", ".*: the bytes begin with .* a call to vendor.*IRequest"),
    f"decode BatteryState {TOKEN}{BATTERY}": ("", ".*: the bytes begin with the interface token of a call to .*IRequest"),
    # What every interface can be asked.
    "decode IRequest.getInterfaceVersion.reply 0000000007000000": ("[7]", ""),
    'encode IOrvixService.getInterfaceHash.reply ["a"]': ("00000000" "01000000" "61000000", ""),
    "decode IOrvixService.getInterfaceHash.reply fdffffff010000006100000000000000": ("", ".*: no answer, but .*EX_ILLEGAL_ARG.*"),
    # Another process's binder cannot be made, but its bytes can be shown.
    f"decode IOrvixService.registerRequest 852a68731300000001000000{'00' * 12}3f000000": ('["remote binder"]', ""),
    'encode IOrvixService.registerRequest ["remote binder"]': ("", ".*: argument 1: must be IRequest, .*"),
    # Read without an error, as on a device, and odd.
    f"decode BatteryState {BATTERY}00000000": (TRUE_7, "note: 4 bytes from byte 12 are not read"),
    f"decode BatteryState 08{BATTERY[2:]}": ('{"int1":7,"flag1":false}', "note: BatteryState ends before flag1, .*"),
    f"decode BatteryState 10{BATTERY[2:]}": (TRUE_7, "note: the size .* is 16, its members take 12; .* 4 bytes past.*"),
    f"decode BatteryState {BATTERY[:-2]}": (TRUE_7, "note: 11 bytes, filled up with zeros .*"),
    # Bytes that no reader takes.
    f"decode BatteryState 03{BATTERY[2:]}": ("", "BatteryState: BAD_VALUE at byte 0 in the size of .*"),
    "decode IOrvixService.sendCensusInfo 010000005000000000000000": ("", ".* at byte 8 in argument 1.buildInfo .*"),
    "decode IOrvixService.sendNetworkStatsForAllUids 05000000ffffff7f": ("", ".* at byte 4 in argument 2 .*Params..."),
    "decode IOrvixService.registerRequest 852a68731300000001000000": ("", ".* at byte 0 in argument 1 .IRequest."),
    # No descriptor; null; one that has a second descriptor.
    f"decode IOrvixService.sendFdforUID 0100000000000000{'00' * 24}": ("", ".*: BAD_TYPE at byte 0 in argument 1 .*"),
    f"decode IOrvixService.sendFdforUID 0000000000000000{DESCRIPTOR}": ("", ".*: UNEXPECTED_NULL at byte 0 in argu.*"),
    f"decode IOrvixService.sendFdforUID 0100000001000000{DESCRIPTOR}": ("", ".*: BAD_TYPE at byte 0 in argument 1 .*"),
    "decode BatteryState 0cx0": ("", "BatteryState: not hex at character 3; an example: .*"),
    "decode BatteryState 0c0": ("", "BatteryState: an odd number of hex digits: 3"),
    # Values that are none.
    'encode BatteryState {"int1":7}': ("", "BatteryState: flag1: is missing; must be boolean, for example true"),
    'encode BatteryState {"int1":7,"int1":8,"flag1":true}': ("", "BatteryState: the member int1 is there twice"),
    'encode BatteryState {"intl":7,"flag1":true}': ("", ".*: intl: no such member; BatteryState has int1, flag1.*"),
    'encode BatteryState {"int1":2147483648,"flag1":true}': ("", r".* int \(-2147483648 to 2147483647\), .*, not .*"),
    'encode BatteryState {"int1":7.0,"flag1":true}': ("", "BatteryState: int1: must be int .*, for example 5, not 7.0"),
    'encode IOrvixService.sendNetworkStatsForAllUids [1,[{"uid":1,"flag1":true,"flag2":1}]]': (
        "", r".*: argument 2\[0\].flag2: must be boolean, for example true, not 1"),
    'encode IRequest.sendBlobToApk [5,"hex:0"]': ("", '.*: argument 2: must be byte.., for example "hex:00ff", not .*'),
    "encode IRequest.sendBlobToApk [5]": ("", r".*: must be \(int, byte\[\]\), for example \[5,.*"),
    "encode IRequest.sendBlobToApk [5": ("", ".*: not well-formed JSON at byte 3: .*"),
}
USAGE = {
    f"decode Batterystat {BATTERY}": ("", "no record or method Batterystat; nearest: BatteryState"),
    "decode startUidStatsPoling 00": ("", "no record or method .*; nearest: IRequest.startUidStatsPolling"),
    "decode BatteryState": ("", "HEX is required; .*"),
}


def tool(*arguments, items=(), stdout=subprocess.PIPE):
    return subprocess.run([*COMMAND, *arguments], input="".join(item + "\n" for item in items), stdout=stdout,
                          stderr=subprocess.PIPE, encoding="utf-8", timeout=60, check=False)


def subjects():
    """The values of every row and the bytes of those that are sent, by the name that the tool has for them."""
    found = collections.defaultdict(lambda: ([], []))
    for file in ("records.jsonl", "transactions.jsonl"):
        for row in map(json.loads, (DATA / file).read_text(encoding="utf-8").splitlines()):
            values, sent = found[row.get("record") or f"{row['interface']}.{row['method']}"]
            values.append(json.dumps(row.get("value", row.get("args")), ensure_ascii=False, separators=(",", ":")))
            if row.get("sent", True):
                sent.append((values[-1], row["hex"]))
    return found


class ParcelTool(unittest.TestCase):
    def test_every_row_both_ways_and_damaged(self):
        self.assertEqual(len(subjects()), 11 + 17 + 23)
        for name, (values, sent) in subjects().items():
            with self.subTest(name):
                decoded = tool("decode", name, "-", items=[bits for _, bits in sent])
                paths = "".join(f"orvix-parcel: line {i + 1}: note: {NO_PATH}\n" for i, (value, _) in enumerate(sent)
                                if "fd of" in value)
                self.assertEqual((decoded.returncode, decoded.stderr), (0, paths))
                self.assertEqual(decoded.stdout.split("\n")[:-1], [value for value, _ in sent])
                encoded = tool("encode", name, "-", items=values)
                self.assertEqual(encoded.stdout.splitlines(), [bits for _, bits in sent])
                self.assertEqual(encoded.stderr.count(" (ParcelFileDescriptor)\n"), len(values) - len(sent))
                self.assertEqual(encoded.stderr.count(NO_PATH), paths.count("\n"))

                bits = max((bits for _, bits in sent), key=len, default="")[:800]
                items = [bits[:at] + end for at in range(0, len(bits), 8) for end in
                         ("", *(word + bits[at + 8:] for word in ("03000000", "ffffffff", "ffffff7f")))]
                damaged = tool("decode", name, "-", items=items)
                told = damaged.stderr.splitlines()
                self.assertEqual([], [line for line in told if not TOLD.fullmatch(line)])
                errors = sum(": note: " not in line for line in told)
                self.assertEqual((damaged.returncode, damaged.stdout.count("\n")), (errors > 0, len(items) - errors))

    def test_cases(self):
        for command, (output, error) in (CASES | USAGE).items():
            answer = tool(*command.split(" ", 2))
            with self.subTest(command):
                code = 0 if output else 2 if command in USAGE else 1
                self.assertEqual((answer.returncode, answer.stdout), (code, output + "\n" if output else ""))
                self.assertRegex(answer.stderr, f"\\Aorvix-parcel: {error}\n\\Z" if error else r"\A\Z")

    def test_a_bad_line_and_a_full_output(self):
        answer = tool("decode", "BatteryState", "-", items=[BATTERY + "\r", "0c000000", BATTERY])
        self.assertEqual((answer.returncode, answer.stdout), (1, f"{TRUE_7}\n{TRUE_7}\n"))
        self.assertEqual(answer.stderr, "orvix-parcel: line 2: BatteryState: NOT_ENOUGH_DATA at byte 4 in int1 (int)\n")
        with open("/dev/full", "w", encoding="utf-8") as full:
            answer = tool("decode", "BatteryState", BATTERY, stdout=full)
        self.assertEqual((answer.returncode, answer.stderr), (1, "orvix-parcel: cannot write the output\n"))


if __name__ == "__main__":
    DATA, COMMAND = pathlib.Path(sys.argv[1]), sys.argv[2:]
    unittest.main(argv=sys.argv[:1])
