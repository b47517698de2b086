#!/usr/bin/python3
"""The demo and the sample application as a user starts them: exit codes, answers to bad input, what they write and what
they leave behind.

usage: live_test.py BUILD [pages]   (with what the developers' pages compile, in a build that other compilers can link)
"""
import collections
import json
import os
import random
import re
import signal
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree
from pathlib import Path

SIM = Path(__file__).resolve().parent.parent / "sim"
sys.path.insert(0, str(SIM / "live"))
from stage import LIMIT, Stage  # noqa: E402

BAD = {  # typed: in the answer
    "sendScrenState true": "sendScrenState: no such verb; nearest: sendScreenState; help lists all",
    "sendnet": "nearest: sendNetworkStatsForAllUids or sendNetworkStatsForNetworkType or sendNetworkInfo; help",
    "sendScreenState": "takes 1 arguments (sendScreenState on:boolean), not 0; example: sendScreenState true",
    "sendScreenState 1": 'argument on (boolean): must be a boolean (true or false), not "1"; example: sendScreenState',
    "sendBlobToMirel 5 hex:0": "argument blob (byte[]): must be a blob (hex: and two hexadecimal digits a byte), not",
    'sendNetworkStatsForNetworkType 1 {"long1":1}': "argument bytes (ByteTuple): member long2 is missing, a long",
    'sendNetworkStatsForAllUids 1 [{"uid":"x"}]': "member [0].uid must be an int (-2147483648 to 2147483647), not",
    "sendNetworkInfo 1 {": "argument info (NetworkInfo): not well-formed JSON near $",
}
UNDRAWN = {"getFdforUID", "getSocketFd"}  # no Java method is called of them
RUNS = [  # command, environment, input, exit code, in the last lines of the output
    ("live/demo.py --build {0} --trace {1}.json --picture {1}.svg", {}, "", 0, ["15/15", "23/23", "22/22", "1 and 1"]),
    ("live/demo.py --build {}", {"ORVIX_PATIENCE": "0.0001"}, "", 1, ["FAILED: everything came: ", "not within 0.03"]),
    ("live/demo.py --build {}", {"JDK_JAVA_OPTIONS": "-Xnone"}, "", 1, ["exit code 1, with ", "Unrecognized option"]),
    ("live/app.py --trace {1}.json", {}, "sendScreenState true\n", 0, ["sendScreenState: OrvixService is not ready"]),
    ("app/run", {}, "\n".join(BAD), 2, BAD.values()),
    ("app/run", {}, "# a comment\n\nquit\nsendScreenState\n", 0, []),
    ("app/run --help", {}, "", 0, ["sendBlobToMirel tag:int blob:byte[]\n    sendBlobToMirel 5 hex:00ff\n"]),
    ("app/run --jsom", {}, "", 2, ["unknown option --jsom; usage: OrvixApp [--json]"]),
    ("app/run", {"ORVIX_BUILD": "/nowhere"}, "", 1, ["/nowhere holds no application; build it with: ./orvix build"]),
]


def trace_events(path):
    """The events of a file of trace events, and what breaks the rules by which a viewer reads it."""
    events = json.loads(Path(path).read_text())["traceEvents"]
    timed = [event for event in events if event["ph"] != "M"]
    wrong = ["times are not in order"] if timed != sorted(timed, key=lambda event: event["ts"]) else []
    ends, flows = collections.defaultdict(list), collections.defaultdict(str)
    for event in timed:
        open_spans = ends[event["pid"], event.get("tid")]
        while open_spans and open_spans[-1] <= event["ts"]:
            open_spans.pop()
        if event["ph"] == "X":
            end = round(event["ts"] + event["dur"], 3)
            if open_spans and end > open_spans[-1]:
                wrong.append(f"outlives what it is in: {event}")
            open_spans.append(end)
        elif event["ph"] in "stf":
            flows[event["id"]] += event["ph"]
            if not open_spans:
                wrong.append(f"is within no span: {event}")
        elif event["ph"] == "C" and event["args"]["events"] < 0:
            wrong.append(f"is below nothing: {event}")
    wrong += [f"flow {number} goes {way}" for number, way in flows.items() if not re.fullmatch("st*f", way)]
    return events, wrong


