"""The simulated service as scripts and people use it: its words, its errors, its ends. What it carries is the demo's.

usage: service_tool_test.py BUILD COMMAND... (the service, behind an emulator where there is one)
"""
import os
import re
import signal
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "sim/live"))
from stage import Stage  # noqa: E402

WRONG = [  # what is typed, and the line that answers; the values themselves are read as the parcel inspector reads them
    ("gtRadio", "no request gtRadio; nearest: getRadioStatus; help lists all"),
    ("startUidStatsPolling 5 6", "startUidStatsPolling: one word too many: 6; an example: startUidStatsPolling 5000"),
    ("getSocketFd 7 10123 2", ".*: argument 1.socketType: is missing; must be int, for example 5;.*"),
    ('getSocketFd {"socketId":7', "not well-formed JSON at byte 14: .*"),
    ('updateStats "open"5', 'a blank is missing after "open"'),
    ("sendBlobToApk 5 \udcff", "not UTF-8"),
]


def started(stage, command, *options):
    service = stage.start_service(*options, command=command)
    begin = len(stage.lines)
    stage.wait("the service is registered", lambda: len(stage.lines) > begin)
    return service


def answer(stage, service, typed):
    begin = len(stage.lines)
    service.say(typed)
    stage.wait(f"an answer to {typed}", lambda: len(stage.lines) > begin)
    return stage.lines[begin].text.removeprefix("orvix-service: ")


def main(build, *command):
    failures = []

    def expect(what, got, wanted):
        if not re.fullmatch(wanted, str(got)):
            failures.append(f"{what}: {got!r} where {wanted!r} was expected")

    with Stage(build) as stage:
        service = started(stage, command, "--json")
        expect("ready", stage.lines[-1].text, re.escape('{"event":"ready"}'))
        for typed, wanted in WRONG:
            expect(typed, answer(stage, service, typed), wanted)

        # What help shows can be typed: it is understood, and lacks only somebody to go to.
        begin = len(stage.lines)
        service.say("help")
        answer(stage, service, "nothing")
        stage.wait("the end of help", lambda: any("no request nothing" in line.text for line in stage.lines[begin:]))
        shown = [match[1] for line in stage.lines[begin:] if (match := re.fullmatch(r"  (.*)   \(.*\)", line.text))]
        expect("requests in help", len(shown), "23")
        for example in shown:
            expect(example, answer(stage, service, example), example.split()[0] + ": no callback is registered yet")

        second = stage.start_service(command=command)
        expect("a second one's exit code", second.wait_exit()[0], "1")
        expect("a second one", stage.lines[-1].text, ".*: cannot register .*: another process that lives serves it")
        service.say("quit")
        expect("exit code after quit", service.wait_exit()[0], "0")

        for number in (signal.SIGTERM, signal.SIGINT):
            service = started(stage, command)
            service.process.stdin.close()  # which does not end it
            stage.run(0.1)
            expect("after the end of input", service.process.poll(), "None")
            service.process.send_signal(number)
            expect(f"exit code after {number.name}", service.wait_exit()[0], "0")
        expect("exit code of a wrong option", stage.start_service("--jsn", command=command).wait_exit()[0], "2")
        os.chmod(stage.folder, 0o755)
        expect("exit code in an open folder", stage.start_service(command=command).wait_exit()[0], "1")
    for failure in failures:
        print(failure)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
