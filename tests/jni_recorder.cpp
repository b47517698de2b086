#include "tests/jni_recorder.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>

namespace recorder {
namespace {

// Never destroyed: threads call while the process ends.
struct State {
    const EnvTable* env = nullptr;
    const VmTable* vm = nullptr;
    void (*sink)(const std::string&) = nullptr;
    bool (*isLibrary)(const void*) = nullptr;
    std::mutex mutex;                    // guards what follows
    std::map<void*, std::string> names;  // of references that the library got
    std::map<jmethodID, std::string> signatures;
};
State& state = *new State;

template <typename T>
T named(T reference, const std::string& name) {
    const std::lock_guard lock(state.mutex);
    if (reference != nullptr) state.names[reference] = name;
    return reference;
}

std::string nameOf(void* reference, const char* otherwise) {
    if (reference == nullptr) return "null";
    const std::lock_guard lock(state.mutex);
    const auto found = state.names.find(reference);
    return found == state.names.end() ? otherwise : found->second;
}

// A method's arguments after the first two.
struct Values {
    const std::string& signature;
    va_list* list;
};
struct Bytes {
    const jbyte* from;
    jsize length;
};

std::string text(const char* value) { return '"' + std::string(value) + '"'; }
std::string text(jint value) { return std::to_string(value); }
std::string text(jlong value) { return std::to_string(value); }
std::string text(jobject value) { return nameOf(value, "object"); }
std::string text(jclass value) { return nameOf(value, "class"); }
std::string text(jarray value) { return nameOf(value, "array"); }
std::string text(jmethodID value) { return value == nullptr ? "null" : "method"; }
std::string text(Bytes value) {
    std::string hex = "hex:";
    for (jsize i = 0; i < value.length; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<uint8_t>(value.from[i]));
        hex += digits;
    }
    return hex;
}
std::string boolean(int value) { return value == JNI_FALSE ? "false" : value == JNI_TRUE ? "true" : text(jint{value}); }

std::string text(Values values) {
    std::string texts;
    const std::string& signature = values.signature;
    for (size_t i = 1; i < signature.size() && signature[i] != ')'; ++i) {
        if (!texts.empty()) texts += ", ";
        switch (signature[i]) {
            case 'Z': texts += boolean(va_arg(*values.list, int)); break;
            case 'I': texts += text(va_arg(*values.list, jint)); break;
            case 'J': texts += text(va_arg(*values.list, jlong)); break;
            default:
                texts += text(va_arg(*values.list, jobject));
                i = signature.find_first_of(signature[i] == 'L' ? ";" : "B", i);
        }
    }
    return texts;
}

template <typename... Args>
bool noteFrom(const void* caller, const char* function, const Args&... args) {
    if (!state.isLibrary(caller)) return false;
    std::string texts;
    const auto add = [&](const std::string& argument) {
        texts += (texts.empty() || argument.empty() ? "" : ", ") + argument;
    };
    (add(text(args)), ...);
    state.sink(std::string("jni ") + function + '(' + texts + ')');
    return true;
}

// Writes "jni function(args)" if the call is the library's; whether it is. Inlined, so that its caller's caller is
// asked.
template <typename... Args>
[[gnu::always_inline]] inline bool note(const char* function, const Args&... args) {
    return noteFrom(__builtin_return_address(0), function, args...);
}
[[gnu::always_inline]] inline void noteVm(const char* line) {
    if (state.isLibrary(__builtin_return_address(0))) state.sink(line);
}

jclass findClass(JNIEnv* env, const char* path) {
    const bool noted = note("FindClass", path);
    const jclass found = state.env->FindClass(env, path);
    return noted ? named(found, std::string("local ") + (std::strrchr(path, '/') + 1)) : found;
}

jint registerNatives(JNIEnv* env, jclass target, const JNINativeMethod* methods, jint count) {
    const bool noted = note("RegisterNatives", target, count);
    for (jint i = 0; noted && i < count; ++i) {
        state.sink(std::string("    ") + methods[i].name + ' ' + methods[i].signature);
    }
    return state.env->RegisterNatives(env, target, methods, count);
}

jobject newGlobalRef(JNIEnv* env, jobject object) {
    const bool noted = note("NewGlobalRef", object);
    const jobject made = state.env->NewGlobalRef(env, object);
    if (!noted || made == nullptr) return made;
    return named(made, nameOf(object, "local object").substr(std::strlen("local ")));
}

void deleteLocalRef(JNIEnv* env, jobject object) {
    if (note("DeleteLocalRef", object)) named(object, text(object) + " (deleted)");
    state.env->DeleteLocalRef(env, object);
}

jmethodID getMethodId(JNIEnv* env, jclass target, const char* name, const char* signature) {
    const bool noted = note("GetMethodID", target, name, signature);
    const jmethodID method = state.env->GetMethodID(env, target, name, signature);
    const std::lock_guard lock(state.mutex);
    if (noted) state.signatures[method] = signature;
    return method;
}

jobject allocObject(JNIEnv* env, jclass target) {
    const bool noted = note("AllocObject", target);
    const jobject made = state.env->AllocObject(env, target);
    return noted ? named(made, "object") : made;
}

void callVoidMethodV(JNIEnv* env, jobject object, jmethodID method, va_list values) {
    std::string signature;
    {
        const std::lock_guard lock(state.mutex);
        signature = state.signatures[method];
    }
    va_list copy;
    va_copy(copy, values);
    note("CallVoidMethod", object, method, Values{signature, &copy});
    va_end(copy);
    state.env->CallVoidMethodV(env, object, method, values);
}

jstring newStringUtf(JNIEnv* env, const char* content) {
    const bool noted = note("NewStringUTF", content);
    const jstring made = state.env->NewStringUTF(env, content);
    return noted ? named(made, text(content)) : made;
}

jbyteArray newByteArray(JNIEnv* env, jsize length) {
    const bool noted = note("NewByteArray", length);
    const jbyteArray made = state.env->NewByteArray(env, length);
    return noted ? named(made, "array") : made;
}

void setByteArrayRegion(JNIEnv* env, jbyteArray array, jsize start, jsize length, const jbyte* from) {
    const bool noted = note("SetByteArrayRegion", array, start, length, Bytes{from, length});
    state.env->SetByteArrayRegion(env, array, start, length, from);
    if (noted) named(array, text(Bytes{from, length}));
}

void getByteArrayRegion(JNIEnv* env, jbyteArray array, jsize start, jsize length, jbyte* to) {
    note("GetByteArrayRegion", array, start, length);
    state.env->GetByteArrayRegion(env, array, start, length, to);
}

jsize getArrayLength(JNIEnv* env, jarray array) {
    note("GetArrayLength", array);
    return state.env->GetArrayLength(env, array);
}

jobject getObjectArrayElement(JNIEnv* env, jobjectArray array, jsize index) {
    note("GetObjectArrayElement", array, index);
    return state.env->GetObjectArrayElement(env, array, index);
}

jint getEnv(JavaVM* vm, void** env, jint version) {
    noteVm(version == JNI_VERSION_1_6 ? "vm GetEnv" : "vm GetEnv of another version");
    return state.vm->GetEnv(vm, env, version);
}

template <typename Env>  // JNIEnv in Android's header, void in the other
jint attachCurrentThread(JavaVM* vm, Env** env, void* arguments) {
    noteVm("vm AttachCurrentThread");
    return state.vm->AttachCurrentThread(vm, env, arguments);
}

jint detachCurrentThread(JavaVM* vm) {
    noteVm("vm DetachCurrentThread");
    return state.vm->DetachCurrentThread(vm);
}

}  // namespace

