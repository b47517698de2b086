#!/usr/bin/env python3
"""What is written down twice says the same twice, and what the platform's build refuses is not there."""
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "device"))
import freeze  # noqa: E402

PACKAGE = freeze.NAME.replace(".", "/")
# What the platform's build runs in the folder of a frozen version.
SOONG_SUM = '{ find ./ -name "*.aidl" -print0 | LC_ALL=C sort -z | xargs -0 sha1sum && echo 6; } | sha1sum'
LIBRARY = ("aidl", "callback", "client", "jni")
# What the C++ library of some device lacks; streams, which trap with control-flow integrity across modules; and what
# would make the device's code another one than that tested here.
FOREIGN = re.compile(
    r"<(?:barrier|bit|concepts|format|latch|numbers|ranges|semaphore|source_location|stop_token)>"
    r"|<(?:fstream|iomanip|ios|iosfwd|iostream|istream|ostream|sstream|streambuf|syncstream)>"
    r"|std::(?:jthread|to_array|ssize|midpoint|cmp_\w+|in_range|bind_front|bit_cast|endian|ranges)\b"
    r"|\.contains\(|\.(?:wait|notify_\w+)\(std::memory_order|__ANDROID__")
# The service's instance and the application's package, without blanks, as files of five formats repeat them.
NAMES = {
    "vintf/manifest_*.xml": "<name>{name}</name><version>7</version><fqname>IOrvixService/default</fqname>",
    "vintf/compatibility_*.xml": "<name>{name}</name><version>7</version><interface><name>IOrvixService</name>"
                                 "<instance>default</instance></interface>",
    "sepolicy/service_contexts": "{name}.IOrvixService/defaultu:",
    "sepolicy/seapp_contexts": "isPrivApp=truename={package}domain",
    "permissions/privapp-permissions-*.xml": '<privapp-permissionspackage="{package}">',
}


def text(pattern):
    return "\n".join(path.read_text(encoding="utf-8") for path in sorted(ROOT.glob(pattern)))


def modules():
    """{name: properties} of the build file: without comments and with quoted names it reads as Python."""
    code = re.sub(r"(^|\s)//[^\n]*", "", text("Android.bp"))
    code = re.sub(r"^(\s+)(\w+): ", r'\1"\2": ', code, flags=re.M)
    code = re.sub(r"^(\w+) \{(.*?)^\}", r'{"type": "\1",\2},', code, flags=re.M | re.S)
    return {module["name"]: module for module in eval(f"[{code}]", {"true": True, "false": False})}


MODULES = modules()


def faults_of_policy(rules):
    """What the compiler says of the rules among those of a platform; and labels of types that there are not."""
    with tempfile.NamedTemporaryFile("w+") as policy:
        subprocess.run(["m4"], input=text("tests/device_policy.m4").replace("\nFRAGMENT\n", rules), stdout=policy,
                       check=True, text=True)
        done = subprocess.run(["checkpolicy", "-o", "/dev/null", policy.name], check=False, capture_output=True,
                              text=True)
        policy.seek(0)
        types = set(re.findall(r"^type (\w+)", policy.read(), re.M))
    labels = re.findall(r"(?:u:object_r:|domain=|type=)(\w+)", text("device/sepolicy/*_contexts"))
    return [done.stderr] * (done.returncode != 0) + sorted(set(labels) - types)


