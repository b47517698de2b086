// The floors of the calls: what the platform must be asked for in any case, and nothing else.
#pragma once

#include <android/binder_stability.h>
#include <jni.h>

#include <mutex>
#include <shared_mutex>

#include "aidl/IOrvixService.h"

namespace bare {

namespace wire = aidl::vendor::nuvel::data::orvixservice;

// Prepare, write, transact: the bytes of one call. write(AParcel*) writes the arguments.
template <typename Write>
binder_status_t send(AIBinder* binder, transaction_code_t code, const Write& write) {
    AParcel* in = nullptr;
    AParcel* out = nullptr;
    binder_status_t status = AIBinder_prepareTransaction(binder, &in);
    if (status != STATUS_OK) return status;
    write(in);
    status = AIBinder_transact(binder, code, &in, &out, wire::kOneWay);
    AParcel_delete(out);
    return status;
}

inline binder_status_t sendFGNetworkInfo(AIBinder* binder, int32_t ratType, int32_t techType, int64_t value) {
    return send(binder, 9, [=](AParcel* in) {
        AParcel_writeInt32(in, ratType);
        AParcel_writeInt32(in, techType);
        AParcel_writeInt64(in, value);
    });
}

inline binder_status_t sendBatteryStatus(AIBinder* binder, int32_t level, bool flag) {
    return send(binder, 12, [=](AParcel* in) {
        AParcel_writeInt32(in, 1);
        AParcel_writeInt32(in, 12);
        AParcel_writeInt32(in, level);
        AParcel_writeBool(in, flag);
    });
}

// What every native method owes beside its transaction: its own reference to the service, taken under a shared lock,
// and a status object as the answer of the interface's method.
class Locked {
  public:
    template <typename Send>
    void around(const Send& send) {
        const std::shared_ptr<wire::IOrvixService> bound = [this] {
            const std::shared_lock lock(mutex);
            return service;
        }();
        AStatus_delete(AStatus_fromStatus(send()));
    }

  private:
    std::shared_mutex mutex;
    std::shared_ptr<wire::IOrvixService> service = ndk::SharedRefBase::make<wire::IOrvixServiceDefault>();  // only held
};

// Attach, look up, allocate, call, forget, detach: one call into Java. mark() is called after each of the first two.
template <typename Mark>
void startUidStatsPolling(JavaVM* vm, jclass javaClass, jlong interval, const Mark& mark) {
    JNIEnv* env = nullptr;
    vm->AttachCurrentThread(&env, nullptr);
    mark();
    const jmethodID method = env->GetMethodID(javaClass, "startUidStatsPolling", "(J)V");
    mark();
    const jobject object = env->AllocObject(javaClass);
    env->CallVoidMethod(object, method, interval);
    env->DeleteLocalRef(object);
    vm->DetachCurrentThread();
}
inline void startUidStatsPolling(JavaVM* vm, jclass javaClass, jlong interval) {
    startUidStatsPolling(vm, javaClass, interval, [] {});
}

}  // namespace bare
