// Loading: the only entry point, and the table of the fifteen native methods.

#include "client/AidlClient.h"
#include "client/Log.h"
#include "jni/NativeMethod.h"

namespace orvix {

namespace {

// Two classes on purpose: natives go to JniHelper, call-outs come back to SorvixAidlClient.
constexpr const char* kNativesClass = "vendor/nuvel/data/orvixadmin/JniHelper";
constexpr const char* kCallOutClass = "vendor/nuvel/data/orvixadmin/SorvixAidlClient";

const JNINativeMethod kNativeMethods[] = {
    native<&AidlClient::initialize>("initialize", "()V"),
    native<&AidlClient::sendRadioStatus>("sendRadioStatus", "(ZZZ)V"),
    native<&AidlClient::sendNetworkStatsForAllUids>("sendNetworkStatsForAllUids", "(I[Landroid/os/Parcel;)V"),
    native<&AidlClient::sendNetworkStatsForNetworkType>("sendNetworkStatsForNetworkType", "(ILandroid/os/Parcel;)V"),
    native<&AidlClient::sendScreenState>("sendScreenState", "(Z)V"),
    native<&AidlClient::sendCensusInfo>("sendCensusInfo", "(Landroid/os/Parcel;[Landroid/os/Parcel;)V"),
    native<&AidlClient::sendBootCompleteInfo>("sendBootCompleteInfo", "(Z)V"),
    native<&AidlClient::sendNetworkInfo>("sendNetworkInfo", "(ILandroid/os/Parcel;)V"),
    native<&AidlClient::sendFGNetworkInfo>("sendFGNetworkInfo", "(IJI)V"),
    native<&AidlClient::sendLPMStatus>("sendLPMStatus", "(Z)V"),
    native<&AidlClient::sendThermalStatus>("sendThermalStatus", "(I)V"),
    native<&AidlClient::sendBatteryStatus>("sendBatteryStatus", "(IZ)V"),
    native<&AidlClient::sendHotspotStatus>("sendHotspotStatus", "(Z)V"),
    native<&AidlClient::queryStats>("queryStats", "()V"),
    native<&AidlClient::sendBlobToMirel>("sendBlobToMirel", "(I[B)V"),
};

}  // namespace

bool AidlClient::registerNativeMethods(JNIEnv* env, const char* className, const JNINativeMethod* methods, int count) {
    LOGD("registerNativeMethods");
    jclass natives = env->FindClass(className);
    if (natives == nullptr) {
        LOGE("Native registration unable to find class '%s'\n", className);
        return false;
    }
    if (env->RegisterNatives(natives, methods, count) < 0) {
        LOGE("RegisterNatives failed for '%s'\n", className);
        return false;
    }
    // Not checked: without the class the natives work all the same, and every call-out fails at its look-up.
    jclass callOuts = env->FindClass(kCallOutClass);
    javaClass = static_cast<jclass>(env->NewGlobalRef(callOuts));
    env->DeleteLocalRef(callOuts);
    return true;
}

// No guard against a second call: each starts another dispatch thread on the same queue.
void AidlClient::initialize(JNIEnv*, jobject) { startThread(&AidlClient::jniMainThread, latest()); }

}  // namespace orvix

extern "C" JNIEXPORT jint JNI_OnLoad(JavaVM* vm, void*) {
    using namespace orvix;
    LOGI("JNI_OnLoad entry");
    gAidlClient = std::make_unique<AidlClient>();  // a second load replaces the client
    gAidlClient->vm = vm;
    JNIEnv* env = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_6) != JNI_OK) {
        LOGE("JNI_OnLoad GetEnv failed");
        return JNI_ERR;
    }
    if (!gAidlClient->registerNativeMethods(env, kNativesClass, kNativeMethods, std::size(kNativeMethods))) {
        LOGE("registerNativeMethods failed");
        return JNI_ERR;
    }
    LOGD("JNI_OnLoad exit");
    return JNI_VERSION_1_6;
}
