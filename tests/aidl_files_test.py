#!/usr/bin/env python3
"""Holds the .aidl files against the rows of the C++ side, as the parcel tool lists them: names, order, codes, types.

usage: aidl_files_test.py AIDL_DIR PARCEL_TOOL...
"""
import pathlib
import re
import subprocess
import sys


def listed(text):
    """What the parcel tool would list of an .aidl file; the text itself where it is not what it must be."""
    text = " ".join(re.sub(r"/\*.*?\*/|//[^\n]*|\bimport [\w.]+;", " ", text, flags=re.S).split())
    whole = re.fullmatch(r"package vendor\.nuvel\.data\.orvixservice; @VintfStability (.*?)(\w+) \{ ?(.*?) ?\}", text)
    kind, name, body = whole.groups() if whole else (None, None, None)
    if kind == "parcelable ":
        return [f"{name} {{{body.rstrip(';').replace('; ', ', ')}}}"]
    if kind == "interface ":
        methods = re.findall(r"oneway void (\w+)\((.*?)\);", body)
        types = [re.sub(r"(?:in )?(\S+) \w+(?=,|$)", r"\1", parameters) for _, parameters in methods]
        if body.count(";") == len(methods):
            return [f"{name}.{method} {code} ({types[code - 1]})" for code, (method, _) in enumerate(methods, 1)]
    known = r"@Backing\(type=\"int\"\) enum (RatType|TechType|ThermalState|SlotId)"
    return [] if re.fullmatch(known, f"{kind}{name}") else [text]


def main(folder, *tool):
    lines = [line for path in pathlib.Path(folder).rglob("*.aidl") for line in listed(path.read_text(encoding="utf-8"))]
    rows = subprocess.run([*tool, "list"], check=True, capture_output=True, text=True).stdout.splitlines()
    rows = [row for row in rows if ".getInterface" not in row]  # which every interface has
    faults = [f"only in the files or only in the rows: {line}" for line in sorted(set(lines) ^ set(rows))]
    # A row's name beside another member of the same type would pass every comparison of names and bytes.
    headers = "".join(path.read_text(encoding="utf-8") for path in pathlib.Path(folder).glob("*.h"))
    pointers = re.findall(r'field\("(\w+)",\s*&R::(\w+)\)|method<&I::(\w+)>\(\d+, "(\w+)"\)', headers)
    faults += [f"names another: {pair}" for pair in pointers if pair[0] != pair[1] or pair[2] != pair[3]]
    assert len(pointers) == sum(line.count(",") + 1 if "{" in line else 1 for line in rows), "rows that are not seen"
    sys.exit("\n".join(faults) or None)


if __name__ == "__main__":
    main(*sys.argv[1:])
