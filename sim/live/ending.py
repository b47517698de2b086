"""How a program that has started others ends early: on SIGINT, SIGTERM, SIGHUP or a closed pipe, at any moment, with
all that it does at an end in order, and the exit code 128 + the signal's number.

A signal counts only where the program waits or writes (`interruptible`), so that nothing is left half made. Elsewhere
it is remembered.
"""

import contextlib
import os
import signal
import sys

if signal.getsignal(signal.SIGINT) == signal.default_int_handler:
    signal.signal(signal.SIGINT, signal.SIG_DFL)  # until run() nothing needs an order
_signal = None
_interruptible = False


class Ended(BaseException):
    """A signal has asked for the end."""


def _on_signal(number, _):
    global _signal
    _signal = number
    if _interruptible:
        raise Ended


@contextlib.contextmanager
def interruptible():
    global _interruptible
    outer, _interruptible = _interruptible, True
    try:
        if _signal and not outer:
            raise Ended
        yield
    finally:
        _interruptible = outer


def run(main):
    """The exit code: main's, or that of an early end."""
    heard = [number for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
             if signal.getsignal(number) != signal.SIG_IGN]  # as nohup and shells' background jobs have it
    for number in heard:
        signal.signal(number, _on_signal)
    try:
        code = main()
        with interruptible():
            sys.stdout.flush()
        return code
    except Ended:
        number = _signal
    except BrokenPipeError:
        number = signal.SIGPIPE
    finally:
        for each in heard:  # from here on nothing is left to be done in order
            signal.signal(each, signal.SIG_DFL)
    # What is still buffered goes nowhere.
    os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
    return 128 + number
