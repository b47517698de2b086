// Beside the library in one shared object: the bare sequences on the real VM, and the clock around both.

#include <android/log.h>

#include <chrono>
#include <thread>
#include <vector>

#include "bench/Bare.h"
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

JNIEXPORT jlongArray Java_vendor_nuvel_data_orvixadmin_Bench_callOuts(JNIEnv* env, jclass, jint batches, jint each) {
    dropLog();
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    const auto callOuts =
        static_cast<jclass>(env->NewGlobalRef(env->FindClass("vendor/nuvel/data/orvixadmin/SorvixAidlClient")));
    std::vector<jlong> times;
    std::thread([&] {
        for (int batch = 0; batch < batches; ++batch) {
            const auto begin = Clock::now();
            for (int i = 0; i < each; ++i) {
                if (batch % 3 == 0) {
                    orvix::gAidlClient->pushEv({.type = 8, .longArg = i});
                    orvix::gAidlClient->handleEvents();
                    continue;
                }
                if (batch % 3 == 2) logLinesOfACallOut();
                bare::startUidStatsPolling(vm, callOuts, i);
            }
            times.push_back(nanoseconds(Clock::now() - begin) / each);
        }
    }).join();
    env->DeleteGlobalRef(callOuts);
    return arrayOf(env, times);
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
