"""What a run did when, by the log lines of its processes: spans on threads, the way of each message, the queue's
length.

The processes run traced (ORVIX_TRACE): the platform and the application log sections of work in the device's trace
format beside the library's own lines, all with microseconds of the one clock that processes share.
"""

import collections
import dataclasses
import os
import re
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "device/logcat"))
import lines  # noqa: E402
from lines import DOWN, EVENTS, UP  # noqa: E402

META = {1598968902: "getInterfaceDescriptor"}  # what a binder is asked for by the platform itself


def methods(path, kind):
    """The declared methods in order, each with its parameters' names."""
    declared = re.findall(rf"{kind} void (\w+)\(([^)]*)\)", (ROOT / path).read_text())
    return {name: [parameter.split()[-1] for parameter in parameters.split(",") if parameter]
            for name, parameters in declared}


PACKAGE = "vendor/nuvel/data/orvixservice"
INTERFACES = {name: methods(f"aidl/{PACKAGE}/{name}.aidl", "oneway") for name in ("IOrvixService", "IRequest")}
NATIVES, JAVA_METHODS = (methods(f"sim/app/java/vendor/nuvel/data/orvixadmin/{file}.java", kind)
                         for file, kind in (("JniHelper", "native"), ("SorvixAidlClient", "public")))
# The event that each request becomes; getFdforUID becomes none.
_codes = {name: int(code) for name, code in re.findall(
    r" k(\w+) = (-?\d+),", (ROOT / "callback/CallbackEvent.h").read_text())}
EVENT_OF = {name: _codes[code] for name, code in re.findall(
    r"Status (\w+)\([^)]*\) override \{\s*return post\(\{\.type = k(\w+)",
    (ROOT / "callback/OrvixCallback.h").read_text())}
# The library's steps within a call into Java: the kinds of the lines that begin one and end it.
STEPS = {"attach": "attached", "look-up": "found"}


@dataclasses.dataclass
class Span:
    """Work on a thread. Times are microseconds since the timeline's begin; on a thread no two are the same."""

    pid: int
    tid: int
    begin: float
    name: str
    end: float = None
    kind: str = ""  # "transact", "serve", "death", "event", "step"; "" for a section of the application's own
    outer: "Span" = None
    way: "Way" = None  # of an event: what it is on


@dataclasses.dataclass
class Way:
    """A message from span to span, as far as it came."""

    name: str
    sent: Span = None  # the sender's transaction
    served: Span = None  # at its receiver; of the news of a death, the platform's call
    event: Span = None  # of a request and of news: on the dispatch thread
    java: Span = None  # the Java method that it becomes

    @property
    def spans(self):
        return [span for span in (self.sent, self.served, self.event, self.java) if span]


