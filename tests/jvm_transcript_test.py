#!/usr/bin/env python3
"""The library on a real virtual machine does what its transcripts say.

The transcripts are those of the fake function table: of a section its lines about log, JNI and JavaVM are compared with
what the recorder wrote, its transactions with what the service received. What is to be typed comes out of the section.
"""

import argparse
import itertools
import json
import os
import re
import sys
from pathlib import Path

TESTS = Path(__file__).resolve().parent
sys.path.insert(0, str(TESTS.parent / "sim/live"))
from stage import Stage, Unmet  # noqa: E402

# What no Java program can do: hand over no JNIEnv, or bytes that no record's writer makes.
UNPLAYABLE_LINE = "log E sendBlobToMirel: JNIEnv is NULL"
UNPLAYABLE_SECTION = "a parcel at its end and one that is cut"
OTHER_NAMES = {"startNetworkMonitorForRatType": "startcollectingNetworkInfo",
               "stopNetworkMonitorForRatType": "stopcollectingNetworkInfo", "sendBlobToApkJava": "sendBlobToApk"}
# What the application types for a transaction, by its code.
VERBS = {
    2: lambda a: ("sendRadioStatus", *list(a[0].values())[:3]),
    3: lambda a: ("sendNetworkStatsForAllUids", *a),
    4: lambda a: ("sendNetworkStatsForNetworkType", *a),
    5: lambda a: ("sendScreenState", *a),
    6: lambda a: ("sendCensusInfo", a[0]["buildInfo"], a[0]["telephonyInfos"]),
    7: lambda a: ("sendNetworkInfo", *a),
    8: lambda a: ("sendBootCompleteInfo", *a),
    9: lambda a: ("sendFGNetworkInfo", a[0], a[2], a[1]),
    10: lambda a: ("sendLPMStatus", *a),
    11: lambda a: ("sendThermalStatus", *a),
    12: lambda a: ("sendBatteryStatus", a[0]["int1"], a[0]["flag1"]),
    13: lambda a: ("sendHotspotStatus", *a),
    14: lambda a: ("queryStats",),
    17: lambda a: ("sendBlobToMirel", *a),
}
SOCKETS = {
    "family 2, type 2, protocol 2": ["7 10123 2 2 2"],
    "every other code is the default": ["0 0 0 0 0", "-1 1 1 1 1"],
    "uid -1: sent untagged": ["8 -1 2 1 1"],
    "refused by the kernel": ["9 10123 1 2 1"],
    "codes above 2 are the default, and any uid but -1 is tagged": ["-1 -2 3 3 3"],
}


def sections(file):
    """Title and lines of each section."""
    texts = re.split(r"^== (.*)\n", (TESTS / "transcripts" / file).read_text(), flags=re.MULTILINE)[1:]
    return {title: text.split("\n") for title, text in zip(texts[::2], texts[1::2])}


def recorded(lines):
    """What the recorder can see. How often the dispatch thread wakes up is not determined."""
    return [line for line in lines if re.match("log |jni |vm |    ", line) and "new aidl event arrived" not in line
            and line != UNPLAYABLE_LINE]


def transactions(lines):
    """Code and arguments of each."""
    found = (re.match(r"transact (\d+) 0x10000001 (.*)", line) for line in lines)
    return [(int(match[1]), json.loads(match[2])) for match in found if match]


def verbs(lines):
    """What to type for a section's transactions, and for the list that is not sent for being empty."""
    text = re.sub(r"log D (\w+) RatType (-?\d+)\njni.*\nlog D \w+ list size is 0", r"transact 3 0x10000001 [\2,[]]",
                  "\n".join(lines))
    return [VERBS[code](args) for code, args in transactions(text.split("\n"))]


def word(value):
    return value if isinstance(value, str) else json.dumps(value, ensure_ascii=False)


