"""Both halves, live: the simulated service and the sample application, two processes in a private folder.

One thread reads what both print, in the order of arrival. Every wait is bounded.
"""

import dataclasses
import json
import os
import re
import selectors
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path

SIM = Path(__file__).resolve().parent.parent
LOG_LINE = re.compile(r"\d\d-\d\d [\d:.]{12} +\d+ +\d+ (?P<priority>\w) (?P<tag>\S+) *: (?P<message>.*)")


class Unmet(Exception):
    """What was waited for did not come in time, or a half ended or stopped listening."""


@dataclasses.dataclass
class Line:
    when: float  # time.monotonic() at its arrival
    source: str  # "java", "service"; "library" and "platform" for log lines of the application's process
    text: str  # of a log line: priority and message
    value: dict  # of a line that is JSON, else empty


class Half:
    """One process: its input, and whether it lives."""

    def __init__(self, name, command, environment, pass_fds=()):
        self.name = name  # the source of its lines
        self.role = "application" if name == "java" else name
        self.started = time.monotonic()
        # One pipe for both of its outputs keeps their order.
        self.process = subprocess.Popen(command, env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, pass_fds=pass_fds)
        os.set_blocking(self.process.stdin.fileno(), False)

    @property
    def pid(self):
        return self.process.pid

    def say(self, line):
        """Types a line. Unmet when the process is gone or has not read for long."""
        data = line.encode() + b"\n"
        try:
            written = os.write(self.process.stdin.fileno(), data)
        except (BlockingIOError, BrokenPipeError) as error:
            raise Unmet(f"the {self.role} takes no input: {error.strerror}") from error
        if written != len(data):
            raise Unmet(f"the {self.role} takes no input: the pipe is full")

    def end_of_input(self):
        self.process.stdin.close()

    def kill(self):
        self.process.send_signal(signal.SIGKILL)


class Stage:
    """The private folder, the halves in it and every line they print. A context manager: nothing is left behind."""

    def __init__(self, build, show=lambda line: None):
        self.build = Path(build).resolve()
        self.show = show
        self.lines = []
        self.folder = tempfile.mkdtemp(prefix="orvix-")
        self.environment = dict(os.environ, ORVIX_BINDER_DIR=self.folder, ORVIX_BUILD=str(self.build))
        self._selector = selectors.DefaultSelector()
        self._halves = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for half in self._halves:
            if half.process.poll() is None:
                half.kill()
            half.process.wait()
        self._selector.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def start_service(self, *arguments, command=None):
        command = command or [self.build / "bin/orvix-service", "--json"]
        return self._add(Half("service", [*command, *arguments], self.environment))

    def start_app(self, *arguments, pass_fds=(), command=None, **environment):
        command = command or [SIM / "app/run", "--json"]
        return self._add(Half("java", [*command, *arguments], self.environment | environment, pass_fds))

    def _add(self, half):
        self._halves.append(half)
        self.listen(half.process.stdout.fileno(), half.name)
        return half

    def listen(self, fd, source):
        """Reads this descriptor, too, to its end."""
        self._selector.register(fd, selectors.EVENT_READ, {"source": source, "unread": b""})

    def pump(self, seconds=0.0):
        """Takes what is there, waiting at most so long for the first of it. False when nothing came."""
        ready = self._selector.select(seconds)
        for key, _ in ready:
            data = os.read(key.fd, 1 << 16)
            if not data:
                self._selector.unregister(key.fd)
                data = b"\n" if key.data["unread"] else b""  # what ends without one is a line as well
            *lines, key.data["unread"] = (key.data["unread"] + data).split(b"\n")
            for line in lines:
                self._take(key.data["source"], line.decode(errors="replace"))
        return bool(ready)

    def _take(self, source, text):
        value = {}
        if text.startswith("{"):
            value = json.loads(text)
        elif match := LOG_LINE.fullmatch(text):
            source = "library" if match["tag"] == "orvixJni" else "platform"
            text = f"{match['priority']} {match['message']}"
        line = Line(time.monotonic(), source, text, value)
        self.lines.append(line)
        self.show(line)

    def run(self, seconds):
        """Lets time pass, reading."""
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            self.pump(left)

    def wait(self, what, done, timeout=10.0):
        """Reads until done() is true and gives its value; Unmet, naming what, when that takes too long.

        done() is asked after whatever arrives and every 20 ms, so it may also type.
        """
        end = time.monotonic() + timeout
        while not (result := done()):
            left = end - time.monotonic()
            if left <= 0:
                raise Unmet(f"{what}: not within {timeout:g} s")
            self.pump(min(left, 0.02))
        return result

    def wait_exit(self, half, timeout):
        """The exit code, and the seconds that it took from now."""
        begin = time.monotonic()
        while half.process.poll() is None:
            if time.monotonic() - begin > timeout:
                raise Unmet(f"the {half.role} has not ended within {timeout:g} s")
            self.pump(0.002)
        took = time.monotonic() - begin
        while self.pump(0):
            pass
        return half.process.returncode, took

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
