"""How the demo is shown: to a person as three lanes with a line for each message, slowed down so that it can be
followed; to a file or a pipe as a log with every line. Slowed is what is shown, never the run."""

import json
import sys
import time

from rich.console import Console
from rich.table import Table
from rich.text import Text

from ending import interruptible
from timeline import INTERFACES, JAVA_METHODS

SOURCES = {"java": "green", "library": "cyan", "platform": "bright_black", "service": "yellow", "demo": "bold"}
PAUSE, CHAPTER_PAUSE = 0.14, 1.4  # seconds after a line and before a chapter's first


def describe(name, args, parameters=()):
    """As a call: values by their parameters' names, records by their members'."""
    def text(value):
        if isinstance(value, dict):
            return "{" + ", ".join(f"{member}: {text(each)}" for member, each in value.items()) + "}"
        if isinstance(value, list):
            return "[" + ", ".join(map(text, value)) + "]"
        return json.dumps(value, ensure_ascii=False)

    values = [text(value) for value in args]
    if len(parameters) == len(args):
        values = [f"{parameter}: {value}" for parameter, value in zip(parameters, values)]
    return f"{name}({', '.join(values)})"


class Log:
    """Every line, with its source in front."""

    def __init__(self):
        self.quiet = lambda line: False
        self.hidden = 0

    def line(self, source, text):
        with interruptible():
            print(f"{source:<8} |", text, flush=True)

    def say(self, text):
        self.line("demo", text)

    def chapter(self, title, sentence):
        self.say("")
        self.say(f"== {title}")
        self.say(f"   {sentence}")

    def typed(self, source, name, words, shows=True):
        self.line(source, f"-> {name}({', '.join(words)})")

    def event(self, source, text, alive=True):
        """Something that the demo does to one side, or sees of it."""
        self.say(f"the {'application' if source == 'java' else source} {text}")

    def held(self, name):
        self.say(f"held: {name}")

    def failed(self, text):
        self.say(f"FAILED: {text}")

    def show(self, line):
        if self.quiet(line):
            self.hidden += 1
            return
        value = line.value
        for kind, arrow in (("java", "<-"), ("native", "->"), ("call", "<-")):
            if kind in value and "args" in value:
                arguments = ", ".join(json.dumps(a, ensure_ascii=False, separators=(",", ":")) for a in value["args"])
                self.line(line.source, f"{arrow} {value[kind]}({arguments})")
                return
        if "request" in value and "event" not in value:
            return  # the demo has shown what it typed
        if text := note(value):
            self.line(line.source, f".. {text}")
        else:
            self.line(line.source, line.text)

    def table(self, rows):
        for name, value in rows:
            self.say(f"  {name:<32}{value:>12}")
        self.say("")

    def result(self, text):
        self.say(text)


def note(value):
    """What a line that is no call says."""
    if "event" in value:
        return " ".join(str(value[name]) for name in ("event", "number", "request", "status") if name in value)
    if "socket" in value:
        got = value["socket"]
        return (f"socket {got['id']}: {got['family']} {got['type']} {got['protocol']}, "
                f"{'used' if got['usable'] else 'NOT usable'} on loopback")
    if "absent" in value:
        return f"this machine has no {value['absent']}: {value['native']} is left to the demo"
    return None


