#!/usr/bin/env python3
"""Checks that nothing depends on a name that the device's libraries lack.

usage: device_symbols_test.py DEVICE_SYMBOLS BUILD_DIR

The Linux libraries in BUILD_DIR/lib must export nothing outside the list, and every program or library of the build
that links them may import from them, or under a platform prefix, only what the list has for that library. What an NDK
build links with in their place, device/ndk, must have what the library imports. Then one name that is in use is taken
off the lists, and the same checks must find it. What Java loads exports JNI_OnLoad alone.
"""
import pathlib
import re
import subprocess
import sys

PLATFORM_NAME = re.compile(r"^(AIBinder|AParcel|AStatus|AServiceManager|ABinder|ALinker|__?android_|android_)")


def read_list(path):
    sections = re.findall(r"^(\S+\.so)\n((?:\w+\n)+)", path.read_text(encoding="utf-8"), re.M)
    return {library: set(names.split()) for library, names in sections}


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def symbols(path, kind):
    return {line.split()[-1].split("@")[0] for line in output_of("nm", "-D", kind, path).splitlines()}


def find_faults(device, exports, users):
    faults = [f"{library} exports {name}" for library, names in exports.items() for name in names - device[library]]
    for path, (libraries, imports) in users.items():
        allowed = set().union(*(device[library] for library in libraries))
        offered = set().union(*(exports[library] for library in libraries))
        used = {name for name in imports if name in offered or PLATFORM_NAME.match(name)}
        faults += [f"{path} imports {name}" for name in used - allowed]
    return sorted(faults)


def missing_stubs(stubs, exports, imports):
    return [f"device/ndk lacks {name}" for library, names in stubs.items()
            for name in imports & exports[library] - names]


def main(argv):
    device, build = read_list(pathlib.Path(argv[1])), pathlib.Path(argv[2])
    exports = {library: symbols(build / "lib" / library, "--defined-only") for library in device}
    users = {}
    for path in [*(build / "bin").iterdir(), *(build / "lib").iterdir()]:
        if path.name not in device and path.is_file() and path.read_bytes()[:4] == b"\x7fELF":
            libraries = set(re.findall(r"\(NEEDED\).*\[(.*)\]", output_of("readelf", "-d", path))) & set(device)
            users[path.name] = (libraries, symbols(path, "--undefined-only"))
    faults = [f"not on the device: {fault}" for fault in find_faults(device, exports, users)]

    ndk = pathlib.Path(__file__).resolve().parent.parent / "device" / "ndk"
    stubs = {f"lib{path.stem}.so": set(re.findall(r"^\w+$", path.read_text(encoding="utf-8"), re.M))
             for path in ndk.glob("*.symbols")}
    imports = users["libOrvixJni.so"][1]
    faults += missing_stubs(stubs, exports, imports)

    planted = "AParcel_writeInt32"
    without = [{library: names - {planted} for library, names in lists.items()} for lists in (device, stubs)]
    found = find_faults(without[0], exports, users) + missing_stubs(without[1], exports, imports)
    for verb in "exports", "imports", "lacks":
        if not any(fault.endswith(f" {verb} {planted}") for fault in found):
            faults.append(f"the check does not see who {verb} {planted}")
    exported = symbols(build / "lib/libOrvixJni.so", "--defined-only")
    if exported - {"__cfi_check"} != {"JNI_OnLoad"}:
        faults.append(f"libOrvixJni.so exports {len(exported)} names, such as {sorted(exported)[:3]}")
    sys.exit("\n".join(faults) or None)


if __name__ == "__main__":
    main(sys.argv)