class Timeline:
    def __init__(self):
        self.begin = 0  # microseconds of the log's clock, which is the real-time clock in local time
        self.begin = self.now()
        self.processes = {}  # pid: name
        self.roles = collections.defaultdict(collections.Counter)  # (pid, tid): what it did how often
        self.spans = []  # in order of their ends
        self.ways = []
        self.queue = []  # (time, pid, length) after each change
        self.instants = []  # (time, pid, tid or None, text)
        self.chapters = []  # (time, text)
        self._inner = collections.defaultdict(list)  # id of a span: those in it
        self._lives = {}  # pid: start and end
        self._open = collections.defaultdict(list)  # (pid, tid): the spans that are open, outermost first
        self._last = {}  # (pid, tid): the time of its last line
        self._transactions = {}  # key: Way; which of its two ends is read first is a matter of chance
        self._queued = collections.defaultdict(collections.deque)  # event code: ways of those that wait
        self._length = 0

    # -- what is told

    def process(self, pid, name, born):
        self.processes[pid] = name
        self._lives[pid] = born, None
        self.instants.append((born, pid, None, "is started"))

    def note(self, text, pid=None):
        """Something that happens at this moment, to a process or to the run."""
        self.instants.append((self.now(), pid or os.getpid(), None, text))

    def chapter(self, text):
        self.chapters.append((self.now(), text))

    def now(self):
        return time.time_ns() // 1000 + time.localtime().tm_gmtoff * 1_000_000 - self.begin

    def killed(self, pid):
        self.note("SIGKILL", pid)
        self._lives[pid] = self._lives[pid][0], self.now()

    def ended(self, pid):
        """A process has ended, and with it what it was at."""
        begin, end = self._lives[pid]
        self._lives[pid] = begin, end or self.now()
        for thread in [thread for thread in self._open if thread[0] == pid]:
            self._end_event(thread)
            while self._open[thread]:
                self._close(thread, max(self._last[thread] + 0.001, self._lives[pid][1]))

    def line(self, record):
        """A line of the log."""
        thread = record.pid, record.tid
        # What a thread logs within one microsecond keeps its order.
        when = max(round(record.time * 1_000_000) - self.begin, self._last.get(thread, -1) + 0.001)
        if record.tag == "trace":
            if record.message.startswith("B|"):
                self._section(when, thread, record.message.split("|", 2)[2])
            elif self._open[thread]:
                self._close(thread, when)
        elif record.tag == lines.TAG:
            self._library(when, thread, record.message)
        if record.priority in "WEF":
            self.instants.append((when, *thread, f"{record.priority} {record.tag}: {record.message}"))
        self._last[thread] = when

    def finish(self):
        """After the last line."""
        for pid in list(self.processes):
            self.ended(pid)
        self.spans.sort(key=lambda span: span.begin)
        for span in self.spans:
            self._inner[id(span.outer)].append(span)
        return self

    def inner(self, span):
        """What lies directly within a span."""
        return self._inner[id(span)]

    def lives(self, role):
        """By process: when it was started, and its end."""
        return {pid: self._lives[pid] for pid, name in self.processes.items() if name == role}

    # -- what it means

    def _begin(self, when, thread, name, **more):
        span = Span(*thread, when, name, outer=self._open[thread][-1] if self._open[thread] else None, **more)
        self._open[thread].append(span)
        return span

    def _close(self, thread, when):
        span = self._open[thread].pop()
        span.end = when
        self.spans.append(span)

    def _section(self, when, thread, text):
        kind, *rest = text.split(" ")
        if kind in ("transact", "serve") and len(rest) == 3:
            key, interface, code = rest
            names = list(INTERFACES.get(interface.rpartition(".")[2], ()))
            name = names[int(code) - 1] if 0 < int(code) <= len(names) else META.get(int(code), f"code {code}")
            span = self._begin(when, thread, name, kind=kind)
            if key not in self._transactions:
                self._transactions[key] = Way(name)
                self.ways.append(self._transactions[key])
            way = self._transactions[key]
            way.sent, way.served = (span, way.served) if kind == "transact" else (way.sent, span)
            if way.sent and way.served:
                del self._transactions[key]
            if kind == "serve" and name in EVENT_OF:
                self._push(when, thread, EVENT_OF[name], way)
        elif kind == "death" and self.processes.get(thread[0]) == "application":  # the service buries callbacks
            self.ways.append(Way(EVENTS[DOWN], served=self._begin(when, thread, text, kind="death")))
            self._push(when, thread, DOWN, self.ways[-1])
        else:
            span = self._begin(when, thread, text)
            if span.outer and span.outer.way:
                span.outer.way.java = span
        self.roles[thread][kind.partition(".")[0]] += 1

    def _library(self, when, thread, message):
        row, values = lines.meaning(message)
        kind = row and row.kind
        stack = self._open[thread]
        if kind == "event":
            self._end_event(thread)
            code = values[0]
            self.roles[thread]["dispatch"] += 1
            span = self._begin(when, thread, EVENTS.get(code, message), kind="event")
            if self._queued[code]:
                span.way = self._queued[code].popleft()
                span.way.event = span
                self._count(when, thread, -1)
        elif kind == "wake":
            self._end_event(thread)
        elif kind in STEPS:
            self._begin(when, thread, kind, kind="step")
        elif stack and stack[-1].kind == "step" and kind == STEPS[stack[-1].name]:
            self._close(thread, when)
        elif kind == "bound":
            self.roles[thread]["binding"] += 1
            self.instants.append((when, *thread, "bound"))
            self.ways.append(Way(EVENTS[UP]))
            self._push(when, thread, UP, self.ways[-1])
        elif kind == "told" and stack:
            self.instants.append((when, *thread, f"Java has been told: {stack[0].name}"))

    def _end_event(self, thread):
        """Its own lines do not tell the end of an event: that is the last of what is within."""
        while all(span.kind in ("event", "step") for span in self._open[thread]) and self._open[thread]:
            self._close(thread, self._last[thread])

    def _push(self, when, thread, code, way):
        self._queued[code].append(way)
        self._count(when, thread, +1)

    def _count(self, when, thread, change):
        self._length += change
        self.queue.append((when, thread[0], self._length))
