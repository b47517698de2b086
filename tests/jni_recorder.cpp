#include "tests/jni_recorder.h"

#include <cstdarg>
#include <cstring>
#include <map>
#include <mutex>
#include <span>

#include "sim/json/Json.h"

namespace recorder {
namespace {

// Never destroyed: threads call while the process ends.
struct State {
    void (*sink)(const std::string&) = nullptr;
    bool (*isLibrary)(const void*) = nullptr;
    std::mutex mutex;                    // guards what follows
    std::map<void*, std::string> names;  // of references that the library got
    std::map<jmethodID, std::string> signatures;
};
State& state = *new State;

void named(void* reference, const std::string& name) {
    const std::lock_guard lock(state.mutex);
    if (reference != nullptr) state.names[reference] = name;
}

std::string nameOf(void* reference, const char* otherwise) {
    if (reference == nullptr) return "null";
    const std::lock_guard lock(state.mutex);
    const auto found = state.names.find(reference);
    return found == state.names.end() ? otherwise : found->second;
}

std::string text(const char* value) { return '"' + std::string(value) + '"'; }
std::string text(jint value) { return std::to_string(value); }
std::string text(jlong value) { return std::to_string(value); }
std::string text(jobject value) { return nameOf(value, "object"); }
std::string text(jclass value) { return nameOf(value, "class"); }
std::string text(jarray value) { return nameOf(value, "array"); }
std::string text(jmethodID value) { return value == nullptr ? "null" : "method"; }
std::string text(const std::string& value) { return value; }
std::string boolean(int value) { return value == JNI_FALSE ? "false" : value == JNI_TRUE ? "true" : text(jint{value}); }

std::string hexOf(const jbyte* bytes, jsize length) { return "hex:" + sim::hexOf(sim::Bytes(bytes, bytes + length)); }

// "(first, second)"
constexpr auto list = [](const auto&... arguments) {
    std::string texts;
    ((texts += (texts.empty() ? "(" : ", ") + text(arguments)), ...);
    return texts + ')';
};

std::string callText(jobject object, jmethodID method, va_list values) {
    std::string signature, texts = list(object, method);
    {
        const std::lock_guard lock(state.mutex);
        signature = state.signatures[method];
    }
    texts.pop_back();
    va_list copy;
    va_copy(copy, values);
    for (size_t i = 1; i < signature.size() && signature[i] != ')'; ++i) {
        texts += ", ";
        switch (signature[i]) {
            case 'Z': texts += boolean(va_arg(copy, int)); break;
            case 'I': texts += text(va_arg(copy, jint)); break;
            case 'J': texts += text(va_arg(copy, jlong)); break;
            default:
                texts += text(va_arg(copy, jobject));
                i = signature.find_first_of(signature[i] == 'L' ? ";" : "B", i);
        }
    }
    va_end(copy);
    return texts + ')';
}

// The tables that the calls are passed on to.
template <typename Table>
const Table* gReal = nullptr;

// A function of a table.
template <auto Slot>
struct Recorded;
template <typename Table, typename Self, typename Result, typename... Args, Result (*Table::*Slot)(Self*, Args...)>
struct Recorded<Slot> {
    static inline const char* name = nullptr;

