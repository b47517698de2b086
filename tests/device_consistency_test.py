#!/usr/bin/env python3
"""What is written down twice must say the same twice, and what the platform's build refuses must not be there.

Each check is a function from texts to a list of faults, and each is also shown planted faults.
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as xml

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "device"))
import freeze  # noqa: E402

PACKAGE = "vendor/nuvel/data/orvixservice"
# What the platform's build runs in the folder of a frozen version.
SOONG_SUM = '{ find ./ -name "*.aidl" -print0 | LC_ALL=C sort -z | xargs -0 sha1sum && echo 6; } | sha1sum'


def text(path):
    return (ROOT / path).read_text(encoding="utf-8")


def java(name):
    return next(ROOT.glob(f"sim/**/{name}.java")).read_text(encoding="utf-8")


def library_texts():
    return {path.relative_to(ROOT).as_posix(): path.read_text(encoding="utf-8")
            for folder in ("aidl", "callback", "client", "jni") for path in sorted((ROOT / folder).glob("*.*"))
            if path.suffix in (".h", ".cpp")}


def apart(name_a, a, name_b, b):
    """The elements that only one of two sets has."""
    return ([f"{item} is only in {name_a}" for item in sorted(a - b)] +
            [f"{item} is only in {name_b}" for item in sorted(b - a)])


def modules(android_bp):
    """{name: properties} of the build file: without comments and with quoted names it reads as Python."""
    code = re.sub(r"(^|\s)//[^\n]*", "", android_bp)
    code = re.sub(r"^(\s+)(\w+): ", r'\1"\2": ', code, flags=re.M)
    code = re.sub(r"^(\w+) \{(.*?)^\}", r'{"type": "\1",\2},', code, flags=re.M | re.S)
    return {module["name"]: module for module in eval(f"[{code}]", {"true": True, "false": False})}


def check_sources(t):
    soong = set(modules(t["bp"])["libOrvixJni_static"]["srcs"])
    targets = re.findall(r"add_library\(orvix_(?:aidl|client) STATIC(.*?)\)", t["cmake"], re.S)
    listed = {source for target in targets for source in target.split()}
    return (apart("Android.bp", soong, "CMakeLists.txt", listed) +
            apart("CMakeLists.txt", listed, "the folders", set(t["on disk"].split())))


def check_soong(t):
    found, every = [], modules(t["bp"])
    groups = {path for module in every.values() if module["type"] == "filegroup" for path in module["srcs"]}
    known = every.keys() | {f"{freeze.NAME}-V7-{backend}" for backend in ("ndk", "java")}
    for name, module in every.items():
        with_defaults = [module, *(every[base] for base in module.get("defaults", []))]
        if module["type"] == "aidl_interface" and "owner" not in module:
            found.append(f"{name} has no owner, which a soong_namespace above asks for")
        if "cc_library" in module["type"] and not any(each.get("compile_multilib") == "64" for each in with_defaults):
            found.append(f"{name} is built for 32 bit, too")
        if "page-size" in str(module.get("ldflags")):
            found.append(f"{name} sets a page size beside the product's")
    found += [f"{path} is in no filegroup, and no other module reaches it without one"
              for path in t["for others"].split() if path not in groups]
    named = re.findall(r"[:` ]((?:vendor\.nuvel\.data\.orvixservice-V|orvixservice-|libOrvixJni-|privapp-)[\w.-]+)",
                       t["docs"])
    found += [f"the pages name {name}, which is no module" for name in named if name not in known]
    found += [f"the pages name {path}, which is not there" for path in
              re.findall(r"`((?:aidl|device|docs|fuzz|platform|sim|tests)/[\w./…-]+)", t["docs"])
              if not any(ROOT.glob(path.rstrip("/").replace("…", "*")))]
    flags = re.search(r'STREQUAL "aarch64"\)\s*add_compile_options\((.*?)\)', t["hardening"]).group(1)
    return found + apart("Android.bp", set(every["orvix_defaults"]["arch"]["arm64"]["cflags"]), "Hardening.cmake",
                         set(flags.split()))


def check_own_hash(t):
    """The modules that generate with the interface's own hash name every file that comes out of it."""
    own = {name: module for name, module in modules(t["bp"]).items() if "own" in name}
    commands = [module["cmd"] for module in own.values() if "cmd" in module]
    wrong = [command for command in commands if f"--version 7 --hash {freeze.OWN_HASH} " not in command]
    types = t["types"].split()
    sides = [f"B{side}{name[1:]}" for name in types if re.match("I[A-Z]", name) for side in "np"]
    sources = {f"{PACKAGE}/{name}.cpp" for name in types}
    headers = {f"include/aidl/{PACKAGE}/{name}.h" for name in types + sides}
    out = {part: set(own[f"{freeze.NAME}-V7-ndk-own-hash-{part}"]["out"]) for part in ("source", "headers")}
    return (wrong + ["two commands"] * (len(commands) != 2) + apart("source's out", out["source"], "types", sources) +
            apart("headers' out", out["headers"], "types", headers))


