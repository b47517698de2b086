#!/usr/bin/env python3
"""Shows what a hardened, unstripped libOrvixJni.so has of what a device needs, property by property.

usage: report.py LIBRARY

Prints one line a property. Exit 0 if all hold, 1 if one does not (marked NO), 2 for wrong usage or an unreadable file.
Needs llvm-readelf, llvm-nm, llvm-objdump and llvm-strip.
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
ATOMIC = re.compile(r"\t(?:ld|st)l?a?xr|\t(?:cas|swp|ldadd|ldclr|ldset|ldeor)")
CFI_CHECK, OVERFLOW_CHECKS = 2, (0, 12, 13, 21)  # clang's numbers: add, multiply, negate, subtract
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


def aarch64_properties(library, elf):
    text = run("llvm-objdump", "--disassemble", "--no-show-raw-insn", "--no-leading-addr", "--mattr=+v8.5a", library)
    code = dict(re.findall(r"^<(.+)>:\n((?:.+\n)+)", text, re.M))
    own = [body for name, body in code.items() if "orvix" in name or name == "JNI_OnLoad"]
    signed = sum("paciasp" in body for body in own)
    bare = sum("paciasp" not in body and re.search(r"\tst[pr]\t.*\bx30\b", body) is not None for body in own)
    yield "branch protection", f"{signed} functions sign where they return to, {bare} do not", signed > 0 and bare == 0
    # The linker drops it if any object lacks it, be it one of the toolchain's own.
    note = re.search(r"aarch64 feature: (.+)", elf)
    yield "its note", note.group(1) if note else "none: something that the toolchain links in has none", None
    # A trap carries the number of the check before it, in code that clang made with traps as its answer.
    traps = [int(number, 16) for number in re.findall(r"\tbrk\t#0x55([0-9a-f]{2})\b", text)]
    checks = traps.count(CFI_CHECK) + len(re.findall(r"\tbl?\t.*<__cfi_slowpath", text))
    yield "control-flow checks", str(checks), checks > 0
    overflow = sum(map(traps.count, OVERFLOW_CHECKS)) + len(re.findall(r"\tbl\t.*<__ubsan_handle_", text))
    yield "overflow checks", str(overflow) if overflow else "none: the compiler left none, or was asked for none", None
    # Which of its two ways a helper takes, the processor decides at load.
    helpers = sorted(name for name in code if name.startswith("__aarch64_"))
    inline = [name for name, body in code.items() if name not in helpers and ATOMIC.search(body)]
    yield "atomics", ", ".join(helpers + [f"in place in {name}" for name in inline]) or "none", helpers and not inline


def properties(library):
    """Rows of (property, what was found, whether that is right; None for a mere fact)."""
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
    checked = sorted(set(re.findall(r"\b__\w+_chk\b", imports)) - {"__stack_chk_fail"})
    yield "FORTIFY", ", ".join(checked) or "nothing is called that has a checked form", None
    yield ("LOAD alignment", ", ".join(map(str, sorted(set(aligns)))),
           bool(aligns) and all(align % PAGE == 0 for align in aligns))
    yield "needed", ", ".join(needed), PLATFORM <= set(needed) and not foreign
    if "AArch64" in machine:
        yield from aarch64_properties(library, elf)
    cxx = [name for name in needed if "++" in name]
    yield "stripped size", f"{stripped_size(library)} bytes, the C++ library {'beside' if cxx else 'in'} it", None


def main(argv):
    if len(argv) != 2:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    verdicts = {}
    for name, found, good in properties(argv[1]):
        verdicts[name] = "" if good is None else "ok" if good else "NO"
        print(f"{name:19} {verdicts[name]:4} {found}")
    refused = [name for name, verdict in verdicts.items() if verdict == "NO"]
    good = list(verdicts.values()).count("ok")
    print(f"refused: {', '.join(refused)}" if refused else f"all {good} properties that a device needs are there")
    return 1 if refused else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
