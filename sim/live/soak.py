#!/usr/bin/python3
"""Kills and restarts the service under traffic in both directions, against a model of what each side must have seen.

Several threads of the application call the service, several threads of the service ask the application; every message
carries a thread and a number. Nothing may be lost that the platform has accepted, nothing doubled, reordered or
invented; Java is told each coming and going once; and descriptors, threads, memory and references stay flat.
"""

import ending  # the first: from here on SIGINT has no traceback

import argparse
import collections
import json
import os
import random
import re
import signal
import subprocess
import sys
import time
from pathlib import Path

import tracefile
from progress import Progress
from stage import Stage, Unmet
from timeline import Timeline

THREADS = 3  # of each side
WARM_UP = 10  # lives before what must stay flat is measured first
POOL = 16  # the platform's own threads, made on demand
GROWTH = 16 << 20  # bytes of memory that may be the VM's own doing
EARLY = 0.3  # the share of lives that end around the moment in which the library links to their death
EARLY_WITHIN = 300  # microseconds after the service can be found: the library links then
VM_OPTIONS = "-Xcheck:jni -Xms32m -Xmx32m -XX:+AlwaysPreTouch -XX:-UseDynamicNumberOfCompilerThreads"


class Soak:
    def __init__(self, stage, seed, quiet, log=None):
        self.stage, self.quiet = stage, quiet
        self.random = random.Random(seed)
        stage.show = self.take
        arguments = [str(THREADS), str(seed)]
        if quiet:  # there is no log, and what else is printed is a sanitizer's
            self.app = stage.start_app(*arguments, command=[stage.build / "bin/soak_app"])
        else:
            self.app = stage.start_app(*arguments, main="Soak", options=VM_OPTIONS,
                                       stderr=subprocess.STDOUT if stage.timeline else log or subprocess.DEVNULL)
        self.violations = []
        self.strange = []
        self.life = 0
        self.seen = collections.Counter()  # of this life's service: words without a number
        self.told = collections.Counter()  # what Java was told of the service
        self.early = self.ahead = 0  # early ends; news of a death that came ahead of that of its life
        self.references = None
        # The last number, by life and thread: of requests that the platform has accepted, and at Java.
        self.accepted, self.arrived = collections.Counter(), collections.Counter()
        self.calls = [0] * THREADS  # the last number of each thread of the application, at any service
        self.called = set()  # the threads of the application that this life's service has heard
        self.socket = 0  # the last of this life
        self.counts = collections.Counter()
        self.flat = None
        self.was_early = False

    def expect(self, held, text):
        if not held:
            self.violations.append(f"life {self.life}: {text}")

    def wait(self, what, done):
        return self.stage.wait(f"life {self.life}: {what}", done, 0.001)

    def take(self, line):
        if line.source in ("library", "platform"):
            return
        word, *numbers = line.text.split(" ")
        if line.source == "service" and hasattr(self, f"take_{word}"):
            getattr(self, f"take_{word}")(*map(int, numbers))
        elif line.source == "service":
            self.seen[word] += 1
        elif word == "request":
            self.take_request(int(numbers[0]))
        elif word == "available":
            # The library queues true after it has linked to the death: a false in between goes first.
            self.ahead += numbers == ["0"] and not self.is_up()
            self.expect(numbers == ["0"] or not self.is_up(), "Java is told true twice")
            self.expect(self.ahead <= self.early, "Java is told false twice")
            self.told[numbers == ["1"]] += 1
        elif found := re.match(r"JNI global refs: (\d+)", line.text):
            self.references = int(found[1])
        elif word not in ("sent", "references", "collect") and (
                self.quiet or re.search("WARNING|FATAL|Exception", line.text)):  # of a VM more is a dump of its threads
            self.strange.append(line.text)

    def is_up(self):
        return self.told[True] > self.told[False]

    def take_accepted(self, thread, number):
        self.accepted[self.life << 8 | thread] = number

    def take_call(self, thread, number):
        """Calls of a thread are lost only with a service."""
        good = number == self.calls[thread] + 1 if thread in self.called else number > self.calls[thread]
        self.expect(good, f"call {number} of thread {thread} after {self.calls[thread]}")
        self.called.add(thread)
        self.calls[thread] = number
        self.counts["calls"] += 1

    def take_socket(self, number):
        self.expect(number > self.socket and number % 16 == 0, f"socket {number} after {self.socket}")
        self.socket = number
        self.counts["sockets"] += 1

    def take_request(self, number):
        key, number = number >> 32, number & 0xFFFF_FFFF
        self.expect(number == self.arrived[key] + 1,
                    f"request {number} of life {key >> 8}, thread {key & 255} after {self.arrived[key]}")
        self.arrived[key] = number
        self.counts["requests"] += 1

    def live(self, early):
        """One life: start, traffic, kill; or its end as soon as it can be found, when the library may or may not have
        linked to its death. The next life follows at once or when Java knows of this one's end."""
        self.life += 1
        self.seen.clear()
        self.called.clear()
        self.socket = 0
        self.stage.lines.clear()
        command = [self.stage.build / "bin/soak_service",
                   *map(str, (self.life, THREADS, self.random.randrange(1 << 30)))]
        # A true that comes late finds this one's service and registers with it, as its own will.
        self.allowed = collections.Counter(up=1, registered=1 + self.was_early)
        self.was_early = early
        if early:
            self.early += 1
            service = self.stage.start_service(str(self.random.randrange(EARLY_WITHIN)), command=command)
        else:
            service = self.stage.start_service(command=command)
            self.wait("a request is accepted", lambda: self.accepted[self.life << 8])
            self.stage.run(self.random.uniform(0.002, 0.04))
            service.kill()
        service.wait_exit()
        self.judge()
        if not early and self.random.random() < 0.5:
            self.rest()

    def rest(self):
        """Before a request Java has been told of the life that it is from."""
        self.wait("Java is told false", lambda: not self.is_up())

    def judge(self):
        keys = [self.life << 8 | thread for thread in range(THREADS)]
        self.wait("all requests that the platform has accepted are at Java",
                  lambda: all(self.arrived[key] >= self.accepted[key] for key in keys))
        self.expect(not self.seen - self.allowed, f"the service says {dict(self.seen)}")
        sent = self.app.ask("sent")
        self.expect(all(call <= most for call, most in zip(self.calls, sent)), f"calls {self.calls} of {sent}")

    def measure(self):
        """What must stay flat, at rest."""
        if not self.quiet:
            self.app.ask("collect")
        self.stage.run(0.3)  # threads that were attached for a call are still going
        process = Path(f"/proc/{self.app.process.pid}")
        memory = int(re.search(r"VmRSS:\s+(\d+)", (process / "status").read_text())[1]) * 1024
        self.references = None
        if self.quiet:
            self.references, = self.app.ask("references")
        else:
            self.app.process.send_signal(signal.SIGQUIT)
            self.wait("a dump of the threads", lambda: self.references is not None)
        names = [(thread / "comm").read_text().strip() for thread in (process / "task").iterdir()]
        pool = sum(name == "binder:pool" for name in names)
        self.expect(pool <= POOL, f"{pool} threads in the pool")
        return {"descriptors": len(os.listdir(process / "fd")), "threads": len(names) - pool,
                "references": self.references, "memory": memory}

    def run(self, cycles, seconds, progress):
        begin = time.monotonic()
        more = True
        while more:
            more = (self.life + 1 < cycles if seconds is None else time.monotonic() - begin < seconds) \
                or self.life < WARM_UP
            self.live(early=more and self.life + 1 != WARM_UP and self.random.random() < EARLY)
            if self.life == WARM_UP:
                self.rest()
                self.flat = self.measure()
            progress.at(self.life if seconds is None else time.monotonic() - begin,
                        f"life {self.life}: {self.counted()}, {len(self.violations)} violations")
        self.rest()
        self.stage.run(0.1)  # for what must not come
        self.expect(self.told[True] == self.told[False], f"Java is told {dict(self.told)}")
        invented = [key >> 8 for key, number in self.arrived.items() if number > self.accepted[key] + 1]
        self.expect(not invented, f"requests that were not made, of the lives {invented}")
        for _ in range(10):  # what ends a little late is no growth
            end = self.measure()
            if all(end[what] <= self.flat[what] for what in end if what != "memory"):
                break
        for what, before in self.flat.items():
            allowed = before + (GROWTH if what == "memory" else 0)
            self.expect(end[what] <= allowed, f"{what} grow: {before:,} after {WARM_UP} lives, {end[what]:,} now")
        print(f"{self.life} lives in {time.monotonic() - begin:.1f} s: {self.counted()}, "
              f"Java told {self.told[True]} times that the service came and went, "
              f"{self.ahead} of them in the other order")
        print(", ".join(f"{what} {self.flat[what]:,} -> {end[what]:,}" for what in end)
              + f" (after {WARM_UP} lives -> now)")
        self.app.end_of_input()
        code, _ = self.app.wait_exit()
        self.expect(code == 0, f"the application ends with {code}")

    def compare(self, log):
        """What ./orvix logcat reads in the application's log is what has happened."""
        reader = Path(__file__).resolve().parents[2] / "device/logcat/logcat.py"
        said = json.loads(subprocess.run([reader, "--json", log], stdout=subprocess.PIPE, check=False).stdout)
        process, = said["processes"]
        requests = sum(process["requests"].values()) - process["requests"].get("getSocketFd", 0)
        read = process["deaths"], process["told"]["up"], process["told"]["down"], requests
        been = self.told[False], self.told[True], self.told[False], self.counts["requests"]
        self.expect(read == been, f"./orvix logcat reads {read} in {log}: deaths, Java told true and false, requests; not {been}")
        over = [outage["over"] for outage in process["outages"]]
        self.expect(all(over[:-1]) and over[-1] is False, f"./orvix logcat sees {over.count(True)} of {len(over)} outages end")
        wrong = {finding["kind"] for finding in said["findings"]}
        self.expect(wrong <= {"not ready", "held"}, f"./orvix logcat finds {wrong} in {log}")

    def counted(self):
        return ", ".join(f"{self.counts[what]:,} {what}" for what in ("calls", "requests", "sockets"))


