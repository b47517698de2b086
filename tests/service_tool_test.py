"""The simulated service as scripts and people use it: its words, its errors, its ends. What it carries is the demo's and
the live test's.

usage: service_tool_test.py BUILD COMMAND... (the service, behind an emulator where there is one)
"""
import os
import signal
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "sim/live"))
from stage import Stage  # noqa: E402

WRONG = {  # and how the line that answers begins; the values themselves are read as the parcel inspector reads them
    "gtRadio": "no request gtRadio; nearest: getRadioStatus; help lists all",
    "startUidStatsPolling 5 6": "startUidStatsPolling: one word too many: 6; an example: startUidStatsPolling 5000",
    "getFdforUID": "getFdforUID: argument 1: is missing; must be int, for example 5; an example: getFdforUID 5",
    'getSocketFd {"socketId":7': "not well-formed JSON at byte 14: ",
    'updateStats "open"5': 'a blank is missing after "open"',
    "updateStats hex:0c0": "updateStats: an odd number of hex digits: 3; an example: updateStats 5000",
    "sendBlobToApk 5 \udcff": "not UTF-8",
    "sleep -1": "sleep: a time must not be negative",
    "waitForCallback 1": "waitForCallback: none within 1 ms",
}


def expect(what, got, wanted):
    if got != wanted:
        sys.exit(f"{what}: {got!r} where {wanted!r} was expected")


def main(build, *command):
    with Stage(build) as stage:
        def started(*options):
            begin = len(stage.lines)
            service = stage.start_service(*options, command=command)
            stage.wait("the service is registered", lambda: len(stage.lines) > begin)
            return service

        def answers(service, count, *typed):
            begin = len(stage.lines)
            service.say("\n".join(typed))
            stage.wait("all answers", lambda: len(stage.lines) == begin + count)
            return [line.text for line in stage.lines[begin:]]

        service = started("--json")
        name = "vendor.nuvel.data.orvixservice.IOrvixService/default"
        expect("ready", stage.lines[-1].value, {"event": "ready", "name": name, "folder": stage.folder, "version": 7})
        # What help shows can be typed: it is understood, and lacks only somebody to go to.
        shown = [line.strip().partition("   ")[0] for line in answers(service, 30, "help") if line.endswith(")")]
        expect("verbs in help", len(shown), 23 + 5)
        typed = WRONG | {example: example.split()[0] + ": no callback is registered yet" for example in shown[:24]}
        for got, (words, answer) in zip(answers(service, len(typed), "# none", *typed, "#"), typed.items()):
            expect(words, got.removeprefix("orvix-service: ")[:len(answer)], answer)

        second = stage.start_service(command=command).wait_exit()[0], stage.lines[-1].text.partition("default in ")[2]
        expect("a second one", second, (1, f"{stage.folder}: another process that lives serves it"))
        service.say("quit")
        expect("exit code after wrong lines", service.wait_exit()[0], 2)
        for words, code in (("nonsense", 2), ("sleep 1\nquit\nnonsense", 0), ("", 0)):
            service = started()
            service.say(words)
            service.end_of_input()
            expect(f"exit code after {words!r}", service.wait_exit()[0], code)
        for number in (signal.SIGTERM, signal.SIGINT):
            service = started("--serve")
            service.process.stdin.close()  # which does not end it
            stage.run(0.1)
            expect("after the end of input", service.process.poll(), None)
            service.process.send_signal(number)
            expect(f"exit code after {number.name}", service.wait_exit()[0], 0)
        expect("exit code of a wrong option", stage.start_service("--jsn", command=command).wait_exit()[0], 2)
        os.chmod(stage.folder, 0o755)
        expect("exit code in an open folder", stage.start_service(command=command).wait_exit()[0], 1)


if __name__ == "__main__":
    main(*sys.argv[1:])