def run_faults(log, files):
    """What the trace and the picture of a demo lack of what its log says."""
    events, faults = trace_events(f"{files}.json")
    reports, = (int(line.split()[2]) for line in log if " requests typed; " in line)
    asked = {line.split()[3].split("(")[0] for line in log if line.startswith("service  | -> ")}
    flown = {event["name"] for event in events if event["ph"] == "f"}
    counted = {
        "reports": (sum(event["name"] == "JniHelper.sendFGNetworkInfo" for event in events), reports + 1),
        "queue's last": ([event["args"]["events"] for event in events if event["ph"] == "C"][-1], 0),
        "requests without a flow": (asked - flown, set()),
        "news": ([event["name"] for event in events if event["name"] == "SIGKILL" or "been told" in event["name"]],
                 [f"Java has been told: service {what}" if what else "SIGKILL" for what in ("up", "", "down", "up")]),
    }
    faults += [f"{name}: {got}, not {wanted}" for name, (got, wanted) in counted.items() if got != wanted]
    drawn = {text.strip() for text in xml.etree.ElementTree.parse(f"{files}.svg").getroot().itertext()}
    wanted = {"SIGKILL", "5. A death and a return", *asked} - UNDRAWN
    return faults + [f"{text} is not drawn" for text in wanted - drawn]


# What two peers of other versions make of the same lines: options; typed to the service, as it is at Java; and what the
# service sees of a battery.
PEERS = [
    (["--version", "6"], {'updateStats 1 2 3 4 5 6 7 "lo"': ("updateStats", [1, 2, 3, 4, 5, 6, 7, ""])}, {"int1": 87}),
    (["--version", "8", "--slow", "200"], {
        'updateStats 1 2 3 4 5 6 7 "lo"': ("updateStats", [1, 2, 3, 4, 5, 6, 7, "lo"]),
        "updateStats hex:0c0000000900000000000000": ("updateStats", [9, 0, 0, 0, 0, 0, 0, ""]),
        "updateStats hex:03000000": None,
        "transact 4 hex:0800000000000000": ("startUidStatsPolling", [8])}, {"int1": 87, "flag1": True, "added": 0}),
]


def service_faults(build):
    """Callbacks are numbered and their deaths told; other versions and raw bytes arrive as such; calls take time."""
    with Stage(build) as stage:
        app, number = stage.start_app(), 0
        for options, requests, battery in PEERS:
            service, number = stage.start_service(*options), 1
            stage.wait("the callback", lambda: stage.find(event="callback", number=number))
            begin, now = len(stage.lines), time.monotonic()
            for words in requests:
                service.say(words)
            app.say("sendBatteryStatus 87 true\nqueryStats")
            last = stage.wait("both calls", lambda: stage.find(begin, call="queryStats"))
            wanted = [call for call in requests.values() if call]
            stage.wait("the requests", lambda: len(stage.call_outs(begin)) >= len(wanted))
            slow = "--slow" not in options or last.when - now > 0.2
            got = stage.call_outs(begin), dict(stage.calls(begin))["sendBatteryStatus"][0], slow
            if got != (wanted, battery, True):
                return [f"{options}: {got}, not {(wanted, battery)}"]
            service.kill()
            stage.wait("false", lambda: stage.find(begin, java="onIServiceBinderAvailable", args=[False]))
            del stage.lines[:]
        service = stage.start_service()
        for number in (1, 2):
            stage.wait("the callback", lambda: stage.find(event="callback", number=number))
            service.say("getRadioStatus")
            stage.wait("its request", lambda: stage.find(request="getRadioStatus", callback=number))
            app.kill()
            stage.wait("its death", lambda: stage.find(event="died", number=number))
            app = stage.start_app()
    return []


