"""Writes a timeline as a file in the trace event format, which Perfetto and chrome://tracing open: threads as tracks,
the way of each message as a flow, the length of the library's queue as a counter, news as instants."""

import json
import os

# What a thread does first of these says what it is called.
ROLES = (("dispatch", "dispatch: every call into Java"), ("binding", "binding"), ("death", "binder pool"),
         ("serve", "binder pool"), ("JniHelper", "Java"), ("transact", "main"))


def events(timeline):
    """The trace events; those with a time in order of it."""
    yield from names(timeline)
    timed = [{"ph": "X", "pid": span.pid, "tid": span.tid, "ts": span.begin, "dur": span.end - span.begin,
              "name": span.name, "cat": span.kind or "section"} for span in timeline.spans]
    for number, way in enumerate(timeline.ways):
        for step, span in enumerate(way.spans if len(way.spans) > 1 else ()):
            phase = "s" if step == 0 else "f" if step == len(way.spans) - 1 else "t"
            timed.append({"ph": phase, "pid": span.pid, "tid": span.tid, "ts": span.begin, "name": way.name,
                          "cat": "message", "id": number, "bp": "e"})
    timed += [{"ph": "C", "pid": pid, "ts": when, "name": "event queue", "args": {"events": length}}
              for when, pid, length in timeline.queue]
    timed += [{"ph": "i", "pid": pid, "ts": when, "name": text} | ({"tid": tid, "s": "t"} if tid else {"s": "p"})
              for when, pid, tid, text in timeline.instants]
    chapters = timeline.chapters + [(max((span.end for span in timeline.spans), default=0), "")]
    timed += [{"ph": "X", "pid": os.getpid(), "tid": os.getpid(), "ts": begin, "dur": end - begin, "name": text,
               "cat": "chapter"} for (begin, text), (end, _) in zip(chapters, chapters[1:])]
    # What begins earlier contains what begins later; a flow binds to a span that is there already.
    for event in sorted(timed, key=lambda event: event["ts"]):
        yield event | {name: round(event[name], 3) for name in ("ts", "dur") if name in event}


def names(timeline):
    def name(what, pid, tid=None, **arguments):
        return {"ph": "M", "name": what, "pid": pid, "args": arguments} | ({"tid": tid} if tid else {})

    for place, (pid, text) in enumerate([*timeline.processes.items(), (os.getpid(), "chapters")]):
        if pid == os.getpid() and not timeline.chapters:
            continue
        yield name("process_name", pid, name=text)
        yield name("process_sort_index", pid, sort_index=place)
    for (pid, tid), did in timeline.roles.items():
        text = next((text for role, text in ROLES if did[role]), "")
        yield name("thread_name", pid, tid, name=text)


def write(timeline, path):
    with open(path, "w", encoding="utf-8") as file:
        file.write('{"displayTimeUnit":"ms","traceEvents":[\n')
        separator = ""
        for event in events(timeline):
            file.write(separator + json.dumps(event, separators=(",", ":")))
            separator = ",\n"
        file.write("\n]}\n")
