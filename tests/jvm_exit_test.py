#!/usr/bin/env python3
"""A virtual machine ends at once and with its own exit code after the library's initialize, whatever goes on."""

import argparse
import itertools
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "sim/live"))
from stage import Stage, Unmet  # noqa: E402

AT_ONCE = 5  # seconds; a machine that hangs does so for ever. Or, where all is slow, as long as it took to start
CODES = {"return": 0, "exit": 7, "halt": 8, "exitInCallOut": 9}


def end(stage, service, way, load):
    app = stage.start_app(way, load, main="JvmExit")
    begin = len(stage.lines)
    requests = itertools.count()
    due = 0

    def ask():
        nonlocal due
        if (load == "busy" or way == "exitInCallOut") and time.monotonic() >= due:
            due = time.monotonic() + 0.02
            for _ in range(10):
                service.say(f"startUidStatsPolling {next(requests)}")

    def ending():
        if stage.find(begin, call="registerRequest"):
            ask()
        return stage.find(begin, ending=way)

    stage.wait(f"{way}, {load}: the end begins", ending)
    app.may_end = True
    start_took = time.monotonic() - app.started
    due = 0
    ask()
    code, took = app.wait_exit()
    print(f"{way:>14} {load}: exit code {code} after {took * 1000:.0f} ms")
    if code != CODES[way] or took > max(AT_ONCE, start_took):
        raise Unmet(f"{way}, {load}: not {CODES[way]}, or not at once")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=Path, required=True)
    failed = 0
    with Stage(parser.parse_args().build) as stage:
        service = stage.start_service()
        for way, load in itertools.product(CODES, ("idle", "busy")):
            try:
                end(stage, service, way, load)
            except Unmet as unmet:
                failed += 1
                print("FAILED:", unmet)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
