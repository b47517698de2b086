// Records from Java, each in an android.os.Parcel positioned at its start. The library neither rewinds a parcel nor
// checks a read: members that could not be read go to the service as zero or empty.

#include <android/binder_parcel_jni.h>

#include <vector>

#include "jni/Service.h"

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
template <typename R, typename Each>
std::vector<R> readAll(JNIEnv* env, jobjectArray parcels, jsize count, const Each& each) {
    std::vector<R> records;
    for (jsize i = 0; i < count; ++i) {
        const ndk::ScopedAParcel parcel = wrap(env, env->GetObjectArrayElement(parcels, i));
        records.push_back(read<R>(parcel));
        each(records.back());
    }
    return records;
}

}  // namespace

void AidlClient::sendNetworkStatsForAllUids(JNIEnv* env, jobject, jint ratType, jobjectArray parcels) {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "sendNetworkStatsForAllUids start");
    withService("sendNetworkStatsForAllUids", [&](IOrvixService& bound) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "sendNetworkStatsForAllUids RatType %d", ratType);
        const jsize count = env->GetArrayLength(parcels);
        if (count == 0) {  // an empty list is not worth a call; the census below is
            __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "sendNetworkStatsForAllUids list size is 0");
            return;
        }
        const auto ignore = [](const NetworkStatsParams&) {};
        bound.sendNetworkStatsForAllUids(RatType{ratType}, readAll<NetworkStatsParams>(env, parcels, count, ignore));
    });
}

void AidlClient::sendNetworkStatsForNetworkType(JNIEnv* env, jobject, jint ratType, jobject parcel) {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "sendNetworkStatsForNetworkType start");
    withService("sendNetworkStatsForNetworkType", [&](IOrvixService& bound) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "sendNetworkStatsForNetworkType RatType %d", ratType);
        const ndk::ScopedAParcel wrapped = wrap(env, parcel);
        bound.sendNetworkStatsForNetworkType(RatType{ratType}, read<ByteTuple>(wrapped));
    });
}

void AidlClient::sendNetworkInfo(JNIEnv* env, jobject, jint ratType, jobject parcel) {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "sendNetworkInfo start");
    withService("sendNetworkInfo", [&](IOrvixService& bound) {
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "sendNetworkInfo RatType %d", ratType);
        const ndk::ScopedAParcel wrapped = wrap(env, parcel);
        bound.sendNetworkInfo(RatType{ratType}, read<NetworkInfo>(wrapped));
    });
}

void AidlClient::sendCensusInfo(JNIEnv* env, jobject, jobject buildInfo, jobjectArray telephonyInfos) {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "sendCensusInfo start");
    withService("sendCensusInfo", [&](IOrvixService& bound) {
        const ndk::ScopedAParcel wrapped = wrap(env, buildInfo);
        CensusInfo census;
        census.buildInfo = read<BuildInfoParams>(wrapped);
        const BuildInfoParams& build = census.buildInfo;
        // text5 before text4, and no comma before text8: readers of the log know the line so.
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "BuildInfo: %s, %s, %s, %s, %s, %s, %s %s", build.text1.c_str(),
                            build.text2.c_str(), build.text3.c_str(), build.text5.c_str(), build.text4.c_str(),
                            build.text6.c_str(), build.text7.c_str(), build.text8.c_str());
        const jsize count = env->GetArrayLength(telephonyInfos);
        if (count == 0) __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "TelephonyInfoParams list size is 0");
        census.telephonyInfos =
            readAll<TelephonyInfoParams>(env, telephonyInfos, count, [](const TelephonyInfoParams& info) {
                __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "TelephonyInfo : %d, %s, %s, %s, %s, %d", info.int1,
                                    info.text1.c_str(), info.text2.c_str(), info.text3.c_str(), info.text4.c_str(),
                                    info.int2);
            });
        bound.sendCensusInfo(census);
    });
}

}  // namespace orvix