class Play:
    def __init__(self, build):
        self.stage = Stage(build)
        self.failures = []
        self.played = 0
        self.begin = 0

    def transcript(self):
        return recorded(line.text for line in self.stage.lines[self.begin:] if line.source == "transcript")

    def compare(self, title, lines, action):
        """Plays one section and waits until as much has come as it has lines; what is too much fails the next one."""
        action()
        wanted = recorded(lines)
        wanted_calls = [args for _, args in transactions(lines)]
        calls = self.stage.calls
        try:
            self.stage.wait(title, lambda: len(self.transcript()) >= len(wanted)
                            and len(calls(self.begin)) >= len(wanted_calls))
        except Unmet:
            pass  # the comparison says more
        self.equal(title, wanted, self.transcript())
        if "registerRequest" not in (name for name, _ in calls(self.begin)):
            self.equal(title, [json.dumps(args) for args in wanted_calls],
                       [re.sub(r"socket:\[\d+\]", "socket:[N]", json.dumps(args)) for _, args in calls(self.begin)])
        self.begin = len(self.stage.lines)
        self.played += 1

    def equal(self, title, wanted, got):
        if wanted == got:
            return
        at, one, other = next((i, a, b) for i, (a, b) in enumerate(itertools.zip_longest(wanted, got)) if a != b)
        self.failures.append(f"{title}\n  line {at + 1}, wanted: {one}\n  line {at + 1}, got:    {other}")

    def run(self, build):
        stage = self.stage
        load, availability = sections("load.txt"), sections("availability.txt")
        with stage:
            transcript, write_end = os.pipe()
            stage.listen(transcript, "transcript")
            recorder = build / "lib/libjvm_recorder.so"
            app = stage.start_app(options=f"-agentpath:{recorder}=/proc/self/fd/{write_end}", pass_fds=[write_end])
            os.close(write_end)
            self.compare("load", load["good"], lambda: None)
            self.natives(app, unbound=True)

            service = stage.start_service()
            self.compare("up", availability["bound and up"], lambda: None)
            self.natives(app, unbound=False)
            self.requests(service)
            for title, requests in SOCKETS.items():
                lines = sections("sockets.txt")[title]
                self.compare(title, lines, lambda: [service.say(f"getSocketFd {request}") for request in requests])

            def restart():
                nonlocal service
                service.kill()
                down = ["vm DetachCurrentThread"]
                stage.wait("down", lambda: self.transcript()[-1:] == down)
                service.wait_exit()
                service = stage.start_service()

            self.compare("death and return", availability["down, bound again, up"], restart)
            stage.run(0.2)
            self.equal("after the last section", [], self.transcript())
        return self.failures

    def natives(self, app, unbound):
        """Every section with a service, or the one without."""
        played = {title: lines for title, lines in sections("natives.txt").items()
                  if not title.startswith(UNPLAYABLE_SECTION)}
        alone = next(title for title in played if title.startswith("unbound"))
        without = played.pop(alone)
        if unbound:
            known = {name: (name, *args) for lines in played.values() for name, *args in verbs(lines)}
            names = re.findall(r"^log E (\w+): OrvixService is not ready", "\n".join(without), re.MULTILINE)
            played = {alone: without}
        for title, lines in played.items():
            typed = [known[name] for name in names] if unbound else verbs(lines)
            self.compare(title, lines, lambda: [app.say(" ".join([name, *map(word, args)])) for name, *args in typed])

    def requests(self, service):
        codes = set()
        for title, lines in sections("requests.txt").items():
            if not title[0].isdigit():
                continue
            codes.add(int(title.split()[0]))
            text = "\n".join(lines)
            java = re.search(r'jni GetMethodID\(SorvixAidlClient, "(\w+)"', text)[1]
            values = re.search(r"jni CallVoidMethod\(object, method(.*)\)", text)[1]
            # At the service's input as in the transcript, but for the commas.
            request = OTHER_NAMES.get(java, java) + re.sub(r', (?=[-\d]|hex:|true|false|")', " ", values)
            self.compare(title, lines, lambda: service.say(request))
        self.equal("codes with a call-out", sorted({*range(1, 5), *range(7, 23), 24}), sorted(codes))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=Path, required=True)
    build = parser.parse_args().build.resolve()
    play = Play(build)
    for failure in play.run(build):
        print("FAILED:", failure)
    print(f"{play.played} sections played, {len(play.failures)} differences")
    return 1 if play.failures else 0


if __name__ == "__main__":
    sys.exit(main())
