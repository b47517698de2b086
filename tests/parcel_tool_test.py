#!/usr/bin/env python3
"""Drives orvix-parcel: bytes measured on a device both ways, malformed bytes, and the errors that people see.

usage: parcel_tool_test.py DATA_DIR COMMAND...
"""
import collections
import json
import pathlib
import re
import struct
import subprocess
import sys
import unittest

DATA, COMMAND = pathlib.Path(), []
STATUSES = "NOT_ENOUGH_DATA|BAD_VALUE|BAD_TYPE|NO_MEMORY|UNEXPECTED_NULL"
FAILURE = re.compile(rf"orvix-parcel: line \d+: [A-Za-z.]+: ({STATUSES}) at byte \d+ in \S.* \([A-Za-z\[\]@ ]+\)")
NOTE = re.compile(r"orvix-parcel: line \d+: note: .+")


def tool(*arguments, items=None):
    text = None if items is None else "".join(item + "\n" for item in items)
    return subprocess.run([*COMMAND, *arguments], input=text, capture_output=True, encoding="utf-8", timeout=60,
                          check=False)


def rows(file):
    return [json.loads(line) for line in (DATA / file).read_text(encoding="utf-8").splitlines()]


def compact(value):
    return json.dumps(value, ensure_ascii=False, separators=(",", ":"))


def ordered(text):
    return json.loads(text, object_pairs_hook=list)


def subjects():
    """(value, hex, sent) of every row, by the name that the tool has for them."""
    found = collections.defaultdict(list)
    for row in rows("records.jsonl"):
        found[row["record"]].append((row["value"], row["hex"], True))
    for row in rows("transactions.jsonl"):
        found[f"{row['interface']}.{row['method']}"].append((row["args"], row.get("hex"), row.get("sent", True)))
    return found


class Golden(unittest.TestCase):
    def test_every_row_both_ways(self):
        self.assertEqual(len(subjects()), 11 + 17 + 23)
        for name, cases in subjects().items():
            with self.subTest(name):
                sent = [(value, bits) for value, bits, travels in cases if travels]
                decoded = tool("decode", name, "-", items=[bits for _, bits in sent])
                self.assertEqual((decoded.returncode, decoded.stderr), (0, ""))
                self.assertEqual([ordered(line) for line in decoded.stdout.splitlines()],
                                 [ordered(compact(value)) for value, _ in sent])
                encoded = tool("encode", name, "-", items=[compact(value) for value, _, _ in cases])
                self.assertEqual(encoded.stdout.splitlines(), [bits for _, bits in sent])
                refused = encoded.stderr.splitlines()
                self.assertEqual(len(refused), len(cases) - len(sent))
                for line in refused:
                    self.assertRegex(line, r"UNEXPECTED_NULL at byte \d+ in argument \d \(ParcelFileDescriptor\)")


class Malformed(unittest.TestCase):
    def test_each_item_is_answered(self):
        hostile = [-2147483648, -2, -1, 0, 1, 3, 4, 5, 2147483644, 2147483647]
        for name, cases in subjects().items():
            bits = max((bits for _, bits, travels in cases if travels), key=len)[:800]
            items = [bits[:end] for end in range(0, len(bits), 2)]
            items += [bits[:at] + struct.pack("<i", word).hex() + bits[at + 8:]
                      for at in range(0, len(bits) - 7, 8) for word in hostile]
            with self.subTest(name):
                answer = tool("decode", name, "-", items=items)
                errors = [line for line in answer.stderr.splitlines() if not NOTE.fullmatch(line)]
                self.assertEqual(answer.returncode, 1 if errors else 0)
                self.assertEqual(len(answer.stdout.splitlines()) + len(errors), len(items))
                for line in errors:
                    self.assertRegex(line, FAILURE)


