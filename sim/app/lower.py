#!/usr/bin/env python3
"""Lowers the interface's .aidl for Debian's aidl (version 10), which knows neither @VintfStability nor enumerations.

usage: lower.py SOURCE_DIR OUTPUT_DIR

Drops the annotation and turns every enumeration into the int it is on the wire, so the bytes stay the same. The
tree below SOURCE_DIR is kept.
"""
import pathlib
import re
import sys


def main(argv):
    if len(argv) != 3:
        sys.exit(__doc__)
    source, output = pathlib.Path(argv[1]), pathlib.Path(argv[2])
    texts = {path: path.read_text(encoding="utf-8") for path in sorted(source.rglob("*.aidl"))}
    if not texts:
        sys.exit(f"lower.py: no .aidl below {source}")
    enums = {path for path, text in texts.items() if re.search(r"^enum\s", text, re.M)}
    enum_names = "|".join(path.stem for path in sorted(enums)) or "(?!)"

    for path in texts.keys() - enums:
        text = texts[path].replace("@VintfStability\n", "")
        text = re.sub(rf"^import [\w.]*\.({enum_names});\n", "", text, flags=re.M)
        text = re.sub(rf"(?<=[(, ])({enum_names})(?= \w+[,;)])", "int", text)
        target = output / path.relative_to(source)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main(sys.argv)
