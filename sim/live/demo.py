#!/usr/bin/python3
"""The whole story, live: a Java application and a service in two processes, every native method, every request, a death
and a recovery, on the data of this machine.

On a terminal it is told for a person, in about twenty seconds; else as a log. Exit 0 when every expectation held; else
1, and those that did not are named at the end.
"""

import ending  # the first: from here on SIGINT has no traceback

import argparse
import json
import socket
import sys
import time
from pathlib import Path

import tracefile
import view
from stage import SIM, Stage, Unmet
from timeline import INTERFACES, JAVA_METHODS, NATIVES, Timeline

UNKNOWN = -1  # a number that this machine does not tell


class Checks:
    """Named expectations; what they counted for the closing table."""

    def __init__(self, shown):
        self.shown = shown
        self.held = 0
        self.failed = []
        self.natives, self.requests, self.java_methods = set(), set(), set()

    def check(self, name, held, detail=""):
        if held:
            self.held += 1
            self.shown.held(name)
        else:
            self.failed.append(f"{name}{': ' if detail else ''}{detail}")
            self.shown.failed(self.failed[-1])
        return held


def read(path):
    try:
        return Path(path).read_text(errors="replace").strip()
    except OSError:
        return ""


def has(pattern):
    return any(Path("/sys/class").glob(pattern))


def java(value):
    return json.dumps(value)


