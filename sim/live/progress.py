"""What a long run is at, how far it is and how long it will take still: a moving line on a terminal, else a plain line
now and then, on standard error."""

import sys
import time

from rich import progress
from rich.console import Console
from rich.table import Column

EVERY = 5  # seconds between plain lines


class Progress:
    """A context manager, for so many steps of whatever kind."""

    def __init__(self, name, total):
        self.name, self.total, self.done = name, total, 0
        self.begin = self.shown = time.monotonic()
        console = Console(stderr=True)
        self._bar = None
        if console.is_terminal and not console.is_dumb_terminal:
            doing = Column(no_wrap=True, overflow="ellipsis", ratio=1)
            self._bar = progress.Progress(
                progress.BarColumn(20), progress.TaskProgressColumn(), progress.TimeRemainingColumn(compact=True),
                progress.TextColumn("left  {task.description}", table_column=doing), expand=True, console=console,
                transient=True)
        self._task = self._bar and self._bar.add_task(name, total=total)

    def __enter__(self):
        if self._bar:
            self._bar.start()
        return self

    def __exit__(self, *_):
        if self._bar:
            self._bar.stop()

    def at(self, done, doing):
        """So many steps are done; this is what it does now."""
        self.done = min(done, self.total)
        now = time.monotonic()
        if self._bar:
            self._bar.update(self._task, completed=self.done, description=f"{self.name}: {doing}")
        elif now - self.shown > EVERY:
            self.shown = now
            taken = now - self.begin
            left = f", about {taken / self.done * (self.total - self.done):.0f} s left" if self.done else ""
            share = 100 * self.done / self.total
            print(f"{self.name}: {doing}; {share:.0f} % after {taken:.0f} s{left}", file=sys.stderr)
