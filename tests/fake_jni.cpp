#include "tests/fake_jni.h"

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

#include "sim/json/Json.h"
#include "tests/jni_recorder.h"
#include "tests/process.h"

extern "C" const char __executable_start, etext;  // the program's own code lies between these

namespace fake {

namespace {

// Never destroyed: the library's threads go on while the process ends.
struct State {
    std::mutex mutex;  // guards lines and objects
    std::condition_variable changed;
    std::vector<std::string> lines;
    std::deque<quiet::Object> objects;  // Java's, for ever
    std::string folder;                 // of the services of this process
    std::atomic<int> socket = -1;       // the last one that the library made
};
State& state = *new State;

quiet::Object& make(quiet::Object object = {}) {
    const std::lock_guard lock(state.mutex);
    return state.objects.emplace_back(std::move(object));
}

// The library is linked into this program; the platform, which asks for the parcel behind Java's, is not.
bool isLibrary(const void* address) { return &__executable_start <= address && address < &etext; }

void install() {
    static const recorder::Tables tables =
        recorder::tablesOver(quiet::env()->functions, quiet::vm()->functions, record, isLibrary);
    quiet::env()->functions = &tables.env;
    quiet::vm()->functions = &tables.vm;
    __android_log_set_logger(recorder::logLine);
}

// The number behind each `lead`, which differs from run to run, as N.
std::string masked(std::string_view lead, std::string text) {
    for (size_t at = 0; (at = text.find(lead, at)) != std::string::npos;) {
        at += lead.size();
        const size_t end = text.find_first_not_of("0123456789", at);
        text.replace(at, (end == std::string::npos ? text.size() : end) - at, "N");
    }
    return text;
}

// What a call carries, read back from the bytes that are about to leave.
std::string argumentsOf(transaction_code_t code, AParcel* in) {
    std::string text = "unreadable";
    const int32_t end = AParcel_getDataPosition(in);
    const size_t units = std::strlen(orvix::IOrvixService::descriptor) + 1;
    AParcel_setDataPosition(in, static_cast<int32_t>(4 * 4 + (units * 2 + 3) / 4 * 4));  // behind the token
    for (const sim::Method& method : sim::allMethods()) {
        if (method.interface != "IOrvixService" || method.code != code) continue;
        const std::shared_ptr<void> arguments = method.arguments.make();
        const binder_status_t status = method.arguments.read(in, arguments.get());
        if (status == STATUS_OK && AParcel_getDataPosition(in) == end) {
            text = sim::toJson(method.arguments, arguments.get()).dump();
        }
    }
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
        install();
    }
    clearLines();
    script.~Script();
    new (&script) Script;
    quiet::script.~Script();
    new (&quiet::script) quiet::Script;
    quiet::leave();
    quiet::env();
}

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
    return state.changed.wait_for(lock, orvix_test::patience(), [&] {
        while (seen < state.lines.size()) found += state.lines[seen++].starts_with(start);
        return found >= times;
    });
}

jbyteArray bytes(const std::vector<uint8_t>& content) {
    return static_cast<jbyteArray>(quiet::ref(make({.bytes = content})));
}
jobject parcel(AParcel* content) { return quiet::ref(make({.parcel = content})); }
jobjectArray array(const std::vector<jobject>& elements) {
    quiet::Object& made = make();
    for (jobject element : elements) made.elements.push_back(reinterpret_cast<quiet::Object*>(element));
    return static_cast<jobjectArray>(quiet::ref(made));
}

void load() {
    if (JNI_OnLoad(quiet::vm(), nullptr) != JNI_VERSION_1_6) std::abort();
}
void initialize() { quiet::callNative(quiet::env(), "initialize"); }

}  // namespace fake

// The thread sanitizer would wait a second at the end of every process.
extern "C" const char* __tsan_default_options() { return "atexit_sleep_ms=0"; }

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

#define WRAP_LINK(function)                                                                                          \
    binder_status_t __real_AIBinder_##function(AIBinder*, AIBinder_DeathRecipient*, void*);                          \
    binder_status_t __wrap_AIBinder_##function(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) { \
        fake::record("binder " #function);                                                                           \
        return __real_AIBinder_##function(binder, recipient, cookie);                                                \
    }
WRAP_LINK(linkToDeath)
WRAP_LINK(unlinkToDeath)

AParcel* __real_AParcel_fromJavaParcel(JNIEnv*, jobject);
AParcel* __wrap_AParcel_fromJavaParcel(JNIEnv* env, jobject parcel) {
    const bool known = reinterpret_cast<quiet::Object*>(parcel)->parcel != nullptr;
    fake::record(std::string("binder fromJavaParcel ") + (known ? "parcel" : "another object"));
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
    fake::record("syslog " + std::to_string(priority) + ' ' + fake::masked("FD ", text));
}

}  // extern "C"
