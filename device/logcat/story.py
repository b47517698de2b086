"""The story of each process that loaded the library, as far as its lines tell it.

What a log does not tell is None, and no statement is made of it: a log may begin late, end early, or lack priorities.
Only lines of one thread follow each other in a fixed order; between threads the story counts.
"""

import collections
import dataclasses

from lines import DOWN, EVENTS, ROW, SOCKET, TAG, UP, Record, meaning

STALL = 1.0  # seconds: longer than a thread may take from what it does to the line that says so
LONG = 1.0  # seconds for which a call into Java may hold the dispatch thread
LATE = 5.0  # seconds after which a service that is not there is worth a word

# The order of the lines of one call-out, or one load, on its thread: what may follow each kind. A function asks the
# event. REST is the end of an event: the thread takes the next, or sleeps.
REST = frozenset({"wake", "event"})
_TELLS = {UP: "up", DOWN: "down"}


def _after_event(code):
    if code == SOCKET:
        return {"socket", "no socket", "not ready"}
    return {_TELLS.get(code, "attach")} if code in EVENTS else REST


def _if_tells(yes, no):
    """The one set for the service's coming and going, the other for requests, both where it is not known which."""
    yes, no = frozenset(yes), frozenset(no)
    return lambda code: yes | no if code is None else yes if code in _TELLS else no


AFTER = {
    "wake": REST, "event": _after_event, "up": {"attach"}, "down": {"attach"},
    "attach": {"detached", "attached", "no env"}, "detached": {"attached", "no attach"},
    "no attach": _if_tells({"not told"}, REST), "no env": _if_tells({"not told"}, REST), "not told": REST,
    "attached": _if_tells({"look-up"}, {"request"}), "request": {"look-up"}, "look-up": {"found"},
    "found": _if_tells(REST | {"told"}, REST), "told": REST,
    "socket": REST | {"tagged", "no tag"}, "tagged": REST, "no tag": REST, "no socket": REST, "not ready": REST,
}
# What Java or the service still has to do with the event is over.
DONE = {"wake", "told", "not told", "no attach", "no env", "no tag", "no socket", "not ready"}
LOADING = {"load": {"register", "no jni"}, "register": {"loaded", "no class", "no natives"},
           "no class": {"not registered"}, "no natives": {"not registered"}}
_LOAD_KINDS = frozenset().union(LOADING, *LOADING.values())
_CODES = {name: code for code, name in EVENTS.items()} | {"up": UP, "down": DOWN, "socket": SOCKET, "no socket": SOCKET}
ANY = frozenset({-1, 0, 1})


def seconds(begin, end):
    """From one record or time to another, or None where a time is not known."""
    begin, end = (at.time if isinstance(at, Record) else at for at in (begin, end))
    return None if begin is None or end is None else round(max(0.0, end - begin), 6)


def length(duration):
    """A duration in words."""
    if duration is None:
        return "a time that this log does not tell"
    if duration < 1:
        return f"{duration * 1000:.0f} ms"
    if duration < 120:
        return f"{duration:.1f} s" if duration < 10 else f"{duration:.0f} s"
    hours, minutes = divmod(round(duration / 60), 60)
    return f"{hours} h {minutes} min" if hours else f"{minutes} min"


def counted(names):
    """Names with their numbers, the most frequent first."""
    return ", ".join(f"{name} {names[name]:,}" for name in sorted(names, key=lambda name: (-names[name], name)))


@dataclasses.dataclass
class Finding:
    """Something that is wrong, or (wrong=False) something that this log cannot tell."""

    kind: str
    process: "Process | None"
    what: str
    do: str
    wrong: bool = True
    count: int = 0
    records: list = dataclasses.field(default_factory=list)  # the first few
    names: collections.Counter = dataclasses.field(default_factory=collections.Counter)


@dataclasses.dataclass
class Absence:
    """A time without the service."""

    began: float | None
    record: Record
    seconds: float | None = None
    ended: bool | None = False  # None: the log does not tell
    lost: collections.Counter = dataclasses.field(default_factory=collections.Counter)
    unsure: collections.Counter = dataclasses.field(default_factory=collections.Counter)  # lost in this one or the next


