#!/usr/bin/env python3
"""The library on a real virtual machine does what its transcripts say.

The transcripts are those of the fake function table: of a section its lines about log, JNI and JavaVM are compared with
what the recorder wrote, its transactions with what the service received. What is to be typed stands in tests/scenes.

usage: jvm_transcript_test.py BUILD
"""
import itertools
import json
import os
import re
import shlex
import sys
from pathlib import Path

TESTS = Path(__file__).resolve().parent
sys.path.insert(0, str(TESTS.parent / "sim/live"))
from stage import Stage, Unmet  # noqa: E402

# What no Java program can do: hand over no JNIEnv. And how often the dispatch thread wakes up is not determined.
UNPLAYABLE = re.compile("log E sendBlobToMirel: JNIEnv is NULL|.*new aidl event arrived")


def sections(file):
    texts = re.split(r"^== (.*)\n", (TESTS / file).read_text(encoding="utf-8"), flags=re.MULTILINE)[1:]
    return {title: text.split("\n") for title, text in zip(texts[::2], texts[1::2])}


def recorded(lines):
    return [line for line in lines if re.match("log |jni |vm |    ", line) and not UNPLAYABLE.fullmatch(line)]


def transactions(lines):
    return [json.dumps(json.loads(args)) for args in re.findall(r"^transact \d+ 0x10000001 (.*)", "\n".join(lines), re.M)]


def word(value):
    text = "hex:" if value is None else value if isinstance(value, str) else json.dumps(value, ensure_ascii=False)
    return re.sub("^0x..$", "true", text)


def typed(calls, lines):
    """A scene's calls as they are typed, but for those of whose missing JNIEnv the lines tell."""
    for name, values in ((name, json.loads(values)) for name, values in re.findall(r"(\w+) (.+)", "\n".join(calls))):
        if None not in values or not any("JNIEnv is NULL" in line for line in lines):
            yield " ".join([name, *map(word, values)])


def main(build):
    build, failures, begin = Path(build), [], 0
    availability = sections("transcripts/availability.txt")
    with Stage(build) as stage:
        def heard():
            """What the recorder wrote and what the service received, since the section began."""
            received = (json.dumps(args).replace("remote", "local") for _, args in stage.calls(begin))
            return (recorded(line.text for line in stage.lines[begin:] if line.source == "transcript"),
                    [re.sub(r"socket:\[\d+\]", "socket:[N]", args) for args in received])

        def play(title, lines, half=None, calls=()):
            """Waits until as much has come as the section has lines, and compares; what is too much fails the next."""
            nonlocal begin
            for words in typed(calls, lines):
                half.say(words)
            wanted = recorded(lines), transactions(lines)
            try:
                stage.wait(title, lambda: all(len(got) >= len(due) for got, due in zip(heard(), wanted)))
            except Unmet:
                pass  # the comparison says more
            pairs = itertools.zip_longest(sum(wanted, []), sum(heard(), []))
            failures.extend([f"{title}: not {one}, but {other}" for one, other in pairs if one != other][:1])
            begin = len(stage.lines)

        def play_scenes(file, half, prepared=False):
            """Those without a preparation of their own; or the first one, behind its."""
            transcripts = sections(f"transcripts/{file}")
            for title, steps in sections(f"scenes/{file}").items():
                if prepared:
                    return play(title, transcripts[title], half, steps[steps.index("--"):])
                if "--" not in steps:
                    play(title, transcripts[title], half, steps)

        transcript, write_end = os.pipe()
        stage.listen(transcript, "transcript")
        recorder = f"-agentpath:{build / 'lib/libjvm_recorder.so'}={write_end}"
        app = stage.start_app(options=shlex.quote(recorder), pass_fds=[write_end])
        os.close(write_end)
        play("load", sections("transcripts/load.txt")["good"])
        play_scenes("natives.txt", app, prepared=True)  # unbound
        service = stage.start_service()
        play("bound and up", availability["bound and up"])
        play_scenes("natives.txt", app)
        play_scenes("requests.txt", service)
        play_scenes("sockets.txt", service)
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
