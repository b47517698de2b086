"""What the library's log lines mean, and how a line of logcat is read.

ROWS holds every line that the library logs. read() turns the output of `adb logcat` in any of its formats that name the
tag into records; meaning() finds the row of a message.
"""

import calendar
import datetime
import functools
import re
import typing

TAG = "orvixJni"

EVENTS = {  # the numbers of handleEvent; 5 and 6 belong to nobody
    -1: "service down", 0: "service up", 1: "getRadioStatus", 2: "startNetworkStatsPolling",
    3: "stopNetworkStatsPolling", 4: "collectCensusInfo", 7: "registerForScreenStateChanges",
    8: "startUidStatsPolling", 9: "startRatStatsPolling", 10: "stopUidStatsPolling", 11: "stopRatStatsPolling",
    12: "startNetworkMonitorForRatType", 13: "stopNetworkMonitorForRatType", 14: "requestWwanNetwork",
    15: "releaseWwanNetwork", 16: "registerForLPMStatusChange", 17: "registerForThermalStatusChange",
    18: "registerForBatteryStatusChange", 19: "registerForHotspotStatusChange", 20: "startStatsMonitoring",
    21: "updateStats", 22: "stopStatsMonitoring", 23: "getSocketFd", 24: "sendBlobToApkNative",
}
DOWN, UP, SOCKET = -1, 0, 23


class Row(typing.NamedTuple):
    """One line: its kind, priority and text as the source has it, what it means. Of a failure also what to do, and what
    some values of its text mean; "" stands for all others."""

    kind: str
    priority: str
    text: str
    meaning: str
    do: str = ""
    cases: dict = {}

    def because(self, value):
        """The meaning, with this value in the text."""
        case = self.cases.get(str(value), self.cases.get("", ""))
        return f"{self.meaning}: {case}" if case else self.meaning


