#!/usr/bin/python3
"""The reader of device logs: its table of lines against the library's source, its formats, its statements.

usage: logcat_test.py
"""
import re
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "device/logcat"))
import lines  # noqa: E402

# One record in the formats of adb logcat: what each keeps of time, thread and UID.
FORMATS = {
    "{date} {clock}  1234  1250 {p} {tag:8}: {message}\n": "time tid",
    "{date} {clock} 10123  1234  1250 {p} {tag:8}: {message}\r\n": "time tid uid",
    "\x1b[38;5;75m2026-{date} {clock}000 +0000  1234  1250 {p} {tag:8}: {message}\x1b[0m\n": "time tid",
    "         {epoch:.3f}  1234  1250 {p} {tag:8}: {message}\n": "time tid",
    "{p}/{tag:8}( 1234): {message}\n": "",
    "{p}/{tag:8}(10123: 1234): {message}\n": "uid",
    "{date} {clock} {p}/{tag:8}( 1234): {message}\n": "time",
    "[ {date} {clock}  1234: 1250 {p}/{tag:8} ]\n{message}\n\n": "time tid",
    "[ {date} {clock} 10123: 1234: 1250 {p}/{tag:8} ]\n{message}\n\n": "time tid uid",
}


class Lines(unittest.TestCase):
    def test_every_line_of_the_source_has_a_row_and_every_row_a_line(self):
        sources = [path.read_text() for folder in ("client", "callback", "jni") for path in (ROOT / folder).iterdir()]
        logged = [(priority, text.replace("\\n", "\n")) for source in sources
                  for priority, text in re.findall(r'LOG([DIWE])\(\s*"(.*?)"[,)]', source) if text != "%s"]
        logged += [("I", text) for source in sources
                   for text in re.findall(r'callOut\.call\("\w+", "(.*?)"', source)]
        self.assertGreater(len(logged), 30)
        natives = re.findall(r"native<&AidlClient::(\w+)>", (ROOT / "jni/JniOnLoad.cpp").read_text())
        logged = {(priority, "%s start" if text.removesuffix(" start") in natives else text)
                  for priority, text in logged}
        self.assertEqual(logged, {(row.priority, row.text) for row in lines.ROWS})
        header = (ROOT / "callback/CallbackEvent.h").read_text()
        self.assertEqual({int(code) for code in re.findall(r"k\w+ = (-?\d+),", header)}, set(lines.EVENTS))

    def test_formats(self):
        messages = {"handleEvent -1": ("event", (-1,)), "updateStats start": ("request", ("updateStats",)),
                    "sendCensusInfo start": ("native", ("sendCensusInfo",)), "Foreign: 1": (None, ())}
        for form, keeps in FORMATS.items():
            for message, (kind, values) in messages.items():
                text = form.format(date="06-01", clock="10:20:30.250", epoch=1780309230.25, p="D", tag="orvixJni",
                                   message=message)
                with self.subTest(text):
                    record, = lines.read(["--------- beginning of main\n", *text.splitlines(keepends=True)])
                    row, found = lines.meaning(record.message)
                    self.assertEqual((row and row.kind, found), (kind, values))
                    got = record.pid, record.tid, record.uid, record.time and record.time % 86_400, record.tag
                    self.assertEqual(got, (1234, 1250 if "tid" in keeps else None, "10123" if "uid" in keeps else None,
                                           37_230.25 if "time" in keeps else None, "orvixJni"))


if __name__ == "__main__":
    unittest.main()
