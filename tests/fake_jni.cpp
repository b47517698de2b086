#include "tests/fake_jni.h"

#include <android/binder_manager.h>
#include <android/log.h>
#include <android/multinetwork.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>

#include "sim/Json.h"
#include "tests/text.h"

namespace fake {

namespace {

struct Object {
    std::string name;  // in the transcript
    std::optional<std::string> text = {};
    std::vector<uint8_t> bytes = {};
    std::vector<jobject> elements = {};
    AParcel* parcel = nullptr;
    bool deleted = false;
};

// Never destroyed: the library's threads go on while the process ends.
struct State {
    std::mutex mutex;  // guards lines and objects
    std::condition_variable changed;
    std::vector<std::string> lines;
    std::deque<Object> objects;
    std::map<std::string, void*> natives;
    std::string folder;            // of the services of this process
    std::atomic<int> socket = -1;  // the last one that the library made
};
State& state = *new State;
thread_local bool tAttached = false;
thread_local std::string tSignature;  // of the last method looked up

Object& of(jobject object) { return *reinterpret_cast<Object*>(object); }

template <typename T = jobject>
T make(Object object) {
    const std::lock_guard lock(state.mutex);
    return reinterpret_cast<T>(&state.objects.emplace_back(std::move(object)));
}

std::string hex(const std::vector<uint8_t>& bytes) { return "hex:" + sim::hexOf(bytes); }
std::string name(jobject object) {
    if (object == nullptr) return "null";
    return of(object).name + (of(object).deleted ? " (deleted)" : "");
}
std::string number(jlong value) { return std::to_string(value); }
std::string quoted(const std::string& text) { return '"' + text + '"'; }

// A line "jni Function(arguments)".
void jni(const char* function, const std::vector<std::string>& arguments) {
    std::string line = std::string("jni ") + function + '(';
    for (size_t i = 0; i < arguments.size(); ++i) line += (i == 0 ? "" : ", ") + arguments[i];
    record(line + ')' + (tAttached ? "" : " on a thread that is not attached"));
}

// The values of a call as the signature reads them.
std::vector<std::string> valuesOf(const std::string& signature, va_list values) {
    std::vector<std::string> texts;
    for (size_t i = 1; i < signature.size() && signature[i] != ')'; ++i) {
        switch (signature[i]) {
            case 'Z': {
                const int value = va_arg(values, int);
                texts.push_back(value == JNI_FALSE ? "false" : value == JNI_TRUE ? "true" : number(value));
                break;
            }
            case 'I': texts.push_back(number(va_arg(values, jint))); break;
            case 'J': texts.push_back(number(va_arg(values, jlong))); break;
            default: {
                const Object& value = of(va_arg(values, jobject));
                texts.push_back(value.text ? quoted(*value.text) : hex(value.bytes));
                i = signature.find_first_of(signature[i] == 'L' ? ";" : "B", i);
            }
        }
    }
    return texts;
}

bool missing(const std::string& what) { return script.missing.contains(what); }
// Regions that are not the whole array show in the transcript, and are not copied.
bool isWhole(jobject array, jsize start, jsize length) {
    return start == 0 && static_cast<size_t>(length) == of(array).bytes.size();
}

JNINativeInterface makeTable() {
    JNINativeInterface t{};
    t.FindClass = [](JNIEnv*, const char* path) {
        jni("FindClass", {quoted(path)});
        const std::string simple = std::strrchr(path, '/') + 1;
        return missing(simple) ? nullptr : make<jclass>({.name = "local " + simple});
    };
    t.RegisterNatives = [](JNIEnv*, jclass target, const JNINativeMethod* methods, jint count) {
        jni("RegisterNatives", {name(target), number(count)});
        for (jint i = 0; i < count; ++i) {
            record(std::string("    ") + methods[i].name + ' ' + methods[i].signature);
            state.natives[methods[i].name] = methods[i].fnPtr;
        }
        return script.registerNatives;
    };
    t.NewGlobalRef = [](JNIEnv*, jobject object) -> jobject {
        jni("NewGlobalRef", {name(object)});
        return object == nullptr ? nullptr : make({.name = of(object).name.substr(std::strlen("local "))});
    };
    t.DeleteLocalRef = [](JNIEnv*, jobject object) {
        if (object != nullptr && of(object).name == "platform's own") return;
        jni("DeleteLocalRef", {name(object)});
        if (object != nullptr) of(object).deleted = true;
    };
    t.GetMethodID = [](JNIEnv*, jclass target, const char* method, const char* signature) -> jmethodID {
        jni("GetMethodID", {name(target), quoted(method), quoted(signature)});
        tSignature = signature;
        return target == nullptr || missing(method) ? nullptr : reinterpret_cast<jmethodID>(&state);
    };
    t.AllocObject = [](JNIEnv*, jclass target) {
        jni("AllocObject", {name(target)});
        return target == nullptr || !script.allocObject ? nullptr : make({.name = "object"});
    };
    t.CallVoidMethodV = [](JNIEnv*, jobject object, jmethodID method, va_list values) {
        std::vector<std::string> texts = {name(object), method == nullptr ? "null" : "method"};
        for (const std::string& value : valuesOf(tSignature, values)) texts.push_back(value);
        jni("CallVoidMethod", texts);
    };
    t.NewStringUTF = [](JNIEnv*, const char* text) {
        jni("NewStringUTF", {quoted(text)});
        return make<jstring>({.name = "string", .text = text});
    };
    t.NewByteArray = [](JNIEnv*, jsize length) {
        jni("NewByteArray", {number(length)});
        return make<jbyteArray>({.name = "array", .bytes = std::vector<uint8_t>(static_cast<size_t>(length))});
    };
    t.SetByteArrayRegion = [](JNIEnv*, jbyteArray array, jsize start, jsize length, const jbyte* from) {
        const std::vector<uint8_t> bytes(from, from + length);
        jni("SetByteArrayRegion", {name(array), number(start), number(length), hex(bytes)});
        if (isWhole(array, start, length)) of(array).bytes = bytes;
    };
    t.GetByteArrayRegion = [](JNIEnv*, jbyteArray array, jsize start, jsize length, jbyte* to) {
        jni("GetByteArrayRegion", {name(array), number(start), number(length)});
        if (isWhole(array, start, length)) std::copy_n(of(array).bytes.begin(), length, to);
    };
    t.GetArrayLength = [](JNIEnv*, jarray array) {
        jni("GetArrayLength", {name(array)});
        return static_cast<jsize>(of(array).elements.size() + of(array).bytes.size());
    };
    t.GetObjectArrayElement = [](JNIEnv*, jobjectArray array, jsize index) {
        jni("GetObjectArrayElement", {name(array), number(index)});
        return of(array).elements.at(static_cast<size_t>(index));
    };
    // How the platform finds the parcel behind Java's: none of the library's business.
    t.GetObjectClass = [](JNIEnv*, jobject) { return make<jclass>({.name = "platform's own"}); };
    t.GetFieldID = [](JNIEnv*, jclass, const char*, const char*) { return reinterpret_cast<jfieldID>(&state); };
    t.GetLongField = [](JNIEnv*, jobject object, jfieldID) { return reinterpret_cast<jlong>(of(object).parcel); };
    return t;
}

const JNINativeInterface kTable = makeTable();
JNIEnv gEnv{&kTable};

JNIInvokeInterface makeVmTable() {
    JNIInvokeInterface t{};
    t.AttachCurrentThread = [](JavaVM*, JNIEnv** out, void*) {
        record("vm AttachCurrentThread");
        const jint result = script.attach;
        if (result != JNI_OK) return result;
        tAttached = true;
        *out = &gEnv;
        return result;
    };
    t.DetachCurrentThread = [](JavaVM*) {
        record("vm DetachCurrentThread");
        tAttached = false;
        return jint{JNI_OK};
    };
    t.GetEnv = [](JavaVM*, void** out, jint version) {
        record("vm GetEnv" + std::string(version == JNI_VERSION_1_6 ? "" : " of another version"));
        if (script.getEnv) return *script.getEnv;
        if (!tAttached) return jint{JNI_EDETACHED};
        *out = &gEnv;
        return jint{JNI_OK};
    };
    return t;
}

const JNIInvokeInterface kVmTable = makeVmTable();
JavaVM gVm{&kVmTable};

void logLine(const __android_log_message* message) {
    if (std::strcmp(message->tag, "orvixJni") != 0) return;
    const std::string text = oneLine(message->message);
    record(std::string("log ") + "??VDIWEF"[message->priority] + ' ' + text);
}

// What a call carries, read back from the bytes that are about to leave.
std::string argumentsOf(transaction_code_t code, AParcel* in) {
    std::string text = "unreadable";
    const int32_t end = AParcel_getDataPosition(in);
    const size_t units = std::strlen(orvix::IOrvixService::descriptor) + 1;
    AParcel_setDataPosition(in, static_cast<int32_t>(4 * 4 + (units * 2 + 3) / 4 * 4));  // behind the token
    const auto read = [&](const auto& row) {
        if (row.code != code) return;
        typename std::remove_cvref_t<decltype(row)>::Arguments arguments{};
        if (orvix::readArguments(in, arguments) == STATUS_OK && AParcel_getDataPosition(in) == end) {
            text = sim::toJson(arguments).dump();
        }
    };
    std::apply([&](const auto&... rows) { (read(rows), ...); }, orvix::IOrvixService::methods);
    AParcel_setDataPosition(in, end);
    return masked("socket:[", text);
}

}  // namespace

Script& script = *new Script;

void clearLines() {
    const std::lock_guard lock(state.mutex);
    state.lines.clear();
}

void reset() {
    if (state.folder.empty()) {
        state.folder = std::filesystem::temp_directory_path() / "orvix-test-XXXXXX";
        if (mkdtemp(state.folder.data()) == nullptr) std::abort();
        setenv("ORVIX_BINDER_DIR", state.folder.c_str(), 1);
        std::atexit([] { std::filesystem::remove_all(state.folder); });
    }
    clearLines();
    script.~Script();
    new (&script) Script;
    tAttached = true;
    __android_log_set_logger(logLine);
}

void setAttached(bool attached) { tAttached = attached; }
JavaVM* vm() { return &gVm; }
JNIEnv* env() { return &gEnv; }

void record(const std::string& line) {
    {
        const std::lock_guard lock(state.mutex);
        state.lines.push_back(line);
        state.changed.notify_all();
    }
    if (script.then) script.then(line);
}

std::vector<std::string> lines() {
    const std::lock_guard lock(state.mutex);
    return state.lines;
}

size_t count(std::string_view start) {
    const std::lock_guard lock(state.mutex);
    return static_cast<size_t>(std::count_if(state.lines.begin(), state.lines.end(),
                                             [&](const std::string& line) { return line.starts_with(start); }));
}

bool waitFor(std::string_view start, size_t times) {
    size_t seen = 0, found = 0;
    std::unique_lock lock(state.mutex);
    return state.changed.wait_for(lock, std::chrono::seconds(10), [&] {
        while (seen < state.lines.size()) found += state.lines[seen++].starts_with(start);
        return found >= times;
    });
}

jbyteArray bytes(const std::vector<uint8_t>& content) { return make<jbyteArray>({.name = "array", .bytes = content}); }
jobject parcel(AParcel* content) { return make({.name = "parcel", .parcel = content}); }
jobjectArray array(const std::vector<jobject>& elements) {
    return make<jobjectArray>({.name = "array", .elements = elements});
}

void* nativeMethod(const std::string& name) { return state.natives.at(name); }

bool registerService(const ndk::SpAIBinder& binder) {
    return AServiceManager_addService(binder.get(), kServiceName) == EX_NONE;
}

}  // namespace fake

