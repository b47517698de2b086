#!/usr/bin/env python3
"""What is written down twice must say the same twice.

Source lists of the two build systems; the frozen interface and its sources; the names and signatures that native
code, Java and the keep rules share; the library's includes and what the device's C++ library has. Each comparison is a
function from texts to a list of differences, and each is also shown planted differences.
"""
import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "device"))
import freeze  # noqa: E402

LIBRARY = ("aidl", "callback", "client", "jni")
JAVA = "sim/app/java/vendor/nuvel/data/orvixadmin"


def text(path):
    return (ROOT / path).read_text(encoding="utf-8")


def library_texts():
    return {path.relative_to(ROOT).as_posix(): path.read_text(encoding="utf-8")
            for folder in LIBRARY for path in sorted((ROOT / folder).glob("*.*")) if path.suffix in (".h", ".cpp")}


def apart(name_a, a, name_b, b):
    """The elements that only one of two sets has."""
    return ([f"{item} is only in {name_a}" for item in sorted(a - b)] +
            [f"{item} is only in {name_b}" for item in sorted(b - a)])


# --- sources of the two builds --------------------------------------------------------------------------------------

def compare_sources(android_bp, cmake, on_disk):
    module = re.search(r'name: "libOrvixJni_static",.*?srcs: \[(.*?)\]', android_bp, re.S).group(1)
    soong = set(re.findall(r'"(.+?\.cpp)"', module))
    targets = re.findall(r"add_library\(orvix_(?:aidl|client) STATIC(.*?)\)", cmake, re.S)
    listed = {source for target in targets for source in target.split()}
    return (apart("Android.bp", soong, "CMakeLists.txt", listed) +
            apart("CMakeLists.txt", listed, "the folders", on_disk))


# --- names that Java and native code share --------------------------------------------------------------------------

JAVA_LETTERS = {"boolean": "Z", "int": "I", "long": "J", "byte": "B", "String": "Ljava/lang/String;",
                "java.lang.String": "Ljava/lang/String;", "Parcel": "Landroid/os/Parcel;",
                "android.os.Parcel": "Landroid/os/Parcel;"}
CPP_LETTERS = {"bool": "Z", "int32_t": "I", "int64_t": "J", "RatType": "I", "std::string": "Ljava/lang/String;",
               "const std::vector<uint8_t>&": "[B"}


def java_signature(parameters):
    """JNI signature of Java parameters, with or without names."""
    letters = ""
    for parameter in filter(None, (part.strip() for part in parameters.split(","))):
        kind = parameter.split()[0]
        letters += "[" * kind.count("[]") + JAVA_LETTERS[kind.replace("[]", "")]
    return f"({letters})V"


def java_methods(source, modifiers):
    return {name + java_signature(parameters)
            for name, parameters in re.findall(rf"^ *{modifiers} void (\w+)\(([^)]*)\)", source, re.M)}


def kept(rules, java_class):
    block = re.search(rf"-keep class [\w.]*\.{java_class} \{{(.*?)\}}", rules, re.S)
    return {name + java_signature(parameters)
            for name, parameters in re.findall(r"void (\w+)\((.*?)\);", block.group(1))} if block else set()


def native_table(jni_on_load):
    rows = re.findall(r'native<&AidlClient::\w+>\(\s*"(\w+)", "(.*?)"\)', jni_on_load)
    return {name + signature for name, signature in rows}


def call_outs(java_calls, records):
    """The Java methods that the library calls, from the C++ types that it passes."""
    record = re.search(r"struct NetworkStats \{(.*?)using R", records, re.S).group(1)
    members = {member: kind for kind, member in re.findall(r"^    ([\w:]+) (\w+)(?: = .*)?;", record, re.M)}
    rows = set(f"{name}(Z)V" for name in re.findall(r'callOut\.call\("(\w+)", "[\w ]+", available\)', java_calls))
    for parameters, names, arguments in re.findall(
            r'^void AidlClient::\w+\(([^()]*)\) \{\s*CallOut\(\*this\)\.(?:to|as)\(((?:"\w+"(?:, )?)+)(.*?)\);', java_calls,
            re.M | re.S):
        kinds = {part.rsplit(" ", 1)[1]: part.rsplit(" ", 1)[0] for part in parameters.split(", ") if part}
        given = [argument.strip() for argument in arguments.split(",") if argument.strip()]
        letters = "".join(CPP_LETTERS[members[argument.removeprefix("stats.")] if argument.startswith("stats.")
                                      else kinds[argument]] for argument in given)
        rows.add(f"{names.rstrip(', ').split(', ')[-1][1:-1]}({letters})V")
    return rows


