#include "sim/vm/quiet_jni.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <unordered_set>

namespace quiet {

// Nothing here is ever destroyed: threads go on while the process ends.
Script& script = *new Script;
std::atomic<int> localReferences = 0;

namespace {

using Method = const std::string;  // name and signature

std::mutex& gMutex = *new std::mutex;                   // guards what follows
auto& gMethods = *new std::unordered_set<std::string>;  // for ever, as in a VM
auto& gNatives = *new std::map<std::string, void*>;

// A class, a field, and every object on which methods are called.
Object& gAny = *new Object;

// A thread of the VM, from its attaching to its detaching.
struct Attachment {
    uintptr_t number = 0;  // of the attaching; 0 while the thread is not attached
    std::vector<Object*> locals;
    std::deque<Object> made;  // strings and arrays
    bool exception = false;
    int frames = 0;  // native methods under way
};
thread_local Attachment tHere;

[[noreturn]] void end(const std::string& text) {
    std::fprintf(stderr, "Java VM: %s\n", text.c_str());
    std::abort();
}

void misuse(const std::string& text) {
    const std::lock_guard lock(gMutex);
    if (script.misuse.erase(text) == 0) end(text);
}

void check(bool held, const char* function, const char* what) {
    if (!held) misuse(std::string(function) + what);
}

// What every function checks but those that are there to clean up.
void enter(const char* function) {
    check(tHere.number != 0, function, " on a thread that is not attached");
    check(!tHere.exception, function, " with an exception pending");
}

// A local reference is odd: the attaching's number, an index, 1. All others are addresses.
constexpr unsigned kIndexBits = 24;
template <typename T = jobject>
T local(Object& object) {
    tHere.locals.push_back(&object);
    ++localReferences;
    const uintptr_t index = tHere.locals.size() - 1;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): no address, so that a reference past its end is no other's
    return reinterpret_cast<T>(tHere.number << (kIndexBits + 1) | index << 1 | 1);
}
bool isLocal(jobject reference) { return (reinterpret_cast<uintptr_t>(reference) & 1) != 0; }

// Where the object of a local reference stands.
Object*& placeOf(jobject reference) {
    const auto bits = reinterpret_cast<uintptr_t>(reference);
    const size_t index = bits >> 1 & ((1u << kIndexBits) - 1);
    const bool here = bits >> (kIndexBits + 1) == tHere.number && index < tHere.locals.size();
    if (!here || tHere.locals[index] == nullptr) end("a local reference is used after its end");
    return tHere.locals[index];
}

void enter(const char* function, jobject target, const char* null) {
    enter(function);
    check(target != nullptr, function, null);
}

void checkRegion(const char* function, jbyteArray array, jsize start, jsize length) {
    enter(function, array, " of a null array");
    const bool inside =
        start >= 0 && length >= 0 && static_cast<size_t>(start) + static_cast<size_t>(length) <= of(array).bytes.size();
    check(inside, function, " outside of the array");
}

Method* methodOf(const char* name, const char* signature) {
    thread_local std::string key;
    key.assign(name).append(signature);
    const std::lock_guard lock(gMutex);
    return &*gMethods.insert(key).first;
}

std::vector<Value> gather(const std::string& signature, va_list values) {
    std::vector<Value> gathered;
    for (size_t i = 1; signature[i] != ')'; ++i) {
        switch (signature[i]) {
            case 'Z': gathered.emplace_back(va_arg(values, int) != 0); break;
            case 'I': gathered.emplace_back(int32_t{va_arg(values, jint)}); break;
            case 'J': gathered.emplace_back(int64_t{va_arg(values, jlong)}); break;
            case 'L':
                gathered.emplace_back(of(va_arg(values, jobject)).text);
                i = signature.find(';', i);
                break;
            default: gathered.emplace_back(of(va_arg(values, jobject)).bytes); ++i;
        }
    }
    return gathered;
}

// Null, with an exception, instead of what is missing.
template <typename T>
T unless(bool missing, T found) {
    tHere.exception = missing;
    return missing ? nullptr : found;
}

JNINativeInterface makeTable() {
    JNINativeInterface t{};
    t.FindClass = [](JNIEnv*, const char* path) {
        enter("FindClass");
        return unless(script.missing.contains(std::strrchr(path, '/') + 1), local<jclass>(gAny));
    };
    t.RegisterNatives = [](JNIEnv*, jclass target, const JNINativeMethod* methods, jint count) {
        enter("RegisterNatives", target, " of a null class");
        const std::lock_guard lock(gMutex);
        for (jint i = 0; i < count; ++i) gNatives[methods[i].name] = methods[i].fnPtr;
        return script.registerNatives;
    };
    t.NewGlobalRef = [](JNIEnv*, jobject object) { return object == nullptr ? nullptr : ref(of(object)); };
    t.DeleteLocalRef = [](JNIEnv*, jobject object) {
        if (!isLocal(object)) return;
        placeOf(object) = nullptr;
        --localReferences;
    };
    t.GetMethodID = [](JNIEnv*, jclass target, const char* name, const char* signature) {
        enter("GetMethodID", target, " of a null class");
        return target == nullptr
                   ? nullptr
                   : unless(script.missing.contains(name),
                            reinterpret_cast<jmethodID>(const_cast<std::string*>(methodOf(name, signature))));
    };
    t.AllocObject = [](JNIEnv*, jclass target) {
        enter("AllocObject", target, " of a null class");
        return target == nullptr ? nullptr : unless(!script.allocObject, local(gAny));
    };
    t.CallVoidMethodV = [](JNIEnv*, jobject object, jmethodID id, va_list values) {
        enter("CallVoidMethod", object, " on a null object");
        (void)of(object);
        check(id != nullptr, "CallVoidMethod", " of a null method");
        if (!script.onCall || id == nullptr) return;
        Method& method = *reinterpret_cast<Method*>(id);
        const size_t signature = method.find('(');
        script.onCall({method.substr(0, signature), gather(method.substr(signature), values)});
    };
    t.NewStringUTF = [](JNIEnv*, const char* text) {
        enter("NewStringUTF");
        return local<jstring>(tHere.made.emplace_back(Object{.text = text}));
    };
    t.NewByteArray = [](JNIEnv*, jsize length) {
        enter("NewByteArray");
        const auto size = static_cast<size_t>(length);
        return local<jbyteArray>(tHere.made.emplace_back(Object{.bytes = std::vector<uint8_t>(size)}));
    };
    t.SetByteArrayRegion = [](JNIEnv*, jbyteArray array, jsize start, jsize length, const jbyte* from) {
        checkRegion("SetByteArrayRegion", array, start, length);
        std::copy_n(from, length, of(array).bytes.begin() + start);
    };
    t.GetByteArrayRegion = [](JNIEnv*, jbyteArray array, jsize start, jsize length, jbyte* to) {
        checkRegion("GetByteArrayRegion", array, start, length);
        std::copy_n(of(array).bytes.begin() + start, length, to);
    };
    t.GetArrayLength = [](JNIEnv*, jarray array) {
        enter("GetArrayLength", array, " of a null array");
        return static_cast<jsize>(of(array).elements.size() + of(array).bytes.size());
    };
    // A native method's references end when it returns: Java's own objects serve for them.
    t.GetObjectArrayElement = [](JNIEnv*, jobjectArray array, jsize index) {
        enter("GetObjectArrayElement", array, " of a null array");
        const auto& elements = of(array).elements;
        check(index >= 0 && static_cast<size_t>(index) < elements.size(), "GetObjectArrayElement", " outside of it");
        return ref(*elements[static_cast<size_t>(index)]);
    };
    // How the platform finds the parcel behind Java's.
    t.GetObjectClass = [](JNIEnv*, jobject) { return reinterpret_cast<jclass>(&gAny); };
    t.GetFieldID = [](JNIEnv*, jclass, const char*, const char*) { return reinterpret_cast<jfieldID>(&gAny); };
    t.GetLongField = [](JNIEnv*, jobject object, jfieldID) { return reinterpret_cast<jlong>(of(object).parcel); };
    return t;
}

const JNINativeInterface kTable = makeTable();
JNIEnv gEnv{&kTable};

JNIInvokeInterface makeVmTable() {
    JNIInvokeInterface t{};
    t.AttachCurrentThread = [](JavaVM*, JNIEnv** out, void*) {
        const jint result = script.attach;
        if (result == JNI_OK) *out = env();
        return result;
    };
    t.DetachCurrentThread = [](JavaVM*) {
        check(tHere.number != 0, "DetachCurrentThread", " of a thread that is not attached");
        check(tHere.frames == 0, "DetachCurrentThread", " inside of a native method");
        leave();
        return jint{JNI_OK};
    };
    t.GetEnv = [](JavaVM*, void** out, jint) {
        if (script.getEnv) return *script.getEnv;
        if (tHere.number == 0) return jint{JNI_EDETACHED};
        *out = &gEnv;
        return jint{JNI_OK};
    };
    return t;
}

const JNIInvokeInterface kVmTable = makeVmTable();
JavaVM gVm{&kVmTable};

}  // namespace

Object& of(jobject reference) {
    if (reference == nullptr) end("a null reference is used");
    return isLocal(reference) ? *placeOf(reference) : *reinterpret_cast<Object*>(reference);
}

JavaVM* vm() { return &gVm; }
JNIEnv* env() {
    static std::atomic<uintptr_t> last = 0;
    if (tHere.number == 0) tHere.number = ++last;
    return &gEnv;
}
void leave() {
    for (const Object* local : tHere.locals) localReferences -= local != nullptr;
    tHere = {};
}

void* nativeMethod(const std::string& name) {
    const std::lock_guard lock(gMutex);
    return gNatives.at(name);
}
NativeFrame::NativeFrame() { ++tHere.frames; }
NativeFrame::~NativeFrame() { --tHere.frames; }

}  // namespace quiet
