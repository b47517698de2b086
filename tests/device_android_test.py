#!/usr/bin/env python3
"""The android preset without an NDK: clang for aarch64-linux-android35, own declarations, link stubs.

What an NDK would bring comes from elsewhere: its public headers from the stand-in, C and C++ library from Debian's
cross compiler. The object cannot run; that it compiles, links with nothing undefined and is hardened is what is shown.

usage: device_android_test.py BUILD_FOLDER
"""
import pathlib
import shutil
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent
CROSS = "/usr/aarch64-linux-gnu"
NOT_IN_AN_NDK = {"binder_manager.h", "binder_process.h", "binder_stability.h", "binder_shell.h"}
# Thread-local variables are emulated on Android; these two belong to Debian's C++ library, which does not.
LOG = '''extern "C" {
void __android_log_print() {}
int a asm("__emutls_v._ZSt11__once_call");
int b asm("__emutls_v._ZSt15__once_callable");
}
'''


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False, **options)
    assert done.returncode == 0, f"{command}\n{done.stdout}"


def make_ndk(folder):
    """Headers and a liblog, where cmake's flags below look for them."""
    headers = folder / "include" / "android"
    headers.mkdir(parents=True)
    for header in (ROOT / "platform/linux/include/android").glob("*.h"):
        if header.name not in NOT_IN_AN_NDK:
            shutil.copy(header, headers)
    shutil.copy("/usr/include/android/nativehelper/jni.h", folder / "include")
    (folder / "log.cpp").write_text(LOG, encoding="utf-8")
    run("clang++", "--target=aarch64-linux-android35", "-shared", "-nostdlib", "-fuse-ld=lld", folder / "log.cpp", "-o",
        folder / "liblog.so")


class Android(unittest.TestCase):
    def test_the_library_compiles_and_links(self):
        shutil.rmtree(BUILD, ignore_errors=True)
        ndk = BUILD / "ndk"
        make_ndk(ndk)
        version = max(path.name for path in pathlib.Path("/usr/lib/gcc-cross/aarch64-linux-gnu").iterdir())
        cpp = f"{CROSS}/include/c++/{version}"
        headers = [cpp, f"{cpp}/aarch64-linux-gnu", f"{CROSS}/include", ndk / "include"]
        compile_flags = " ".join(["-Wno-unused-command-line-argument -nostdinc++ -fno-rtti"] +
                                 [f"-isystem {folder}" for folder in headers])
        link_flags = (f"-nostdlib -L{ndk} -L{CROSS}/lib -L/usr/lib/gcc-cross/aarch64-linux-gnu/{version} -lstdc++ "
                      "-lgcc_s -lgcc -lc -l:ld-linux-aarch64.so.1")
        run("cmake", "--preset", "android", "-B", BUILD / "cmake", "-DORVIX_ANDROID_CLANG=/usr/bin/clang++",
            f"-DCMAKE_CXX_FLAGS={compile_flags}", f"-DCMAKE_SHARED_LINKER_FLAGS={link_flags}", cwd=ROOT)
        run("cmake", "--build", BUILD / "cmake", "-j2")
        library = BUILD / "cmake/lib/libOrvixJni.so"
        run(sys.executable, ROOT / "device/report.py", library)
        self.assertIn(b"libandroid_net.so", library.read_bytes())

    def test_the_preset_asks_for_a_toolchain(self):
        done = subprocess.run(["cmake", "--preset", "android", "-B", str(BUILD) + "-none"], cwd=ROOT, text=True,
                              capture_output=True, check=False, env={"PATH": "/usr/bin:/bin"})
        self.assertNotEqual(0, done.returncode)
        self.assertIn("the android preset needs -DORVIX_ANDROID_NDK=FOLDER", done.stderr)
        shutil.rmtree(str(BUILD) + "-none", ignore_errors=True)


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv[1]).resolve()
    unittest.main(argv=sys.argv[:1])
