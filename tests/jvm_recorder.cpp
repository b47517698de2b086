// A JVMTI agent that writes down what libOrvixJni.so does on a real virtual machine: its JNI calls, its calls of the
// JavaVM and its log lines, one line each and in order, in the words of the transcripts.
//
//   java -agentpath:libjvm_recorder.so=FILE ...
//
// What others call is passed on unseen: a call is the library's when it returns into the library.

#include <android/log.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <jvmti.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tests/text.h"

namespace {

// Never destroyed: threads call while the process ends.
struct State {
    int file = -1;
    jniNativeInterface* original = nullptr;
    const JNIInvokeInterface_* originalVm = nullptr;
    std::mutex mutex;                    // guards what follows
    std::map<void*, std::string> names;  // of references that the library got
    std::map<jmethodID, std::string> signatures;
};
State& state = *new State;

void record(const std::string& line) {
    const std::string text = line + '\n';
    if (write(state.file, text.data(), text.size()) < 0) std::perror("jvm_recorder");
}

bool fromLibrary(void* returnAddress) {
    Dl_info info{};
    return dladdr(returnAddress, &info) != 0 && std::string_view(info.dli_fname).ends_with("/libOrvixJni.so");
}

std::string nameOf(void* reference, const char* otherwise) {
    if (reference == nullptr) return "null";
    const std::lock_guard lock(state.mutex);
    const auto found = state.names.find(reference);
    return found == state.names.end() ? otherwise : found->second;
}

template <typename T>
T named(T reference, const std::string& name) {
    const std::lock_guard lock(state.mutex);
    if (reference != nullptr) state.names[reference] = name;
    return reference;
}

std::string quoted(const char* text) { return '"' + std::string(text) + '"'; }
std::string number(jlong value) { return std::to_string(value); }
std::string hex(const jbyte* bytes, jsize length) {
    std::string text = "hex:";
    for (jsize i = 0; i < length; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<uint8_t>(bytes[i]));
        text += digits;
    }
    return text;
}

std::string valuesOf(const std::string& signature, va_list values) {
    std::string text;
    for (size_t i = 1; i < signature.size() && signature[i] != ')'; ++i) {
        text += ", ";
        switch (signature[i]) {
            case 'Z': {
                const int value = va_arg(values, int);
                text += value == JNI_FALSE ? "false" : value == JNI_TRUE ? "true" : number(value);
                break;
            }
            case 'I': text += number(va_arg(values, jint)); break;
            case 'J': text += number(va_arg(values, jlong)); break;
            default:
                text += nameOf(va_arg(values, jobject), "object");
                i = signature.find_first_of(signature[i] == 'L' ? ";" : "B", i);
        }
    }
    return text;
}

// Writes the line down if it is the library's; whether it is.
template <typename Text>
bool note(void* returnAddress, const Text& line) {
    if (!fromLibrary(returnAddress)) return false;
    record(line());
    return true;
}

jclass findClass(JNIEnv* env, const char* path) {
    const bool noted = note(__builtin_return_address(0), [&] { return "jni FindClass(" + quoted(path) + ")"; });
    const jclass found = state.original->FindClass(env, path);
    return noted ? named(found, std::string("local ") + (std::strrchr(path, '/') + 1)) : found;
}

jint registerNatives(JNIEnv* env, jclass target, const JNINativeMethod* methods, jint count) {
    const bool noted = note(__builtin_return_address(0), [&] {
        return "jni RegisterNatives(" + nameOf(target, "class") + ", " + number(count) + ")";
    });
    for (jint i = 0; noted && i < count; ++i)
        record(std::string("    ") + methods[i].name + ' ' + methods[i].signature);
    return state.original->RegisterNatives(env, target, methods, count);
}

jobject newGlobalRef(JNIEnv* env, jobject object) {
    const auto line = [&] { return "jni NewGlobalRef(" + nameOf(object, "object") + ")"; };
    const bool noted = note(__builtin_return_address(0), line);
    const jobject made = state.original->NewGlobalRef(env, object);
    return noted ? named(made, nameOf(object, "local object").substr(std::strlen("local "))) : made;
}

void deleteLocalRef(JNIEnv* env, jobject object) {
    note(__builtin_return_address(0), [&] { return "jni DeleteLocalRef(" + nameOf(object, "object") + ")"; });
    state.original->DeleteLocalRef(env, object);
}

jmethodID getMethodID(JNIEnv* env, jclass target, const char* name, const char* signature) {
    const bool noted = note(__builtin_return_address(0), [&] {
        return "jni GetMethodID(" + nameOf(target, "class") + ", " + quoted(name) + ", " + quoted(signature) + ")";
    });
    const jmethodID method = state.original->GetMethodID(env, target, name, signature);
    const std::lock_guard lock(state.mutex);
    if (noted) state.signatures[method] = signature;
    return method;
}

jobject allocObject(JNIEnv* env, jclass target) {
    const bool noted =
        note(__builtin_return_address(0), [&] { return "jni AllocObject(" + nameOf(target, "class") + ")"; });
    const jobject made = state.original->AllocObject(env, target);
    return noted ? named(made, "object") : made;
}

void callVoidMethodV(JNIEnv* env, jobject object, jmethodID method, va_list values) {
    va_list copy;
    va_copy(copy, values);
    note(__builtin_return_address(0), [&] {
        return "jni CallVoidMethod(" + nameOf(object, "object") + ", method" +
               valuesOf(state.signatures[method], copy) + ")";
    });
    va_end(copy);
    state.original->CallVoidMethodV(env, object, method, values);
}

