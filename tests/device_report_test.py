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
SOURCE = '''extern "C" {
long read(int, void*, unsigned long);
#ifdef __aarch64__
int __aarch64_ldadd4_relax(int, int*) { return 0; }
#endif
__attribute__((visibility("default"))) int JNI_OnLoad() {
    char text[64];
    static int calls;
    return read(0, text, 64) ? text[__atomic_fetch_add(&calls, 1, __ATOMIC_RELAXED)] : 0;
}
#ifdef EXTRA
__attribute__((visibility("default"))) int EXTRA() { return 0; }
#endif
}
'''
GOOD = ["-O1", "-fPIC", "-shared", "-fuse-ld=lld", "-fvisibility=hidden", "-fstack-protector-strong", "-Wl,-z,relro",
        "-Wl,-z,now", "-Wl,-z,noexecstack", "-Wl,-z,max-page-size=16384", "-nostdlib"]
ARM64 = ["--target=aarch64-linux-gnu", "-mbranch-protection=standard", "-moutline-atomics"]
# What is planted, and the property that must be refused for it.
PLANTS = [(["-DEXTRA=helper"], {"exports"}), (["-DEXTRA=__cfi_check"], set()), (["-Wl,-z,norelro"], {"RELRO"}),
          (["-Wl,-z,lazy"], {"BIND_NOW"}), (["-Wl,-z,execstack"], {"stack"}),
          (["-fno-stack-protector"], {"stack protector"}), (["-Wl,-z,max-page-size=4096"], {"LOAD alignment"}),
          (["-lOther"], {"needed"}), ([], set()), (ARM64, set()),
          (ARM64 + ["-mbranch-protection=none"], {"branch protection"}),
          (ARM64 + ["-mno-outline-atomics"], {"atomics"})]


def report(library):
    done = subprocess.run([sys.executable, REPORT, library], capture_output=True, text=True, check=False)
    refused = {line[:18].strip() for line in done.stdout.splitlines() if line[19:21] == "NO"}
    return done.returncode, refused, done.stdout


class Report(unittest.TestCase):
    def test_the_hardened_library_passes(self):
        status, refused, output = report(LIBRARY)
        self.assertEqual((0, set()), (status, refused), output)
        self.assertIn("stripped size", output)

    def test_a_missing_property_is_refused_by_name(self):
        with tempfile.TemporaryDirectory() as folder:
            source, library = pathlib.Path(folder, "source.cpp"), pathlib.Path(folder, "library.so")
            source.write_text(SOURCE, encoding="utf-8")
            for target in ("", *ARM64[:1]):
                pathlib.Path(folder, target).mkdir(exist_ok=True)
                for name in ("binder_ndk", "log", "android_net", "Other"):
                    subprocess.run([CLANG, *filter(None, [target]), "-shared", "-nostdlib", "-x", "c++", "/dev/null",
                                    "-fuse-ld=lld", f"-Wl,-soname,lib{name}.so", "-o",
                                    pathlib.Path(folder, target, f"lib{name}.so")], check=True)
            for flags, properties in PLANTS:
                link = [f"-L{pathlib.Path(folder, *(set(flags) & set(ARM64[:1])))}", "-Wl,--no-as-needed",
                        "-lbinder_ndk", "-llog", "-landroid_net"]
                subprocess.run([CLANG, *GOOD, source, *link, *flags, "-o", library], check=True)
                status, refused, output = report(library)
                self.assertEqual((1 if properties else 0, properties), (status, refused), f"{flags}\n{output}")


if __name__ == "__main__":
    LIBRARY, CLANG = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