ROWS = (
    # Loading, on the thread that called System.loadLibrary.
    Row("load", "I", "JNI_OnLoad entry", "the library is being loaded"),
    Row("register", "D", "registerNativeMethods", "the native methods are being registered"),
    Row("loaded", "D", "JNI_OnLoad exit", "the library is loaded"),
    Row("no jni", "E", "JNI_OnLoad GetEnv failed", "the VM refused JNI 1.6; loading fails",
        "load from Java, not with `dlopen`"),
    Row("no class", "E", "Native registration unable to find class '%s'\n",
        "the class is not visible to the loading class's loader", "keep rules; load from the application's own code"),
    Row("no natives", "E", "RegisterNatives failed for '%s'\n",
        "a native of the class is missing or differs in its signature",
        "keep rules; compare with the table in [application-developer.md](application-developer.md)"),
    Row("not registered", "E", "registerNativeMethods failed", "the line before it says why; loading fails",
        "see there"),
    # Binding threads: one at start, one after each death.
    Row("bound", "D", "bindToService is successful", "the service is there, and its death will be known"),
    # The dispatch thread: everything that the service asks for, one after the other.
    Row("wake", "D", "new aidl event arrived", "the dispatch thread has been woken; once a wake-up, not once an event"),
    Row("event", "D", "handleEvent %d", "a request, or the service's coming or going, is taken from the queue"),
    Row("up", "D", "handleServiceUp start", "Java will be told that the service is there"),
    Row("down", "D", "handleServiceDown start", "the service died; Java will be told"),
    Row("attach", "D", "isThreadAttached start", "the thread is being attached to the VM for one call"),
    Row("detached", "D", "jni detached", "it was not attached, as is right before every call"),
    Row("attached", "D", "jni attached", "it is attached"),
    Row("request", "D", "%s start", "a request is about to be handed to Java"),
    Row("look-up", "D", "getJavaCallbackClass start", "the Java method is being looked up"),
    Row("found", "D", "getJavaCallbackClass End midIs[%d]",
        "1: the Java method is there, and will be called; 0: it is missing"),
    Row("told", "I", "initialize callback success", "Java's `onIServiceBinderAvailable` has returned"),
    Row("no attach", "E", "Failed to attach jni", "the VM did not take the dispatch thread; this call-out is lost",
        "the VM is ending, or out of memory"),
    Row("no env", "E", "JNI ERROR, %d",
        "the VM's other answer to GetEnv, usually -3, wrong version; this call-out is lost",
        "the VM is broken or not Android's"),
    Row("not told", "E", "attach thread FAILED",
        "Java could not be told of the service. Up: no callback was registered. Down: the library does not bind again",
        "restart the application"),
    Row("socket", "D", "successfully created socket", "a socket was made for the service"),
    Row("tagged", "D", "successfully mapped socket to uid(%d)", "its traffic counts for this UID"),
    Row("no socket", "E", "failed to create socket, error: %s",
        "the kernel refused", "permissions; `device/sepolicy`; the service's request",
        {"Operation not permitted": "no `INTERNET`", "Permission denied": "SELinux",
         "": "codes that do not fit each other, or no descriptors left"}),
    Row("no tag", "E", "failed to tag socket with uid, error: %d",
        "the socket stays open, unsent", "permissions; `device/sepolicy`",
        {"-1": "no `UPDATE_DEVICE_STATS`", "-13": "SELinux towards netd"}),
    # Native methods, on any thread of Java's; "not ready" of getSocketFd comes from the dispatch thread.
    Row("native", "D", "%s start", "Java called this native method"),
    Row("rat type", "D", "%s RatType %d", "its first argument"),
    Row("no list", "D", "sendNetworkStatsForAllUids list size is 0", "an empty list, which is not sent"),
    Row("build", "D", "BuildInfo: %s, %s, %s, %s, %s, %s, %s %s",
        "the census's eight texts, the fifth before the fourth"),
    Row("telephony", "D", "TelephonyInfo : %d, %s, %s, %s, %s, %d", "one element of the census's list"),
    Row("no telephony", "D", "TelephonyInfoParams list size is 0", "an empty list, which is sent"),
    Row("not ready", "E", "%s: OrvixService is not ready",
        "a call before the first binding or after a death; it is lost",
        "at start: is the service running, registered, allowed to be found?"),
    Row("no environment", "E", "%s: JNIEnv is NULL", "native code called the method itself", "call it from Java"),
)
ROW = {row.kind: row for row in ROWS}
_REQUESTS = frozenset(name for code, name in EVENTS.items() if code > 0)


def _pattern(text):
    parts = {"%s": "(.*)", "%d": r"(-?\d+)"}
    return re.compile("".join(parts.get(part) or re.escape(part) for part in re.split("(%[sd])", text.strip())))


_CONSTANT = {row.text: row for row in ROWS if "%" not in row.text}
_PATTERNS = [(_pattern(row.text), row) for row in ROWS if "%" in row.text]


@functools.lru_cache(1 << 14)
def meaning(message):
    """The row of a message of the library's, or None, and the values in it: texts, and numbers where it has %d."""
    message = message.removesuffix("\\n").strip()
    if message in _CONSTANT:
        return _CONSTANT[message], ()
    for pattern, row in _PATTERNS:
        match = pattern.fullmatch(message)
        if match and (row.kind != "request" or match[1] in _REQUESTS):
            numbers = [part == "%d" for part in re.findall("%[sd]", row.text)]
            return row, tuple(int(text) if number else text for text, number in zip(match.groups(), numbers))
    return None, ()


class Record(typing.NamedTuple):
    """A line of a log. What its format does not tell is None."""

    time: float | None  # seconds, of the device's own clock unless the format is epoch; comparable within one log
    pid: int | None
    tid: int | None
    uid: str | None
    priority: str  # one of VDIWEFAS
    tag: str
    message: str
    number: int  # of the line, from 1
    text: str  # as it stands in the log, without colour