@dataclasses.dataclass
class Held:
    """How long the dispatch thread was held by the calls of one name whose end shows."""

    longest: float = -1.0
    record: Record | None = None
    number: int = 0


class Dispatch:
    """A dispatch thread: the last line and the event that it is at."""

    def __init__(self):
        self.last = None  # its kind; None when what was before is not known
        self.code = None
        self.busy = None  # time of its last line but wake-ups and their events
        self.began = None
        self.record = None
        self.clean = False  # every line of this event has been seen


class Process:
    def __init__(self, log, pid, name=None):
        self.log, self.pid, self.name, self.uid = log, pid, name, None
        self.first = self.last = None  # records
        self.ended = None
        self.debug = 0
        self.loads = []  # records
        self.failed = False  # the last load
        self.loaded = None  # record of its end
        self.bound_after = self.told_after = None
        self.binds = self.ups = self.early = self.deaths = 0
        # How many links to the service's death there may be, as far as binding and death lines tell: 1 bound, 0 not,
        # -1 when a death was told ahead of the line that says that its binding was successful.
        self.links = ANY
        self.links_since = None
        self.changed = None  # when a binding or death line was last seen, or the log began
        self.bound_since = None
        self.linking = {}  # by thread: the deaths before libbinder said that it links to the next
        self.plain = True  # one client with one dispatch thread
        self.complete = False  # every line since the load
        self.absence = None
        self.absences = []
        self.lost = collections.Counter()
        self.told = collections.Counter()
        self.requests = collections.Counter()
        self.undelivered = collections.Counter()
        self.sockets = collections.Counter()
        self.held = {}  # by name
        self.waits = None
        self.threads, self.old, self.loading = {}, set(), {}

    # Telling

    def say(self, record, text):
        self.log.tell(self.pid, record, text)

    def find(self, kind, what, do, record, key="", **more):
        return self.log.find(kind, self, what, do, record, key, **more)

    # Reading

    def line(self, record, row, values):
        kind = row.kind
        if self.first is None:
            self.first = record
            self.changed = self.links_since = record.time
            self.complete = kind == "load"
        self.last = record
        self.uid = self.uid or record.uid
        self.debug += row.priority == "D"
        if kind in _LOAD_KINDS:
            self.take_loading(record, kind)
        elif kind == "bound":
            self.take_bound(record)
        elif kind in AFTER and (kind != "not ready" or values[0] == EVENTS[SOCKET]):
            self.take_dispatch(record, kind, values)
        if row.do:
            self.take_failure(record, row, values)

    def take_loading(self, record, kind):
        if kind == "load":
            again = record is not self.first and not self.failed
            self.loads.append(record)
            self.failed, self.loaded = False, None
            self.links, self.absence = frozenset({0}), None
            self.old.update(self.threads)
            self.threads.clear()
            self.say(record, "the library is loaded" + (" again" if len(self.loads) > 1 else ""))
            if again:
                self.plain, self.complete, self.links = False, False, ANY
                self.find("loaded again", "the library was loaded while it was loaded already: a new client has taken "
                          "the place of the old one, and what that had queued is lost. Or the process had ended, and a "
                          "new one has got its number",
                          "load it once, in one class; `adb logcat -b events` names ends of processes", record)
        else:
            before = self.loading.get(record.tid)
            if record.tid and before and kind not in LOADING.get(before, ()):
                self.hole(record)
            if kind == "loaded":
                self.loaded = record
            self.failed = kind in ("no jni", "not registered")
        self.loading[record.tid] = kind

    def take_bound(self, record):
        self.binds += 1
        if self.early and self.complete:
            self.early -= 1  # event 0 came first: lines of two threads, exchanged
            return
        self.bind(record)

    def narrow(self, record):
        """A thread that has linked says so within STALL."""
        if self.links > {-1} and (seconds(self.links_since, record) or 0) >= STALL:
            self.links -= {-1}

    def bind(self, record):
        self.narrow(record)
        self.links = frozenset(number + 1 for number in self.links if number < 1)
        self.links_since = record.time
        if not self.links:
            self.twice(record, "the library has bound twice without a death in between")
        if not self.plain:
            self.links = ANY
        elif record.tid in self.linking:  # a death since then is that of this link
            self.links = frozenset({1 if self.linking.pop(record.tid) == self.deaths else 0})
        sure = self.links == {1}
        text = "bound"
        if self.absence:
            if sure:
                self.absence.ended, self.absence.seconds = True, seconds(self.absence.began, record)
                self.absence.lost += self.absence.unsure
                lost = f"; lost meanwhile: {counted(self.absence.lost)}" if self.absence.lost else ""
                text = f"bound again, {length(self.absence.seconds)} after the death{lost}"
                self.absence = None
            elif self.links == {0}:
                text = "bound to a service that has died already; the next binding is being waited for"
            else:
                self.absence.ended = None
                text = "bound; whether for good, this log does not tell"
        elif sure and self.complete and self.binds <= 1:
            self.bound_after = seconds(self.loads[-1], record)
            text = f"bound, {length(self.bound_after)} after the load"
        self.bound_since = record.time if sure else None
        self.changed = record.time
        self.say(record, text)

    def died(self, record):
        self.narrow(record)
        self.deaths += 1
        life = seconds(self.bound_since, record) if self.links == {1} else None
        self.links = frozenset(number - 1 for number in self.links if number > -1) if self.plain else ANY
        if not self.links:  # as many deaths as that come of two links only, or of lines that are missing
            self.plain, self.links = False, ANY
        self.links_since = self.changed = record.time
        self.bound_since = None
        if self.absence is None or self.absence.ended is None:
            self.absence = Absence(record.time, record)
            self.absences.append(self.absence)
        self.say(record, "the service died" + (f" after {length(life)}" if life is not None else ""))

    def take_dispatch(self, record, kind, values):
        thread = self.threads.get(record.tid)
        if thread is None:
            thread = self.threads[record.tid] = Dispatch()
            if len(self.threads) > 1 and None not in self.threads and self.old.isdisjoint(self.threads):
                self.twice(record, f"{len(self.threads)} threads take events from the queue "
                           f"({', '.join(map(str, self.threads))}), so one may overtake the other")
            if self.complete and kind not in REST:
                self.hole(record)
        elif thread.last:
            allowed = AFTER[thread.last]
            if kind not in (allowed(thread.code) if callable(allowed) else allowed) or (
                    kind == "request" and thread.code is not None and _CODES[values[0]] != thread.code):
                if record.tid is None:
                    self.twice(record, "lines of the dispatch thread in an order that it cannot write")
                else:
                    self.hole(record)
                thread.last, thread.code, thread.clean = None, None, False
        last, thread.last = thread.last, kind
        if kind not in REST:
            thread.busy = record.time
        else:
            if thread.clean:
                self.end(thread, last, record, kind)
            thread.clean = False
        if kind == "event":
            self.take_event(record, thread, values[0], last)
        elif kind in _CODES or kind == "request":
            thread.code = _CODES[values[0] if kind == "request" else kind]
        if kind == "down":
            self.died(record)
        elif kind == "found" and values[0] == 0:
            self.find("no method", f"SorvixAidlClient has no method {self.java_name(thread)} with the signature that "
                      "the library looks for; the VM ends the process at the call that follows",
                      "keep rules; compare with the table in docs/application-developer.md", record,
                      self.java_name(thread))
        elif kind == "told":
            self.take_told(record, thread)
        elif kind in ("no attach", "no env") and thread.code and thread.code > 0:
            self.undelivered[EVENTS[thread.code]] += 1
        elif kind in ("socket", "tagged", "no socket", "no tag"):
            self.sockets[kind] += 1

    def take_event(self, record, thread, code, last):
        thread.code, thread.began, thread.record, thread.clean = code, record.time, record, True
        if code == UP:
            self.ups += 1
            if self.complete and self.plain and self.ups > self.binds + self.early:
                self.early += 1
                self.bind(record)
        elif code > 0 and code in EVENTS:
            self.requests[EVENTS[code]] += 1
            # Only a bound service asks. One that has died since may have done so just before; but what is taken after
            # a wake-up was queued after the event before was done.
            if self.plain and last == "wake" and (seconds(self.changed, thread.busy) or 0) >= STALL:
                self.links = frozenset({1})
        elif code not in EVENTS:
            self.find("no such event", f"an event {code} was queued, which nobody makes; it is ignored",
                      "look for what overwrites memory, or for another library with this tag", record, code)

    def take_told(self, record, thread):
        if thread.code is None:
            self.told[None] += 1
            return
        self.told[thread.code == UP] += 1
        took = seconds(thread.began, record) if thread.clean else None
        if thread.code == UP and self.complete and self.told[True] == 1:
            self.told_after = seconds(self.loads[-1], record)
        self.hold(thread, took)

    def java_name(self, thread):
        if thread.code is None:
            return "that it calls"
        return {UP: "onIServiceBinderAvailable", DOWN: "onIServiceBinderAvailable",
                _CODES["sendBlobToApkNative"]: "sendBlobToApkJava"}.get(thread.code) or EVENTS[thread.code]

    def event_name(self, code):
        return {UP: "onIServiceBinderAvailable(true)", DOWN: "onIServiceBinderAvailable(false)"}.get(
            code) or EVENTS.get(code, f"event {code}")

    def end(self, thread, last, record, kind):
        """The event is done: before this line, and if no sleep is in between, just before it."""
        if thread.code in _TELLS and last == "found":
            self.find("nobody told", "Java was not told of the service's coming or going: no object of "
                      "SorvixAidlClient could be made", "the VM is out of memory, or the class cannot be instantiated",
                      record)
        if kind == "event" and last != "told":
            self.hold(thread, seconds(thread.began, record))

    def hold(self, thread, took):
        """An event whose end shows."""
        if took is None:
            return
        name = self.event_name(thread.code)
        held = self.held.setdefault(name, Held())
        held.number += 1
        if took > held.longest:
            held.longest, held.record = took, thread.record
        if took >= LONG:
            found = self.find("held", f"{name} held the dispatch thread, which delivers nothing else meanwhile, for "
                              f"{length(took)}", "return from Java at once, and do the work on another thread",
                              thread.record, name)
            found.what = f"{found.what.rpartition(' for ')[0]} for {length(held.longest)}"

    def twice(self, record, what):
        self.plain, self.links = False, ANY
        self.find("twice", f"{what}: initialize was called twice, or the library was loaded twice, or lines are "
                  "missing", "call initialize once in the life of the process", record)

    def hole(self, record):
        """A line that does not follow its thread's last one."""
        self.forget()
        self.find("lines missing", "lines are missing before this one: the log lost them, or they were filtered; what "
                  "they would tell is not told here", "adb logcat -G 16M; log.tag.orvixJni; no filter by text", record,
                  silent=self.debug == 0)

    def forget(self):
        """Lines have been lost."""
        self.links, self.bound_since, self.complete = ANY, None, False
        self.linking.clear()
        self.links_since = self.changed = self.last.time
        if self.absence:
            self.absence.ended = None
        for thread in self.threads.values():
            thread.last, thread.clean, thread.code = None, False, None

    def clock(self):
        """The clock was set: what began before has no length."""
        self.links_since = self.changed = self.bound_since = None
        if self.loads:
            self.loads[-1] = self.loads[-1]._replace(time=None)
        self.loaded = self.loaded and self.loaded._replace(time=None)
        if self.absence:
            self.absence.began = None
        for thread in self.threads.values():
            thread.began = thread.busy = None

    def take_failure(self, record, row, values):
        kind, value = row.kind, values[0] if values else ""
        if kind == "not ready":
            self.lost[value] += 1
            # One that found no service may say so a moment after the next binding.
            absence = self.absence or (self.absences[-1] if self.absences and self.links == {1} else None)
            if absence:
                (absence.unsure if absence.ended is None else absence.lost)[value] += 1
            if sum(absence.lost.values() if absence else self.lost.values()) == 1:
                self.say(record, f"! {value} is lost, since there is no service; so are all calls until it is back")
            found = self.find(kind, "", row.do, record, silent=True)
            found.names[value] += 1
            found.what = f"calls were lost, since there was no service: {counted(found.names)}"
            return
        what = row.because(value)
        if kind == "not told":
            thread = self.threads.get(record.tid)
            code = thread and thread.code
            what = {UP: "Java was not told that the service is there, and no callback was registered: no request will "
                        "come until the service is started again",
                    DOWN: "Java was not told of the death, and the library does not bind again until the process ends",
                    }.get(code, what)
        elif kind in ("no attach", "no env"):
            thread = self.threads.get(record.tid)
            if thread and thread.code is not None:
                what = f"in {self.event_name(thread.code)}: {what}"
        self.find(kind, f"{record.message}: {what}", row.do, record, (value, what))

    # At the end of the log

    def close(self):
        last = self.log.latest
        if not self.loads:
            self.find("begins late", "the log begins after the library was loaded; what was before is not told",
                      "adb logcat -G 16M keeps more", self.first, wrong=False)
        if self.debug == 0 and self.log.findings.pop((id(self), "lines missing", ""), None):
            self.find("filtered", "lines of priority D are not in this log, so most of the story is not",
                      "adb logcat orvixJni:D; log.tag.orvixJni must not be above D", self.first, wrong=False)
        if self.early and self.complete:
            self.hole(self.last)
        if self.ended:
            return
        waited = seconds(self.loaded, last)
        if self.complete and self.loaded and self.links == {0} and not self.binds and (waited or 0) >= LATE:
            self.find("not bound", f"{length(waited)} after its load the library has not bound, up to the end of the "
                      "log: nobody called initialize, or the service is not there or may not be found",
                      "docs/first-hour.md, steps 4 and 5; dumpsys -l | grep orvixservice", self.loaded)
        away = self.absence and self.absence.ended is False and seconds(self.absence.began, last)
        if away and away >= LATE:
            self.find("not back", f"the service died and is not back {length(away)} later, at the end of the log",
                      "is it running? adb shell dumpsys -l | grep orvixservice", self.absence.record)

    def last_event(self):
        """Of each dispatch thread the event that it is at, if that is known; its end shows at the next event only."""
        return [(self.event_name(thread.code), thread.record) for thread in self.threads.values()
                if thread.clean and thread.code in EVENTS and thread.last not in DONE]


