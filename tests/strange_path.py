"""Runs a test from a copy of the tree in a path with blanks, and without a locale, as some newcomer has it.

usage: strange_path.py TEST BUILD [ARGUMENT...]
"""
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

TREE = Path(__file__).resolve().parent.parent


def main(test, build, *arguments):
    environment = {name: value for name, value in os.environ.items() if name != "LANG" and name[:3] != "LC_"}
    with tempfile.TemporaryDirectory(prefix="a path with ", dir=build) as folder:
        shutil.copytree(TREE, f"{folder}/tree", ignore=shutil.ignore_patterns("build", ".git"))
        for part in ("bin", "java", "lib"):
            shutil.copytree(f"{build}/{part}", f"{folder}/build/{part}", copy_function=os.link)
        os.link(f"{build}/liborvix_aidl.a", f"{folder}/build/liborvix_aidl.a")
        command = [sys.executable, f"{folder}/tree/tests/{test}", f"{folder}/build", *arguments]
        return subprocess.run(command, env=environment).returncode


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