Tables tablesOver(const EnvTable* env, const VmTable* vm, void (*sink)(const std::string& line),
                  bool (*isLibrary)(const void* address)) {
    state.env = env;
    state.vm = vm;
    state.sink = sink;
    state.isLibrary = isLibrary;
    Tables tables{*env, *vm};
    tables.env.FindClass = findClass;
    tables.env.RegisterNatives = registerNatives;
    tables.env.NewGlobalRef = newGlobalRef;
    tables.env.DeleteLocalRef = deleteLocalRef;
    tables.env.GetMethodID = getMethodId;
    tables.env.AllocObject = allocObject;
    tables.env.CallVoidMethodV = callVoidMethodV;
    tables.env.NewStringUTF = newStringUtf;
    tables.env.NewByteArray = newByteArray;
    tables.env.SetByteArrayRegion = setByteArrayRegion;
    tables.env.GetByteArrayRegion = getByteArrayRegion;
    tables.env.GetArrayLength = getArrayLength;
    tables.env.GetObjectArrayElement = getObjectArrayElement;
    tables.vm.GetEnv = getEnv;
    tables.vm.AttachCurrentThread = attachCurrentThread;
    tables.vm.DetachCurrentThread = detachCurrentThread;
    return tables;
}

void logLine(const __android_log_message* message) {
    if (std::strcmp(message->tag, "orvixJni") != 0) return;
    std::string line = std::string("log ") + "??VDIWEF"[message->priority] + ' ' + message->message;
    for (size_t at = 0; (at = line.find('\n', at)) != std::string::npos; at += 2) line.replace(at, 1, "\\n");
    state.sink(line);
}

}  // namespace recorder
