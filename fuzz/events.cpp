// Sequences of requests, deaths and returns of the service, drains and failing attaches, some of them while Java is
// being called, against a model that says which calls Java and the service must see, in which order.
//
// One thread plays all: a binding thread that the library starts is kept and run when the service returns.

#include <android/log.h>

#include <deque>
#include <memory>
#include <thread>

#include "client/AidlClient.h"
#include "fuzz/Fuzz.h"
#include "sim/vm/quiet_jni.h"

namespace fuzz {
namespace {

using orvix::AidlClient;
using orvix::CallbackEvent;
using wire::IOrvixService;

using Trace = std::vector<std::string>;
Trace gActual, gExpected;

void compare() {
    if (gActual == gExpected) return;
    for (size_t i = 0; i < gActual.size() || i < gExpected.size(); ++i) {
        std::fprintf(stderr, "%-60s| %s\n", i < gExpected.size() ? gExpected[i].c_str() : "",
                     i < gActual.size() ? gActual[i].c_str() : "");
    }
    invariant(false, "Java and the service see what the model says (left), in its order");
}

std::string textOf(const std::string& method, const std::vector<quiet::Value>& arguments) {
    std::string text = "java " + method;
    for (const quiet::Value& value : arguments) {
        if (const bool* flag = std::get_if<bool>(&value)) text += *flag ? " true" : " false";
        if (const int32_t* number = std::get_if<int32_t>(&value)) text += ' ' + std::to_string(*number);
        if (const int64_t* number = std::get_if<int64_t>(&value)) text += ' ' + std::to_string(*number) + 'L';
        if (const std::string* string = std::get_if<std::string>(&value)) text += ' ' + *string;
        if (const Bytes* bytes = std::get_if<Bytes>(&value)) text += " bytes:" + std::to_string(bytes->size());
    }
    return text;
}
std::string serviceText(intptr_t number, transaction_code_t code) {
    return "service " + std::to_string(number) + " code " + std::to_string(code);
}

// The call into Java that an event is; empty: none.
std::string javaCallOf(const CallbackEvent& ev) {
    const auto call = [](const char* name, std::vector<quiet::Value> arguments = {}) {
        return textOf(name, arguments);
    };
    const wire::NetworkStats& s = ev.stats;
    switch (ev.type) {
        case 1: return call("getRadioStatus");
        case 2: return call("startNetworkStatsPolling", {ev.intArg});
        case 3: return call("stopNetworkStatsPolling");
        case 4: return call("collectCensusInfo");
        case 7: return call("registerForScreenStateChanges", {ev.screenStateFlag});
        case 8: return call("startUidStatsPolling", {ev.longArg});
        case 9: return call("startRatStatsPolling", {ev.longArg});
        case 10: return call("stopUidStatsPolling");
        case 11: return call("stopRatStatsPolling");
        case 12: return call("startNetworkMonitorForRatType", {static_cast<int32_t>(ev.ratType)});
        case 13: return call("stopNetworkMonitorForRatType", {static_cast<int32_t>(ev.ratType)});
        case 14: return call("requestWwanNetwork", {static_cast<int32_t>(ev.slotId)});
        case 15: return call("releaseWwanNetwork", {static_cast<int32_t>(ev.slotId)});
        case 16: return call("registerForLPMStatusChange", {ev.lpmFlag});
        case 17: return call("registerForThermalStatusChange", {ev.thermalFlag});
        case 18: return call("registerForBatteryStatusChange", {ev.batteryFlag});
        case 19: return call("registerForHotspotStatusChange", {ev.hotspotFlag});
        case 20: return call("startStatsMonitoring");
        case 21: return call("updateStats", {s.long1, s.long2, s.long3, s.long4, s.int1, s.int2, s.int3, s.text1});
        case 22: return call("stopStatsMonitoring");
        case 24: return call("sendBlobToApkJava", {ev.blobTag, ev.blob});
        default: return "";
    }
}

// ---- the platform's side

struct Platform {
    std::vector<std::unique_ptr<std::thread::_State>> bindingThreads;  // started by the library, not run yet
    std::deque<ndk::SpAIBinder> found;                                 // what waitForService gives, in order
    bool alive = false;                                                // a service is linked and not told dead
    intptr_t services = 0;
} gPlatform;

AIBinder_Class* defineClass(const char* descriptor) {
    return AIBinder_Class_define(
        descriptor, [](void* args) { return args; }, [](void*) {},
        [](AIBinder* binder, transaction_code_t code, const AParcel*, AParcel*) -> binder_status_t {
            gActual.push_back(serviceText(reinterpret_cast<intptr_t>(AIBinder_getUserData(binder)), code));
            return STATUS_OK;
        });
}

ndk::SpAIBinder newService() {
    static const AIBinder_Class* const own = defineClass(IOrvixService::descriptor);
    ndk::SpAIBinder binder(AIBinder_new(own, reinterpret_cast<void*>(++gPlatform.services)));
    AIBinder_markVintfStability(binder.get());
    return binder;
}

ndk::SpAIBinder newStranger() {
    static const AIBinder_Class* const own = defineClass("another.IService");
    return ndk::SpAIBinder(AIBinder_new(own, nullptr));
}

// ---- the model

struct Model {
    std::deque<CallbackEvent> queue;
    intptr_t service = 0;                                    // 0: unbound
    size_t waiting = 0;                                      // binding threads
    enum { Nothing, ToldTrue, ToldFalse } before = Nothing;  // the call into Java that is under way