def compare_java(t):
    natives, outs = native_table(t["jni"]), call_outs(t["calls"], t["records"])
    counts = [f"{len(natives)} natives instead of 15"] * (len(natives) != 15) + \
             [f"{len(outs)} call-outs instead of 22"] * (len(outs) != 22)
    return (counts +
            apart("the native table", natives, "JniHelper.java", java_methods(t["helper"], "public static native")) +
            apart("the native table", natives, "the keep rules", kept(t["keep"], "JniHelper")) +
            apart("the call-outs", outs, "SorvixAidlClient.java", java_methods(t["client"], "public")) +
            apart("the call-outs", outs, "the keep rules", kept(t["keep"], "SorvixAidlClient")))


# --- what the device's C++ library lacks ----------------------------------------------------------------------------

# The second half are streams: with control-flow integrity across modules they trap.
MISSING_HEADERS = set("barrier bit concepts format latch numbers ranges semaphore source_location stop_token "
                      "fstream iomanip ios iosfwd iostream istream ostream sstream streambuf syncstream".split())
MISSING_NAMES = re.compile(r"std::(?:jthread|to_array|ssize|midpoint|cmp_\w+|in_range|bind_front|bit_cast|endian|"
                           r"ranges)\b"
                           r"|\.contains\(|\.(?:wait|notify_\w+)\(std::memory_order")


def check_portable(sources):
    found = []
    for path, source in sources.items():
        included = set(re.findall(r"^\s*#\s*include\s*<(.+?)>", source, re.M))
        found += [f"{path} includes <{name}>" for name in sorted(included & MISSING_HEADERS)]
        found += [f"{path} uses {name}" for name in MISSING_NAMES.findall(source)]
        found += [f"{path} asks for __ANDROID__"] * ("__ANDROID__" in source)
    return found


class Consistency(unittest.TestCase):
    """Each test: nothing to be found as things are, and something with each planted difference."""

    def holds_and_fails(self, compare, texts, plants):
        """texts: {name: text}; plants: (name, old, new) put into a copy of the texts, one at a time."""
        self.assertEqual([], compare(texts))
        for name, old, new in plants:
            self.assertIn(old, texts[name], f"nothing to plant '{new}' on")
            self.assertNotEqual([], compare({**texts, name: texts[name].replace(old, new, 1)}), f"'{old}' as '{new}'")

    def test_source_lists(self):
        on_disk = {path for path in library_texts() if path.endswith(".cpp")}
        self.holds_and_fails(
            lambda t: compare_sources(t["bp"], t["cmake"], on_disk),
            {"bp": text("Android.bp"), "cmake": text("CMakeLists.txt")},
            [("bp", '        "client/Binding.cpp",\n', ""), ("cmake", "    jni/StatusCalls.cpp\n", "")])
        self.assertNotEqual([], compare_sources(text("Android.bp"), text("CMakeLists.txt"), on_disk | {"jni/New.cpp"}))

    def test_frozen_interface(self):
        sources = freeze.read(ROOT / "aidl", "*.aidl")
        present = {**freeze.read(ROOT / "aidl_api", "*.aidl"), **freeze.read(ROOT / "aidl_api", ".hash")}
        path = "vendor/nuvel/data/orvixservice/BatteryState.aidl"
        commented = {**sources, path: "// a better comment\n" + sources[path]}
        self.assertEqual([], freeze.differences(commented, present))
        for changed in ({path: sources[path].replace("int int1", "long int1")}, {"New.aidl": ""}):
            self.assertNotEqual([], freeze.differences({**sources, **changed}, present))
        self.assertNotEqual([], freeze.differences(sources, {**present, f"{freeze.NAME}/7/.hash": "other"}))

    def test_java_names(self):
        self.holds_and_fails(
            compare_java,
            {"jni": text("jni/JniOnLoad.cpp"), "calls": text("client/JavaCalls.cpp"), "records": text("aidl/Records.h"),
             "helper": text(f"{JAVA}/JniHelper.java"), "client": text(f"{JAVA}/SorvixAidlClient.java"),
             "keep": text("device/proguard/orvix.pro")},
            [("jni", '"(IJI)V"', '"(IIJ)V"'), ("calls", "stats.long4, ", ""),
             ("calls", '"onIServiceBinderAvailable"', '"onServiceAvailable"'),
             ("records", "int64_t long4 = 0", "int32_t long4 = 0"),
             ("helper", "sendScreenState(boolean on)", "sendScreenState(int on)"),
             ("client", "startUidStatsPolling(long", "startUidStatsPolling(int"),
             ("keep", "    void stopStatsMonitoring();\n", ""), ("keep", "(int, byte[]);\n}\n\n", "(byte[]);\n}\n\n")])

    def test_library_needs_nothing_that_the_device_lacks(self):
        self.holds_and_fails(
            check_portable, library_texts(),
            [("aidl/Record.h", "#include <", "#include <concepts>\n#include <"),
             ("client/Binding.cpp", "#include <", "#include <sstream>\n#include <"),
             ("jni/JniOnLoad.cpp", "std::size(", "std::ssize("),
             ("client/EventQueue.cpp", "namespace", "#ifdef __ANDROID__\n#endif\nnamespace")])


if __name__ == "__main__":
    unittest.main()
