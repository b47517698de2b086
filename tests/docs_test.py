#!/usr/bin/env python3
"""Each command that a page shows is run as it stands there, unless it needs a device, a platform's tree or an NDK.

usage: docs_test.py [--all]

What takes minutes is run only with --all. In the tests others run the same programs for a shorter time.
"""
import os
import re
import subprocess
import sys
import tempfile
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PAGES = [*ROOT.glob("*.md"), *ROOT.glob("docs/*.md"), *ROOT.glob("platform/*/*.md")]
COMMAND = re.compile(r"(\./orvix|adb|m|cmake|clang-format|ctest|grep|(device|fuzz|sim|tests)/[\w/]+\.py)( |$)")
ELSEWHERE = ("adb", "m", "cmake")
LONG = ("test", "bench", "soak", "fuzz", "device", "lint", "build")
HEX = "1400000001000000000000000200000000000000"
LOADED = """11-22 10:00:00.000  4242  4242 I orvixJni: JNI_OnLoad entry
11-22 10:00:00.001  4242  4242 D orvixJni: registerNativeMethods
11-22 10:00:00.002  4242  4242 D orvixJni: JNI_OnLoad exit
"""


def commands(page):
    fenced = False
    for line in page.read_text(encoding="utf-8").splitlines():
        fenced ^= line.startswith("```")
        shown = [line] if fenced or line.startswith("    ") else re.findall(r"`(\S+ [^`]+)`", line)
        yield from (text for text in (re.split(r"\s+#", text)[0].strip() for text in shown) if COMMAND.match(text))


def stage(folder):
    """What the commands find: the project, whose pages they may change, and a file that came from a device."""
    for path in ROOT.iterdir():
        if path.name not in (".git", "docs"):
            (folder / path.name).symlink_to(path)
    (folder / "docs").mkdir()
    with zipfile.ZipFile(folder / "bugreport.zip", "w") as report:
        report.writestr("bugreport-device.txt", LOADED)


def main(everything=""):
    faults, ran = [], 0
    for command in sorted({command for page in PAGES for command in commands(page)}):
        words = command.split()
        if words[0] in ELSEWHERE or (words[0] == "./orvix" and words[1] in LONG and not everything):
            continue
        with tempfile.TemporaryDirectory() as name:
            stage(folder := Path(name))
            environment = {"ORVIX_BINDER_DIR": name, "TMPDIR": name} | ({} if everything else {"ORVIX_PRESET": "dev"})
            done = subprocess.run(["bash", "-c", command.replace("HEX", HEX)], cwd=folder, env=os.environ | environment,
                                  text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        ran += 1
        print(f"{command}: {done.returncode}", flush=True)
        if done.returncode != 0:
            faults.append(f"{command}: exit {done.returncode}\n{done.stdout[-2000:]}")
    sys.exit("\n".join(faults) or (None if ran else "no command was found"))


if __name__ == "__main__":
    main(*sys.argv[1:])