    // What follows the last call into Java, and all up to the next one.
    void advance() {
        if (before == ToldTrue && service != 0) gExpected.push_back(serviceText(service, 1));
        if (before == ToldFalse) ++waiting;
        before = Nothing;
        const bool attaches = quiet::script.attach == JNI_OK;
        while (!queue.empty()) {
            const CallbackEvent ev = queue.front();
            queue.pop_front();
            if (ev.type == 23 && service != 0) gExpected.push_back(serviceText(service, 16));
            if (ev.type == -1) service = 0;
            if (!attaches) continue;
            std::string call = javaCallOf(ev);
            if (ev.type == 0 || ev.type == -1) {
                call = textOf("onIServiceBinderAvailable", {ev.type == 0});
                before = ev.type == 0 ? ToldTrue : ToldFalse;
            }
            if (call.empty()) continue;
            gExpected.push_back(call);
            return;
        }
    }
} gModel;

// ---- the player

FuzzedDataProvider* gInput = nullptr;

void pushEvent() {
    CallbackEvent ev{.type = gInput->ConsumeIntegralInRange<int32_t>(1, 26)};
    const int32_t number = gInput->ConsumeIntegral<int16_t>();
    const bool flag = number % 2 != 0;
    switch (ev.type) {
        case 2: ev.intArg = number; break;
        case 7: ev.screenStateFlag = flag; break;
        case 8:
        case 9: ev.longArg = int64_t{number} << 32 | 5; break;
        case 12:
        case 13: ev.ratType = wire::RatType{number}; break;
        case 14:
        case 15: ev.slotId = wire::SlotId{number}; break;
        case 16: ev.lpmFlag = flag; break;
        case 17: ev.thermalFlag = flag; break;
        case 18: ev.batteryFlag = flag; break;
        case 19: ev.hotspotFlag = flag; break;
        case 21: ev.stats = {1, 2, number, 4, 5, -number, 7, std::to_string(number)}; break;
        case 23: ev.socketInfo = {.socketId = number, .uid = flag ? 10001 : -1, .ipFamily = 1, .socketType = 2}; break;
        case 24:
            ev.blobTag = number;
            ev.blob.resize(static_cast<size_t>(number & 0xff));
            break;
        default: break;
    }
    orvix::gAidlClient->pushEv(ev);
    gModel.queue.push_back(ev);
}

void serviceReturns() {
    if (gModel.waiting == 0) return;
    const int oddity = gInput->ConsumeIntegralInRange<uint8_t>(0, 7);
    if (oddity == 1) gPlatform.found.emplace_back(nullptr);
    if (oddity == 2) gPlatform.found.push_back(newStranger());
    gPlatform.found.push_back(newService());
    invariant(gPlatform.bindingThreads.size() == gModel.waiting, "a binding thread is started for each death told");
    const auto thread = std::move(gPlatform.bindingThreads.back());
    gPlatform.bindingThreads.pop_back();
    --gModel.waiting;
    thread->_M_run();
    invariant(gPlatform.found.empty(), "binding ends with the first binder of the service");
    gPlatform.alive = true;
    gModel.service = gPlatform.services;
    gModel.queue.push_back({.type = 0});
}

void serviceDies() {
    if (!std::exchange(gPlatform.alive, false)) return;
    AidlClient::deathCallback(nullptr);
    gModel.queue.push_back({.type = -1});
}

void callNative() {
    AidlClient::sendScreenState(quiet::env(), nullptr, JNI_TRUE);
    if (gModel.service != 0) gExpected.push_back(serviceText(gModel.service, 5));
}

void meanwhile() {
    if (gInput->remaining_bytes() == 0) return;
    switch (gInput->ConsumeIntegralInRange<uint8_t>(0, 7)) {
        case 0: pushEvent(); break;
        case 1: serviceReturns(); break;
        case 2: serviceDies(); break;
        case 3: callNative(); break;
        default: break;
    }
}

void onJavaCall(const quiet::Call& call) {
    gActual.push_back(textOf(call.method, call.arguments));
    gModel.advance();
    compare();
    meanwhile();
}

void drain() {
    quiet::leave();
    orvix::gAidlClient->handleEvents();
    gModel.advance();
    compare();
}

void load() {
    __android_log_set_logger([](const __android_log_message*) {});
    quiet::env();
    invariant(JNI_OnLoad(quiet::vm(), nullptr) == JNI_VERSION_1_6, "the library loads");
    quiet::script.onCall = onJavaCall;
}

// As after load: nothing queued, unbound, and one binding thread that waits.
void settle() {
    quiet::script.attach = JNI_OK;
    drain();
    if (gModel.service != 0) {
        gPlatform.alive = true;
        serviceDies();
        drain();
    }
    gPlatform.bindingThreads.clear();
    gModel.waiting = 0;
    gPlatform.alive = false;
    orvix::gAidlClient->pushEv({.type = -1});
    gModel.queue.push_back({.type = -1});
    drain();
    invariant(gModel.waiting == 1 && gPlatform.bindingThreads.size() == 1, "a death starts a binding thread");
    gActual.clear();
    gExpected.clear();
    gPlatform.services = 0;
}

}  // namespace
}  // namespace fuzz

