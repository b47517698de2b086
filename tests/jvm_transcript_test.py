#!/usr/bin/env python3
"""The library on a real virtual machine does what its transcripts say.

The transcripts are those of the fake function table: of a section its lines about log, JNI and JavaVM are compared with
what the recorder wrote, its transactions with what the service received. What is to be typed comes out of the section.

usage: jvm_transcript_test.py BUILD
"""
import itertools
import json
import os
import re
import subprocess
import sys
from pathlib import Path

TESTS = Path(__file__).resolve().parent
sys.path.insert(0, str(TESTS.parent / "sim/live"))
from stage import Stage, Unmet  # noqa: E402

# What no Java program can do: hand over no JNIEnv, or bytes that no record's writer makes. And how often the dispatch
# thread wakes up is not determined.
UNPLAYABLE = re.compile("log E sendBlobToMirel: JNIEnv is NULL|.*new aidl event arrived")
UNPLAYABLE_SECTION = "a parcel at its end and one that is cut"
# Requests that have another name at the service than in Java.
SERVICE_NAMES = {"startNetworkMonitorForRatType": "startcollectingNetworkInfo",
                 "stopNetworkMonitorForRatType": "stopcollectingNetworkInfo", "sendBlobToApkJava": "sendBlobToApk"}
SOCKETS = {"family 2, type 2, protocol 2": ["7 10123 2 2 2"], "uid -1: sent untagged": ["8 -1 2 1 1"],
           "every other code is the default": ["0 0 0 0 0", "-1 1 1 1 1"], "refused by the kernel": ["9 10123 1 2 1"],
           "codes above 2 are the default, and any uid but -1 is tagged": ["-1 -2 3 3 3"]}


def sections(file):
    texts = re.split(r"^== (.*)\n", (TESTS / "transcripts" / file).read_text(encoding="utf-8"), flags=re.MULTILINE)[1:]
    return {title: text.split("\n") for title, text in zip(texts[::2], texts[1::2])}


def recorded(lines):
    return [line for line in lines if re.match("log |jni |vm |    ", line) and not UNPLAYABLE.fullmatch(line)]


def transactions(lines):
    found = (re.match(r"transact (\d+) 0x10000001 (.*)", line) for line in lines)
    return [(int(match[1]), json.loads(match[2])) for match in found if match]


def typed_natives(methods, lines):
    """What to type for a section's transactions, and for the list that is not sent for being empty."""
    text = re.sub(r"log D \w+ RatType (-?\d+)\njni.*\nlog D \w+ list size is 0", r"transact 3 0x10000001 [\1,[]]",
                  "\n".join(lines))
    for code, values in transactions(text.split("\n")):
        name = methods[code].replace("sendRadioTechStatus", "sendRadioStatus")
        if name in ("sendRadioStatus", "sendCensusInfo", "sendBatteryStatus"):
            values = list(values[0].values())[:3]  # a record is made of them, with defaults behind
        if name == "sendFGNetworkInfo":
            values = values[0], values[2], values[1]
        words = (value if isinstance(value, str) else json.dumps(value, ensure_ascii=False) for value in values)
        yield " ".join([name, *words])


def typed_request(lines):
    java, values = re.search(r'jni GetMethodID\(SorvixAidlClient, "(\w+)"(?:.*\n)*'
                             r"jni CallVoidMethod\(object, method(.*)\)", "\n".join(lines)).groups()
    # At the service's input as in the transcript, but for the commas.
    return SERVICE_NAMES.get(java, java) + re.sub(r', (?=[-\d]|hex:|true|false|")', " ", values)


def main(build):
    build, failures, begin = Path(build), [], 0
    listed = subprocess.run([build / "bin/orvix-parcel", "list"], check=True, capture_output=True, text=True).stdout
    methods = {int(code): name for name, code in re.findall(r"^IOrvixService\.(\w+) (\d+)", listed, re.M)}
    natives, availability = sections("natives.txt"), sections("availability.txt")
    natives = {title: lines for title, lines in natives.items() if not title.startswith(UNPLAYABLE_SECTION)}
    with Stage(build) as stage:
        def heard():
            """What the recorder wrote and what the service received, since the section began."""
            received = (json.dumps(args).replace("remote", "local") for _, args in stage.calls(begin))
            return (recorded(line.text for line in stage.lines[begin:] if line.source == "transcript"),
                    [re.sub(r"socket:\[\d+\]", "socket:[N]", args) for args in received])

        def play(title, lines, half=None, typed=()):
            """Waits until as much has come as the section has lines, and compares; what is too much fails the next."""
            nonlocal begin
            for words in typed:
                half.say(words)
            wanted = recorded(lines), [json.dumps(args) for _, args in transactions(lines)]
            try:
                stage.wait(title, lambda: all(len(got) >= len(due) for got, due in zip(heard(), wanted)))
            except Unmet:
                pass  # the comparison says more
            pairs = itertools.zip_longest(sum(wanted, []), sum(heard(), []))
            failures.extend([f"{title}: not {one}, but {other}" for one, other in pairs if one != other][:1])
            begin = len(stage.lines)

        transcript, write_end = os.pipe()
        stage.listen(transcript, "transcript")
        recorder = f"-agentpath:{build / 'lib/libjvm_recorder.so'}=/proc/self/fd/{write_end}"
        app = stage.start_app(options=recorder, pass_fds=[write_end])
        os.close(write_end)
        play("load", sections("load.txt")["good"])
        (alone, without), *others = natives.items()
        known = {words.split()[0]: words for _, lines in others for words in typed_natives(methods, lines)}
        play(alone, without, app, map(known.get, re.findall(r"log E (\w+): OrvixService is not", "\n".join(without))))

        service = stage.start_service()
        play("bound and up", availability["bound and up"])
        for title, lines in others:
            play(title, lines, app, typed_natives(methods, lines))
        for title, lines in sections("requests.txt").items():
            if title[0].isdigit():
                play(title, lines, service, [typed_request(lines)])
        for title, sockets in SOCKETS.items():
            play(title, sections("sockets.txt")[title], service, [f"getSocketFd {socket}" for socket in sockets])
        service.kill()
        stage.wait("down", lambda: heard()[0][-1:] == ["vm DetachCurrentThread"])
        service.wait_exit()
        stage.start_service()
        play("death and return", availability["down, bound again, up"])
        stage.run(0.2)
        play("after the last section", [])
    sys.exit("\n".join(failures) or None)


if __name__ == "__main__":
    main(*sys.argv[1:])
