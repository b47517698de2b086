#!/usr/bin/env python3
"""Holds the .aidl files against the rows of the C++ side: names, order, codes, types.

usage: aidl_files_test.py AIDL_DIR PARCEL_TOOL...

AIDL_DIR holds the C++ side; the parcel tool lists what its rows say. Then mismatches are planted in the files, and the
comparison must see each.
"""
import pathlib
import re
import subprocess
import sys

PLANTED = [
    ("BatteryState", r"int int1;", "long int1;"),
    ("BatteryState", r"(int int1;)\s*(boolean flag1;)", r"\2 \1"),
    ("CensusInfo", r"TelephonyInfoParams\[\]", "TelephonyInfoParams"),
    ("IOrvixService", r"RatType ratType, TechType techType", "TechType techType, RatType ratType"),
    ("IOrvixService", r"oneway void queryStats", "void queryStats"),
    ("IRequest", r"(oneway void getRadioStatus\(\);)(.*?)(oneway void \w+\(.*?\);)", r"\3\2\1"),
]


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


def differences(files, rows):
    lines = [line for text in files.values() for line in listed(text)]
    return sorted(set(lines) ^ set(rows))


def main(argv):
    folder = pathlib.Path(argv[1])
    files = {path.stem: path.read_text(encoding="utf-8") for path in folder.rglob("*.aidl")}
    rows = subprocess.run([*argv[2:], "list"], check=True, capture_output=True, text=True).stdout.splitlines()
    faults = [f"only in the files or only in the rows: {line}" for line in differences(files, rows)]
    # A row's name beside another member of the same type would pass every comparison of names and bytes.
    headers = "".join(path.read_text(encoding="utf-8") for path in folder.glob("*.h"))
    pointers = re.findall(r'field\("(\w+)",\s*&R::(\w+)\)|method<&I::(\w+)>\(\d+, "(\w+)"\)', headers)
    faults += [f"names another: {pair}" for pair in pointers if pair[0] != pair[1] or pair[2] != pair[3]]
    assert len(pointers) == sum(line.count(",") + 1 if "{" in line else 1 for line in rows), "rows that are not seen"
    for name, find, replace in PLANTED:
        changed = re.sub(find, replace, files[name], count=1, flags=re.S)
        if changed == files[name] or not differences({**files, name: changed}, rows):
            faults.append(f"not seen: {name}: {find} -> {replace}")
    sys.exit("\n".join(faults) or None)


if __name__ == "__main__":
    main(sys.argv)
