#!/usr/bin/python3
"""Runs every fuzzer for its share of the time, then each planted copy until its bug is found, and tells what of aidl/
the fuzzers have been through.

What has been learned stays in BUILD/corpus and is the next run's start; what has been found, in BUILD/found.
"""

import argparse
import json
import math
import os
import re
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor, wait
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "sim/live"))
from progress import Progress

FUZZERS = ["records", "service", "request", "java", "events", "frames"]
WORKERS = 2
PLANTED_SECONDS = 60
LIMITS = ["-max_len=4096", "-malloc_limit_mb=16", "-timeout=10", "-close_fd_mask=1", "-print_final_stats=1"]
FOUND = re.compile(r"broken invariant: .*|ERROR: AddressSanitizer: \S+|\S+:\d+:\d+: runtime error: .*|"
                   r"ERROR: LeakSanitizer.*|ERROR: libFuzzer: .*|Java VM: .*")


class Run:
    def __init__(self, build, name, seconds, seed, planted=False):
        self.name, self.planted = name, planted
        program = build / "bin" / f"fuzz_{name}{'_planted' if planted else ''}"
        found = build / "found"
        found.mkdir(exist_ok=True)
        corpus = build / "corpus" / program.name
        corpus.mkdir(parents=True, exist_ok=True)
        environment = dict(os.environ, LLVM_PROFILE_FILE=str(build / "profiles" / f"{program.name}.profraw"))
        begin = time.monotonic()
        done = subprocess.run([program, *LIMITS, f"-max_total_time={seconds}", f"-seed={seed}",
                               f"-artifact_prefix={found}/{program.name}-", corpus, build / "fuzz/seeds" / name],
                              env=environment, capture_output=True, text=True, errors="replace")
        self.seconds = time.monotonic() - begin
        self.ended = done.returncode
        executed = re.search(r"number_of_executed_units: (\d+)", done.stderr)
        self.executed = int(executed[1]) if executed else 0
        self.kept = len(list(corpus.iterdir()))
        found = FOUND.search(done.stderr)
        self.what = found[0] if found else f"exit code {done.returncode}" if done.returncode else ""
        self.input = re.search(r"Test unit written to (\S+)", done.stderr)

    def print(self):
        text = f"{self.name + (', planted' if self.planted else ''):18} {self.executed:>10,} runs {self.seconds:7.1f} s"
        if self.planted:
            text += f"   {'found: ' + self.what if self.what else 'NOT FOUND'}"
        else:
            text += f" {self.kept:>6} kept   {'FOUND: ' + self.what if self.what else 'nothing found'}"
            text += f", with {self.input[1]}" if self.input else ""
        print(text, flush=True)


def coverage(build, sources):
    """Per cent of the lines, and the lines that no fuzzer has been through, by file."""
    merged = build / "profiles/all.profdata"
    programs = [build / "bin" / f"fuzz_{name}" for name in FUZZERS]
    subprocess.run(["llvm-profdata-14", "merge", "-sparse", "-o", merged,
                    *[build / "profiles" / f"{program.name}.profraw" for program in programs]], check=True)
    objects = [argument for program in programs[1:] for argument in ("-object", program)]
    exported = subprocess.run(["llvm-cov-14", "export", "-format=lcov", f"-instr-profile={merged}", programs[0],
                               *objects, sources], check=True, capture_output=True, text=True).stdout
    hit, name = {}, None
    for line in exported.splitlines():
        key, _, value = line.partition(":")
        if key == "SF":
            name = Path(value).name
        elif key == "DA":
            number, count = value.split(",")[:2]
            lines = hit.setdefault(name, {})
            lines[int(number)] = lines.get(int(number), False) or int(count) > 0
    total = sum(len(lines) for lines in hit.values())
    missed = {name: [number for number, was in sorted(lines.items()) if not was] for name, lines in hit.items()}
    return 100 * (1 - sum(map(len, missed.values())) / total), {n: lines for n, lines in missed.items() if lines}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--build", type=Path, required=True, help="the build folder of the preset fuzz")
    parser.add_argument("--minutes", type=float, default=10, help="for all fuzzers together (default 10)")
    parser.add_argument("--seed", type=int, default=0, help="of libFuzzer; 0: random")
    parser.add_argument("--json", action="store_true", help="one JSON object at the end")
    arguments = parser.parse_args()
    if arguments.minutes <= 0:
        parser.error("--minutes: a positive number, such as 10")
    build = arguments.build.resolve()
    sources = Path(__file__).resolve().parent.parent / "aidl"
    seconds = max(5, int(arguments.minutes * 60 * WORKERS / len(FUZZERS)))

    # A planted copy mostly has its bug at once: what it takes is not foreseen.
    begin, end = time.monotonic(), seconds * math.ceil(len(FUZZERS) / WORKERS)
    with ThreadPoolExecutor(WORKERS) as pool, Progress("fuzz", end) as progress:
        runs = [pool.submit(Run, build, name, PLANTED_SECONDS if planted else seconds, arguments.seed, planted)
                for planted in (False, True) for name in FUZZERS]
        for i, run in enumerate(runs):
            what = FUZZERS[i % len(FUZZERS)] + (", planted" if i >= len(FUZZERS) else "")
            while not run.done():
                progress.at(time.monotonic() - begin, what)
                wait([run], timeout=0.5)
            run.result().print()
    clean, planted = ([run.result() for run in half] for half in (runs[:len(FUZZERS)], runs[len(FUZZERS):]))
    share, missed = coverage(build, sources)
    print(f"aidl/: {share:.1f} % of the lines")
    for name, lines in missed.items():
        print(f"    not {name}: {', '.join(map(str, lines))}")
    good = not any(each.what for each in clean) and all(each.what for each in planted)
    print("nothing found, every planted bug found" if good else "FAILED")
    if arguments.json:
        print(json.dumps({"coverage": share, "missed": missed, "found": {each.name: each.what for each in clean},
                          "planted": {each.name: each.what for each in planted}}))
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