// The border. Calls go on to the real functions after they have been written down.
extern "C" {

binder_status_t __real_AIBinder_transact(AIBinder*, transaction_code_t, AParcel**, AParcel**, binder_flags_t);
binder_status_t __wrap_AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out,
                                         binder_flags_t flags) {
    const AIBinder_Class* own = AIBinder_getClass(binder);
    if (own != nullptr &&
        AIBinder_Class_getDescriptor(own) == std::string_view(fake::orvix::IOrvixService::descriptor)) {
        char head[64];
        std::snprintf(head, sizeof head, "transact %u 0x%08x ", code, flags);
        fake::record(head + fake::argumentsOf(code, *in));
    }
    return __real_AIBinder_transact(binder, code, in, out, flags);
}

AIBinder* __real_AServiceManager_waitForService(const char*);
AIBinder* __wrap_AServiceManager_waitForService(const char* name) {
    fake::record(std::string("binder waitForService ") + name);
    if (fake::script.nullServices > 0 && fake::script.nullServices-- > 0) return nullptr;
    return __real_AServiceManager_waitForService(name);
}

bool __real_AIBinder_associateClass(AIBinder*, const AIBinder_Class*);
bool __wrap_AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* own) {
    if (AIBinder_Class_getDescriptor(own) == std::string_view(fake::orvix::IOrvixService::descriptor)) {
        fake::record("binder associateClass");
    }
    return __real_AIBinder_associateClass(binder, own);
}

