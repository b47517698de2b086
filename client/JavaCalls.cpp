// The calls into Java: one line a request, the sequence around them once.
//
// Nothing but the class is kept between calls: names are looked up, an object is made and the thread is attached and
// detached for each. Local references that the arguments need are left to the detach, and so is an exception that the
// Java method threw.

#include "client/AidlClient.h"
#include "client/JavaCall.h"
#include "client/Log.h"

namespace orvix {

bool AidlClient::isThreadAttached(JNIEnv** env) {
    *env = nullptr;
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "isThreadAttached start");
    const jint result = vm->GetEnv(reinterpret_cast<void**>(env), JNI_VERSION_1_6);
    if (result == JNI_EDETACHED) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "jni detached");
        if (vm->AttachCurrentThread(env, nullptr) != JNI_OK) {
            __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Failed to attach jni");
            return false;
        }
    } else if (result != JNI_OK) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "JNI ERROR, %d", result);
        return false;
    }
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "jni attached");
    return true;
}

jobject AidlClient::getJavaCallbackClass(JNIEnv* env, jclass target, const char* name, const char* signature,
                                         jmethodID& methodId) {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "getJavaCallbackClass start");
    methodId = env->GetMethodID(target, name, signature);
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "getJavaCallbackClass End midIs[%d]", methodId != nullptr ? 1 : 0);
    return env->AllocObject(target);
}

jclass AidlClient::beginCallOut() {
    const jclass target = javaClass;
    while (life == Life::ended) eventSignal.acquire();  // for good
    return target;
}

template <typename After, typename... Args>
void AidlClient::callAttached(JNIEnv* env, jclass target, const char* javaName, const After& afterCall,
                              const Args&... args) {
    jmethodID methodId = nullptr;
    jobject object = getJavaCallbackClass(env, target, javaName, signatureOf<Args...>().c_str(), methodId);
    if (object != nullptr) {
        env->CallVoidMethod(object, methodId, JavaType<Args>::from(env, args)...);
        afterCall();
        env->DeleteLocalRef(object);
    }
    vm->DetachCurrentThread();
}

template <typename... Args>
void AidlClient::callJava(const char* name, const Args&... args) {
    callJavaAs(name, name, args...);
}

template <typename... Args>
void AidlClient::callJavaAs(const char* name, const char* javaName, const Args&... args) {
    const jclass target = beginCallOut();
    JNIEnv* env = nullptr;
    if (!isThreadAttached(&env)) return;
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "%s start", name);
    callAttached(
        env, target, javaName, [] {}, args...);
}

bool AidlClient::tellAvailability(bool available) {
    const jclass target = beginCallOut();
    JNIEnv* env = nullptr;
    if (!isThreadAttached(&env)) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "attach thread FAILED");
        return false;
    }
    // The same text when the service goes as when it comes.
    const auto confirm = [] { __android_log_print(ANDROID_LOG_INFO, kLogTag, "initialize callback success"); };
    callAttached(env, target, "onIServiceBinderAvailable", confirm, available);
    return true;
}

void AidlClient::getRadioStatus() { callJava("getRadioStatus"); }
void AidlClient::startNetworkStatsPolling(int32_t interval) { callJava("startNetworkStatsPolling", interval); }
void AidlClient::stopNetworkStatsPolling() { callJava("stopNetworkStatsPolling"); }
void AidlClient::collectCensusInfo() { callJava("collectCensusInfo"); }
void AidlClient::registerForScreenStateChanges(bool on) { callJava("registerForScreenStateChanges", on); }
void AidlClient::startUidStatsPolling(int64_t interval) { callJava("startUidStatsPolling", interval); }
void AidlClient::startRatStatsPolling(int64_t interval) { callJava("startRatStatsPolling", interval); }
void AidlClient::stopUidStatsPolling() { callJava("stopUidStatsPolling"); }
void AidlClient::stopRatStatsPolling() { callJava("stopRatStatsPolling"); }
void AidlClient::startNetworkMonitorForRatType(RatType ratType) { callJava("startNetworkMonitorForRatType", ratType); }
void AidlClient::stopNetworkMonitorForRatType(RatType ratType) { callJava("stopNetworkMonitorForRatType", ratType); }
void AidlClient::requestWwanNetwork(int32_t slotId) { callJava("requestWwanNetwork", slotId); }
void AidlClient::releaseWwanNetwork(int32_t slotId) { callJava("releaseWwanNetwork", slotId); }
void AidlClient::registerForLPMStatusChange(bool on) { callJava("registerForLPMStatusChange", on); }
void AidlClient::registerForThermalStatusChange(bool on) { callJava("registerForThermalStatusChange", on); }
void AidlClient::registerForBatteryStatusChange(bool on) { callJava("registerForBatteryStatusChange", on); }
void AidlClient::registerForHotspotStatusChange(bool on) { callJava("registerForHotspotStatusChange", on); }
void AidlClient::startStatsMonitoring() { callJava("startStatsMonitoring"); }
void AidlClient::updateStats(const NetworkStats& stats) {
    callJava("updateStats", stats.long1, stats.long2, stats.long3, stats.long4, stats.int1, stats.int2, stats.int3,
             stats.text1);
}
void AidlClient::stopStatsMonitoring() { callJava("stopStatsMonitoring"); }
// The Java side knows this one by another name.
void AidlClient::sendBlobToApkNative(int32_t tag, const std::vector<uint8_t>& blob) {
    callJavaAs("sendBlobToApkNative", "sendBlobToApkJava", tag, blob);
}

}  // namespace orvix
