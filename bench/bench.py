#!/usr/bin/python3
"""What the library costs, each figure beside its floor from the same run. Exit code 1 when a target is missed.

Instructions and allocations repeat for one build in one folder; times are of this machine at this moment, and the ratio
is what counts.
"""

import argparse
import json
import re
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "sim/live"))
import ending  # noqa: E402
from progress import Progress  # noqa: E402
from stage import Stage, Unmet  # noqa: E402

RUNS = 200  # of each operation while instructions are counted; as in bench.cpp
LATENCIES = 1500
LENGTHS = (1_000, 10_000, 100_000, 1_000_000)  # of the queue; as in bench.cpp
QUEUE = "event queue, pushed and drained"
COLD = """no instruction more an event, as the first row says. The memory of a million events is cold, and while
one thread waits for it the others wait for the lock: the floor, a plain std::deque under one lock, grows as much."""
LIVES = 30


def start(command, check=True):
    """Waits for it, unless a signal comes."""
    with ending.interruptible():
        return subprocess.run(command, capture_output=True, text=True, check=check)


def percentile(values, share):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(len(ordered) * share))]


class Report:
    def __init__(self):
        self.rows = []
        self.samples = {}  # what the plots are drawn of, by their names

    def add(self, group, name, unit, library, floor=None, target=None, own_target=None, reason=None):
        """target: the ratio that is allowed; own_target: the number itself that is. reason: why it may be missed."""
        ratio = library / floor if floor else None
        allowed = own_target if target is None else target
        met = None if allowed is None else (library if target is None else ratio) <= allowed
        self.rows.append({"group": group, "name": name, "unit": unit, "library": library, "floor": floor,
                          "ratio": ratio, "target": allowed, "met": met, "reason": None if met else reason})

    def missed(self):
        return [row for row in self.rows if row["met"] is False and row["reason"] is None]

    def print(self):
        group = None
        for row in sorted(self.rows, key=lambda row: [each["group"] for each in self.rows].index(row["group"])):
            if row["group"] != group:
                group = row["group"]
                print(f"\n{group:52} {'library':>12} {'floor':>12}  ratio  target")
            number = lambda value: "" if value is None else f"{value:,.0f}" if value >= 100 or value == int(value) \
                else f"{value:.2f}"
            ratio = "" if row["ratio"] is None else f"{row['ratio']:6.3f}"
            verdict = "met" if row["met"] else "see below" if row["reason"] else "MISSED"
            target = "" if row["target"] is None else f"{row['target']:g} {verdict}"
            print(f"  {row['name'] + ', ' + row['unit']:52} {number(row['library']):>12} {number(row['floor']):>12} "
                  f"{ratio:>6}  {target}")
        for row in self.rows:
            if row["reason"]:
                print(f"\n{row['name']}:\n{row['reason']}")


def instructions(build, report):
    with tempfile.TemporaryDirectory() as folder:
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/out", str(build / "bin/orvix-bench"),
                   "--instructions"]
        done = start(command, check=False)
        if done.returncode != 0:
            raise SystemExit(f"bench: valgrind failed:\n{done.stderr}")
        counts = {}
        for path in sorted(Path(folder).iterdir(), key=lambda path: int(path.suffix[1:] or 0)):
            text = path.read_text(errors="replace")
            name = re.search(r"^desc: Trigger: Client Request: (.*)$", text, re.M)
            total = re.search(r"^(?:totals|summary): (\d+)", text, re.M)
            if name and total:
                counts[name[1]] = int(total[1]) / RUNS
    lengths = {events: counts.pop(f"queue/{events}") * RUNS / events for events in LENGTHS}
    report.samples["instructions"] = lengths
    few, many = lengths[LENGTHS[0]], lengths[LENGTHS[-1]]
    report.add(QUEUE, "of 1,000,000 against of 1,000, instructions", "an event", many, few, 1.1)
    for name in dict.fromkeys(key.rpartition("/")[0] for key in counts):
        locked = counts.get(f"{name}/locked")
        target = None if locked or f"{name}/floor" not in counts else 1.05
        report.add("instructions", name, "a call", counts[f"{name}/library"], counts.get(f"{name}/floor"), target)
        if locked:
            report.add("instructions", f"{name}: floor with lock and status", "a call", counts[f"{name}/library"],
                       locked, 1.05)


