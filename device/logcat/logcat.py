#!/usr/bin/python3
"""Tells from a log of adb logcat what happened to the library: the story of each process that loaded it, then what is
wrong, with the lines that show it and what to do.

FILE is what adb logcat printed, in any format that names the tag, or a bugreport, also zipped. Without one, or with -,
standard input is read and the story told while it goes on: adb logcat | ./orvix logcat

Exit 0 when nothing is wrong, 1 when something is, 2 when there is no such log or it has nothing of the library.
"""

import argparse
import collections
import datetime
import io
import json
import os
import re
import signal
import sys
import zipfile

from lines import Reader
from story import Log, counted, length, seconds
from system import System

SHOWN = 3  # lines that a finding shows
FIRST, LAST = 20, 10  # events of the story that are shown of a file


def plain(text):
    """Without the marks of the documentation's tables."""
    return re.sub(r"`|\[([^]]*)\]\([^)]*\)", lambda match: f"docs/{match[1]}" if match[1] else "", text)


def at(record):
    if record.time is None:
        return f"line {record.number}"
    return f"{datetime.datetime.fromtimestamp(record.time, datetime.timezone.utc):%H:%M:%S.%f}"[:-3]


def title(process):
    return f"process {process.pid}" + (f", {process.name}" if process.name else "")


def open_log(path):
    if not zipfile.is_zipfile(path):
        return open(path, encoding="utf-8", errors="replace")
    archive = zipfile.ZipFile(path)
    reports = [file for file in archive.infolist() if re.fullmatch(r"(bugreport|dumpstate)[^/]*\.txt", file.filename)]
    if not reports:
        raise OSError("an archive without a bugreport")
    return io.TextIOWrapper(archive.open(max(reports, key=lambda file: file.file_size)), "utf-8", "replace")


class Story:
    """Prints the events: all at once, or of a file the first and the last of them."""

    def __init__(self, whole):
        self.whole = whole
        self.number = 0
        self.last = collections.deque(maxlen=LAST)

    def tell(self, pid, record, text):
        self.number += 1
        line = f"{at(record)}  {pid}  {plain(text)}"
        if self.whole or self.number <= FIRST:
            print(line, flush=self.whole)
        else:
            self.last.append(line)

    def close(self):
        if hidden := self.number - FIRST - len(self.last) if self.last else 0:
            print(f"  … {hidden:,} more events; --all shows them")
        print(*self.last, sep="\n", end="\n" if self.last else "")


def rows(process, end):
    """What is known of a process, in pairs of a heading and a text. end: the time of the log's end."""
    if process.loaded:
        yield "loaded", at(process.loaded) + (f", {len(process.loads)} times" if len(process.loads) > 1 else "")
    if process.bound_after is not None:
        told = f"; Java knew it {length(process.told_after)} after the load" if process.told_after is not None else ""
        yield "bound", f"{length(process.bound_after)} after the load{told}"
    if process.deaths:
        known = [absence for absence in process.absences if absence.seconds is not None]
        yield "deaths", f"{process.deaths:,}"
        if known:
            longest = max(known, key=lambda absence: absence.seconds)
            total = sum(absence.seconds for absence in known)
            lost = f", in which were lost: {counted(longest.lost)}" if longest.lost else ""
            yield "outages", (f"{len(known):,} whose end is seen, {length(total)} together; the longest "
                              f"{length(longest.seconds)} from {at(longest.record)}{lost}")
        if process.absence and process.absence.ended is False and not process.ended:
            yield "", f"not back at the end of the log, since {at(process.absence.record)}"
    if process.lost:
        yield "calls lost", f"{sum(process.lost.values()):,}: {counted(process.lost)}"
    if process.requests:
        yield "requests", f"{sum(process.requests.values()):,}: {counted(process.requests)}"
    if process.undelivered:
        yield "", f"did not reach Java: {counted(process.undelivered)}"
    if process.held:
        slowest = sorted(process.held.items(), key=lambda item: -item[1].longest)[:3]
        yield "call-outs", "the dispatch thread was held longest by " + ", ".join(
            f"{name}, {length(held.longest)} (line {held.record.number:,})" for name, held in slowest) + (
            f"; of {sum(held.number for held in process.held.values()):,} whose end is seen")
    for name, record in process.last_event():
        if not process.ended:
            before = f", {length(seconds(record, end))} before the end of the log," if record.time is not None else ""
            yield "at the end", f"{name} of {at(record)}{before} is not seen to end: the next event would show that"
    if process.sockets:
        words = {"socket": "made", "tagged": "tagged", "no socket": "not made", "no tag": "not tagged"}
        yield "sockets", ", ".join(f"{process.sockets[kind]:,} {word}" for kind, word in words.items()
                                   if process.sockets[kind])
    if process.ended:
        yield "ended", at(process.ended)


