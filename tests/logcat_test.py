#!/usr/bin/python3
"""The reader of device logs: its table of lines against the library's source, its formats, its statements.

usage: logcat_test.py [SEED]
"""
import collections
import dataclasses
import json
import random
import re
import signal
import subprocess
import sys
import tempfile
import threading
import unittest
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "device/logcat"))
import lines  # noqa: E402
import logcat  # noqa: E402
from story import Log  # noqa: E402
from system import System  # noqa: E402

TOOL = ROOT / "device/logcat/logcat.py"
# One record in the formats of adb logcat: what each keeps of time, thread and UID.
FORMATS = {
    "06-01 {clock}  1234  1250 D orvixJni: {message}\n": "time tid",
    "06-01 {clock} 10123  1234  1250 D orvixJni: {message}\r\n": "time tid uid",
    "\x1b[38;5;75m2026-06-01 {clock}000 +0000  1234  1250 D orvixJni: {message}\x1b[0m\n": "time tid",
    "         1780309230.250  1234  1250 D orvixJni: {message}\n": "time tid",
    "D/orvixJni( 1234): {message}\n": "",
    "D/orvixJni(10123: 1234): {message}\n": "uid",
    "06-01 {clock} D/orvixJni( 1234): {message}\n": "time",
    "[ 06-01 {clock}  1234: 1250 D/orvixJni ]\n{message}\n\n": "time tid",
    "[ 06-01 {clock} 10123: 1234: 1250 D/orvixJni ]\n{message}\n\n": "time tid uid",
}
MEANINGS = {"handleEvent -1": ("event", (-1,)), "updateStats start": ("request", ("updateStats",)),
            "sendCensusInfo start": ("native", ("sendCensusInfo",)), "Foreign: 1": (None, ())}


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

    def test_page(self):
        page = (ROOT / "docs/logcat.md").read_text()
        numbers = re.findall(r"[|] (-?\d+) (\w[\w ]*?) (?=[|])", page)
        self.assertEqual({int(code): name for code, name in numbers}, lines.EVENTS)
        rows = re.findall(r"^\| `(.+?)` \| (.+?) \| (.+?) \|$", page.partition("## Failures")[2], re.M)
        failures = [(row.text.strip(), "; ".join([row.meaning, *(
            f"`{value}`: {case}" if value else f"else {case}" for value, case in row.cases.items())]), row.do)
                    for row in lines.ROWS if row.do]
        self.assertEqual(rows[:-1], failures)  # the last is one of priority D

    def test_formats(self):
        for form, keeps in FORMATS.items():
            for message, meaning in MEANINGS.items():
                text = form.format(clock="10:20:30.250", message=message)
                with self.subTest(text):
                    record, = lines.read(["--------- beginning of main\n", *text.splitlines(keepends=True)])
                    row, values = lines.meaning(record.message)
                    self.assertEqual((row and row.kind, values), meaning)
                    self.assertEqual((record.pid, record.tid, record.uid, record.time and record.time % 86_400),
                                     (1234, "tid" in keeps and 1250 or None, "uid" in keeps and "10123" or None,
                                      "time" in keeps and 37_230.25 or None))


GOOD_LOAD = "I JNI_OnLoad entry; D registerNativeMethods; D JNI_OnLoad exit"
ATTACH = "D isThreadAttached start; D jni detached; D jni attached"
LOOK_UP = "D getJavaCallbackClass start; D getJavaCallbackClass End midIs[1]"
LINKS = "W libbinder! linkToDeath: non-null cookie and no onUnlink callback set"
TOLD = "I initialize callback success"
FAILS = {
    "no attach": "D isThreadAttached start; D jni detached; E Failed to attach jni",
    "no env": "D isThreadAttached start; E JNI ERROR, -3",
    "no socket": "E failed to create socket, error: Permission denied",
    "no tag": "D successfully created socket; E failed to tag socket with uid, error: -1",
}
WRONG = {"Failed to attach": "no attach", "JNI ERROR": "no env", "midIs[0]": "no method", "attach thread": "not told",
         "failed to create": "no socket", "failed to tag": "no tag", "not ready": "not ready"}


@dataclasses.dataclass
class Line:
    """A line of a simulated run, and what is true of it."""

    time: float
    tid: int
    text: str  # priority and message
    absence: int | None = None  # that a death begins, a binding ends, a call is lost in; 0 is that before the first
    hold: float | None = None  # how long this event will hold the dispatch thread
    untold: bool = False  # Java is not told by this event, and no line says so

    @property
    def wrong(self):
        return next((kind for text, kind in WRONG.items() if text in self.text), None)