def allocations(build, report):
    counts = json.loads(start([build / "bin/orvix-bench", "--allocations"]).stdout)
    for name in dict.fromkeys(key.rpartition("/")[0] for key in counts):
        library, floor = counts[f"{name}/library"], counts.get(f"{name}/floor", {})
        for what in ("allocations", "bytes"):
            report.add("heap", name, what, library[what], floor.get(what))
        if name == "native sendFGNetworkInfo":
            report.add("heap", name, "the library's own", library["own"], own_target=0)


def micro(build, report, seconds):
    # Repeated in any order: what disturbs for a while disturbs a little of everything.
    command = [build / "bin/orvix-bench", "--benchmark_format=json", f"--benchmark_min_time={seconds}",
               "--benchmark_enable_random_interleaving=true"]
    result = json.loads(start(command).stdout)
    repeated = {}
    for run in result["benchmarks"]:
        if run["run_type"] == "aggregate":
            continue
        name = re.sub("/iterations.*", "", run["name"])
        taken = 1e9 / run["items_per_second"] if "items_per_second" in run else run["real_time"]
        repeated.setdefault(name, []).append(taken)
    times = {name: percentile(values, 0.25) for name, values in repeated.items()}
    report.samples["queue"] = {(side, producers): {events: times[name] for events in LENGTHS
                                                   if (name := f"queue/{side}/{events}/{producers}") in times}
                               for side in ("library", "floor") for producers in (1, 4)}
    names = dict.fromkeys(key.rpartition("/")[0] for key in times if not key.startswith("queue/"))
    for name in names:
        report.add("time in one process", name, "ns", times[f"{name}/library"], times.get(f"{name}/floor"))
    for producers in (1, 4):
        for events in (1000, 1000000):
            report.add(QUEUE, f"{events:,} events, {producers} producers", "ns an event",
                       times[f"queue/library/{events}/{producers}"], times[f"queue/floor/{events}/{producers}"])
        growth = {side: times[f"queue/{side}/1000000/{producers}"] / times[f"queue/{side}/1000/{producers}"]
                  for side in ("library", "floor")}
        # Only the growth that the floor has too is explained.
        report.add(QUEUE, f"growth from 1,000 to 1,000,000, {producers} producers", "times", growth["library"],
                   growth["floor"], own_target=1.1, reason=COLD if growth["library"] <= 1.1 * growth["floor"] else None)


def arrivals(half):
    """What each of those that were just sent took to this half."""
    values = []
    half.stage.wait(f"{LATENCIES} have arrived",
                    lambda: values.extend(half.ask("arrivals")) or len(values) >= LATENCIES)
    return values


