"""Runs processes that talk by lines against each other, in a private folder: a service and an application, or what
stands in for either in the endurance run and the benchmarks.

One thread reads what all of them print, in the order of arrival. A wait ends when what it waits for has come, or when a
process has ended that nobody told to. Beyond that there is a limit against what hangs. It is no measure of speed, so it
is generous; ORVIX_PATIENCE multiplies it.
"""

import collections
import dataclasses
import json
import os
import selectors
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SIM = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(SIM.parent / "device/logcat"))
import lines  # noqa: E402
from ending import interruptible  # noqa: E402

LIMIT = 300 * float(os.environ.get("ORVIX_PATIENCE", 1))  # seconds


class Unmet(SystemExit):
    """What was waited for did not come, or a process has ended. Uncaught, its text ends the program."""


@dataclasses.dataclass
class Line:
    when: float  # time.monotonic() at its arrival
    source: str  # "java", "service"; "library" and "platform" for log lines of the application's process
    text: str  # of a log line: priority and message
    value: dict  # of a line that is JSON, else empty


class Half:
    """One process on a stage."""

    def __init__(self, stage, name, command, **more):
        self.stage = stage
        self.name = name  # the source of its lines
        self.role = "application" if name == "java" else name
        self.started = time.monotonic()
        born = stage.timeline and stage.timeline.now()
        # One pipe for both of its outputs keeps their order; in a group of its own it gets no signal from the terminal.
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, process_group=0,
                                        **{"stderr": subprocess.STDOUT} | more)
        os.set_blocking(self.process.stdin.fileno(), False)
        self.last_lines = collections.deque(maxlen=5)
        self.ended = False  # all that it had printed has been read
        self.may_end = False
        stage.listen(self.process.stdout.fileno(), name, self)
        if stage.timeline:
            stage.timeline.process(self.process.pid, self.role, born)

    def say(self, line):
        """Types a line."""
        data = line.encode(errors="surrogateescape") + b"\n"

        def typed():
            nonlocal data
            try:
                data = data[os.write(self.process.stdin.fileno(), data):]
            except BlockingIOError:
                pass
            except BrokenPipeError as error:
                raise self.unmet("the input is read") from error
            return not data

        self.stage.wait(f"the {self.role} reads its input", typed)

    def unmet(self, what):
        """For what cannot come any more, as this half has ended or is about to."""
        code = self.wait_exit()[0]
        return Unmet(f"{what}: the {self.role} has ended, exit code {code}, with " + " / ".join(self.last_lines))

    def hear(self, name, since=0):
        """The numbers of the first line with this name, of those from the line of this number on."""
        def heard():
            return next((line for line in self.stage.lines[since:]
                         if line.source == self.name and line.text.partition(" ")[0] == name), None)

        return [int(word) for word in self.stage.wait(f"the {self.role} says '{name}'", heard).text.split()[1:]]

    def ask(self, command, name=None):
        """The numbers of the answer, which has the name of the command unless another is given."""
        since = len(self.stage.lines)
        self.say(command)
        return self.hear(name or command.split()[0], since)

    def end_of_input(self):
        self.may_end = True
        self.process.stdin.close()

    def kill(self):
        self.may_end = True
        if self.stage.timeline:  # what comes of it comes after it
            self.stage.timeline.killed(self.process.pid)
        self.process.kill()

    def wait_exit(self):
        """The exit code, and the seconds that it took from now. All that was printed has been read then."""
        self.may_end = True
        begin = time.monotonic()
        self.stage.wait(f"the {self.role} ends", lambda: self.ended and self.process.poll() is not None, 0.002)
        return self.process.returncode, time.monotonic() - begin


