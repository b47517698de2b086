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
NO_PATH = "a descriptor's path is not in the bytes: reading gives /dev/null for any"
STANDS_FOR = {"<CR>": "\r", "<LF>": "\n", "<TOKEN>": "00000080" "ffffffff" "53595354" "27000000"
              + "vendor.nuvel.data.orvixservice.IRequest\0".encode("utf-16-le").hex()}
SESSION = re.compile(r"^\$ (.*)\n((?:[^$!~#\n].*\n)?)(?:(~|!!?) (.*)\n)?", re.M)


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
        scenes = pathlib.Path(__file__).with_name("scenes").joinpath("parcel.txt").read_text(encoding="utf-8")
        self.assertEqual(scenes.count("\n$ "), len(sessions := SESSION.findall(scenes)))
        for command, output, mark, error in sessions:
            command = re.sub("<[A-Z]+>", lambda name: STANDS_FOR[name[0]], command)
            answer = tool(*command.split(" ", 2))
            with self.subTest(command):
                self.assertEqual((answer.returncode, answer.stdout), (mark.count("!"), output))
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