class Demo:
    def __init__(self, build, shown, timeline=None):
        self.shown, self.timeline = shown, timeline
        self.checks = Checks(shown)
        self.check = self.checks.check
        self.stage = Stage(build, shown.show, timeline)
        self.boot_id = read("/proc/sys/kernel/random/boot_id").replace("-", "")
        self.sockets = []
        self.times = {}
        self.deaths = self.recoveries = 0

    def run(self):
        with self.stage:
            try:
                self.start()
                self.from_java()
                self.from_service()
                self.ask_sockets()
                self.kill_under_traffic()
                self.end()
            except Unmet as unmet:
                self.check("everything came", False, str(unmet))
        return self.close()

    def chapter(self, title, sentence):
        self.shown.chapter(title, sentence)
        if self.timeline:
            self.timeline.chapter(title)

    # -- the chapters

    def start(self):
        self.chapter("1. The start", "The service registers; the application loads the library and calls initialize. "
                     "The library finds the service, tells Java, and hands the service a callback.")
        stage = self.stage
        self.service = stage.start_service()
        stage.wait("the service is registered", lambda: stage.find(event="ready"))
        self.app = stage.start_app(options="-Xcheck:jni")
        stage.wait("Java is told that the service is there", lambda: self.availability(0))
        stage.wait("the service gets the library's callback", lambda: self.registrations(0))
        if self.check("after initialize Java is told true", self.availability(0) == [[True]]):
            self.checks.natives.add("initialize")
            self.checks.java_methods.add("onIServiceBinderAvailable")
        self.check("after that the service gets one callback", self.registrations(0) == 1)
        self.start_took = time.monotonic() - self.app.started

    def from_java(self):
        self.chapter("2. Java to the service", "Each native method, with what this machine has to tell: the library "
                     "makes one one-way call of it, and Java never waits for the service.")
        stage = self.stage
        begin = len(stage.lines)
        self.app.say("sendMachineData")
        ended = "sendBootCompleteInfo"  # the last of them
        stage.wait("the application has read this machine", lambda: stage.find(begin, native=ended))
        told = [line.value for line in stage.lines[begin:] if "native" in line.value]
        sent = [(value["native"], value["args"]) for value in told if "args" in value]
        stage.wait("the machine's data is at the service", lambda: len(stage.calls(begin)) >= len(sent))
        self.compare(sent, stage.calls(begin))

        # What this machine does not have goes as explicitly unknown; the rest is read here.
        neutral = {
            "sendNetworkStatsForAllUids": [UNKNOWN, [{"uid": UNKNOWN, "flag1": False, "flag2": False, "text1": "",
                                                     "bytes": {"long1": 0, "long2": 0}}]],
            "sendNetworkStatsForNetworkType": [UNKNOWN, {"long1": 0, "long2": 0}],
            "sendNetworkInfo": [UNKNOWN, {
                "int1": UNKNOWN, "flag1": False, "flag2": False, "text1": "", "text2": "", "int2": UNKNOWN,
                "dns1": {"text1": "", "text2": ""}, "dns2": {"text1": "", "text2": ""}, "text3": "", "text4": "",
                "int3": UNKNOWN, "optText1": None, "int4": UNKNOWN, "flag3": False, "int5": UNKNOWN, "flag4": False}],
            "sendBatteryStatus": [UNKNOWN, False],
            "sendThermalStatus": [UNKNOWN],
            "sendBootCompleteInfo": [False],
        }
        typed = [(value["native"], neutral[value["native"]]) for value in told if "absent" in value]
        typed += [
            ("sendRadioStatus", [has("net/*/phy80211"), has("wwan/*"), has("bluetooth/*")]),
            ("sendScreenState", [has("backlight/*") or has("drm/card*-*")]),
            ("sendFGNetworkInfo", [UNKNOWN, self.received_bytes(), UNKNOWN]),
            ("sendLPMStatus", [read("/sys/firmware/acpi/platform_profile") == "low-power"]),
            ("sendHotspotStatus", [read("/proc/sys/net/ipv4/ip_forward") == "1"]),
            ("queryStats", []),
            ("sendBlobToMirel", [0, f"hex:{self.boot_id}"]),
        ]
        begin = len(stage.lines)
        for name, args in typed:
            words = [value if isinstance(value, str) else java(value) for value in args]
            self.shown.typed("java", name, words)
            self.app.say(" ".join([name, *words]))
        stage.wait("the rest is at the service", lambda: len(stage.calls(begin)) >= len(typed))
        self.compare(typed, stage.calls(begin))

    def from_service(self):
        self.chapter("3. The service to Java", "Each request goes into the library's queue and is answered at once; "
                     "one thread takes it out and calls Java, one request at a time, in the service's order.")
        stage = self.stage
        counters = [int(read(f"/sys/class/net/lo/statistics/{name}") or 0)
                    for name in ("rx_bytes", "tx_bytes", "rx_packets", "tx_packets")]
        stats = [*counters, 1, int(read("/sys/class/net/lo/mtu") or UNKNOWN), UNKNOWN, "lo, the loopback"]
        blob = f"hex:{self.boot_id}"
        # The request with its arguments, and Java's method where it has another name.
        requests = [
            ("getRadioStatus", []),
            ("startNetworkStatsPolling", [5000]),
            ("stopNetworkStatsPolling", []),
            ("startUidStatsPolling", [5000000000]),
            ("startRatStatsPolling", [-9223372036854775808]),
            ("stopUidStatsPolling", []),
            ("stopRatStatsPolling", []),
            ("registerForScreenStateChanges", [True]),
            ("collectCensusInfo", []),
            ("startcollectingNetworkInfo", [13], "startNetworkMonitorForRatType"),
            ("stopcollectingNetworkInfo", [-2147483648], "stopNetworkMonitorForRatType"),
            ("requestWwanNetwork", [1]),
            ("releaseWwanNetwork", [2147483647]),
            ("registerForLPMStatusChange", [True]),
            ("registerForThermalStatusChange", [False]),
            ("registerForBatteryStatusChange", [True]),
            ("registerForHotspotStatusChange", [False]),
            ("startStatsMonitoring", []),
            ("updateStats", stats),
            ("stopStatsMonitoring", []),
            ("sendBlobToApk", [5, blob], "sendBlobToApkJava"),
        ]
        begin = len(stage.lines)
        for name, args, *_ in requests:
            self.ask(name, args)
        stage.wait("every request is at Java", lambda: len(stage.call_outs(begin)) >= len(requests))
        for (name, args, *other), got in zip(requests, stage.call_outs(begin)):
            wanted = (*other, name)[0], args
            if self.check(f"{name} arrives at Java as {wanted[0]}, value by value", got == wanted, f"got {got}"):
                self.checks.requests.add(name)
                self.checks.java_methods.add(wanted[0])

        # A later request shows that this one has passed; requests arrive in order.
        begin = len(stage.lines)
        self.ask("getFdforUID", [1000])
        self.ask("getRadioStatus", [])
        stage.wait("the request after getFdforUID is at Java", lambda: stage.call_outs(begin))
        answered = (stage.call_outs(begin) == [("getRadioStatus", [])] and not stage.calls(begin)
                    and not stage.find(begin, event="failed"))
        if self.check("getFdforUID is accepted and answered with nothing", answered):
            self.checks.requests.add("getFdforUID")

    def ask_sockets(self):
        self.chapter("4. Sockets", "The service asks for a socket on behalf of a UID; the library makes and tags it "
                     "and passes it on, without Java. The service sends a packet through each.")
        stage = self.stage
        for number, family in enumerate(("inet", "inet6")):
            if family == "inet6" and not loopback6():
                self.shown.say("this machine has no IPv6 loopback: IPv4 only")
                continue
            for kind, code in (("dgram", 2), ("stream", 1)):
                begin = len(stage.lines)
                request = 100 + len(self.sockets)
                self.ask("getSocketFd", [request, 10123, 1 + number, code, code])
                got = stage.wait(f"socket {request} is at the service and tried",
                                 lambda: next((line.value["socket"] for line in stage.lines[begin:]
                                               if "socket" in line.value), None))
                wanted = {"id": request, "family": family, "type": kind, "protocol": "udp" if code == 2 else "tcp",
                          "usable": True}
                self.sockets.append(self.check(f"the socket {family} {kind} carries a packet over loopback",
                                               got == wanted, f"got {got}"))
        if self.sockets and all(self.sockets):
            self.checks.requests.add("getSocketFd")

    def kill_under_traffic(self):
        self.chapter("5. A death and a return", "The service is killed under traffic in both directions, and started "
                     "again: Java is told both. What Java reports in between is lost.")
        stage, shown = self.stage, self.shown
        carried = ("sendFGNetworkInfo", "startUidStatsPolling")
        noise = ("handleEvent", "isThreadAttached", "jni ", "getJavaCallbackClass", "new aidl event", *carried)
        shown.quiet = lambda line: any(name in line.text for name in noise)
        begin = len(stage.lines)
        natives = requests = due = 0

        def traffic(what, until, both=True):
            def typed():
                nonlocal natives, requests, due
                if (came := until()) or time.monotonic() < due:
                    return came
                due = time.monotonic() + 0.002
                natives += 1
                self.app.say(f"sendFGNetworkInfo {UNKNOWN} {natives} {natives}")
                if both:
                    requests += 1
                    self.service.say(f"startUidStatsPolling {requests}")
                return None

            return stage.wait(what, typed, 0.002)

        traffic("a hundred requests are at Java", lambda: len(stage.call_outs(begin)) >= 100)
        killed = time.monotonic()
        self.service.kill()
        shown.event("service", "is killed: SIGKILL", alive=False)
        typed_before = requests
        down = traffic("Java is told false", lambda: self.told(begin, False), both=False)
        died = len(stage.lines)

        self.service.wait_exit()
        shown.event("service", "is started again")
        self.service = stage.start_service()
        registered = traffic("the restarted service gets a callback",
                             lambda: stage.find(died, call="registerRequest"), both=False)
        up = stage.wait("Java is told true", lambda: self.told(died, True))
        # What Java sends from here on arrives: the client is bound.
        bound_from = natives + 1
        first_after = requests + 1
        after = len(stage.lines)
        traffic("a hundred requests are at Java again", lambda: len(stage.call_outs(after)) >= 100)
        stage.wait("the last request is at Java",
                   lambda: ("startUidStatsPolling", [requests]) in stage.call_outs(after))
        stage.wait("the last report is at the service",
                   lambda: any(args[2] == natives for name, args in stage.calls(after) if name == carried[0]))
        shown.quiet = lambda line: False
        shown.say(f"{natives} reports and {requests} requests typed; {shown.hidden} lines about them not shown")

        self.deaths = self.availability(begin).count([False])
        self.recoveries = self.availability(begin).count([True])
        self.check("Java was told false once and true once, in this order",
                   self.availability(begin) == [[False], [True]], f"told {self.availability(begin)}")
        self.check("one callback was registered", self.registrations(begin) == 1)

        got = [args[0] for name, args in stage.call_outs(begin) if name == carried[1]]
        before = [n for n in got if n <= typed_before]
        self.check("requests before the death arrived in order, none left out, none twice",
                   before == list(range(1, len(before) + 1)) and before, f"got {before}")
        self.check("requests after the return arrived in order, none left out, none twice",
                   got[len(before):] == list(range(first_after, requests + 1)), f"got {got[len(before):]}")
        got = [args[2] for name, args in stage.calls(begin) if name == carried[0]]
        self.check("reports arrived in order, none twice", got == sorted(set(got)), f"got {got}")
        self.check("none of the reports since the return is lost",
                   [n for n in got if n >= bound_from] == list(range(bound_from, natives + 1)))

        self.times["kill to Java's false"] = down.when - killed
        self.times["restart to Java's true"] = up.when - self.service.started
        self.times["restart to registerRequest"] = registered.when - self.service.started

    def end(self):
        self.chapter("6. The end", "The application's input ends, and so does its Java VM, whatever the library's "
                     "threads are at; the service is asked to quit.")
        stage = self.stage
        self.app.end_of_input()
        code, took = self.app.wait_exit()
        self.shown.event("java", f"has ended with its input: exit code {code} after {took * 1000:.0f} ms", alive=False)
        # Or, where the machine is slow, sooner than it started.
        self.check("after the end of input the JVM ends at once with exit code 0",
                   code == 0 and took < max(2, self.start_took), f"exit code {code} after {took:.3f} s")
        self.times["end of input to the JVM's end"] = took
        self.service.say("quit")
        code, _ = self.service.wait_exit()
        self.shown.event("service", f"has quit: exit code {code}", alive=False)
        self.check("the service ends with exit code 0", code == 0, f"exit code {code}")
        complaints = [line.text for line in stage.lines if "WARNING in native" in line.text or "FATAL" in line.text]
        self.check("the JVM's own check of JNI has no complaint", not complaints, "; ".join(complaints[:3]))

    # -- what they lean on

    def ask(self, name, args):
        words = [f'"{value}"' if isinstance(value, str) and " " in value else
                 value if isinstance(value, str) else java(value) for value in args]
        self.shown.typed("service", name, words, shows=name not in ("getFdforUID", "getSocketFd"))
        self.service.say(" ".join([name, *words]))

    def compare(self, sent, got):
        for (name, args), call in zip(sent, got):
            wanted = as_call(name, args)
            if self.check(f"{name} arrives at the service, value by value", call == wanted, f"got {call}"):
                self.checks.natives.add(name)

    def availability(self, since):
        return [args for name, args in self.stage.call_outs(since) if name == "onIServiceBinderAvailable"]

    def told(self, since, value):
        return self.stage.find(since, java="onIServiceBinderAvailable", args=[value])

    def registrations(self, since):
        return sum(name == "registerRequest" for name, _ in self.stage.calls(since))

    def received_bytes(self):
        return sum(int(read(path) or 0) for path in Path("/sys/class/net").glob("*/statistics/rx_bytes"))

    def close(self):
        checks = self.checks
        rows = [
            ("native methods", f"{len(checks.natives)}/{len(NATIVES)}"),
            ("requests", f"{len(checks.requests)}/{len(INTERFACES['IRequest'])}"),
            ("Java methods reached", f"{len(checks.java_methods)}/{len(JAVA_METHODS)}"),
            ("deaths and recoveries", f"{self.deaths} and {self.recoveries}"),
            ("sockets used", f"{sum(self.sockets)}/{len(self.sockets)}"),
            *((name, f"{seconds * 1000:.1f} ms") for name, seconds in self.times.items()),
        ]
        for name, got, wanted in (("native method", checks.natives, NATIVES),
                                  ("request", checks.requests, INTERFACES["IRequest"]),
                                  ("Java method", checks.java_methods, JAVA_METHODS)):
            unlike = ", ".join(sorted(got ^ set(wanted)))
            self.check(f"every {name} was seen", not unlike, f"seen or declared only: {unlike}")
        self.shown.chapter("In short", "What was seen of what is declared, and how long the outage was for Java.")
        self.shown.table(rows)
        for name in checks.failed:
            self.shown.failed(name)
        if not checks.failed:
            self.shown.result(f"all {checks.held} expectations held")
        return 1 if checks.failed else 0