class Stage:
    """The private folder, the processes in it and every line they print. A context manager: nothing is left behind."""

    def __init__(self, build, show=lambda line: None, timeline=None, **environment):
        self.build = Path(build).resolve()
        self.show = show
        self.timeline = timeline  # is told what is logged when, and the processes run traced
        self.lines = []
        self.folder = tempfile.mkdtemp(prefix="orvix-")
        self.environment = os.environ | {"ORVIX_BINDER_DIR": self.folder, "ORVIX_BUILD": str(self.build)} | environment
        if timeline:
            self.environment["ORVIX_TRACE"] = "1"
        self._reader = lines.Reader()
        self._selector = selectors.DefaultSelector()
        self._halves = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for half in self._halves:
            half.process.kill()
            half.process.wait()
        self._selector.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def start_service(self, *arguments, command=None):
        return self._start("service", [*(command or [self.build / "bin/orvix-service", "--json"]), *arguments])

    def start_app(self, *arguments, command=None, main="", options="", **more):
        """The sample application; or another main class of its package, with its arguments; or a command."""
        command = command or [SIM / "app/run", *([] if main else ["--json"])]
        return self._start("java", [*command, *arguments], {"ORVIX_MAIN": main, "JAVA_OPTIONS": options}, **more)

    def _start(self, name, command, environment=None, **more):
        self._halves = [half for half in self._halves if half.process.poll() is None or not half.may_end]
        self._halves.append(Half(self, name, command, env=self.environment | (environment or {}), **more))
        return self._halves[-1]

    def listen(self, fd, source, half=None):
        """Reads this descriptor, too, to its end; which is that of a half's life if it is its output."""
        self._selector.register(fd, selectors.EVENT_READ, {"source": source, "unread": b"", "half": half})

    def pump(self, seconds=0.0):
        """Takes what is there, waiting at most so long for the first of it."""
        with interruptible():
            ready = self._selector.select(seconds)
        for key, _ in ready:
            data = os.read(key.fd, 1 << 16)
            at_end = not data
            if at_end:
                self._selector.unregister(key.fd)
                data = b"\n" if key.data["unread"] else b""  # what ends without one is a line as well
            *lines, key.data["unread"] = (key.data["unread"] + data).split(b"\n")
            for line in lines:
                text = line.decode(errors="replace")
                if key.data["half"]:
                    key.data["half"].last_lines.append(text)
                self._take(key.data["source"], text)
            if at_end and key.data["half"]:
                key.data["half"].ended = True
                if self.timeline:
                    self.timeline.ended(key.data["half"].process.pid)

    def _take(self, source, text):
        value = {}
        if text.startswith("{"):
            value = json.loads(text)
        elif (record := self._reader.line(text)) and record.tid:
            if self.timeline:
                self.timeline.line(record)
            if record.tag == "trace":
                return
            source = "library" if record.tag == lines.TAG else "platform"
            text = f"{record.priority} {record.message}"
        line = Line(time.monotonic(), source, text, value)
        self.lines.append(line)
        self.show(line)

    def run(self, seconds):
        """Lets time pass, reading."""
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            self.pump(left)

    def wait(self, what, done, every=0.02):
        """Reads until done() is true and gives its value; Unmet, naming what, if it cannot come any more.

        done() is asked after whatever arrives and every so many seconds, so it may also type.
        """
        end = time.monotonic() + LIMIT
        while not (result := done()):
            for half in self._halves:
                if half.ended and not half.may_end:
                    raise half.unmet(what)
            if time.monotonic() > end:
                raise Unmet(f"{what}: not within {LIMIT:g} s (ORVIX_PATIENCE multiplies this)")
            self.pump(every)
        return result

    # What has arrived, from the line of this number on.

    def calls(self, since=0):
        """The service's received calls: name and arguments."""
        return self._pairs("call", since)

    def call_outs(self, since=0):
        """Java's received calls."""
        return self._pairs("java", since)

    def _pairs(self, kind, since):
        return [(line.value[kind], line.value["args"]) for line in self.lines[since:] if kind in line.value]

    def find(self, since=0, **members):
        """The first JSON line with these members, or None."""
        for line in self.lines[since:]:
            if line.value and all(line.value.get(name) == value for name, value in members.items()):
                return line
        return None
