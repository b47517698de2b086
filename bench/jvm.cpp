// Beside the library in one shared object: the bare sequences on the real VM, and the clock around both.

#include <android/log.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "bench/Bare.h"
#include "callback/OrvixCallback.h"
#include "client/AidlClient.h"

namespace {

using Clock = std::chrono::steady_clock;

ndk::SpAIBinder gService;

jlong nanoseconds(Clock::duration time) { return std::chrono::nanoseconds(time).count(); }

jlongArray arrayOf(JNIEnv* env, const std::vector<jlong>& values) {
    const jlongArray array = env->NewLongArray(static_cast<jsize>(values.size()));
    env->SetLongArrayRegion(array, 0, static_cast<jsize>(values.size()), values.data());
    return array;
}

// The lines are made as ever, and written nowhere.
void dropLog() {
    __android_log_set_logger([](const __android_log_message*) {});
}

// The lines by which an operator follows each call-out.
void logLinesOfACallOut() {
    const auto line = [](const char* text) { __android_log_print(ANDROID_LOG_DEBUG, "orvixJni", "%s", text); };
    __android_log_print(ANDROID_LOG_DEBUG, "orvixJni", "handleEvent %d", 8);
    line("isThreadAttached start");
    line("jni detached");
    line("jni attached");
    __android_log_print(ANDROID_LOG_DEBUG, "orvixJni", "%s start", "startUidStatsPolling");
    line("getJavaCallbackClass start");
    __android_log_print(ANDROID_LOG_DEBUG, "orvixJni", "getJavaCallbackClass End midIs[%d]", 1);
}

// The shortest way of a request into Java: no queue, no second thread.
class BareRequest : public orvix::OrvixCallback {
  public:
    BareRequest(JavaVM* itsVm, jclass itsClass) : vm(itsVm), callOuts(itsClass) {}
    orvix::ScopedAStatus startUidStatsPolling(int64_t interval) override {
        bare::startUidStatsPolling(vm, callOuts, interval);
        return orvix::ScopedAStatus::ok();
    }

  private:
    JavaVM* const vm;
    const jclass callOuts;
};

jclass classOfCallOuts(JNIEnv* env) {
    return static_cast<jclass>(env->NewGlobalRef(env->FindClass("vendor/nuvel/data/orvixadmin/SorvixAidlClient")));
}

// When the lines came by which a call-out can be divided, of the one thread that logs.
std::vector<Clock::time_point> gMarks;
void markLines(const __android_log_message* message) {
    for (const char* const mark : {"isThreadAttached start", "jni attached", "getJavaCallbackClass End midIs[1]"}) {
        if (std::strcmp(message->message, mark) == 0) gMarks.push_back(Clock::now());
    }
}

}  // namespace

extern "C" {

JNIEXPORT void Java_vendor_nuvel_data_orvixadmin_Bench_prepare(JNIEnv*, jclass) {
    dropLog();
    if (const auto bound = orvix::gAidlClient->getOrvixService()) gService = bound->asBinder();
}

JNIEXPORT void Java_vendor_nuvel_data_orvixadmin_Bench_bareSend(JNIEnv*, jclass, jint ratType, jlong value,
                                                                jint techType) {
    bare::sendFGNetworkInfo(gService.get(), ratType, techType, value);
}

JNIEXPORT jlongArray Java_vendor_nuvel_data_orvixadmin_Bench_callOuts(JNIEnv* env, jclass, jint count) {
    dropLog();
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    const jclass callOuts = classOfCallOuts(env);
    std::vector<jlong> times;
    std::thread([&] {
        for (int i = 0; i < 3 * count; ++i) {
            const auto begin = Clock::now();
            if (i % 3 == 0) {
                orvix::gAidlClient->pushEv({.type = 8, .longArg = i});
                orvix::gAidlClient->handleEvents();
            } else {
                if (i % 3 == 2) logLinesOfACallOut();
                bare::startUidStatsPolling(vm, callOuts, i);
            }
            times.push_back(nanoseconds(Clock::now() - begin));
        }
    }).join();
    env->DeleteGlobalRef(callOuts);
    return arrayOf(env, times);
}

// Of each call-out four times: queued and taken, attached, looked up, called and detached; of the library's and of the
// bare one by turns. The bare one is queued nowhere.
JNIEXPORT jlongArray Java_vendor_nuvel_data_orvixadmin_Bench_parts(JNIEnv* env, jclass, jint count) {
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    const jclass callOuts = classOfCallOuts(env);
    std::vector<jlong> times;
    __android_log_set_logger(markLines);
    std::thread([&] {
        for (int i = 0; i < 2 * count; ++i) {
            gMarks = {Clock::now()};
            if (i % 2 == 0) {
                orvix::gAidlClient->pushEv({.type = 8, .longArg = i});
                orvix::gAidlClient->handleEvents();
            } else {
                gMarks.push_back(gMarks.back());
                bare::startUidStatsPolling(vm, callOuts, i, [] { gMarks.push_back(Clock::now()); });
            }
            gMarks.push_back(Clock::now());
            for (size_t mark = 1; mark < gMarks.size(); ++mark) {
                times.push_back(nanoseconds(gMarks[mark] - gMarks[mark - 1]));
            }
        }
    }).join();
    dropLog();
    env->DeleteGlobalRef(callOuts);
    return arrayOf(env, times);
}

// From now on the service asks the bare callback.
JNIEXPORT void Java_vendor_nuvel_data_orvixadmin_Bench_registerBare(JNIEnv* env, jclass) {
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    static const auto callback = ndk::SharedRefBase::make<BareRequest>(vm, classOfCallOuts(env));
    if (const auto bound = orvix::gAidlClient->getOrvixService()) bound->registerRequest(callback);
}

JNIEXPORT jlongArray Java_vendor_nuvel_data_orvixadmin_Bench_loads(JNIEnv* env, jclass, jint count) {
    dropLog();
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    std::vector<jlong> times;
    for (int i = 0; i < count; ++i) {
        const auto begin = Clock::now();
        JNI_OnLoad(vm, nullptr);
        times.push_back(nanoseconds(Clock::now() - begin));
    }
    return arrayOf(env, times);
}

}  // extern "C"