jstring newStringUTF(JNIEnv* env, const char* text) {
    const bool noted = note(__builtin_return_address(0), [&] { return "jni NewStringUTF(" + quoted(text) + ")"; });
    const jstring made = state.original->NewStringUTF(env, text);
    return noted ? named(made, quoted(text)) : made;
}

jbyteArray newByteArray(JNIEnv* env, jsize length) {
    const bool noted = note(__builtin_return_address(0), [&] { return "jni NewByteArray(" + number(length) + ")"; });
    const jbyteArray made = state.original->NewByteArray(env, length);
    return noted ? named(made, "array") : made;
}

void setByteArrayRegion(JNIEnv* env, jbyteArray array, jsize start, jsize length, const jbyte* from) {
    const bool noted = note(__builtin_return_address(0), [&] {
        return "jni SetByteArrayRegion(" + nameOf(array, "array") + ", " + number(start) + ", " + number(length) +
               ", " + hex(from, length) + ")";
    });
    state.original->SetByteArrayRegion(env, array, start, length, from);
    if (noted) named(array, hex(from, length));
}

void getByteArrayRegion(JNIEnv* env, jbyteArray array, jsize start, jsize length, jbyte* to) {
    note(__builtin_return_address(0),
         [&] { return "jni GetByteArrayRegion(array, " + number(start) + ", " + number(length) + ")"; });
    state.original->GetByteArrayRegion(env, array, start, length, to);
}

jsize getArrayLength(JNIEnv* env, jarray array) {
    note(__builtin_return_address(0), [&] { return "jni GetArrayLength(array)"; });
    return state.original->GetArrayLength(env, array);
}

jobject getObjectArrayElement(JNIEnv* env, jobjectArray array, jsize index) {
    note(__builtin_return_address(0), [&] { return "jni GetObjectArrayElement(array, " + number(index) + ")"; });
    return state.original->GetObjectArrayElement(env, array, index);
}

jint getEnv(JavaVM* vm, void** env, jint version) {
    note(__builtin_return_address(0),
         [&] { return "vm GetEnv" + std::string(version == JNI_VERSION_1_6 ? "" : " of another version"); });
    return state.originalVm->GetEnv(vm, env, version);
}

jint attachCurrentThread(JavaVM* vm, void** env, void* arguments) {
    note(__builtin_return_address(0), [&] { return "vm AttachCurrentThread"; });
    return state.originalVm->AttachCurrentThread(vm, env, arguments);
}

jint detachCurrentThread(JavaVM* vm) {
    note(__builtin_return_address(0), [&] { return "vm DetachCurrentThread"; });
    return state.originalVm->DetachCurrentThread(vm);
}

void logLine(const __android_log_message* message) {
    if (std::strcmp(message->tag, "orvixJni") == 0) {
        record(std::string("log ") + "??VDIWEF"[message->priority] + ' ' + oneLine(message->message));
    }
    __android_log_stderr_logger(message);
}

// The machine can only now take another table; the library is not loaded yet.
void JNICALL vmInit(jvmtiEnv* jvmti, JNIEnv* env, jthread) {
    jniNativeInterface* table = nullptr;
    JavaVM* vm = nullptr;
    if (jvmti->GetJNIFunctionTable(&state.original) != JVMTI_ERROR_NONE ||
        jvmti->GetJNIFunctionTable(&table) != JVMTI_ERROR_NONE || env->GetJavaVM(&vm) != JNI_OK) {
        env->FatalError("jvm_recorder: no function table");
    }
    table->FindClass = findClass;
    table->RegisterNatives = registerNatives;
    table->NewGlobalRef = newGlobalRef;
    table->DeleteLocalRef = deleteLocalRef;
    table->GetMethodID = getMethodID;
    table->AllocObject = allocObject;
    table->CallVoidMethodV = callVoidMethodV;
    table->NewStringUTF = newStringUTF;
    table->NewByteArray = newByteArray;
    table->SetByteArrayRegion = setByteArrayRegion;
    table->GetByteArrayRegion = getByteArrayRegion;
    table->GetArrayLength = getArrayLength;
    table->GetObjectArrayElement = getObjectArrayElement;
    if (jvmti->SetJNIFunctionTable(table) != JVMTI_ERROR_NONE) env->FatalError("jvm_recorder: table refused");

    state.originalVm = vm->functions;
    static JNIInvokeInterface_ invoke = *vm->functions;
    invoke.GetEnv = getEnv;
    invoke.AttachCurrentThread = attachCurrentThread;
    invoke.DetachCurrentThread = detachCurrentThread;
    vm->functions = &invoke;
    __android_log_set_logger(logLine);
}

}  // namespace

extern "C" JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char* options, void*) {
    state.file = open(options == nullptr ? "" : options, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (state.file < 0) {
        std::perror("jvm_recorder");
        return JNI_ERR;
    }
    jvmtiEnv* jvmti = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&jvmti), JVMTI_VERSION_11) != JNI_OK) return JNI_ERR;
    jvmtiEventCallbacks callbacks{};
    callbacks.VMInit = vmInit;
    jvmti->SetEventCallbacks(&callbacks, sizeof callbacks);
    return jvmti->SetEventNotificationMode(JVMTI_ENABLE, JVMTI_EVENT_VM_INIT, nullptr) == JVMTI_ERROR_NONE ? JNI_OK
                                                                                                           : JNI_ERR;
}
