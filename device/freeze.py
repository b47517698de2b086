#!/usr/bin/env python3
"""Writes the frozen copy of the interface, aidl_api/, from its .aidl sources, as the platform's build expects it.

usage: freeze.py           writes the copy
       freeze.py --check   says what would change, and exits 1 if anything would

A frozen version is never changed once a device has shipped with it: that is a new version.
"""
import hashlib
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
NAME = "vendor.nuvel.data.orvixservice"
VERSION = 7
# What library, callback and every service built so far answer to getInterfaceHash.
OWN_HASH = "7c3e91a0f25d48b6a0e4c1d9358b2f7e64a0d13c"


def stripped(text):
    """Without comments and blank lines at the ends, so that better comments are no new interface."""
    text = re.sub(r"/\*.*?\*/|//[^\n]*", "", text, flags=re.S)
    lines = [line.rstrip() for line in text.splitlines()]
    return "\n".join(line for line in lines if line) + "\n"


def soong_hash(files):
    """The sum that Soong takes over the .aidl files of a frozen version, stamped with the version before.

    files: {path below the version's folder: text}.
    """
    listing = "".join(f"{hashlib.sha1(files[path].encode()).hexdigest()}  ./{path}\n" for path in sorted(files))
    return hashlib.sha1(f"{listing}{VERSION - 1}\n".encode()).hexdigest()


def frozen(sources):
    """{path below aidl_api/: text}, for {path: text} of the sources."""
    bare = {path: stripped(text) for path, text in sources.items()}
    files = {f"{NAME}/{folder}/{path}": text for folder in (VERSION, "current") for path, text in bare.items()}
    # Soong compares the last line with its sum and hands it to the generated code. The other stands before it, so that
    # the interface's metadata, which keeps every line, know both.
    files[f"{NAME}/{VERSION}/.hash"] = f"{OWN_HASH}\n{soong_hash(bare)}\n"
    return files


def read(folder, pattern):
    return {path.relative_to(folder).as_posix(): path.read_text(encoding="utf-8") for path in folder.rglob(pattern)}


def differences(sources, present):
    """One line for each file of the frozen copy that is missing, unknown or different."""
    wanted = frozen(sources)
    return ([f"aidl_api/{path} is missing" for path in sorted(wanted.keys() - present.keys())] +
            [f"aidl_api/{path} has no source" for path in sorted(present.keys() - wanted.keys())] +
            [f"aidl_api/{path} differs from its source" for path in sorted(wanted.keys() & present.keys())
             if wanted[path] != present[path]])


def main(argv):
    if argv[1:] not in ([], ["--check"]):
        print(__doc__.strip(), file=sys.stderr)
        return 2
    sources = read(ROOT / "aidl", "*.aidl")
    api = ROOT / "aidl_api"
    found = differences(sources, {**read(api, "*.aidl"), **read(api, ".hash")})
    if argv[1:]:
        print("\n".join(found) or "aidl_api is what the sources say")
        return 1 if found else 0
    for path, text in frozen(sources).items():
        (api / path).parent.mkdir(parents=True, exist_ok=True)
        (api / path).write_text(text, encoding="utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