def methods(lines):
    return {(name, *(part.split()[0].split(".")[-1] for part in parameters.split(",") if part))
            for name, parameters in lines}


def check_keep_rules(t):
    """A method that no rule keeps is there on a workstation and gone on a device."""
    found = []
    for name, modifiers in (("JniHelper", "public static native"), ("SorvixAidlClient", "public")):
        rules = re.search(rf"-keep class [\w.]*\.{name} \{{(.*?)\}}", t["keep"], re.S).group(1)
        found += apart(f"{name}.java", methods(re.findall(rf"^ *{modifiers} void (\w+)\(([^)]*)\)", t[name], re.M)),
                       "the keep rules", methods(re.findall(r"void (\w+)\((.*?)\);", rules)))
    return found


def check_names(t):
    """The service's instance and the application's package, which files of five formats repeat."""
    manifest, matrix = xml.fromstring(t["manifest"]).find("hal"), xml.fromstring(t["matrix"]).find("hal")
    instance = f"{freeze.NAME}.IOrvixService/default"
    package = re.search(r"^package (\S+);", t["JniHelper"], re.M).group(1)
    return ([f"{found} instead of {instance}" for found in (
                manifest.findtext("name") + "." + manifest.findtext("fqname"),
                "{}.{}/{}".format(*map(matrix.findtext, ("name", "interface/name", "interface/instance"))),
                *re.findall(r"^(\S+) +u:", t["service_contexts"], re.M)) if found != instance] +
            [f"version {hal.findtext('version')}" for hal in (manifest, matrix) if hal.findtext("version") != "7"] +
            [f"{found} instead of {package}" for found in
             re.findall(r'isPrivApp=true name=(\S+)|package="(.+?)"', t["seapp_contexts"] + t["permissions"])
             if package not in found])


def check_policy(t):
    """The policy's rules compile, and its files label with types that there are."""
    with tempfile.NamedTemporaryFile("w+") as source:
        whole = t["platform"].replace("\nFRAGMENT\n", t["rules"])
        subprocess.run(["m4"], input=whole, stdout=source, check=True, text=True)
        done = subprocess.run(["checkpolicy", "-o", "/dev/null", source.name], capture_output=True, text=True,
                              check=False)
        source.seek(0)
        types = set(re.findall(r"^type (\w+)", source.read(), re.M))
    labels = set(re.findall(r"u:object_r:(\w+)|(?:domain|type)=(\w+)", t["contexts"]))
    return ([done.stderr] * (done.returncode != 0) +
            [f"no type {label}" for labels_of in labels for label in labels_of if label and label not in types])


# The second half are streams: with control-flow integrity across modules they trap.
MISSING_HEADERS = set("barrier bit concepts format latch numbers ranges semaphore source_location stop_token "
                      "fstream iomanip ios iosfwd iostream istream ostream sstream streambuf syncstream".split())
MISSING_NAMES = re.compile(r"std::(?:jthread|to_array|ssize|midpoint|cmp_\w+|in_range|bind_front|bit_cast|endian|"
                           r"ranges)\b"
                           r"|\.contains\(|\.(?:wait|notify_\w+)\(std::memory_order")


def check_portable(sources):
    """What the C++ library of some device lacks."""
    found = []
    for path, source in sources.items():
        included = set(re.findall(r"^\s*#\s*include\s*<(.+?)>", source, re.M))
        found += [f"{path} includes <{name}>" for name in sorted(included & MISSING_HEADERS)]
        found += [f"{path} uses {name}" for name in MISSING_NAMES.findall(source)]
        found += [f"{path} asks for __ANDROID__"] * ("__ANDROID__" in source)
    return found