def as_call(name, args):
    """What the service receives for a native method: most pass through."""
    if name == "sendRadioStatus":
        flags = dict(zip(("flag1", "flag2", "flag3", "flag4", "flag5"), [*args, False, False]))
        return "sendRadioTechStatus", [flags]
    if name == "sendFGNetworkInfo":
        rat, value, tech = args
        return name, [rat, tech, value]
    if name == "sendBatteryStatus":
        return name, [{"int1": args[0], "flag1": args[1]}]
    if name == "sendCensusInfo":
        return name, [{"buildInfo": args[0], "telephonyInfos": args[1]}]
    return name, args


def loopback6():
    try:
        with socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as one:
            one.bind(("::1", 0))
        return True
    except OSError:
        return False


def main():
    parser = argparse.ArgumentParser(prog="orvix demo", description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", default=SIM.parent / "build/run", type=Path, help="the build folder (build/run)")
    parser.add_argument("--fast", action="store_true", help="on a terminal, too, as fast as it runs")
    parser.add_argument("--verbose", action="store_true", help="with the library's log, as a log has it always")
    parser.add_argument("--picture", type=Path, metavar="FILE.svg", help="draw the run")
    parser.add_argument("--trace", type=Path, metavar="FILE.json", help="write it as trace events, for ui.perfetto.dev")
    arguments = parser.parse_args()
    for needed in ("bin/orvix-service", "lib/libOrvixJni.so", "java/orvix-app.jar"):
        if not (arguments.build / needed).exists():
            sys.exit(f"demo: {arguments.build / needed} is missing; build it with: ./orvix build run")
    shown = view.choose(arguments.verbose, arguments.fast)
    timeline = Timeline() if arguments.trace or arguments.picture else None
    code = Demo(arguments.build, shown, timeline).run()
    if timeline:
        timeline.finish()
    if arguments.trace:
        tracefile.write(timeline, arguments.trace)
        shown.say(f"wrote {arguments.trace}")
    if arguments.picture:
        import picture  # what it draws with takes its time to load

        picture.draw(timeline, arguments.picture)
        shown.say(f"wrote {arguments.picture}")
    return code


if __name__ == "__main__":
    sys.exit(ending.run(main))