BATTERY = "0c0000000700000001000000"
DESCRIPTOR = "852a6466" + "00" * 20
# Arguments, exit code, output, error output after the tool's name (as a regular expression).
CASES = [
    (["decode", "BatteryState", BATTERY], 0, '{"int1":7,"flag1":true}', ""),
    (["decode", "BatteryState", BATTERY.upper()], 0, '{"int1":7,"flag1":true}', ""),
    (["encode", "BatteryState", '{"int1":7,"flag1":true}'], 0, BATTERY, ""),
    (["decode", "IOrvixService.sendFGNetworkInfo", "0500000007000000" "15cd5b0700000000"], 0, "[5,7,123456789]", ""),
    (["encode", "IRequest.startUidStatsPolling", "[5000]"], 0, "8813000000000000", ""),
    (["encode", "DnsAddress", r'{"text2":"","text1":"\u0000é"}'], 0,
     "18000000" "020000000000e90000000000" "0000000000000000", ""),
    (["decode", "DnsAddress", "18000000" "020000000000e90000000000" "0000000000000000"], 0,
     r'{"text1":"\u0000é","text2":""}', ""),
    # Another process's binder cannot be made, but its bytes can be shown.
    (["decode", "IOrvixService.registerRequest", "852a6873" "13000000" "01000000" + "00" * 12 + "3f000000"], 0,
     '["remote binder"]', ""),
    (["encode", "IOrvixService.registerRequest", '["remote binder"]'], 1, "", '.*: argument 1: must be IRequest, .*'),
    # Read without an error, as on a device, and odd.
    (["decode", "BatteryState", BATTERY + "00000000"], 0, '{"int1":7,"flag1":true}',
     "note: 4 bytes from byte 12 are not read"),
    (["decode", "BatteryState", "08" + BATTERY[2:]], 0, '{"int1":7,"flag1":false}',
     "note: BatteryState ends before flag1, which keeps its default; 4 bytes from byte 8 are not read"),
    (["decode", "BatteryState", "10" + BATTERY[2:]], 0, '{"int1":7,"flag1":true}',
     "note: the size of BatteryState is 16, its members take 12; the sizes run 4 bytes past the data"),
    (["decode", "BatteryState", BATTERY[:-2]], 0, '{"int1":7,"flag1":true}', "note: 11 bytes, filled up with zeros .*"),
    # Bytes that no reader takes.
    (["decode", "BatteryState", BATTERY[:16]], 1, "", "BatteryState: NOT_ENOUGH_DATA at byte 8 in flag1 .boolean."),
    (["decode", "BatteryState", "03" + BATTERY[2:]], 1, "",
     "BatteryState: BAD_VALUE at byte 0 in the size of BatteryState .int."),
    (["decode", "IOrvixService.sendCensusInfo", "01000000" "50000000" "00000000"], 1, "",
     "IOrvixService.sendCensusInfo: UNEXPECTED_NULL at byte 8 in argument 1.buildInfo .BuildInfoParams."),
    (["decode", "IOrvixService.sendNetworkStatsForAllUids", "05000000" "ffffff7f"], 1, "",
     ".*: NO_MEMORY at byte 4 in argument 2 .NetworkStatsParams..."),
    (["decode", "IOrvixService.sendFdforUID", "0100000000000000" + "00" * 24], 1, "",
     ".*: BAD_TYPE at byte 0 in argument 1 .*"),
    # Null, and one that has a second descriptor.
    (["decode", "IOrvixService.sendFdforUID", "0000000000000000" + DESCRIPTOR], 1, "",
     ".*: UNEXPECTED_NULL at byte 0 in argument 1 .*"),
    (["decode", "IOrvixService.sendFdforUID", "0100000001000000" + DESCRIPTOR], 1, "",
     ".*: BAD_TYPE at byte 0 in argument 1 .*"),
    (["decode", "BatteryState", "0cx0"], 1, "", "BatteryState: not hex at character 3; an example: .*"),
    (["decode", "BatteryState", "0c0"], 1, "", "BatteryState: an odd number of hex digits: 3"),
    # Values that are none.
    (["encode", "BatteryState", '{"int1":7}'], 1, "",
     "BatteryState: flag1: is missing; must be boolean, for example true"),
    (["encode", "BatteryState", '{"int1":7,"int1":8,"flag1":true}'], 1, "",
     "BatteryState: the member int1 is there twice"),
    (["encode", "BatteryState", '{"intl":7,"flag1":true}'], 1, "",
     "BatteryState: intl: no such member; BatteryState has int1, flag1.*"),
    (["encode", "BatteryState", '{"int1":2147483648,"flag1":true}'], 1, "",
     r"BatteryState: int1: must be int \(-2147483648 to 2147483647\), for example 5, not 2147483648"),
    (["encode", "BatteryState", '{"int1":7.0,"flag1":true}'], 1, "", "BatteryState: int1: must be int .*, not 7.0"),
    (["encode", "IRequest.startUidStatsPolling", "[9223372036854775808]"], 1, "", ".*: argument 1: must be long .*"),
    (["encode", "IOrvixService.sendNetworkStatsForAllUids", '[1,[{"uid":1,"flag1":true,"flag2":1}]]'], 1, "",
     r".*: argument 2\[0\].flag2: must be boolean, for example true, not 1"),
    (["encode", "IRequest.sendBlobToApk", '[5,"hex:0"]'], 1, "",
     '.*: argument 2: must be byte.., for example "hex:00ff", not "hex:0"'),
    (["encode", "IRequest.sendBlobToApk", "[5]"], 1, "", r".*: must be \(int, byte\[\]\), for example \[5,.*"),
    (["encode", "IRequest.sendBlobToApk", "[5"], 1, "", ".*: not well-formed JSON at byte 3: .*"),
    # Wrong usage.
    (["decode", "Batterystat", BATTERY], 2, "", "no record or method Batterystat; nearest: BatteryState"),
    (["decode", "startUidStatsPoling", ""], 2, "", "no record or method .*; nearest: IRequest.startUidStatsPolling"),
    (["decode", "BatteryState"], 2, "", "HEX is required; .*"),
    (["list", "more"], 2, "", "The following argument was not expected: more; .*"),
    ([], 2, "", "A subcommand is required; .*"),
]