def own_halves_faults(build):
    """The application and the service of the developers' pages, compiled and run by the pages' own commands."""
    with Stage(build) as stage, tempfile.TemporaryDirectory() as folder:
        for part in ("aidl", "platform", "sim"):
            os.symlink(SIM.parent / part, f"{folder}/{part}")
        os.mkdir(f"{folder}/build")
        os.symlink(stage.build, f"{folder}/build/run")

        def made(page):
            text = (SIM.parent / "docs" / page).read_text(encoding="utf-8").partition("## On this workstation")[2]
            name = re.search(r"As `(\S+)`", text)[1]
            code, compiling, running = re.search(r"```\w+\n(.*?)```\n\n    (.*?)\n    (.*?)\n", text, re.S).groups()
            Path(folder, name).write_text(code)
            done = subprocess.run(compiling, shell=True, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            if done.returncode:
                sys.exit(f"{page}: {compiling}: {done.stdout.decode()}")
            return ["bash", "-c", f"cd '{folder}' && {running}"]

        def exchanged(what, sent, half, words, got):
            stage.wait(f"{what} sends", sent)
            half.say(words)
            stage.wait(f"{what} gets", lambda: any(line.text == got for line in stage.lines))

        service = stage.start_service()
        app = stage.start_app(command=made("application-developer.md"))
        exchanged("MyApp", lambda: ("sendScreenState", [True]) in stage.calls() and stage.find(event="callback"),
                  service, "startUidStatsPolling 5000", "startUidStatsPolling[5000]")
        app.say("")
        code = app.wait_exit()[0]
        service.kill()
        service.wait_exit()
        stage.start_service(command=made("service-developer.md"))
        app = stage.start_app()
        exchanged("my_service", lambda: ("startUidStatsPolling", [5000]) in stage.call_outs(), app,
                  "sendScreenState true", "screen 1")
    return [f"MyApp: exit {code}"] if code else []


def early_ends(build):
    """Signals at random moments, a reader that goes away: the exit code, and that no process and no folder is left."""
    with tempfile.TemporaryDirectory() as folder:
        demos = []
        for end in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGTERM, signal.SIGPIPE):
            demos.append((end, random.uniform(0, 1), subprocess.Popen(
                [SIM / "live/demo.py", "--build", build], env=os.environ | {"TMPDIR": folder}, stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT)))
        for _, _, demo in demos:
            demo.stdout.readline()  # before it, the interpreter itself is at work
        begin = time.monotonic()
        for end, when, demo in sorted(demos, key=lambda each: each[1]):
            time.sleep(max(0, begin + when - time.monotonic()))
            if demo.poll() is None and end == signal.SIGPIPE:
                demo.stdout.close()
            else:
                demo.send_signal(end)  # nothing, if it has ended
        faults = []
        for end, when, demo in demos:
            said = "" if demo.stdout.closed else demo.stdout.read().decode()
            late, code = "expectations held" in said, demo.wait()
            # -end: it was done.
            if code not in (128 + end, -end, 0 if late else None) or (code != -end and "Traceback" in said):
                faults.append(f"{end} after {when:.2f} s: exit {demo.returncode}\n{said[-2000:]}")
        limit = time.monotonic() + LIMIT / 10
        while (left := os.listdir(folder) + [path.parent.name for path in Path("/proc").glob("[0-9]*/environ")
                                             if folder.encode() in readable(path)]) and time.monotonic() < limit:
            time.sleep(0.02)  # a shell's own children, while it starts, outlive it by a moment
    return faults + [f"left: {left}"] if left else faults


def readable(path):
    try:
        return path.read_bytes()
    except OSError:  # it has ended, or is another user's
        return b""


def main(build, pages=""):
    faults = early_ends(build) + service_faults(build) + (own_halves_faults(build) if pages else [])
    for command, environment, text, code, texts in RUNS:
        with tempfile.TemporaryDirectory() as folder:
            files = f"{folder}/run"
            words = [word.format(build, files) for word in command.split()]
            settings = {"ORVIX_BUILD": build, "TMPDIR": folder, "ORVIX_BINDER_DIR": folder} | environment
            done = subprocess.run([SIM / words[0], *words[1:]], input=text, text=True,
                                  env=os.environ | settings, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            wrong = run_faults(done.stdout.splitlines(), files) if "--picture" in command and not done.returncode else \
                trace_events(f"{files}.json")[1] if "--trace" in command else []
            output, left = "\n".join(done.stdout.splitlines()[-20:]), set(os.listdir(folder)) - {"run.json", "run.svg"}
        missing = [text for text in texts if text not in output]
        if done.returncode != code or missing or left or wrong:
            faults.append(f"{command} {environment}: exit {done.returncode}, lacks {missing}, leaves {left}, {wrong}\n"
                          + output)
    sys.exit("\n".join(faults) or None)


if __name__ == "__main__":
    main(*sys.argv[1:])