_TIME = (r"(?:(?:(?P<year>\d{4})-)?(?P<date>\d\d-\d\d) (?P<clock>\d\d:\d\d:\d\d)(?P<part>\.\d+)"
         r"(?: (?P<zone>[+-]\d{4}))?|\s*(?P<epoch>\d+\.\d+))")
_PRIORITY, _PID, _TID = r"(?P<priority>[VDIWEFAS])", r"(?P<pid>\d+)", r"(?P<tid>\d+)"
_TAG, _UID, _MESSAGE = "(?P<tag>.*?)", r"(?:(?P<uid>[^():\s]+): *)?", ": ?(?P<message>.*)"
_FORMATS = tuple(map(re.compile, (  # all with the same groups; (?!) is one that never matches
    rf"{_TIME} +(?:(?P<uid>\S+) +)?{_PID} +{_TID} {_PRIORITY} {_TAG} *{_MESSAGE}",
    rf"(?:{_TIME} )?{_PRIORITY}/{_TAG} *\( *{_UID}{_PID}(?P<tid>(?!))?\){_MESSAGE}",  # time, brief
    rf"\[ {_TIME} +{_UID}{_PID}: *{_TID} {_PRIORITY}/{_TAG} *\](?P<message>(?!))?",  # long: the message follows
)))
_COLOUR = re.compile(r"\x1b\[[\d;]*m")
_SECTION = re.compile(r"------ ([^(]+?) \(")
_DAY = 86_400


@functools.lru_cache(64)
def _day(year, date):
    """Seconds to the beginning of a day. One without a year is within the year that ends now."""
    month, day = map(int, date.split("-"))
    today = datetime.date.today()
    year = int(year) if year else today.year - ((month, day) > (today.month, today.day + 1))
    if (month, day) == (2, 29):
        year -= year % 4
    return calendar.timegm((year, month, day, 0, 0, 0))


def _seconds(match):
    if match["epoch"]:
        return float(match["epoch"])
    if not match["clock"]:
        return None
    year, date, clock, part, zone = match.group("year", "date", "clock", "part", "zone")
    time = _day(year, date) + int(clock[:2]) * 3600 + int(clock[3:5]) * 60 + int(clock[6:])
    if zone:
        time -= int(zone[0] + "1") * (int(zone[1:3]) * 3600 + int(zone[3:]) * 60)
    return time + float(part)


class Reader:
    """Reads a log line by line. A bugreport's own sections are skipped but those that are the running system's log."""

    def __init__(self):
        self._formats = list(_FORMATS)
        self._header = None  # of the long format
        self._bugreport = False
        self._skip = False
        self._number = 0

    def line(self, line):
        """The record of this line, or None if it is none."""
        self._number += 1
        line = line.rstrip("\r\n")
        if "\x1b" in line:
            line = _COLOUR.sub("", line)
        if line.startswith("== dumpstate: "):
            self._bugreport = True
        if self._bugreport and (section := _SECTION.match(line)):
            self._skip = section[1] != "SYSTEM LOG"
        if self._skip or line.startswith("--------- "):
            return None
        for at, pattern in enumerate(self._formats):
            if match := pattern.fullmatch(line):
                if at:  # the next line is most likely of the same format
                    self._formats.insert(0, self._formats.pop(at))
                break
        else:
            return self._header and line and self._header._replace(message=line, number=self._number, text=line) or None
        pid, tid, uid, priority, tag, message = match.group("pid", "tid", "uid", "priority", "tag", "message")
        record = Record(_seconds(match), int(pid), tid and int(tid), uid, priority, tag, message, self._number, line)
        self._header = record if message is None else None
        return None if self._header else record


def read(lines):
    """The records of the lines of a log, one by one."""
    reader = Reader()
    return (record for record in map(reader.line, lines) if record)


def parse(line):
    """The record of one line of any format that has a record on one line, or None."""
    return Reader().line(line)