class Run:
    """One process: a service that comes and goes, requests, calls, and what can fail, as the library behaves. Knows
    nothing of the reader."""

    def __init__(self, chance, begin, faults):
        self.chance, self.faults, self.lines, self.now = chance, faults, [], begin
        self.links_show = chance.random() < 0.5
        self.waiting = [(begin, 0)]  # the times without service: begin, absence, end
        for text in ("I JNI_OnLoad entry", "D registerNativeMethods", "D JNI_OnLoad exit"):
            self.write(self.step(), 1234, text)
        self.busy = self.now
        at, absence = self.step(0.05), 0
        for life in range(chance.randrange(1, 6)):
            at, absence = self.life(at, absence, 1251 + life, chance.random() < 0.25)
            if at is None:
                break
        self.end = max(self.now, self.busy) + chance.choice((0, 8))
        self.waiting[-1] += (self.end,)
        self.calls(begin + 0.1)
        self.lines.sort(key=lambda line: line.time)

    def step(self, most=0.004):
        self.now += self.chance.uniform(0.0001, most)
        return self.now

    def write(self, *line, **true):
        self.lines.append(Line(*line, **true))
        return self.lines[-1]

    def event(self, arrives, code, wrong="", absence=None):
        """On the dispatch thread; its first line."""
        chance, name, at = self.chance, lines.EVENTS[code], max(arrives, self.busy) + 0.00005
        if arrives > self.busy:  # it slept; and may have been woken before for an event that it had taken already
            for time in (self.busy + 0.00001, at)[chance.random() < 0.7:]:
                self.write(time, 1240, "D new aidl event arrived")
        begin = first = self.write(at, 1240, f"D handleEvent {code}", untold=wrong == "nobody told")
        tells = {0: "Up", -1: "Down"}.get(code)
        texts = FAILS.get(wrong) or (
            "D successfully created socket; D successfully mapped socket to uid(10123)" if code == 23 else
            f"{ATTACH}; {LOOK_UP}" if tells else f"{ATTACH}; D {name} start; {LOOK_UP}")
        if tells:
            texts = f"D handleService{tells} start; {texts}{'; E attach thread FAILED' if wrong in FAILS else ''}"
        texts = (texts.replace("[1]", "[0]") if wrong == "no method" else texts).split("; ")
        for text in texts:
            at += chance.uniform(0.00001, 0.0003)
            line = self.write(at, 1240, text)
            if "ServiceDown" in text:
                line.absence, first = absence, line
        if "End" in texts[-1]:
            at += chance.choice((0.0005, 0.003, 0.04, 1.3 if self.faults and chance.random() < 0.1 else 0.001))
            if chance.random() < 0.2:
                self.write(at - 0.0001, 1240, "D sendNetworkInfo RatType 1")  # called from the Java method
            if tells and wrong != "nobody told":
                self.write(at, 1240, TOLD)
        begin.hold, self.busy = at - begin.time, at + 0.00002
        return first

    def life(self, bind, absence, binder, at_once):
        """From a binding to the next one: its time and the absence that it ends. at_once: the service dies before the
        thread that has bound says so, and Java hears of it in the other order."""
        chance, self.now, said = self.chance, bind, bind + self.chance.uniform(0.0001, 0.003)
        self.waiting[-1] += (bind,)
        if self.links_show:
            self.write(bind, binder, LINKS)
        if at_once:
            died, absence = bind + 0.00003, absence or 1
        else:
            self.write(said, binder, "D bindToService is successful", absence=absence)
            wrong = self.faults and chance.choice(("", "", "", "", "no attach", "nobody told")) or ""
            self.event(said, 0, wrong)
            for _ in range(0 if wrong == "no attach" else chance.randrange(12)):
                code = chance.choice([code for code in lines.EVENTS if code > 0])
                self.event(self.step(chance.choice((0.001, 0.3))), code, self.faults and chance.random() < 0.2 and
                           chance.choice(("no socket", "no tag") if code == 23 else tuple(WRONG.values())[:3]) or "")
            died, absence = max(self.step(chance.choice((0.01, 3.0))), said), absence + 1
        final = self.faults and chance.random() < 0.1
        down = self.event(died, -1, "no attach" if final else "", absence)
        if chance.random() < 0.3:  # one that was under way
            self.event(died + 0.0002, 24)
        self.waiting.append((down.time + 0.00005, absence))
        again = self.busy + 0.0005 + chance.choice((0.001, 0.2, 7.0))
        if at_once:
            said = max(said, down.time)
            self.write(said, binder, "D bindToService is successful")
            self.event(said, 0)
            again = max(again, self.busy)
        return None if final else again, absence

    def calls(self, at):
        while (at := at + self.chance.choice((0.002, 0.1, 0.9))) < self.end:
            tid, name = self.chance.choice(((1301, "sendScreenState"), (1302, "sendRadioStatus")))
            if tid == 1302:
                self.write(at, tid, f"D {name} start")
            for begin, absence, end in self.waiting:
                if begin <= at < end:
                    self.write(at + 0.0002, tid, f"E {name}: OrvixService is not ready", absence=absence)