class Consistency(unittest.TestCase):
    def files(self, *patterns):
        return {path.relative_to(ROOT).as_posix() for pattern in patterns for path in ROOT.glob(pattern)}

    def test_sources(self):
        self.assertEqual(self.files(*(f"{folder}/*.cpp" for folder in LIBRARY)),
                         set(MODULES["libOrvixJni_static"]["srcs"]))
        for folder in LIBRARY:
            self.assertEqual([], FOREIGN.findall(text(f"{folder}/*.*")), folder)

    def test_modules(self):
        for name, module in MODULES.items():
            with_defaults = [module, *(MODULES[base] for base in module.get("defaults", []))]
            if module["type"] == "aidl_interface":
                self.assertIn("owner", module, "a soong_namespace above asks for it")
            if "cc_library" in module["type"]:
                self.assertIn("64", [each.get("compile_multilib") for each in with_defaults], f"32 bit, too: {name}")
            self.assertNotIn("page-size", str(module.get("ldflags")), f"beside the product's: {name}")
        groups = {path for module in MODULES.values() if module["type"] == "filegroup" for path in module["srcs"]}
        self.assertEqual(self.files("device/vintf/manifest*", "device/proguard/*"), groups, "what other modules reach")
        named = re.findall(rf"[:` ]((?:{freeze.NAME}-V|orvixservice-|libOrvixJni-|privapp-)[\w.-]+)", text("docs/*.md"))
        self.assertLessEqual(set(named), MODULES.keys() | {f"{freeze.NAME}-V7-ndk", f"{freeze.NAME}-V7-java"})
        paths = re.findall(r"`((?:aidl|device|docs|fuzz|platform|sim|tests)/[\w./-]+)`", text("docs/*.md"))
        self.assertEqual([], [path for path in paths if not (ROOT / path).exists()])
        flags = re.search(r'"aarch64"\)\s*add_compile_options\((.*?)\)', text("cmake/Hardening.cmake")).group(1)
        self.assertEqual(flags.split(), MODULES["orvix_defaults"]["arch"]["arm64"]["cflags"])

    def test_frozen_interface(self):
        present = {**freeze.read(ROOT / "aidl_api", "*.aidl"), **freeze.read(ROOT / "aidl_api", ".hash")}
        self.assertEqual(freeze.frozen(freeze.read(ROOT / "aidl", "*.aidl")), present)
        # The sum that the platform's build takes is the last line of the hash.
        folder = ROOT / "aidl_api" / freeze.NAME / "7"
        done = subprocess.run(SOONG_SUM, shell=True, cwd=folder, check=True, capture_output=True, text=True)
        lines = (folder / ".hash").read_text(encoding="utf-8").split()
        self.assertEqual([freeze.OWN_HASH, done.stdout.split()[0]], lines)

    def test_own_hash(self):
        """The modules that generate with the interface's own hash name every file that comes out of it."""
        self.assertEqual(2, str(MODULES).count(f"--version 7 --hash {freeze.OWN_HASH} "))
        types = [pathlib.Path(file).stem for file in self.files(f"aidl/{PACKAGE}/*.aidl")]
        sides = [f"B{side}{name[1:]}" for name in types if re.match("I[A-Z]", name) for side in "np"]
        for part, made in (("source", {f"{PACKAGE}/{name}.cpp" for name in types}),
                           ("headers", {f"include/aidl/{PACKAGE}/{name}.h" for name in types + sides})):
            self.assertEqual(made, set(MODULES[f"{freeze.NAME}-V7-ndk-own-hash-{part}"]["out"]))

    def test_keep_rules(self):
        """A method that no rule keeps is there on a workstation and gone on a device."""
        for name, modifiers in (("JniHelper", "public static native"), ("SorvixAidlClient", "public")):
            declared = re.findall(rf"^ *{modifiers} void (\w+)\(([^)]*)\)", text(f"sim/**/{name}.java"), re.M)
            rules = re.search(rf"\.{name} \{{(.*?)\}}", text("device/proguard/orvix.pro"), re.S).group(1)
            kept = re.findall(r"void (\w+)\((.*?)\);", re.sub(r"android\.os\.|java\.lang\.", "", rules))
            self.assertEqual([(method, re.findall(r"([^ ,]+) \w+", parameters)) for method, parameters in declared],
                             [(method, re.findall(r"[^, ]+", types)) for method, types in kept])

    def test_names(self):
        package = re.search(r"^package (\S+);", text("sim/**/JniHelper.java"), re.M).group(1)
        for file, named in NAMES.items():
            self.assertIn(named.format(name=freeze.NAME, package=package), "".join(text(f"device/{file}").split()))

    def test_policy(self):
        rules = text("device/sepolicy/*.te")
        self.assertEqual([], faults_of_policy(rules))
        for right, wrong in (("type orvix_app, domain;\n", ""), ("type orvix_app,", "type orvix_app, coredomain,"),
                             ("protected_service, ", ""), ("hal_service_type, ", "")):
            self.assertNotEqual([], faults_of_policy(rules.replace(right, wrong)), f"'{right}' as '{wrong}'")


if __name__ == "__main__":
    unittest.main()
