// The calls into Java: one line a request, the sequence around them once.
//
// Nothing but the class is kept between calls: names are looked up, an object is made and the thread is attached and
// detached for each. Local references that the arguments need are left to the detach, and so is an exception that the
// Java method threw.

#include "client/AidlClient.h"
#include "client/JavaTypes.h"
#include "client/Log.h"

namespace orvix {

bool AidlClient::isThreadAttached(JNIEnv** env) {
    *env = nullptr;
    LOGD("isThreadAttached start");
    const jint result = vm->GetEnv(reinterpret_cast<void**>(env), JNI_VERSION_1_6);
    if (result == JNI_EDETACHED) {
        LOGD("jni detached");
        if (vm->AttachCurrentThread(env, nullptr) != JNI_OK) {
            LOGE("Failed to attach jni");
            return false;
        }
    } else if (result != JNI_OK) {
        LOGE("JNI ERROR, %d", result);
        return false;
    }
    LOGD("jni attached");
    return true;
}

jobject AidlClient::getJavaCallbackClass(JNIEnv* env, jclass target, const char* name, const char* signature,
                                         jmethodID& methodId) {
    LOGD("getJavaCallbackClass start");
    methodId = env->GetMethodID(target, name, signature);
    LOGD("getJavaCallbackClass End midIs[%d]", methodId != nullptr ? 1 : 0);
    return env->AllocObject(target);
}

// One call into Java. Keeps the class that it began with, whatever happens to the client meanwhile; one that would
// begin after the client's end waits for good.
class AidlClient::CallOut {
  public:
    explicit CallOut(AidlClient& caller) : client(caller), target(caller.javaClass) {
        while (client.life == Life::ended) client.eventSignal.acquire();
        attached = client.isThreadAttached(&env);
    }

    // Log "<name> start", look javaName up, call, detach. Without Java the event is lost.
    template <typename... Args>
    void as(const char* name, const char* javaName, const Args&... args) {
        if (!attached) return;
        LOGD("%s start", name);
        call(javaName, nullptr, args...);
    }
    template <typename... Args>
    void to(const char* name, const Args&... args) {
        as(name, name, args...);
    }

    // On an attached thread, which it detaches. The line is logged when there was a call.
    template <typename... Args>
    void call(const char* javaName, const char* line, const Args&... args) {
        jmethodID methodId = nullptr;
        jobject object = getJavaCallbackClass(env, target, javaName, kSignature<JavaType<Args>...>.data(), methodId);
        if (object != nullptr) {
            env->CallVoidMethod(object, methodId, toJava(env, args)...);
            if (line != nullptr) LOGI("%s", line);
            env->DeleteLocalRef(object);
        }
        client.vm->DetachCurrentThread();
    }

    AidlClient& client;
    jclass target;
    JNIEnv* env = nullptr;
    bool attached;
};

bool AidlClient::tellAvailability(bool available) {
    CallOut callOut(*this);
    // The same line whether the service comes or goes.
    if (callOut.attached) callOut.call("onIServiceBinderAvailable", "initialize callback success", available);
    if (!callOut.attached) LOGE("attach thread FAILED");
    return callOut.attached;
}

void AidlClient::getRadioStatus() { CallOut(*this).to("getRadioStatus"); }
void AidlClient::startNetworkStatsPolling(int32_t interval) { CallOut(*this).to("startNetworkStatsPolling", interval); }
void AidlClient::stopNetworkStatsPolling() { CallOut(*this).to("stopNetworkStatsPolling"); }
void AidlClient::collectCensusInfo() { CallOut(*this).to("collectCensusInfo"); }
void AidlClient::registerForScreenStateChanges(bool on) { CallOut(*this).to("registerForScreenStateChanges", on); }
void AidlClient::startUidStatsPolling(int64_t interval) { CallOut(*this).to("startUidStatsPolling", interval); }
void AidlClient::startRatStatsPolling(int64_t interval) { CallOut(*this).to("startRatStatsPolling", interval); }
void AidlClient::stopUidStatsPolling() { CallOut(*this).to("stopUidStatsPolling"); }
void AidlClient::stopRatStatsPolling() { CallOut(*this).to("stopRatStatsPolling"); }
void AidlClient::startNetworkMonitorForRatType(RatType ratType) {
    CallOut(*this).to("startNetworkMonitorForRatType", ratType);
}
void AidlClient::stopNetworkMonitorForRatType(RatType ratType) {
    CallOut(*this).to("stopNetworkMonitorForRatType", ratType);
}
void AidlClient::requestWwanNetwork(int32_t slotId) { CallOut(*this).to("requestWwanNetwork", slotId); }
void AidlClient::releaseWwanNetwork(int32_t slotId) { CallOut(*this).to("releaseWwanNetwork", slotId); }
void AidlClient::registerForLPMStatusChange(bool on) { CallOut(*this).to("registerForLPMStatusChange", on); }
void AidlClient::registerForThermalStatusChange(bool on) { CallOut(*this).to("registerForThermalStatusChange", on); }
void AidlClient::registerForBatteryStatusChange(bool on) { CallOut(*this).to("registerForBatteryStatusChange", on); }
void AidlClient::registerForHotspotStatusChange(bool on) { CallOut(*this).to("registerForHotspotStatusChange", on); }
void AidlClient::startStatsMonitoring() { CallOut(*this).to("startStatsMonitoring"); }
void AidlClient::updateStats(const NetworkStats& stats) {
    CallOut(*this).to("updateStats", stats.long1, stats.long2, stats.long3, stats.long4, stats.int1, stats.int2,
                      stats.int3, stats.text1);
}
void AidlClient::stopStatsMonitoring() { CallOut(*this).to("stopStatsMonitoring"); }
// The Java side knows this one by another name.
void AidlClient::sendBlobToApkNative(int32_t tag, const std::vector<uint8_t>& blob) {
    CallOut(*this).as("sendBlobToApkNative", "sendBlobToApkJava", tag, blob);
}

}  // namespace orvix