def render(line, pid):
    whole, part = divmod(round(line.time * 1000), 1000)
    tag, text = re.fullmatch(r". (?:(\w+)! )?(.*)", line.text).groups()
    return (f"11-22 {whole // 3600:02}:{whole // 60 % 60:02}:{whole % 60:02}.{part:03} {pid:5} {line.tid:5} "
            f"{line.text[0]} {tag or 'orvixJni'}: {text}")


SCENES = (ROOT / "tests/scenes/logcat.txt").read_text()
NAMES = {"GOOD_LOAD": GOOD_LOAD, "ATTACH": ATTACH, "LOOK_UP": LOOK_UP, "LINKS": LINKS, "TOLD": TOLD}
for name, meant in re.findall(r"^(\w+) = (.*)$", SCENES, re.M):
    NAMES[name] = meant.format(**NAMES)
# Of the transcripts' scenes: what is found beside what their lines of priority E say.
FOUND = {"codes that belong to nobody": 4 * ["no such event"], "method missing": ["no method"],
         "no object in down": ["nobody told"], "SorvixAidlClient missing": ["no method"]}


def simple(text):
    """The lines of a case."""
    clock = 36_000.0
    for later, tid, line in re.findall(r"(?:\+?(-?[\d.]+) )??(?:(\d+) )?([DIEFW] [^;]*)(?:; |$)", text):
        clock += float(later or 0.001)
        yield render(Line(clock, int(tid or 40), line), 1234)


def scenes(kind):
    found = re.findall(rf"^== {kind} ?(.*)\n(.*)$", SCENES, re.M)
    assert len(found) == SCENES.count(f"== {kind}") > 5
    return [(shown, text.format(**NAMES)) for shown, text in found]


def told(text):
    """What the reader says of these lines."""
    log = Log()
    system, reader = System(log), lines.Reader()
    for line in text:
        if (record := reader.line(line)) and not log.take(record):
            system.take(record)
    return logcat.as_json(log, log.close())


