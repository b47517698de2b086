"""What the rest of the system logs about the library and its processes."""

import re
import typing

TOMBSTONE = re.compile(r"pid: (\d+), tid: (\d+), name: .*>>> (.+) <<<")
FRAME = re.compile(r" *#(\d+) pc \S+ +(\S+)(?: \((.+?\+\d+)\))?")
DENIAL = re.compile(r"avc: +denied +\{ (?P<what>[^}]*?) \}.*scontext=(?P<source>\S+) tcontext=(?P<target>\S+) "
                    r"tclass=(?P<class>\w+)")
DENIALS = {  # what does not work without each
    "find": "the service is not found: the look-up is tried again without a pause",
    "add": "the service cannot register", "call": "calls in this direction do not arrive",
    "transfer": "the service gets no callback",
    "use": "sockets do not arrive",
}


class Sign(typing.NamedTuple):
    kind: str
    pattern: re.Pattern
    what: str
    do: str


SIGNS = (
    Sign("not linked", re.compile("UnsatisfiedLinkError.*OrvixJni"), "Java could not load the library",
         "the lines before it say why; else the file's label, public.libraries.txt, <uses-native-library>: "
         "docs/first-hour.md, steps 2 and 5"),
    Sign("not implemented", re.compile(r"UnsatisfiedLinkError.*orvixadmin[./]JniHelper"),
         "Java called a native method before the library was loaded",
         "System.loadLibrary in the class that declares them"),
    Sign("no class", re.compile(r"(NoClassDefFound|ClassNotFound).*SorvixAidlClient"), "SorvixAidlClient is not there",
         "keep rules; the same class loader as JniHelper's"),
    Sign("no method", re.compile(r"NoSuchMethod.*SorvixAidlClient"), "a method of SorvixAidlClient is missing",
         "keep rules; compare with the table in docs/application-developer.md"),
    Sign("not in VINTF", re.compile("Could not find .*orvixservice.*VINTF"),
         "the service manager refuses the service's name, which no VINTF manifest has",
         "vintf_fragments of the service's module: docs/first-hour.md, step 3"),
)
START = re.compile(r"(?:Start proc |^\[\d+,)(\d+)(?::|,\d+,)([^/\s,]+)")
END = re.compile(r"Process (?:\S+ \(pid )?(\d+)\)? (?:has died|exited)|^\[\d+,(\d+),")
SIGNAL = re.compile(r"Fatal signal (\d+ \(\w+\)).* in tid \d+ .*pid (\d+)")
DROPPED = re.compile(r"uid=\S+ .*(?:expire|identical) \d+ lines?")
FDSAN = re.compile(r"fdsan: attempted to close file descriptor (\d+)")


