#!/usr/bin/env python3
"""Kills and restarts the service under traffic in both directions, against a model of what each side must have seen.

Several threads of the application call the service, several threads of the service ask the application; every message
carries a thread and a number. Nothing may be lost that the platform has accepted, nothing doubled, reordered or
invented; Java is told each coming and going once; and descriptors, threads, memory and references stay flat.
"""

import argparse
import mmap
import os
import random
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

THREADS = 3  # of each side
LOG_THREADS = 8
LOG_ENTRIES = 100_000
LOG_SIZE = 8 * (1 + 2 * LOG_THREADS + LOG_ENTRIES)
REGISTERED, SOCKET, BAD = 0xE0, 0xF0, 0xFF
WAIT = 20  # seconds for anything that must happen
WARM_UP = 10  # lives before what must stay flat is measured first
POOL = 16  # the platform's own threads, made on demand
GROWTH = 16 << 20  # bytes of memory that may be the VM's own doing


class Violation(Exception):
    """The run cannot go on."""


class App:
    """The application: a thread reads what it prints."""

    def __init__(self, command, environment, errors):
        self.process = subprocess.Popen(command, env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=errors, text=True, bufsize=1)
        self.changed = threading.Condition()
        self.told = []  # availability
        self.requests = []
        self.answers = {}
        self.strange = []
        self.ended = False
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        dump = False
        for line in self.process.stdout:
            word, _, rest = line.rstrip("\n").partition(" ")
            with self.changed:
                if word == "request":
                    self.requests.append(int(rest))
                elif word == "available":
                    self.told.append(rest == "1")
                elif word in ("sent", "references", "collect"):
                    self.answers[word] = [int(number) for number in rest.split()]
                elif found := re.match(r"JNI global refs: (\d+)", line):
                    self.answers["global"] = [int(found[1])]
                elif re.match(r"\d{4}-\d\d-\d\d ", line):
                    dump = True  # of the threads; it goes on to the heap's summary
                elif line.startswith("Heap"):
                    dump = True
                elif "WARNING" in line or "FATAL" in line or "Exception" in line or not (dump or not line.strip()):
                    self.strange.append(line.rstrip("\n"))
                self.changed.notify_all()
        with self.changed:
            self.ended = True
            self.changed.notify_all()

    def wait(self, what, done):
        with self.changed:
            if not self.changed.wait_for(lambda: self.ended or done(), WAIT) or self.ended:
                raise Violation(f"{what}: {'the application has ended' if self.ended else f'not within {WAIT} s'}")

    def ask(self, word):
        self.answers.pop(word, None)
        self.process.stdin.write(word + "\n")
        self.process.stdin.flush()
        self.wait(f"an answer to {word}", lambda: word in self.answers)
        return self.answers[word]