class Consistency(unittest.TestCase):
    """Each test: nothing to be found as things are, and something with each planted difference."""

    def holds_and_fails(self, check, texts, plants):
        """texts: {name: text}; plants: (name, old, new) put into a copy of the texts, one at a time."""
        self.assertEqual([], check(texts))
        for name, old, new in plants:
            self.assertIn(old, texts[name], f"nothing to plant '{new}' on")
            self.assertNotEqual([], check({**texts, name: texts[name].replace(old, new, 1)}), f"'{old}' as '{new}'")

    def test_source_lists(self):
        on_disk = "\n".join(path for path in library_texts() if path.endswith(".cpp"))
        self.holds_and_fails(
            check_sources, {"bp": text("Android.bp"), "cmake": text("CMakeLists.txt"), "on disk": on_disk},
            [("bp", '        "client/Binding.cpp",\n', ""), ("cmake", "    jni/StatusCalls.cpp\n", ""),
             ("on disk", "jni/", "jni/New.cpp jni/")])

    def test_soong(self):
        docs = "".join(path.read_text(encoding="utf-8") for path in (ROOT / "docs").glob("*.md"))
        files = [path.relative_to(ROOT).as_posix() for path in
                 (*ROOT.glob("device/vintf/manifest*"), *ROOT.glob("device/proguard/*"))]
        self.holds_and_fails(
            check_soong, {"bp": text("Android.bp"), "hardening": text("cmake/Hardening.cmake"), "docs": docs,
                          "for others": "\n".join(files)},
            [("bp", '    owner: "nuvel",\n', ""), ("bp", '    compile_multilib: "64",\n', ""),
             ("bp", '                "-moutline-atomics",\n', ""), ("hardening", " -moutline-atomics", ""),
             ("bp", '    version_script:', '    ldflags: ["-Wl,-z,max-page-size=16384"],\n    version_script:'),
             ("bp", 'srcs: ["device/proguard/orvix.pro"]', "srcs: []"),
             ("bp", 'name: "privapp-permissions-orvixadmin-product"', 'name: "other"'),
             ("bp", 'name: "libOrvixJni-keep-rules"', 'name: "other"'),
             ("docs", "`device/sepolicy/file_contexts`", "`device/sepolicy/orvix.te`")])

    def test_frozen_interface(self):
        sources = freeze.read(ROOT / "aidl", "*.aidl")
        present = {**freeze.read(ROOT / "aidl_api", "*.aidl"), **freeze.read(ROOT / "aidl_api", ".hash")}
        path = f"{PACKAGE}/BatteryState.aidl"
        commented = {**sources, path: "// a better comment\n" + sources[path]}
        self.assertEqual([], freeze.differences(commented, present))
        for changed in ({path: sources[path].replace("int int1", "long int1")}, {"New.aidl": ""}):
            self.assertNotEqual([], freeze.differences({**sources, **changed}, present))

    def test_the_builds_own_sum_is_the_last_line_of_the_hash(self):
        folder = ROOT / "aidl_api" / freeze.NAME / "7"
        done = subprocess.run(SOONG_SUM, shell=True, cwd=folder, check=True, capture_output=True, text=True)
        lines = (folder / ".hash").read_text(encoding="utf-8").split()
        self.assertEqual([freeze.OWN_HASH, done.stdout.split()[0]], lines)

    def test_own_hash(self):
        types = "\n".join(path.stem for path in (ROOT / "aidl" / PACKAGE).glob("*.aidl"))
        self.holds_and_fails(check_own_hash, {"bp": text("Android.bp"), "types": types},
                             [("bp", freeze.OWN_HASH, "0"), ("types", "ByteTuple", "New"), ("bp", "BpRequest", "Bp")])

    def test_keep_rules(self):
        self.holds_and_fails(
            check_keep_rules, {name: java(name) for name in ("JniHelper", "SorvixAidlClient")} |
            {"keep": text("device/proguard/orvix.pro")},
            [("JniHelper", "sendScreenState(boolean on)", "sendScreenState(int on)"),
             ("keep", "    void stopStatsMonitoring();\n", ""), ("keep", "(int, byte[]);\n}\n\n", "(byte[]);\n}\n\n")])

    def test_names(self):
        vintf = "device/vintf/{}_vendor.nuvel.data.orvixservice.xml"
        self.holds_and_fails(
            check_names,
            {"manifest": text(vintf.format("manifest")), "matrix": text(vintf.format("compatibility_matrix")),
             "JniHelper": java("JniHelper"),
             "permissions": text("device/permissions/privapp-permissions-vendor.nuvel.data.orvixadmin.xml"),
             **{name: text(f"device/sepolicy/{name}") for name in ("service_contexts", "seapp_contexts")}},
            [("manifest", "/default", "/main"), ("matrix", ">7<", ">6<"), ("service_contexts", "IOrvix", "Orvix"),
             ("seapp_contexts", "orvixadmin ", "orvix "), ("permissions", 'orvixadmin"', 'orvix"')])

    def test_policy(self):
        folder = ROOT / "device" / "sepolicy"
        self.holds_and_fails(
            check_policy,
            {"platform": text("tests/device_policy.m4"), "rules": "\n".join(map(text, sorted(folder.glob("*.te")))),
             "contexts": "".join(map(text, folder.glob("*_contexts")))},
            [("rules", "type orvix_app, domain;\n", ""), ("rules", "type orvix_app,", "type orvix_app, coredomain,"),
             ("rules", "protected_service, ", ""), ("rules", "hal_service_type, ", ""),
             ("contexts", "orvix_daemon_exec", "orvix_exec"), ("contexts", "domain=orvix_app", "domain=orvixapp")])

    def test_library_needs_nothing_that_the_device_lacks(self):
        self.holds_and_fails(
            check_portable, library_texts(),
            [("aidl/Record.h", "#include <", "#include <concepts>\n#include <"),
             ("client/Binding.cpp", "#include <", "#include <sstream>\n#include <"),
             ("jni/JniOnLoad.cpp", "std::size(", "std::ssize("),
             ("client/EventQueue.cpp", "namespace", "#ifdef __ANDROID__\n#endif\nnamespace")])


if __name__ == "__main__":
    unittest.main()