class Lanes:
    """A lane each for application, library and service, and a line for each message between them."""

    def __init__(self, verbose=False, fast=False):
        self.console = Console(highlight=False, soft_wrap=True)
        self.verbose = verbose
        self.pace = 0 if fast else 1
        self.hidden = 0
        self.alive = set()  # of "java" and "service"
        self._header = ""  # what is due before the next row
        self.held_count = 0
        self.counted = {}  # of what is not shown one by one: (source, name): [how many, first value, last value]
        self._quiet = None
        plain = self.console.encoding.lower().replace("-", "") != "utf8"
        self.marks = dict(zip("│─●▶◀┼✖…✓", "|-*><+x~+")) if plain else {}

    # What is shown.

    def chapter(self, title, sentence):
        self._judge()
        self._print("")
        rule = "─" * max(0, self._width() - len(title) - 1)
        self._print(Text.assemble((f"{title} ", "bold"), (rule, "bright_black")))
        with interruptible():
            self.console.print(Text(sentence), soft_wrap=False, width=self._width())
        left, middle, right = self._columns()
        header = Text("application".ljust(middle - 3) + "library".ljust(right - middle - 3) + "service")
        header.stylize(SOURCES["java"], 0, 11)
        header.stylize(SOURCES["library"], middle - 3, middle + 4)
        header.stylize(SOURCES["service"], right - 6)
        self._header = header
        self._sleep(CHAPTER_PAUSE)

    def say(self, text):
        if text:
            self._row({}, self._columns()[0] + 2, Text(text, "bright_black"))

    def typed(self, source, name, words, shows=True):
        """Most is shown when it has arrived; here what does not show at the other end."""
        if not shows:
            self._arrow(2, 1, (name, [json.loads(word) for word in words], INTERFACES["IRequest"][name]), "yellow")

    def event(self, source, text, alive=True):
        self._flush()
        self.alive = self.alive | {source} if alive else self.alive - {source}
        mark, colour = ("●", SOURCES[source]) if alive else ("✖", "bold red")
        self._note(2 if source == "service" else 0, text, colour, mark)

    def held(self, _):
        self.held_count += 1

    def failed(self, text):
        self._print(Text(f"FAILED: {text}", "bold red"))

    def show(self, line):
        if self._quiet and self._quiet(line):
            self._count(line)
            return
        self._flush()
        value = line.value
        if "java" in value:
            name = value["java"]
            from_service = name != "onIServiceBinderAvailable"
            self.alive.add("java")
            self._arrow(2 if from_service else 1, 0, (name, value["args"], JAVA_METHODS.get(name, ())),
                        "yellow" if from_service else "cyan")
        elif "call" in value:
            name = value["call"]
            from_java = name not in ("registerRequest", "sendSocketFd")
            self._arrow(0 if from_java else 1, 2, (name, value["args"], INTERFACES["IOrvixService"].get(name, ())),
                        "green" if from_java else "cyan")
        elif value.get("event") == "ready":
            self.event("service", "is registered")
        elif "socket" in value or "event" in value:
            self._note(2, note(value), "yellow")
        elif "absent" in value:
            self._note(0, f"this machine has no {value['absent']}", "green")
        elif not value and (self.verbose or line.source not in ("library", "platform")):
            self._note(1, line.text, "bright_black" if line.source in SOURCES else "", pause=0.1)

    @property
    def quiet(self):
        return self._quiet

    @quiet.setter
    def quiet(self, which):
        self._flush()
        self._quiet = which

    def table(self, rows):
        self._judge()
        table = Table(show_header=False, box=None, padding=(0, 3, 0, 1))
        table.add_column()
        table.add_column(justify="right")
        for row in rows:
            table.add_row(*row)
        with interruptible():
            self.console.print(table)
            self.console.print()

    def result(self, text):
        self._print(Text(text, "bold green"))

    # How.

    def _width(self):
        return max(60, min(self.console.width, 140))

    def _columns(self):
        right = self._width() - 2
        return 1, right // 2, right

    def _print(self, text, pause=0):
        text = text.copy() if isinstance(text, Text) else Text(text)
        if self.marks:
            styled = text.copy()
            text = Text("".join(self.marks.get(letter, letter) for letter in text.plain), spans=styled.spans)
        with interruptible():
            self.console.print(text)
            self.console.file.flush()
        self._sleep(pause)

    def _sleep(self, seconds):
        with interruptible():
            time.sleep(seconds * self.pace)

    def _row(self, cells, at, text, pause=0.0):
        """The lanes, with these letters over them and this text at its place."""
        header, self._header = self._header, ""
        if header:
            self._print(header)
        letters = {column: ("│", "bright_black") for column in self._columns()}
        for source, column in (("java", self._columns()[0]), ("service", self._columns()[2])):
            if source not in self.alive:
                letters[column] = (" ", "")
        letters |= cells
        row = Text()
        for column in range(self._width()):
            if column == at:
                row.append_text(text)
            elif not at < column < at + len(text):
                row.append(*letters.get(column, (" ", "")))
        row.rstrip()
        self._print(row, pause)

    def _arrow(self, origin, goal, text, colour, lost=False):
        columns = self._columns()
        start, end = columns[origin], columns[goal]
        step = 1 if start < end else -1
        cells = {column: ("─", colour) for column in range(start, end, step)}
        cells |= {column: ("┼", colour) for column in columns if column in cells}
        cells |= {start: ("●", colour), end: ("✖", "bold red") if lost else ("▶" if step > 0 else "◀", colour)}
        room = abs(end - start) - 5
        if isinstance(text, tuple):  # a call; without its parameters' names if they are all that is too much
            text, shorter = describe(*text), describe(*text[:2])
            text = shorter if len(shorter) <= room < len(text) else text
        text = text if len(text) <= room else text[:room - 1] + "…"
        name, bracket, values = text.partition("(")
        written = Text.assemble((f" {name}", "bold"), f"{bracket}{values} ")
        self._row(cells, start + 2 if step > 0 else start - 1 - len(written), written, PAUSE)

    def _note(self, lane, text, colour, mark="●", pause=PAUSE):
        columns = self._columns()
        room = columns[2] - columns[lane] - 3 if lane < 2 else columns[2] - 4
        text = text if len(text) <= room else text[:room - 1] + "…"
        at = columns[lane] + 2 if lane < 2 else columns[lane] - 1 - len(text)
        self._row({columns[lane]: (mark, colour)}, at, Text(text, colour), pause)

    def _judge(self):
        if self.held_count:
            self._print(Text(f"✓ {self.held_count} expectations held", "green"))
        self.held_count = 0

    def _count(self, line):
        self.hidden += 1
        value = line.value
        kind = next((kind for kind in ("call", "java") if kind in value), "lost" if "not ready" in line.text else None)
        if kind:
            key = kind, value.get(kind) or line.text.split()[1].rstrip(":")
            self.counted[key] = self.counted.get(key, 0) + 1

    def _flush(self):
        counted, self.counted = self.counted, {}
        for (kind, name), count in counted.items():
            text = f"{count} × {name}"
            if kind == "lost":
                self._arrow(0, 1, f"{text}: not ready", "red", lost=True)
            else:
                self._arrow(*((0, 2) if kind == "call" else (2, 0)), text, "green" if kind == "call" else "yellow")


def choose(verbose, fast):
    return Lanes(verbose, fast) if sys.stdout.isatty() else Log()