class Statements(unittest.TestCase):
    def check(self, shown, document, pid):
        """shown: by line number, the lines of a process that are in the log. All that is said of it is true."""
        process, = [one for one in document["processes"] if one["pid"] == pid]
        found = collections.Counter()
        for finding in document["findings"]:
            if finding["pid"] == pid:
                found[finding["kind"]] += finding["count"]
        whole = any("OnLoad entry" in line.text for line in shown.values())
        self.assertEqual(found.pop("begins late", 0), 0 if whole else 1)
        wrong = collections.Counter(filter(None, (line.wrong for line in shown.values())))
        self.assertEqual({kind: found.pop(kind, 0) for kind in wrong}, dict(wrong))
        self.assertLessEqual(found.pop("nobody told", 0), sum(line.untold for line in shown.values()))
        codes = collections.Counter(int(line.text.split()[2]) for line in shown.values() if "handleEvent" in line.text)
        self.assertEqual(process["requests"], {lines.EVENTS[code]: n for code, n in codes.items() if code > 0})
        deaths = {number: line for number, line in shown.items() if "ServiceDown" in line.text}
        binds = {line.absence: line.time for line in shown.values()
                 if "bindTo" in line.text and line.absence is not None}
        self.assertEqual(process["deaths"], len(deaths))
        for outage in process["outages"]:
            down, over = deaths[outage["line"]], outage["over"]
            lost = collections.Counter(
                line.text[2:].split(":")[0] for number, line in shown.items()
                if line.wrong == "not ready" and line.absence == down.absence and number > outage["line"])
            self.assertTrue(outage["lost"] <= lost if over is None else outage["lost"] == lost)
            self.assertNotEqual(over, down.absence not in binds)
            if over:
                self.assertAlmostEqual(outage["seconds"], binds[down.absence] - down.time, delta=0.002)
        self.assertEqual(process["bound_after"] is None, not whole or 0 not in binds)
        if process["bound_after"] is not None:
            begin = min(line.time for line in shown.values())
            self.assertAlmostEqual(process["bound_after"], binds[0] - begin, delta=0.002)
        for held in process["held"].values():
            self.assertAlmostEqual(held["longest"], shown[held["line"]].hold, delta=0.003)
        self.assertLessEqual(found.pop("held", 0), sum((line.hold or 0) > 0.998 for line in shown.values()))
        self.assertFalse(found.pop("not back", 0) and max(line.absence for line in deaths.values()) in binds)
        self.assertFalse(found.pop("not bound", 0) and (binds or deaths or not whole))
        self.assertEqual(found, {})

    def test_cases(self):
        for kinds, text in scenes("finds"):
            with self.subTest(text):
                found = [finding["kind"] for finding in told(simple(text))["findings"]]
                self.assertEqual(", ".join(kind for kind in found if kind != "begins late"), kinds)

    def test_outages(self):
        for outages, text in scenes("outages"):
            with self.subTest(text):
                process, = told(simple(text))["processes"]
                self.assertEqual([[outage["seconds"], outage["over"], sum(outage["lost"].values())]
                                  for outage in process["outages"]], json.loads(outages))

    def test_command(self):
        """Exit codes, bugreports, a live log that ends by SIGINT or whose reader ends."""
        good, bad = ("".join(line + "\n" for line in simple(text)) for text in
                     (NAMES["BOUND"], "{BOUND}; {DOWN}; {DOWN}".format(**NAMES)))
        report = (f"== dumpstate: now\n------ SYSTEM LOG (logcat) ------\n{good}------ 0.1s was the duration\n"
                  f"------ LAST LOGCAT (logcat -L) ------\n{bad}")
        with tempfile.TemporaryDirectory() as folder:
            for name, text, code in (("good", good, 0), ("bad", good + "E/orvixJni( 1234): JNI ERROR, -3\n", 1),
                                     ("other", "D/foreign ( 1): x\n", 2), ("text", "# x\n", 2), ("zip", report, 0)):
                path = Path(folder, name)
                if name == "zip":
                    with zipfile.ZipFile(path, "w") as archive:
                        archive.writestr("bugreport-x.txt", text)
                else:
                    path.write_text(text)
                with self.subTest(name):
                    self.assertEqual(subprocess.run([TOOL, path], capture_output=True, check=False).returncode, code)
        interrupt, shut = (lambda process: process.send_signal(signal.SIGINT), lambda process: process.stdout.close())
        for end, wrong, code in ((interrupt, False, 0), (shut, False, 0), (interrupt, True, 1)):
            with subprocess.Popen([TOOL], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                  text=True) as process:
                patience = threading.Timer(60, process.kill)
                patience.start()
                process.stdin.write(good + wrong * "E/orvixJni( 1234): sendCensusInfo: JNIEnv is NULL\n")
                process.stdin.flush()
                self.assertIn("loaded", process.stdout.readline())
                self.assertIn("bound, 3 ms after the load", process.stdout.readline())
                if wrong:  # while the log goes on
                    self.assertIn("! ", process.stdout.readline())
                end(process)
                rest = "" if process.stdout.closed else process.stdout.read()
                self.assertEqual("nothing is wrong" in rest, not process.stdout.closed and not wrong)
                process.stdin.close()
                self.assertEqual((process.stderr.read(), process.wait()), ("", code))
                patience.cancel()

    def test_transcripts(self):
        for path in (ROOT / "tests/transcripts").glob("*.txt"):
            for title, scene in re.findall(r"^== (.*)\n((?:(?!==).*\n?)*)", path.read_text(), re.M):
                text = re.findall("^log (. .*)", scene, re.M)
                with self.subTest(title):
                    expected = [lines.meaning(line[2:])[0].kind for line in text if line[0] == "E"]
                    expected += next((kinds for name, kinds in FOUND.items() if title.startswith(name)), [])
                    found = told(render(Line(36_000 + n / 100, 40, line), 1) for n, line in enumerate(text))["findings"]
                    self.assertEqual(sorted(one["kind"] for one in found for _ in range(one["count"]) if one["wrong"]),
                                     sorted(expected))

    def test_random_runs_and_cuts(self):
        """Two processes and foreign lines between theirs, whole and cut: nothing but the truth."""
        seed = int(sys.argv[1]) if sys.argv[1:] else 1
        chance = random.Random(seed)
        for _ in range(100):
            runs = {pid: Run(chance, chance.uniform(36_000, 36_002), chance.random() < 0.7) for pid in (1234, 777)}
            log = sorted(((line, pid) for pid, run in runs.items() for line in run.lines), key=lambda one: one[0].time)
            for first, last in [(0, len(log)), *(sorted(chance.sample(range(len(log) + 1), 2)) for _ in range(10))]:
                text, shown = [], {pid: {} for pid in runs}
                for line, pid in log[first:last]:
                    if chance.random() < 0.2:
                        text.append(render(line, pid).replace("orvixJni", "foreign"))
                    text.append(render(line, pid))
                    if line.text != LINKS:
                        shown[pid][len(text)] = line
                with self.subTest(seed=seed, cut=(first, last)):
                    document = told(text)
                    for pid in runs:
                        if shown[pid]:
                            self.check(shown[pid], document, pid)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
