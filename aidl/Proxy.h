// The client side: one transaction a call.
#pragma once

#include <android/binder_stability.h>

#include <mutex>
#include <string>
#include <type_traits>

#include "aidl/Interface.h"

namespace aidl::vendor::nuvel::data::orvixservice {

// Every call may cross the vendor boundary.
inline constexpr binder_flags_t kTwoWay = FLAG_PRIVATE_VENDOR;
inline constexpr binder_flags_t kOneWay = kTwoWay | binder_flags_t{FLAG_ONEWAY};

// Base of the proxies. Methods may be called from any thread at once. Every failure is the returned status; only a
// descriptor that is none is logged too (Codec.h). The caches are never invalidated: a proxy does not outlive the
// service that it was made for.
template <typename I>
class Proxy : public ndk::BpCInterface<I> {
  public:
    explicit Proxy(const ndk::SpAIBinder& binder) : ndk::BpCInterface<I>(binder) {}

    ScopedAStatus getInterfaceVersion(int32_t* answer) override {
        if (cachedVersion == -1) {
            return ask<&I::getInterfaceVersion>(kGetInterfaceVersion, *answer, cachedVersion);
        }
        *answer = cachedVersion;
        return ScopedAStatus::ok();
    }

    ScopedAStatus getInterfaceHash(std::string* answer) override {
        // Held across the transaction on purpose: callers that come meanwhile wait for the one outcome.
        const std::lock_guard lock(cachedHashMutex);
        if (cachedHash == "-1") return ask<&I::getInterfaceHash>(kGetInterfaceHash, *answer, cachedHash);
        *answer = cachedHash;
        return ScopedAStatus::ok();
    }

  protected:
    template <auto Pointer, typename... Args>
    ScopedAStatus oneway(const Args&... args) {
        static_assert(std::is_same_v<std::tuple<Args...>, typename Method<Pointer>::Arguments>,
                      "pass the method's own parameters, all of them, in their order");
        ndk::ScopedAParcel reply;
        const Outcome outcome = transact(codeOf<Pointer>(), kOneWay, reply, args...);
        if (outcome.unknown && I::getDefaultImpl()) return (I::getDefaultImpl().get()->*Pointer)(args...);
        return ScopedAStatus::fromStatus(outcome.status);
    }

  private:
    struct Outcome {
        binder_status_t status;
        bool unknown;  // the peer does not know the code; a failure before the transaction never says so
    };

    template <typename... Args>
    Outcome transact(transaction_code_t code, binder_flags_t flags, ndk::ScopedAParcel& reply, const Args&... args) {
        const ndk::SpAIBinder binder = this->asBinder();
        ndk::ScopedAParcel in;
        binder_status_t status = AIBinder_prepareTransaction(binder.get(), in.getR());
        if (status == STATUS_OK) status = writeArguments(in.get(), args...);
        if (status != STATUS_OK) return {status, false};
        status = AIBinder_transact(binder.get(), code, in.getR(), reply.getR(), flags);
        return {status, status == STATUS_UNKNOWN_TRANSACTION};
    }

    // A two-way question without arguments; a good answer goes into the cache too.
    template <auto Pointer, typename T>
    ScopedAStatus ask(transaction_code_t code, T& value, T& cache) {
        ndk::ScopedAParcel reply;
        const Outcome outcome = transact(code, kTwoWay, reply);
        if (outcome.unknown && I::getDefaultImpl()) return (I::getDefaultImpl().get()->*Pointer)(&value);
        if (outcome.status != STATUS_OK) return ScopedAStatus::fromStatus(outcome.status);
        ScopedAStatus header;
        binder_status_t status = AParcel_readStatusHeader(reply.get(), header.getR());
        if (status != STATUS_OK) return ScopedAStatus::fromStatus(status);
        if (!header.isOk()) return header;
        status = readValue(reply.get(), value);
        if (status == STATUS_OK) cache = value;
        return ScopedAStatus::fromStatus(status);
    }

    int32_t cachedVersion = -1;     // -1: not asked yet
    std::string cachedHash = "-1";  // likewise
    std::mutex cachedHashMutex;
};

}  // namespace aidl::vendor::nuvel::data::orvixservice