class Soak:
    def __init__(self, build, seed, quiet, folder):
        self.random = random.Random(seed)
        self.folder = Path(folder)
        (self.folder / "services").mkdir(mode=0o700)
        self.environment = dict(os.environ, ORVIX_BINDER_DIR=str(self.folder / "services"))
        self.environment.setdefault("ASAN_OPTIONS", "quarantine_size_mb=1")  # which would pass for growth
        self.program = build / "bin/soak_service"
        jars = ":".join(str(build / "java" / jar) for jar in ("orvix-soak.jar", "orvix-app.jar", "android-stub.jar"))
        vm = ["java", "-Xcheck:jni", "-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1", "-Xms32m", "-Xmx32m",
              "-XX:+AlwaysPreTouch", "-XX:-UseDynamicNumberOfCompilerThreads", f"-Djava.library.path={build / 'lib'}", "-cp",
              f"{jars}:/usr/share/java/gson.jar", "vendor.nuvel.data.orvixadmin.Soak"]
        self.quiet = quiet
        # The library's log beside a VM; without one there is none, and what comes is a sanitizer's.
        self.errors = tempfile.TemporaryFile(dir=folder, mode="w+", errors="replace") if quiet else None
        self.app = App([*([build / "bin/soak_app"] if quiet else vm), str(THREADS), str(seed)], self.environment,
                       self.errors or subprocess.DEVNULL)
        self.violations = []
        self.life = 0
        self.last = [0] * THREADS  # the last number that any service has got of each thread
        self.lives = {}  # of those that are not settled: the requests that each thread attempted
        self.counts = {"requests": 0, "calls": 0, "sockets": 0}
        self.flat = None

    def expect(self, held, text):
        if not held:
            self.violations.append(f"life {self.life}: {text}")

    def log(self):
        return self.folder / f"life-{self.life}"

    def head(self):
        """The number of entries, and for each thread the requests that were attempted and those that were accepted."""
        head = struct.unpack_from(f"<{1 + 2 * LOG_THREADS}Q", self.map)
        return head[0], head[1:1 + THREADS], head[1 + LOG_THREADS:1 + LOG_THREADS + THREADS]

    def entries(self):
        count = self.head()[0]
        self.expect(count <= LOG_ENTRIES, "the log of the service is full")
        read = struct.unpack_from(f"<{min(count, LOG_ENTRIES)}Q", self.map, 8 * (1 + 2 * LOG_THREADS))
        return [(entry >> 56, entry & (1 << 56) - 1) for entry in read]

    def live(self):
        """One life: start, traffic, kill. Some end as soon as Java knows of them, some are followed at once.

        None ends before the library is linked to its death: of such a death it is promised to notice nothing."""
        self.life += 1
        with open(self.log(), "w+b") as file:
            file.truncate(LOG_SIZE)
            self.map = mmap.mmap(file.fileno(), LOG_SIZE)
        service = subprocess.Popen([self.program, str(self.life), self.log(), str(THREADS),
                                    str(self.random.randrange(1 << 31))], env=self.environment)
        try:
            self.app.wait(f"life {self.life}: Java is told true", lambda: len(self.app.told) == 2 * self.life - 1)
            if self.random.random() > 0.1:
                self.wait_for_callback(service)
                time.sleep(self.random.uniform(0.002, 0.04))
        finally:
            service.send_signal(signal.SIGKILL)
            service.wait()
        self.judge_calls()
        self.judge_requests()
        if self.random.random() < 0.5:
            self.app.wait(f"life {self.life}: Java is told false", lambda: len(self.app.told) == 2 * self.life)
        self.log().unlink()

    def wait_for_callback(self, service):
        end = time.monotonic() + WAIT
        while not any(kind == REGISTERED for kind, _ in self.entries()):
            if service.poll() is not None or time.monotonic() > end:
                raise Violation(f"life {self.life}: no callback within {WAIT} s")
            time.sleep(0.001)

    def judge_calls(self):
        """What the service has got of the application."""
        entries = self.entries()
        registered = sum(kind == REGISTERED for kind, _ in entries)
        self.expect(registered <= 1, f"{registered} callbacks registered")
        self.expect(all(kind != BAD for kind, _ in entries), "a call came with a wrong content")
        sent = self.app.ask("sent")
        for thread in range(THREADS):
            numbers = [number for kind, number in entries if kind == thread]
            if not numbers:
                continue
            first, last = numbers[0], numbers[-1]
            self.expect(numbers == list(range(first, last + 1)), f"calls of thread {thread} lost, doubled or reordered")
            self.expect(first > self.last[thread], f"calls of thread {thread} doubled after a death")
            self.expect(last <= sent[thread], f"calls of thread {thread} invented: {last} of {sent[thread]}")
            self.last[thread] = last
            self.counts["calls"] += len(numbers)
        sockets = [number for kind, number in entries if kind == SOCKET]
        self.expect(sockets == sorted(set(sockets)) and all(number % 16 == 0 for number in sockets),
                    f"sockets doubled, reordered or invented: {sockets}")
        self.counts["sockets"] += len(sockets)

    def judge_requests(self):
        """What Java has got of this life: all that was accepted, in order, once. And again of the one before, of which
        more may have come since."""
        _, attempted, accepted = self.head()
        self.lives[self.life] = attempted

        def arrived(life, thread):
            base = life << 40 | thread << 32
            return [number - base for number in self.app.requests if number >> 32 == base >> 32]

        self.app.wait(f"life {self.life}: all requests that the platform has accepted",
                      lambda: all(len(arrived(self.life, thread)) >= accepted[thread] for thread in range(THREADS)))
        with self.app.changed:
            strange = [number for number in self.app.requests if number >> 40 not in self.lives]
            self.expect(not strange, f"requests of nobody, or wrong ones: {strange[:3]}")
            for life, most in self.lives.items():
                for thread in range(THREADS):
                    numbers = arrived(life, thread)
                    self.expect(numbers == list(range(1, len(numbers) + 1)),
                                f"requests of life {life}, thread {thread}: lost, doubled or reordered")
                    self.expect(len(numbers) <= most[thread], f"requests of life {life}, thread {thread}: invented")
            settled = [life for life in self.lives if life < self.life]
            self.counts["requests"] += sum(number >> 40 in settled for number in self.app.requests)
            self.app.requests = [number for number in self.app.requests if number >> 40 == self.life]
            self.lives = {self.life: attempted}

    def judge_availability(self):
        time.sleep(0.1)  # for what must not come
        self.expect(self.app.told == [True, False] * self.life, "Java was not told true and false once for each life")

    def measure(self):
        """What must stay flat, at rest."""
        if not self.quiet:
            self.app.ask("collect")
        time.sleep(0.3)  # threads that were attached for a call are still going
        process = Path(f"/proc/{self.app.process.pid}")
        memory = int(re.search(r"VmRSS:\s+(\d+)", (process / "status").read_text())[1]) * 1024
        if self.quiet:
            references = self.app.ask("references")[0]
        else:
            self.app.answers.pop("global", None)
            self.app.process.send_signal(signal.SIGQUIT)
            self.app.wait("a dump of the threads", lambda: "global" in self.app.answers)
            references = self.app.answers["global"][0]
        names = [(thread / "comm").read_text().strip() for thread in (process / "task").iterdir()]
        pool = sum(name == "binder:pool" for name in names)
        self.expect(pool <= POOL, f"{pool} threads in the pool")
        return {"descriptors": len(os.listdir(process / "fd")), "threads": len(names) - pool,
                "references": references, "memory": memory}

    def rest(self):
        self.app.wait("Java is told of the last death", lambda: len(self.app.told) == 2 * self.life)

    def run(self, cycles, seconds):
        begin = shown = time.monotonic()
        while (self.life < cycles if seconds is None else time.monotonic() - begin < seconds) or self.life <= WARM_UP:
            self.live()
            if self.life == WARM_UP:
                self.rest()
                self.flat = self.measure()
            if time.monotonic() - shown > 5:
                shown = time.monotonic()
                of = f" of {cycles}" if seconds is None else ""
                print(f"{self.life}{of} lives, {shown - begin:.0f} s: {self.counts['calls']:,} calls, "
                      f"{self.counts['requests']:,} requests, {self.counts['sockets']:,} sockets, "
                      f"{len(self.violations)} violations", flush=True)
        self.rest()
        self.judge_availability()
        for _ in range(10):  # what ends a little late is no growth
            end = self.measure()
            if all(end[what] <= self.flat[what] for what in end if what != "memory"):
                break
        for what, before in self.flat.items():
            allowed = before + (GROWTH if what == "memory" else 0)
            self.expect(end[what] <= allowed, f"{what} grow: {before:,} after {WARM_UP} lives, {end[what]:,} now")
        print(f"{self.life} lives in {time.monotonic() - begin:.1f} s: "
              f"{self.counts['calls']:,} calls and {self.counts['requests']:,} requests, "
              f"{self.counts['sockets']:,} sockets")
        print(", ".join(f"{what} {self.flat[what]:,} -> {end[what]:,}" for what in end)
              + f" (after {WARM_UP} lives -> now)")
        self.app.process.stdin.close()
        try:
            code = self.app.process.wait(10)
        except subprocess.TimeoutExpired:
            raise Violation("the application does not end") from None
        self.expect(code == 0, f"the application ends with {code}")
        self.expect(not self.app.strange, f"the application says: {self.app.strange[:5]}")
        if self.errors:
            self.errors.seek(0)
            text = self.errors.read()
            self.expect(not text, f"the application says:\n{text[:8000]}")


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
    arguments = parser.parse_args()
    if arguments.cycles <= WARM_UP:
        parser.error(f"--cycles: a number above {WARM_UP}, such as 1000")
    seed = arguments.seed if arguments.seed is not None else random.SystemRandom().randrange(1 << 31)
    print(f"seed {seed}", flush=True)
    # In memory where there is such a place: writing to a disk may take longer than a service is given.
    memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    folder = tempfile.mkdtemp(prefix="orvix-soak-", dir=memory)
    soak = Soak(arguments.build.resolve(), seed, arguments.quiet_vm, folder)
    try:
        soak.run(arguments.cycles, arguments.minutes and arguments.minutes * 60)
    except Violation as violation:
        soak.violations.append(str(violation))
    finally:
        soak.app.process.kill()
        soak.app.process.wait()
        shutil.rmtree(folder, ignore_errors=True)
    for violation in soak.violations[:20]:
        print("VIOLATION:", violation)
    print(f"{len(soak.violations)} violations" + (f"; run again with --seed {seed}" if soak.violations else ""))
    return 1 if soak.violations else 0


if __name__ == "__main__":
    sys.exit(main())