def live(build, report, progress):
    with Stage(build) as stage:
        # An application is otherwise started for a quick start; here it is what the compiler makes of it that counts.
        java = stage.start_app(main="Bench", options="-XX:TieredStopAtLevel=4", stderr=subprocess.DEVNULL)
        loads = java.ask("loads")
        report.add("real VM", "JNI_OnLoad, median", "us", statistics.median(loads) / 1000)
        times = java.ask("callOuts")
        # Attaching takes nearly all of it, and as long as it pleases: the quicker ones say more.
        library, floor, logged = (percentile(times[side::3], 0.25) for side in range(3))
        report.add("real VM", "call-out, from queued to returned", "ns", library, floor)
        report.add("real VM", "call-out: floor with the log lines", "ns", library, logged, 1.05)

        times = java.ask("parts")
        report.samples["parts"] = {side: [[times[at] for at in range(8 * i + 4 * second, 8 * i + 4 * second + 4)]
                                          for i in range(len(times) // 8)]
                                   for second, side in enumerate(("library", "floor"))}

        program = build / "bin/orvix-bench-service"
        service = stage.start_service(command=[program])
        service.hear("registered")
        java.ask("initialize", "available")
        service.hear("callback")
        times = java.ask("sends")
        report.add("real VM", "native sendFGNetworkInfo, to accepted", "ns", statistics.median(times[::2]),
                   statistics.median(times[1::2]))
        service.ask("arrivals")
        java.ask("arrivals")

        measured = {}
        for side, calls in (("library", "calls"), ("floor", "bareCalls")):
            if side == "floor":
                java.say("registerBare")
                service.hear("callback", len(stage.lines))
            for state, burners in (("idle", 0), ("both cores busy", 2)):
                progress.at(progress.done + 5, f"latencies of the {side}, {state}")
                burning = [subprocess.Popen([program, "--burn", "20"]) for _ in range(burners)]
                try:
                    service.ask(f"requests {LATENCIES}")
                    measured["service's request to Java's method", state, side] = arrivals(java)
                    java.ask(f"{calls} {LATENCIES}")
                    measured["Java's call to the service's method", state, side] = arrivals(service)
                finally:
                    for process in burning:
                        process.kill()
                        process.wait()
        report.samples["latencies"] = measured
        for (way, state, side), values in measured.items():
            for share in (50, 99) if side == "library" else ():
                report.add("from entry to entry", f"{way}, {state}, p{share}", "us", *(
                    percentile(each, share / 100) / 1000 for each in (values, measured[way, state, "floor"])))

        progress.at(progress.done + 5, "deaths and returns")
        ways = {"kill to Java's false": [], "restart to Java's true": [], "of that since registration": []}
        for _ in range(LIVES):
            stage.lines.clear()
            killed = time.monotonic_ns()
            service.kill()
            service.wait_exit()
            _, down = java.hear("available")
            stage.lines.clear()
            restarted = time.monotonic_ns()
            service = stage.start_service(command=[program])
            registered, = service.hear("registered")
            _, up = java.hear("available")
            ways["kill to Java's false"].append(down - killed)
            ways["restart to Java's true"].append(up - restarted)
            ways["of that since registration"].append(up - registered)
            service.hear("callback")
        for way, values in ways.items():
            for share in (50, 99):
                report.add("death and return", f"{way}, p{share}", "us", percentile(values, share / 100) / 1000)


def size(build, report):
    with tempfile.TemporaryDirectory() as folder:
        stripped = Path(folder) / "library"
        subprocess.run(["strip", "-o", stripped, build / "lib/libOrvixJni.so"], check=True)
        report.add("size", "libOrvixJni.so, stripped", "bytes", stripped.stat().st_size)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", type=Path, required=True, help="the build folder of the preset bench")
    parser.add_argument("--json", action="store_true", help="one JSON object on standard output")
    parser.add_argument("--seconds", type=float, default=0.3, help="for each time in one process (default 0.3)")
    parser.add_argument("--plots", type=Path, metavar="FOLDER", help="draw latencies, parts and the queue there")
    arguments = parser.parse_args()
    if arguments.seconds <= 0:
        parser.error("--seconds: a positive number, such as 0.3")
    build = arguments.build.resolve()
    report = Report()
    with Progress("bench", 60) as progress:  # seconds on a quiet machine, about
        for done, doing, step in (
                (0, "instructions, under valgrind", lambda: instructions(build, report)),
                (10, "allocations", lambda: allocations(build, report)),
                (11, "times in one process", lambda: micro(build, report, arguments.seconds)),
                (30, "a real Java VM", lambda: live(build, report, progress))):
            progress.at(done, doing)
            step()
    size(build, report)
    if arguments.plots:
        import plots  # what it draws with takes its time to load

        plots.draw(report.samples, arguments.plots)
    missed = len(report.missed())
    if arguments.json:
        print(json.dumps({"rows": report.rows, "missed": missed}, indent=1))
    else:
        report.print()
        print(f"\n{missed} targets missed" if missed else "\nevery target met" + (
            " or explained" if any(row["reason"] for row in report.rows) else ""))
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(ending.run(main))