def positive(text):
    number = int(text)
    if number <= 0:
        raise ValueError
    return number


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--cycles", type=positive, default=1000, help="lives of the service (default 1000)")
    parser.add_argument("--minutes", type=float, help="run so long instead")
    parser.add_argument("--seed", type=int, help="repeats a run; random otherwise")
    parser.add_argument("--quiet-vm", action="store_true", help="without a Java VM, as under a sanitizer")
    parser.add_argument("--trace", type=Path, metavar="FILE.json", help="write it as trace events; best of few lives")
    parser.add_argument("--log", type=argparse.FileType("wb"), metavar="FILE",
                        help="keep the application's log here, and see what ./orvix logcat reads in it")
    arguments = parser.parse_args()
    if arguments.log and (arguments.trace or arguments.quiet_vm):
        parser.error("--log: not with --trace or --quiet-vm")
    timeline = Timeline() if arguments.trace else None
    if arguments.cycles <= WARM_UP:
        parser.error(f"--cycles: a number above {WARM_UP}, such as 1000")
    seed = arguments.seed if arguments.seed is not None else random.SystemRandom().randrange(1 << 30)
    print(f"seed {seed}", flush=True)
    # A sanitizer's quarantine would pass for growth.
    asan = os.environ.get("ASAN_OPTIONS", "quarantine_size_mb=1")
    with Stage(arguments.build, timeline=timeline, ASAN_OPTIONS=asan) as stage:
        soak = Soak(stage, seed, arguments.quiet_vm, arguments.log)
        try:
            seconds = arguments.minutes and arguments.minutes * 60
            with Progress("soak", seconds or arguments.cycles) as progress:
                soak.run(arguments.cycles, seconds, progress)
        except Unmet as unmet:
            soak.violations.append(str(unmet))
        soak.expect(not soak.strange, "the application says:\n" + "\n".join(soak.strange[:100]))
        if arguments.log and not soak.violations:
            soak.compare(arguments.log.name)
    if timeline:
        tracefile.write(timeline.finish(), arguments.trace)
        print(f"wrote {arguments.trace}")
    for violation in soak.violations[:20]:
        print("VIOLATION:", violation)
    print(f"{len(soak.violations)} violations" + (f"; run again with --seed {seed}" if soak.violations else ""))
    return 1 if soak.violations else 0


if __name__ == "__main__":
    sys.exit(ending.run(main))
