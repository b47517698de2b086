#!/usr/bin/env python3
"""Nothing depends on a name that the device's libraries lack, and what Java loads exports JNI_OnLoad alone.

usage: device_symbols_test.py DEVICE_SYMBOLS BUILD_DIR
"""
import pathlib
import re
import subprocess
import sys

PLATFORM_NAME = re.compile(r"^(AIBinder|AParcel|AStatus|AServiceManager|ABinder|ALinker|__?android_|android_)")


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def symbols(path, kind):
    return {line.split()[-1].split("@")[0] for line in output_of("nm", "-D", kind, path).splitlines()}


def main(device_symbols, build):
    sections = re.findall(r"^(\S+\.so)\n((?:\w+\n)+)", pathlib.Path(device_symbols).read_text(encoding="utf-8"), re.M)
    device = {library: set(names.split()) for library, names in sections}
    build = pathlib.Path(build)
    exports = {library: symbols(build / "lib" / library, "--defined-only") for library in device}
    # The stand-in's libraries export nothing outside the list. Who links them imports from them, or under a platform
    # prefix, only what the list has for the libraries that it names.
    faults = [f"{library} exports {name}" for library in device for name in exports[library] - device[library]]
    users = [path for path in (*(build / "bin").iterdir(), *(build / "lib").iterdir())
             if path.name not in device and path.is_file() and path.read_bytes()[:4] == b"\x7fELF"]
    for path in users:
        libraries = set(re.findall(r"\(NEEDED\).*\[(.*)\]", output_of("readelf", "-d", path))) & set(device)
        allowed, offered = (set().union(*(names[library] for library in libraries)) for names in (device, exports))
        faults += [f"{path} imports {name}" for name in symbols(path, "--undefined-only") - allowed
                   if name in offered or PLATFORM_NAME.match(name)]

    library, ndk = build / "lib/libOrvixJni.so", pathlib.Path(__file__).resolve().parent.parent / "device/ndk"
    # What an NDK build links with in their place.
    stubs = re.findall(r"^\w+$", "".join(path.read_text(encoding="utf-8") for path in ndk.glob("*.symbols")), re.M)
    platform = set().union(*exports.values())
    faults += [f"device/ndk lacks {name}" for name in symbols(library, "--undefined-only") & platform - set(stubs)]
    exported = symbols(library, "--defined-only")
    if exported - {"__cfi_check"} != {"JNI_OnLoad"}:
        faults.append(f"libOrvixJni.so exports {len(exported)} names, such as {sorted(exported)[:3]}")
    sys.exit("\n".join(sorted(faults)) or None)


if __name__ == "__main__":
    main(*sys.argv[1:])
