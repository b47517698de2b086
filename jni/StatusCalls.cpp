// State reports from Java in primitives and bytes. The status of a call is dropped, here as everywhere: Java is told
// nothing but the service's coming and going.

#include <vector>

#include "client/WithService.h"

namespace orvix {

namespace {

// Any byte but 0, whatever Java's boolean may be.
bool isTrue(jboolean value) { return (value & 0xFF) != 0; }

}  // namespace

void AidlClient::sendRadioStatus(JNIEnv*, jobject, jboolean flag1, jboolean flag2, jboolean flag3) {
    LOGD("sendRadioStatus start");
    withService(latest(), "sendRadioStatus", [&](auto& bound) {
        // Java sets three of the five; flag4 and flag5 stay false.
        bound.sendRadioTechStatus({.flag1 = isTrue(flag1), .flag2 = isTrue(flag2), .flag3 = isTrue(flag3)});
    });
}

void AidlClient::sendScreenState(JNIEnv*, jobject, jboolean on) {
    withService(latest(), "sendScreenState", [&](auto& bound) { bound.sendScreenState(isTrue(on)); });
}

void AidlClient::sendBootCompleteInfo(JNIEnv*, jobject, jboolean completed) {
    withService(latest(), "sendBootCompleteInfo", [&](auto& bound) { bound.sendBootCompleteInfo(isTrue(completed)); });
}

// Java's order is int, long, int; the service's is int, int, long.
void AidlClient::sendFGNetworkInfo(JNIEnv*, jobject, jint ratType, jlong value, jint techType) {
    withService(latest(), "sendFGNetworkInfo",
                [&](auto& bound) { bound.sendFGNetworkInfo(RatType{ratType}, TechType{techType}, value); });
}

void AidlClient::sendLPMStatus(JNIEnv*, jobject, jboolean status) {
    withService(latest(), "sendLPMStatus", [&](auto& bound) { bound.sendLPMStatus(isTrue(status)); });
}

void AidlClient::sendThermalStatus(JNIEnv*, jobject, jint state) {
    withService(latest(), "sendThermalStatus", [&](auto& bound) { bound.sendThermalStatus(ThermalState{state}); });
}

void AidlClient::sendBatteryStatus(JNIEnv*, jobject, jint level, jboolean flag) {
    withService(latest(), "sendBatteryStatus",
                [&](auto& bound) { bound.sendBatteryStatus({.int1 = level, .flag1 = isTrue(flag)}); });
}

void AidlClient::sendHotspotStatus(JNIEnv*, jobject, jboolean status) {
    withService(latest(), "sendHotspotStatus", [&](auto& bound) { bound.sendHotspotStatus(isTrue(status)); });
}

void AidlClient::queryStats(JNIEnv*, jobject) {
    withService(latest(), "queryStats", [](auto& bound) { bound.queryStats(); });
}

void AidlClient::sendBlobToMirel(JNIEnv* env, jobject, jint tag, jbyteArray blob) {
    withService(latest(), "sendBlobToMirel", [&](auto& bound) {
        if (env == nullptr) {
            LOGE("%s: JNIEnv is NULL", "sendBlobToMirel");
            return;
        }
        const jsize length = env->GetArrayLength(blob);
        std::vector<uint8_t> bytes(static_cast<size_t>(length));
        env->GetByteArrayRegion(blob, 0, length, reinterpret_cast<jbyte*>(bytes.data()));
        bound.sendBlobToMirel(tag, bytes);
    });
}

}  // namespace orvix
