// Records from Java, each in an android.os.Parcel positioned at its start. The library neither rewinds a parcel nor
// checks a read: members that could not be read go to the service as zero or empty.

#include <android/binder_parcel_jni.h>

#include <vector>

#include "client/WithService.h"

namespace orvix {

namespace {

ndk::ScopedAParcel wrap(JNIEnv* env, jobject parcel) { return ndk::ScopedAParcel(AParcel_fromJavaParcel(env, parcel)); }

template <typename R>
R read(const ndk::ScopedAParcel& parcel) {
    R record;
    record.readFromParcel(parcel.get());
    return record;
}

// One record an element, in order, whether or not it could be read. The local references are left to the return.
template <typename R>
std::vector<R> readAll(
    JNIEnv* env, jobjectArray parcels, jsize count, void (*each)(const R&) = [](const R&) {}) {
    std::vector<R> records;
    for (jsize i = 0; i < count; ++i) {
        records.push_back(read<R>(wrap(env, env->GetObjectArrayElement(parcels, i))));
        each(records.back());
    }
    return records;
}

// What the three reports of one radio technology log before they send.
template <typename Send>
void withRatType(const char* name, jint ratType, const Send& send) {
    LOGD("%s start", name);
    withService(AidlClient::latest(), name, [&](auto& bound) {
        LOGD("%s RatType %d", name, ratType);
        send(bound, RatType{ratType});
    });
}

void logTelephony(const TelephonyInfoParams& info) {
    LOGD("TelephonyInfo : %d, %s, %s, %s, %s, %d", info.int1, info.text1.c_str(), info.text2.c_str(),
         info.text3.c_str(), info.text4.c_str(), info.int2);
}

}  // namespace

void AidlClient::sendNetworkStatsForAllUids(JNIEnv* env, jobject, jint ratType, jobjectArray parcels) {
    withRatType("sendNetworkStatsForAllUids", ratType, [&](auto& bound, RatType rat) {
        const jsize count = env->GetArrayLength(parcels);
        if (count == 0) {  // an empty list is not worth a call; the census below is
            LOGD("sendNetworkStatsForAllUids list size is 0");
            return;
        }
        bound.sendNetworkStatsForAllUids(rat, readAll<NetworkStatsParams>(env, parcels, count));
    });
}

void AidlClient::sendNetworkStatsForNetworkType(JNIEnv* env, jobject, jint ratType, jobject parcel) {
    withRatType("sendNetworkStatsForNetworkType", ratType, [&](auto& bound, RatType rat) {
        bound.sendNetworkStatsForNetworkType(rat, read<ByteTuple>(wrap(env, parcel)));
    });
}

void AidlClient::sendNetworkInfo(JNIEnv* env, jobject, jint ratType, jobject parcel) {
    withRatType("sendNetworkInfo", ratType,
                [&](auto& bound, RatType rat) { bound.sendNetworkInfo(rat, read<NetworkInfo>(wrap(env, parcel))); });
}

void AidlClient::sendCensusInfo(JNIEnv* env, jobject, jobject buildInfo, jobjectArray telephonyInfos) {
    LOGD("sendCensusInfo start");
    withService(latest(), "sendCensusInfo", [&](auto& bound) {
        const ndk::ScopedAParcel wrapped = wrap(env, buildInfo);
        CensusInfo census;
        census.buildInfo = read<BuildInfoParams>(wrapped);
        const BuildInfoParams& build = census.buildInfo;
        // text5 before text4, and no comma before text8: the parsers of this line know it so.
        LOGD("BuildInfo: %s, %s, %s, %s, %s, %s, %s %s", build.text1.c_str(), build.text2.c_str(), build.text3.c_str(),
             build.text5.c_str(), build.text4.c_str(), build.text6.c_str(), build.text7.c_str(), build.text8.c_str());
        const jsize count = env->GetArrayLength(telephonyInfos);
        if (count == 0) LOGD("TelephonyInfoParams list size is 0");
        census.telephonyInfos = readAll<TelephonyInfoParams>(env, telephonyInfos, count, logTelephony);
        bound.sendCensusInfo(census);
    });
}

}  // namespace orvix
