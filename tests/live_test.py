#!/usr/bin/env python3
"""The demo and the sample application as a user starts them: exit codes, answers to bad input, what is left behind.

usage: live_test.py BUILD
"""
import os
import subprocess
import sys
import tempfile
from pathlib import Path

SIM = Path(__file__).resolve().parent.parent / "sim"
BAD = {  # typed: in the answer
    "sendScrenState true": "sendScrenState: no such verb; nearest: sendScreenState,",
    "sendScreenState": "takes 1 arguments (sendScreenState on:boolean), not 0; example: sendScreenState true",
    "sendScreenState 1": 'argument on (boolean): must be a boolean (true or false), not "1"; example: sendScreenState',
    "sendBlobToMirel 5 hex:0": "argument blob (byte[]): must be a blob (hex: and two hexadecimal digits a byte), not",
    'sendNetworkStatsForNetworkType 1 {"long1":1}': "argument bytes (ByteTuple): member long2 is missing, a long",
    'sendNetworkStatsForAllUids 1 [{"uid":"x"}]': "member [0].uid must be an int (-2147483648 to 2147483647), not",
    "sendNetworkInfo 1 {": "argument info (NetworkInfo): not well-formed JSON near $",
}
RUNS = [  # command, environment, input, exit code, in the last lines of the output
    ("live/demo.py --build {}", {}, "", 0, ["15/15", "23/23", "22/22", "1 and 1"]),
    ("live/demo.py --build {}", {"ORVIX_PATIENCE": "0.0001"}, "", 1, ["FAILED: everything came: ", "not within 0.03 s"]),
    ("live/demo.py --build {}", {"JDK_JAVA_OPTIONS": "-Xnone"}, "", 1, ["exit code 1, with ", "Unrecognized option"]),
    ("app/run", {}, "\n".join(BAD), 2, BAD.values()),
    ("app/run", {}, "# a comment\n\nquit\nsendScreenState\n", 0, []),
    ("app/run --jsom", {}, "", 2, ["unknown option --jsom; usage: OrvixApp [--json]"]),
    ("app/run", {"ORVIX_BUILD": "/nowhere"}, "", 1, ["/nowhere holds no application; build it with: ./orvix build"]),
]


def main(build):
    faults = []
    for command, environment, text, code, texts in RUNS:
        words = [word.format(build) for word in command.split()]
        with tempfile.TemporaryDirectory() as folder:
            settings = {"ORVIX_BUILD": build, "TMPDIR": folder, "ORVIX_BINDER_DIR": folder} | environment
            done = subprocess.run([SIM / words[0], *words[1:]], input=text, text=True,
                                  env=os.environ | settings, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            output, left = "\n".join(done.stdout.splitlines()[-20:]), os.listdir(folder)
        missing = [text for text in texts if text not in output]
        if done.returncode != code or missing or left:
            faults.append(f"{command} {environment}: exit {done.returncode}, lacks {missing}, leaves {left}\n{output}")
    sys.exit("\n".join(faults) or None)


if __name__ == "__main__":
    main(*sys.argv[1:])
