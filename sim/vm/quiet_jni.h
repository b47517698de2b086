// A Java VM of function tables that writes nothing down: for fuzzers, benchmarks and endurance runs, where a transcript
// would cost more than what is looked at. Any number of threads. A function that the library has no use for is a null
// pointer in the table.
#pragma once

#include <android/binder_parcel.h>
#include <jni.h>

#include <atomic>
#include <cstdint>
#include <functional>
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
inline jobject ref(Object& object) { return reinterpret_cast<jobject>(&object); }

// A call into Java, as its arguments arrived.
using Value = std::variant<bool, int32_t, int64_t, std::string, std::vector<uint8_t>>;
struct Call {
    std::string method;
    std::vector<Value> arguments;
    bool operator==(const Call&) const = default;
};

// Gets each call into Java, on the thread that makes it. Null: nobody looks, and the arguments are not even gathered.
// Set it while no other thread runs.
extern std::function<void(const Call&)> onCall;
// What AttachCurrentThread answers.
extern std::atomic<jint> attachResult;
// Local references that no detach and no DeleteLocalRef has ended, over all threads.
extern std::atomic<int> localReferences;

JavaVM* vm();
// For a thread that calls native methods, as threads of Java do.
JNIEnv* env();

}  // namespace quiet