binder_status_t __real_AIBinder_linkToDeath(AIBinder*, AIBinder_DeathRecipient*, void*);
binder_status_t __wrap_AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) {
    fake::record("binder linkToDeath");
    return __real_AIBinder_linkToDeath(binder, recipient, cookie);
}

binder_status_t __real_AIBinder_unlinkToDeath(AIBinder*, AIBinder_DeathRecipient*, void*);
binder_status_t __wrap_AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) {
    fake::record("binder unlinkToDeath");
    return __real_AIBinder_unlinkToDeath(binder, recipient, cookie);
}

AParcel* __real_AParcel_fromJavaParcel(JNIEnv*, jobject);
AParcel* __wrap_AParcel_fromJavaParcel(JNIEnv* env, jobject parcel) {
    fake::record("binder fromJavaParcel " + fake::name(parcel));
    return __real_AParcel_fromJavaParcel(env, parcel);
}

int __real_android_tag_socket_with_uid(int, uint32_t, uid_t);
int __wrap_android_tag_socket_with_uid(int fd, uint32_t tag, uid_t uid) {
    fake::record("sys android_tag_socket_with_uid(" + std::string(fd == fake::state.socket ? "FD" : "another FD") +
                 ", " + std::to_string(tag) + ", " + std::to_string(uid) + ")");
    return fake::script.tagSocket != 0 ? fake::script.tagSocket : __real_android_tag_socket_with_uid(fd, tag, uid);
}

int __real_socket(int, int, int);
int __wrap_socket(int family, int type, int protocol) {
    static std::map<int, std::string> families = {{AF_INET, "AF_INET"}, {AF_INET6, "AF_INET6"}};
    static std::map<int, std::string> types = {{SOCK_STREAM, "SOCK_STREAM"}, {SOCK_DGRAM, "SOCK_DGRAM"}};
    fake::record("sys socket(" + families[family] + ", " + types[type] + ", " + std::to_string(protocol) + ")");
    return fake::state.socket = __real_socket(family, type, protocol);
}

int __real_close(int);
int __wrap_close(int fd) {
    if (fd == fake::state.socket) fake::record("sys close(FD)");
    return __real_close(fd);
}

void __wrap_syslog(int priority, const char* format, ...) {
    char text[512];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    fake::record("syslog " + std::to_string(priority) + ' ' + masked("FD ", text));
}

}  // extern "C"