class Log:
    """Takes the records of a log in their order. tell(pid, record, text) is called at each event of a story."""

    def __init__(self, tell=lambda pid, record, text: None):
        self.tell = tell
        self.processes, self.running = [], {}
        self.names = {}
        self.findings = {}
        self.records = 0
        self.latest = None
        self.closed = False

    def process(self, pid):
        if pid not in self.running:
            self.running[pid] = Process(self, pid, self.names.get(pid))
            self.processes.append(self.running[pid])
        return self.running[pid]

    def take(self, record):
        self.records += 1
        if record.time is not None:
            if self.latest is not None and not -STALL <= record.time - self.latest <= 86_400:
                for process in self.running.values():
                    process.clock()
                self.latest = record.time
            self.latest = max(self.latest or record.time, record.time)
        if record.tag != TAG:
            return False
        row, values = meaning(record.message)
        if row is None:
            return True
        process = self.running.get(record.pid)
        if row.kind == "load" and process and process.ended:
            del self.running[record.pid]
            process = None
        (process or self.process(record.pid)).line(record, row, values)
        return True

    def started(self, pid, name):
        """The system has said that this process begins."""
        self.names[pid] = name
        self.over(pid, None)

    def over(self, pid, record, text="the process ended"):
        """The system has said that this process has ended."""
        process = self.running.get(pid)
        if process and not process.ended:
            process.ended = record or process.last
            if record:
                process.say(record, text)

    def dropped(self, pid, record):
        """The log itself says that it has dropped lines of this process."""
        if process := self.running.get(pid):
            process.forget()
            process.find("dropped", "the log says that it has dropped lines of this process; what they would tell is "
                         "not told here", "adb logcat -G 16M", record, wrong=False)

    def find(self, kind, process, what, do, record, key="", wrong=True, silent=False):
        """Adds to the findings, and tells of something wrong at once."""
        found = self.findings.setdefault((id(process), kind, key), Finding(kind, process, what, do, wrong))
        found.count += 1
        if len(found.records) < 3 and record:
            found.records.append(record)
        if wrong and not silent and not self.closed:
            self.tell(process.pid if process else record.pid, record, f"! {what}")
        return found

    def close(self):
        self.closed = True
        for process in self.processes:
            process.close()
        return sorted(self.findings.values(), key=lambda found: found.records[0].number if found.records else 0)
