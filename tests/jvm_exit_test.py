#!/usr/bin/env python3
"""A virtual machine ends at once and with its own exit code after the library's initialize, whatever goes on.

usage: jvm_exit_test.py BUILD
"""
import itertools
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "sim/live"))
from stage import LIMIT, Stage  # noqa: E402

AT_ONCE = LIMIT / 60  # seconds; a machine that hangs does so for ever
CODES = {"return": 0, "exit": 7, "halt": 8, "exitInCallOut": 9}
REQUESTS = "\n".join(["startUidStatsPolling 5"] * 2000)  # many more than the machine waits for


def main(build):
    with Stage(build) as stage:
        service = stage.start_service()
        for way, load in itertools.product(CODES, ("idle", "busy")):
            begin = len(stage.lines)
            app = stage.start_app(way, load, main="JvmExit")
            if load == "busy":
                stage.wait("the registration", lambda: stage.find(begin, call="registerRequest"))
                service.say(REQUESTS)
            stage.wait("the beginning of the end", lambda: stage.find(begin, ending=way))
            code, took = app.wait_exit()
            if code != CODES[way] or took > AT_ONCE:
                sys.exit(f"{way}, {load}: exit code {code} after {took * 1000:.0f} ms")


if __name__ == "__main__":
    main(*sys.argv[1:])
