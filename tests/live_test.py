#!/usr/bin/env python3
"""The demo and the sample application as a user starts them: exit codes, the lines that answer bad input, what is left
behind."""

import argparse
import os
import subprocess
import sys
import tempfile
from pathlib import Path

SIM = Path(__file__).resolve().parent.parent / "sim"

AN_INT = "must be an int (-2147483648 to 2147483647), not"
BAD = {  # typed: in the answer
    "sendScrenState true": "sendScrenState: no such verb; nearest: sendScreenState,",
    "sendScreenState": "takes 1 arguments (sendScreenState on:boolean), not 0; example: sendScreenState true",
    "sendScreenState 1": 'argument on (boolean): must be a boolean (true or false), not "1"; example: sendScreenState',
    "sendThermalStatus 2147483648":
        f'argument state (int): {AN_INT} "2147483648"; example: sendThermalStatus 2',
    "sendBlobToMirel 5 hex:0":
        "argument blob (byte[]): must be a blob (hex: and two hexadecimal digits a byte), not",
    'sendNetworkStatsForNetworkType 1 {"long1":1}': "argument bytes (ByteTuple): member long2 is missing, a long",
    'sendNetworkStatsForAllUids 1 [{"uid":"x"}]':
        f'argument stats (NetworkStatsParams[]): member [0].uid {AN_INT} "x"; example: sendNetworkStatsForAllUids 1',
    "sendNetworkInfo 1 {": "argument info (NetworkInfo): not well-formed JSON near $",
}
# Where what is waited for does not come.
HASTY = {"ORVIX_PATIENCE": str(0.02 * float(os.environ.get("ORVIX_PATIENCE", 1)))}
RUNS = [  # command, environment, input, exit code, in the last lines of the output
    ("live/demo.py", {}, "", 0, ["15/15", "23/23", "22/22", "1 and 1"]),
    ("live/demo.py", {"ORVIX_FAULTS": "tagSocket=-1"} | HASTY, "", 1, ["FAILED: everything came: socket 100"]),
    ("live/demo.py", {"ORVIX_FAULTS": "linkToDeath=-32"} | HASTY, "", 1, ["FAILED: everything came: Java is told false"]),
    ("app/run", {}, "\n".join(BAD), 2, BAD.values()),
    ("app/run", {}, "# a comment\n\nquit\nsendScreenState\n", 0, []),
    ("app/run --jsom", {}, "", 2, ["unknown option --jsom; usage: OrvixApp [--json]"]),
    ("app/run", {"ORVIX_BUILD": "/nowhere"}, "", 1, ["app: /nowhere holds no application; build it with: ./orvix build"]),
]


def run(build, command, environment, text):
    """Exit code, the last lines, the files left behind."""
    program, *options = command.split()
    if program == "live/demo.py":
        options += ["--build", build]
    with tempfile.TemporaryDirectory() as folder:
        settings = os.environ | {"ORVIX_BUILD": str(build), "TMPDIR": folder, "ORVIX_BINDER_DIR": folder} | environment
        done = subprocess.run([SIM / program, *options], input=text, env=settings, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        return done.returncode, "\n".join(done.stdout.splitlines()[-20:]), os.listdir(folder)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=Path, required=True)
    build = parser.parse_args().build.resolve()
    failures = []
    for command, environment, text, wanted, texts in RUNS:
        code, output, left = run(build, command, environment, text)
        missing = [text for text in texts if text not in output]
        if code != wanted or missing or left:
            failures.append(f"{command} {environment}: exit code {code}, without {missing}, leaves {left}\n{output}")
    for failure in failures:
        print("FAILED:", failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