    // Stands in the table. Writes the name and what Text makes of the arguments, if the call is the library's; tells
    // Then what came of it, before the arguments.
    template <typename Text, typename Then>
    static Result call(Self* self, Args... args) {
        const bool noted = state.isLibrary(__builtin_return_address(0));
        if (noted) state.sink(name + Text()(args...));
        if constexpr (std::is_void_v<Result>) {
            (gReal<Table>->*Slot)(self, args...);
            if (noted) Then()(args...);
        } else {
            const Result result = (gReal<Table>->*Slot)(self, args...);
            if (noted) Then()(result, args...);
            return result;
        }
    }
};

constexpr auto nothing = [](auto...) {};
constexpr auto noText = [](auto...) { return std::string(); };

template <auto Slot>
void record(auto& table, const char* name, auto text, auto then) {
    Recorded<Slot>::name = name;
    table.*Slot = Recorded<Slot>::template call<decltype(text), decltype(then)>;
}

}  // namespace

Tables tablesOver(const EnvTable* env, const VmTable* vm, void (*sink)(const std::string& line),
                  bool (*isLibrary)(const void* address)) {
    gReal<EnvTable> = env;
    gReal<VmTable> = vm;
    state.sink = sink;
    state.isLibrary = isLibrary;
    Tables tables{*env, *vm};
    EnvTable& e = tables.env;
    record<&EnvTable::FindClass>(e, "jni FindClass", list, [](jclass found, const char* path) {
        named(found, std::string("local ") + (std::strrchr(path, '/') + 1));
    });
    const auto natives = [](jclass target, const JNINativeMethod* methods, jint count) {
        std::string lines = list(target, count);
        for (const JNINativeMethod& each : std::span(methods, static_cast<size_t>(count))) {
            lines += std::string("\n    ") + each.name + ' ' + each.signature;
        }
        return lines;
    };
    record<&EnvTable::RegisterNatives>(e, "jni RegisterNatives", natives, nothing);
    record<&EnvTable::NewGlobalRef>(e, "jni NewGlobalRef", list, [](jobject made, jobject object) {
        if (made != nullptr) named(made, nameOf(object, "local object").substr(std::strlen("local ")));
    });
    record<&EnvTable::DeleteLocalRef>(e, "jni DeleteLocalRef", list,
                                      [](jobject object) { named(object, text(object) + " (deleted)"); });
    record<&EnvTable::GetMethodID>(e, "jni GetMethodID", list,
                                   [](jmethodID method, jclass, const char*, const char* signature) {
                                       const std::lock_guard lock(state.mutex);
                                       state.signatures[method] = signature;
                                   });
    record<&EnvTable::AllocObject>(e, "jni AllocObject", list, [](jobject made, jclass) { named(made, "object"); });
    const auto callLine = [](jobject object, jmethodID method, va_list values) {
        return callText(object, method, values);
    };
    record<&EnvTable::CallVoidMethodV>(e, "jni CallVoidMethod", callLine, nothing);
    record<&EnvTable::NewStringUTF>(e, "jni NewStringUTF", list,
                                    [](jstring made, const char* content) { named(made, text(content)); });
    record<&EnvTable::NewByteArray>(e, "jni NewByteArray", list, [](jbyteArray made, jsize) { named(made, "array"); });
    record<&EnvTable::SetByteArrayRegion>(
        e, "jni SetByteArrayRegion",
        [](jbyteArray array, jsize start, jsize length, const jbyte* from) {
            return list(array, start, length, hexOf(from, length));
        },
        [](jbyteArray array, jsize, jsize length, const jbyte* from) { named(array, hexOf(from, length)); });
    const auto withoutTarget = [](jbyteArray array, jsize start, jsize length, jbyte*) {
        return list(array, start, length);
    };
    record<&EnvTable::GetByteArrayRegion>(e, "jni GetByteArrayRegion", withoutTarget, nothing);
    record<&EnvTable::GetArrayLength>(e, "jni GetArrayLength", list, nothing);
    record<&EnvTable::GetObjectArrayElement>(e, "jni GetObjectArrayElement", list, nothing);
    const auto version = [](void**, jint asked) {
        return std::string(asked == JNI_VERSION_1_6 ? "" : " of another version");
    };
    record<&VmTable::GetEnv>(tables.vm, "vm GetEnv", version, nothing);
    record<&VmTable::AttachCurrentThread>(tables.vm, "vm AttachCurrentThread", noText, nothing);
    record<&VmTable::DetachCurrentThread>(tables.vm, "vm DetachCurrentThread", noText, nothing);
    return tables;
}

void logLine(const __android_log_message* message) {
    if (std::strcmp(message->tag, "orvixJni") != 0) return;
    std::string line = std::string("log ") + "??VDIWEF"[message->priority] + ' ' + message->message;
    for (size_t at = 0; (at = line.find('\n', at)) != std::string::npos; at += 2) line.replace(at, 1, "\\n");
    state.sink(line);
}

}  // namespace recorder
