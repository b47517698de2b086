#!/usr/bin/env python3
"""The report's verdicts: the hardened library passes, and a library without one of the properties is refused for it.

usage: device_report_test.py LIBRARY CLANG++
"""
import pathlib
import subprocess
import sys
import tempfile
import unittest

REPORT = pathlib.Path(__file__).resolve().parent.parent / "device" / "report.py"
SOURCE = '''#define API extern "C" __attribute__((visibility("default")))
extern "C" long read(int, void*, unsigned long);
extern "C" int __aarch64_ldadd4_relax(int, int*) { return 0; }
API int JNI_OnLoad() {
    char text[64];
    static int calls;
    asm volatile(CHECK);
    return read(0, text, 64) ? text[__atomic_fetch_add(&calls, 1, __ATOMIC_RELAXED)] : 0;
}
'''
LINK = ["--target=aarch64-linux-gnu", "-shared", "-nostdlib", "-fuse-ld=lld"]
GOOD = ["-O1", "-fPIC", "-fvisibility=hidden", "-fstack-protector-strong", "-mbranch-protection=standard",
        "-moutline-atomics", "-DCHECK=\"brk #0x5502\"",
        *(f"-Wl,-z,{word}" for word in ("relro", "now", "noexecstack", "max-page-size=16384"))]
# What is planted, and the property that must be refused for it.
PLANTS = {"": "", "-Wl,--defsym=__cfi_check=1": "", "-Wl,--defsym=helper=1": "exports", "-Wl,-z,norelro": "RELRO",
          "-Wl,-z,lazy": "BIND_NOW", "-Wl,-z,execstack": "stack", "-fno-stack-protector": "stack protector",
          "-Wl,-z,max-page-size=4096": "LOAD alignment", "libOther.so": "needed",
          "-mbranch-protection=none": "branch protection", "-mno-outline-atomics": "atomics",
          "-UCHECK -DCHECK=\"nop\"": "control-flow checks"}


class Report(unittest.TestCase):
    def report(self, library, refused):
        done = subprocess.run([sys.executable, REPORT, library], capture_output=True, text=True, check=False)
        found = [line[:19].strip() for line in done.stdout.splitlines() if line[20:22] == "NO"]
        self.assertEqual((len(refused), refused), (done.returncode, found), done.stdout)
        return done.stdout

    def test_the_hardened_library_passes(self):
        self.assertIn("stripped size", self.report(LIBRARY, []))

    def test_a_missing_property_is_refused_by_name(self):
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "source.cpp").write_text(SOURCE, encoding="utf-8")
            needed = [f"lib{name}.so" for name in ("binder_ndk", "log", "android_net", "Other")]
            for name in needed:
                subprocess.run([CLANG, *LINK, f"-Wl,-soname,{name}", "-xc++", "/dev/null", "-o", name], cwd=folder,
                               check=True)
            for flag, refused in PLANTS.items():
                subprocess.run([CLANG, *LINK, *GOOD, "source.cpp", *needed[:3], *flag.split(), "-o", "library"],
                               cwd=folder, check=True)
                with self.subTest(flag):
                    self.report(pathlib.Path(folder, "library"), [refused] if refused else [])


if __name__ == "__main__":
    LIBRARY, CLANG = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
