#!/usr/bin/python3
"""The sample application by itself, as `./orvix app` runs it, and what its process did as trace events: its threads,
the calls into Java, the transactions, the queue. The service's half of a message is not seen from here."""

import ending  # the first: from here on SIGINT has no traceback

import argparse
import os
import subprocess
import sys
from pathlib import Path

import tracefile
from stage import SIM, lines
from timeline import Timeline


def main():
    parser = argparse.ArgumentParser(prog="orvix app", description=__doc__, add_help=False)
    parser.add_argument("--trace", type=Path, metavar="FILE.json", required=True)
    arguments, others = parser.parse_known_args()
    timeline, reader = Timeline(), lines.Reader()
    born = timeline.now()
    app = subprocess.Popen([SIM / "app/run", *others], stderr=subprocess.PIPE, env=os.environ | {"ORVIX_TRACE": "1"})
    timeline.process(app.pid, "application", born)
    try:
        while True:
            with ending.interruptible():
                line = app.stderr.readline().decode(errors="replace")
            if not line:
                break
            record = reader.line(line)
            if record and record.tid:
                timeline.line(record)
            if not record or record.tag != "trace":
                with ending.interruptible():
                    print(line, end="", file=sys.stderr, flush=True)
        return app.wait()
    finally:
        app.kill()
        app.wait()
        tracefile.write(timeline.finish(), arguments.trace)
        print(f"wrote {arguments.trace}", file=sys.stderr)


if __name__ == "__main__":
    sys.exit(ending.run(main))
