#!/usr/bin/env python3
"""A virtual machine ends at once and with its own exit code after the library's initialize, whatever goes on.

usage: jvm_exit_test.py BUILD
"""
import itertools
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "sim/live"))
from stage import Stage  # noqa: E402

AT_ONCE = 5  # seconds; a machine that hangs does so for ever. Or, where all is slow, as long as it took to start
CODES = {"return": 0, "exit": 7, "halt": 8, "exitInCallOut": 9}
REQUESTS = "\n".join(["startUidStatsPolling 5"] * 2000)  # many more than the machine waits for


def main(build):
    with Stage(build) as stage:
        service = stage.start_service()
        for way, load in itertools.product(CODES, ("idle", "busy")):
            begin = len(stage.lines)
            app = stage.start_app(way, load, main="JvmExit")
            app.may_end = True
            if load == "busy":
                stage.wait("the registration", lambda: app.ended or stage.find(begin, call="registerRequest"))
                service.say(REQUESTS)
            code = app.wait_exit()[0]
            took = time.monotonic() - stage.find(begin, ending=way).when
            print(f"{way}, {load}: exit code {code} after {took * 1000:.0f} ms")
            if code != CODES[way] or took > max(AT_ONCE, stage.find(begin, ending=way).when - app.started):
                sys.exit(f"{way}, {load}: not {CODES[way]}, or not at once")


if __name__ == "__main__":
    main(*sys.argv[1:])
