#!/usr/bin/env python3
"""Holds a hardened libOrvixJni.so to what is promised of it, property by property.

usage: report.py LIBRARY

Prints one line a property. Exit 0 if all hold, 1 if one does not (marked NO), 2 for wrong usage or an unreadable file.
Needs llvm-readelf, llvm-nm and llvm-strip.
"""
import os
import re
import subprocess
import sys
import tempfile

PAGE = 16384
EXPORTS = {"JNI_OnLoad"}
TOOL_EXPORTS = {"__cfi_check"}  # the platform build's, for control-flow integrity across libraries
PLATFORM = {"libbinder_ndk.so", "liblog.so", "libandroid_net.so"}
RUNTIME = re.compile(r"(libc|libm|libdl|libc\+\+|libstdc\+\+|libgcc_s|ld-linux[\w-]*)\.so(\.\d+)?$")


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        print(f"report.py: {command[0]}: {done.stderr.strip()}", file=sys.stderr)
        sys.exit(2)
    return done.stdout


def stripped_size(library):
    with tempfile.TemporaryDirectory() as folder:
        target = os.path.join(folder, "stripped")
        run("llvm-strip", "-o", target, library)
        return os.path.getsize(target)


def properties(library):
    """Rows of (property, what was found, whether it is as promised; None for a mere fact)."""
    elf = run("llvm-readelf", "--wide", "--file-header", "--program-headers", "--dynamic", "--notes", library)
    exports = {line.split()[-1] for line in run("llvm-nm", "-D", "--defined-only", library).splitlines()}
    imports = run("llvm-nm", "-D", "--undefined-only", library)
    needed = re.findall(r"\(NEEDED\).*\[(.+?)\]", elf)
    flags = " ".join(re.findall(r"\(FLAGS(?:_1)?\)\s+(.+)", elf))
    relro = re.search(r"^\s+GNU_RELRO\s", elf, re.M) is not None
    stack = re.search(r"^\s+GNU_STACK(?:\s+0x[0-9a-f]+){5} ([RWE ]+?) +0x", elf, re.M)
    aligns = [int(align, 16) for align in re.findall(r"^\s+LOAD\s.*(0x[0-9a-f]+)$", elf, re.M)]
    machine = re.search(r"Machine:\s+(.+)", elf).group(1)
    foreign = [name for name in needed if name not in PLATFORM and not RUNTIME.match(name)]
    own = sorted(exports - TOOL_EXPORTS)
    tool = sorted(exports & TOOL_EXPORTS)

    yield "machine", machine, None
    yield "exports", ", ".join(own) + "".join(f", {name} (the build tool's)" for name in tool), set(own) == EXPORTS
    yield "RELRO", "yes" if relro else "none", relro
    yield "BIND_NOW", flags or "none", "NOW" in flags
    yield "stack", (stack.group(1).strip() if stack else "not said"), stack is not None and "E" not in stack.group(1)
    yield "stack protector", "yes" if "__stack_chk_fail" in imports else "none", "__stack_chk_fail" in imports
    yield ("LOAD alignment", ", ".join(map(str, sorted(set(aligns)))),
           bool(aligns) and all(align % PAGE == 0 for align in aligns))
    yield "needed", ", ".join(needed), PLATFORM <= set(needed) and not foreign
    if "AArch64" in machine:
        branches = re.search(r"aarch64 feature: (.+)", elf)
        found = branches.group(1) if branches else "none"
        yield "branch protection", found, "BTI" in found and "PAC" in found
    yield "stripped size", f"{stripped_size(library)} bytes", None


def main(argv):
    if len(argv) != 2:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    failed = False
    for name, found, good in properties(argv[1]):
        verdict = {None: "", True: "as promised", False: "NO"}[good]
        print(f"{name:18} {verdict:12} {found}")
        failed = failed or good is False
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