class System:
    """Takes the records that are not the library's."""

    def __init__(self, log):
        self.log = log
        self.tombstones = {}  # the process that writes it: what it has written
        self.takers = {"DEBUG": self.take_tombstone, "libc": self.take_libc, "chatty": self.take_dropped,
                       "liblog": self.take_dropped} | dict.fromkeys(
            ("ActivityManager", "Zygote", "am_proc_start", "am_proc_died"), self.take_manager)

    def take(self, record):
        if taker := self.takers.get(record.tag):
            taker(record)
        if "rvix" in record.message:
            self.take_sign(record)
        elif "no onUnlink callback set" in record.message:  # libbinder, on a binding thread
            process = self.log.running.get(record.pid)
            if process and record.tid:
                process.linking[record.tid] = process.deaths

    def take_sign(self, record):
        message = record.message
        if "avc:" in message and (denied := DENIAL.search(message)):
            source, target = (denied[side].split(":")[2] if denied[side].count(":") > 1 else denied[side]
                              for side in ("source", "target"))
            words = denied["what"].split()
            effect = next((DENIALS[word] for word in words if word in DENIALS), "")
            if "socket" in denied["class"]:
                effect = "a socket cannot be made or used"
            if "permissive=1" in message:
                effect += "; not refused now, since the domain is permissive, but once it is enforced"
            self.find("denied", f"SELinux denied {source} to {denied['what']} {target} ({denied['class']})"
                      + (f": {effect}" if effect else ""),
                      "device/sepolicy has the rule, with this denial above it; is it in the image, with the label?",
                      record, (source, target, denied["what"], denied["class"]))
        elif "Waited one second for" in message or "Waiting for service" in message:
            process = self.log.running.get(record.pid)
            if process and process.waits != process.binds:
                process.waits = process.binds
                process.say(record, "waits: the service manager does not have the service")
        else:
            for sign in SIGNS:
                if sign.pattern.search(message):
                    self.find(sign.kind, sign.what, sign.do, record)
                    break

    def find(self, kind, what, do, record, key=""):
        process = self.log.running.get(record.pid)
        self.log.find(kind, process, what, do, record, key)

    def take_manager(self, record):
        if record.tag != "am_proc_died" and (match := START.search(record.message)):
            self.log.started(int(match[1]), match[2])
        elif record.tag != "am_proc_start" and (match := END.search(record.message)):
            self.log.over(int(match[1] or match[2]), record)

    def take_dropped(self, record):
        if record.tag == "liblog" or DROPPED.search(record.message):
            self.log.dropped(record.pid, record)

    def take_libc(self, record):
        process = self.log.running.get(record.pid)
        if match := SIGNAL.search(record.message):
            self.log.over(int(match[2]), record, f"the process is ended by signal {match[1]}")
        elif (process and (thread := process.threads.get(record.tid)) and thread.last in ("socket", "tagged")
              and (match := FDSAN.search(record.message))):
            self.find("fdsan", f"descriptor {match[1]}, a socket handed over, was taken by another thread between its "
                      "two closes, and the second is reported; by default that ends the process",
                      "a known risk of the hand-over: the fewer descriptors other threads open meanwhile, the smaller",
                      record)

    def take_tombstone(self, record):
        if match := TOMBSTONE.search(record.message):
            self.tombstones[record.pid] = {"pid": int(match[1]), "name": match[3], "why": "", "signal": "", "top": None,
                                           "record": record, "named": False}
            return
        tombstone = self.tombstones.get(record.pid)
        if tombstone is None:
            return
        message = record.message.strip()
        if message.startswith("signal "):
            tombstone["signal"] = message.split(", ")[0]
        elif message.startswith("Abort message: "):
            tombstone["why"] = message.removeprefix("Abort message: ")
        elif frame := FRAME.match(message):
            tombstone["top"] = tombstone["top"] or frame[2]
            if "libOrvixJni.so" in frame[2] and not tombstone["named"]:
                tombstone["named"] = True
                self.crashed(tombstone, int(frame[1]), frame[3] or frame[2], record)

    def crashed(self, tombstone, depth, where, record):
        signal, why = tombstone["signal"], tombstone["why"]
        process = self.log.running.get(tombstone["pid"])
        meaning, do = "with the library on its stack", "its symbols: device/report.py's build, llvm-symbolizer"
        if "fdsan" in why:
            meaning = "by fdsan, over a descriptor that the library closes"
            do = "another thread had taken the number between the two closes of a socket handed over"
        elif "JNI DETECTED ERROR" in why:
            meaning, do = "by the VM, over a JNI call of the library", "the lines before it: is a method missing?"
        elif "ubsan" in why or (depth == 0 and re.search("SIG(ABRT|ILL|TRAP)", signal)):
            meaning = "by a hardening check of the library"
            do = "docs/platform-engineer.md, Hardening; the frame names the function"
        found = self.log.find("crash", process, f"{tombstone['name']} was ended {meaning}: {signal}"
                              f"{f', {why}' if why else ''}, in {where}", do, tombstone["record"],
                              (tombstone["pid"], where))
        found.records.append(record)