extern "C" {

AIBinder* __wrap_AServiceManager_waitForService(const char*) {
    fuzz::invariant(!fuzz::gPlatform.found.empty(), "binding ends with the first binder of the service");
    AIBinder* const binder = fuzz::gPlatform.found.front().get();
    AIBinder_incStrong(binder);
    fuzz::gPlatform.found.pop_front();
    return binder;
}

// std::thread::_M_start_thread and std::thread::detach: the thread is kept instead of started.
void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    std::thread*, std::unique_ptr<std::thread::_State> state, void (*)()) {
    fuzz::gPlatform.bindingThreads.push_back(std::move(state));
}
void __wrap__ZNSt6thread6detachEv(std::thread*) {}

// The second close of a socket is told to the system log, where operators look for it; not by a fuzzer.
void __wrap_syslog(int, const char*, ...) {}

}  // extern "C"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzz;
    static const bool loaded = [] {
        FuzzedDataProvider nothing(nullptr, 0);
        gInput = &nothing;
        load();
        settle();
        return true;
    }();
    invariant(loaded, "the library loads");
    FuzzedDataProvider input(data, size);
    gInput = &input;
    while (input.remaining_bytes() > 0) {
        switch (input.ConsumeIntegralInRange<uint8_t>(0, 7)) {
            case 0:
            case 1: pushEvent(); break;
            case 2: serviceReturns(); break;
            case 3: serviceDies(); break;
            case 4: callNative(); break;
            case 5: quiet::script.attach = input.ConsumeBool() ? JNI_OK : JNI_ERR; break;
            default: drain();
        }
    }
    settle();
    return 0;
}
