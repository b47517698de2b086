// A Java VM of function tables, as strict as a device's and silent: for fuzzers, benchmarks, endurance runs and tests.
// Any number of threads. A function that the library has no use for is a null pointer in the table.
//
// Misuse ends the process, as ART's checks do: a null class, object or method; a call on a thread that is not attached,
// or with an exception pending; a local reference after its deletion or its thread's detach; a detach of a thread
// that is not attached or inside of a native method; an index outside of an array.
#pragma once

#include <android/binder_parcel.h>
#include <jni.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace quiet {

// What stands behind a jobject.
struct Object {
    std::string text = {};
    std::vector<uint8_t> bytes = {};
    std::vector<Object*> elements = {};
    AParcel* parcel = nullptr;
};
// A reference to an object of Java's own, good for as long as the object lives.
inline jobject ref(Object& object) { return reinterpret_cast<jobject>(&object); }
// What a reference of either kind stands for; null is misuse.
Object& of(jobject reference);

// A call into Java, as its arguments arrived.
using Value = std::variant<bool, int32_t, int64_t, std::string, std::vector<uint8_t>>;
struct Call {
    std::string method;
    std::vector<Value> arguments;
    bool operator==(const Call&) const = default;
};

// How the VM answers. Set it while no other thread runs, but for the atomic members.
struct Script {
    // Gets each call into Java, on the thread that makes it. Null: nobody looks, and no argument is even gathered.
    std::function<void(const Call&)> onCall;
    std::optional<jint> getEnv;         // instead of whether the thread is attached
    std::atomic<jint> attach = JNI_OK;  // AttachCurrentThread
    jint registerNatives = JNI_OK;
    std::set<std::string, std::less<>> missing;  // classes and methods that are not there
    bool allocObject = true;
    // Misuse that is to be seen, by its text: of a null class or method, or with an exception pending. It is taken from
    // here, and the call goes on.
    std::set<std::string, std::less<>> misuse;
};
extern Script& script;
// Local references that no detach and no DeleteLocalRef has ended, over all threads.
extern std::atomic<int> localReferences;

JavaVM* vm();
// Attaches a thread that calls native methods, as threads of Java are.
JNIEnv* env();
// Detaches a thread that may be attached.
void leave();

// Calls a native method by the name under which the library registered it, on a thread of Java.
void* nativeMethod(const std::string& name);
class NativeFrame {
  public:
    NativeFrame();
    ~NativeFrame();
    NativeFrame(const NativeFrame&) = delete;
    NativeFrame& operator=(const NativeFrame&) = delete;
};
template <typename... Args>
void callNative(JNIEnv* caller, const char* name, Args... args) {
    const NativeFrame frame;
    reinterpret_cast<void (*)(JNIEnv*, jobject, Args...)>(nativeMethod(name))(caller, nullptr, args...);
}

}  // namespace quiet