def print_findings(findings, process):
    for number, found in enumerate(findings, 1):
        where = f" ({title(found.process)})" if found.process and process is None else ""
        times = f" ({found.count:,} times)" if found.count > 1 else ""
        print(f"\n{number}. {plain(found.what)}{times}{where}")
        for record in found.records[:SHOWN]:
            print(f"     line {record.number:,}: {record.text}")
        if found.count > SHOWN:
            print(f"     and {found.count - SHOWN:,} more")
        print(f"   do: {plain(found.do)}")


def print_report(log, findings):
    only = log.processes[0] if len(log.processes) == 1 else None
    for process in log.processes:
        print(f"\n{title(process)}" + (f", uid {process.uid}" if process.uid else ""))
        for heading, text in rows(process, log.latest):
            print(f"  {heading:<11} {text}")
    for heading, wrong in (("what is wrong", True), ("what this log does not tell", False)):
        if chosen := [found for found in findings if found.wrong == wrong]:
            print(f"\n{heading}:")
            print_findings(chosen, only)
    if not any(found.wrong for found in findings):
        print("\nnothing is wrong" + (" in what it tells" if findings else ""))


def as_json(log, findings):
    def process(one):
        return {
            "pid": one.pid, "name": one.name, "uid": one.uid, "loads": len(one.loads), "load_failed": one.failed,
            "bound_after": one.bound_after, "told_after": one.told_after, "deaths": one.deaths,
            "outages": [{"line": absence.record.number, "seconds": absence.seconds, "over": absence.ended,
                         "lost": absence.lost} for absence in one.absences],
            "told": {"up": one.told[True], "down": one.told[False]}, "lost": one.lost, "requests": one.requests,
            "undelivered": one.undelivered, "sockets": one.sockets,
            "not_seen_to_end": [name for name, _ in one.last_event()],
            "held": {name: {"longest": held.longest, "line": held.record.number, "seen_to_end": held.number}
                     for name, held in one.held.items()},
            "ended": bool(one.ended),
        }

    return {"records": log.records, "processes": [process(one) for one in log.processes],
            "findings": [{"kind": found.kind, "wrong": found.wrong, "pid": found.process and found.process.pid,
                          "what": plain(found.what), "do": plain(found.do), "count": found.count,
                          "lines": [{"number": record.number, "text": record.text} for record in found.records]}
                         for found in findings]}


def run(source, story, json_wanted):
    log = Log((lambda *_: None) if json_wanted else story.tell)
    system, reader = System(log), Reader()
    try:
        for line in source:
            if (record := reader.line(line)) and not log.take(record):
                system.take(record)
    except KeyboardInterrupt:  # as one ends adb logcat
        pass
    findings = log.close()
    if not log.processes and not findings:
        print("logcat: nothing of the library is in this log" if log.records else
              "logcat: this is no log of adb logcat, in a format that names tag and process, such as threadtime",
              file=sys.stderr)
        return 2
    if json_wanted:
        print(json.dumps(as_json(log, findings), ensure_ascii=False, indent=1))
    else:
        story.close()
        print_report(log, findings)
    return 1 if any(found.wrong for found in findings) else 0


def main():
    parser = argparse.ArgumentParser(prog="./orvix logcat", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("file", nargs="?", default="-", metavar="FILE")
    parser.add_argument("--all", action="store_true", help="of a file, too, every event of the story")
    parser.add_argument("--json", action="store_true", help="one document at the end")
    arguments = parser.parse_args()
    live = arguments.file == "-"
    signal.signal(signal.SIGINT, signal.default_int_handler)  # also where a script's "&" has had it ignored
    sys.stdout.reconfigure(errors="replace")
    sys.stdin.reconfigure(encoding="utf-8", errors="replace")
    try:
        with sys.stdin if live else open_log(arguments.file) as source:
            code = run(source, Story(live or arguments.all), arguments.json)
            sys.stdout.flush()
            return code
    except BrokenPipeError:  # who reads has seen enough
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return 0
    except (OSError, zipfile.BadZipFile) as error:
        print(f"logcat: {arguments.file}: {error.strerror or error}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main())