class Usage(unittest.TestCase):
    def test_cases(self):
        for arguments, code, output, error in CASES:
            with self.subTest(arguments):
                answer = tool(*arguments)
                self.assertEqual((answer.returncode, answer.stdout), (code, output + "\n" if output else ""))
                self.assertRegex(answer.stderr, f"\\Aorvix-parcel: {error}\n\\Z" if error else r"\A\Z")

    def test_a_bad_line_does_not_stop_the_others(self):
        answer = tool("decode", "BatteryState", "-", items=[BATTERY + "\r", "0c000000", BATTERY])
        self.assertEqual(answer.returncode, 1)
        self.assertEqual(answer.stdout, '{"int1":7,"flag1":true}\n' * 2)
        self.assertEqual(answer.stderr, "orvix-parcel: line 2: BatteryState: NOT_ENOUGH_DATA at byte 4 in int1 (int)\n")

    def test_an_output_that_is_full(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            answer = subprocess.run([*COMMAND, "decode", "BatteryState", BATTERY], stdout=full, stderr=subprocess.PIPE,
                                    encoding="utf-8", check=False)
        self.assertEqual((answer.returncode, answer.stderr), (1, "orvix-parcel: cannot write the output\n"))

    def test_list_names_everything(self):
        lines = tool("list").stdout.splitlines()
        self.assertEqual({line.split()[0] for line in lines}, set(subjects()))
        for line in ("CensusInfo {BuildInfoParams buildInfo, TelephonyInfoParams[] telephonyInfos}",
                     "IOrvixService.sendFGNetworkInfo 9 (RatType, TechType, long)",
                     "IRequest.sendBlobToApk 23 (int, byte[])"):
            self.assertIn(line, lines)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    DATA, COMMAND = pathlib.Path(sys.argv[1]), sys.argv[2:]
    unittest.main(argv=sys.argv[:1])
