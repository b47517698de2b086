// The client side: one transaction a call.
#pragma once

#include <android/binder_stability.h>

#include <mutex>
#include <string>
#include <tuple>
#include <type_traits>

#include "aidl/Interface.h"

namespace aidl::vendor::nuvel::data::orvixservice {

// Every call may cross the vendor boundary.
inline constexpr binder_flags_t kTwoWay = FLAG_PRIVATE_VENDOR;
inline constexpr binder_flags_t kOneWay = kTwoWay | binder_flags_t{FLAG_ONEWAY};

// A call as the transaction sees it: what depends on the types of its method is behind functions, which get what the
// proxy's method has packed for them.
struct Call {
    transaction_code_t code;
    binder_status_t (*write)(AParcel* in, const void* arguments);
    binder_status_t (*read)(const AParcel* out, const void* arguments);  // null: a one-way call
    ndk::ICInterface* (*defaultImpl)();                                  // null: none is set
    ScopedAStatus (*repeat)(ndk::ICInterface& defaultImpl, const void* arguments);
};
// One transaction; the default implementation is asked only when the peer says that it does not know the code.
ScopedAStatus transact(ndk::ICInterface& proxy, const Call& call, const void* arguments);

namespace proxy {

template <typename Arguments>
binder_status_t write(AParcel* in, const void* arguments) {
    return std::apply([in](const auto&... args) { return writeArguments(in, args...); },
                      *static_cast<const Arguments*>(arguments));
}

// Where the answer to a question goes; a good one of the peer is kept, too.
template <typename T>
struct Answer {
    T* asked;
    T* cached;
};
template <typename T>
binder_status_t read(const AParcel* out, const void* answer) {
    const auto [asked, cached] = *static_cast<const Answer<T>*>(answer);
    const binder_status_t status = readValue(out, *asked);
    if (status == STATUS_OK) *cached = *asked;
    return status;
}

}  // namespace proxy

// Base of the proxies. Methods may be called from any thread at once. Every failure is the returned status; only a
// descriptor that is none is logged too (Codec.h). The caches are never invalidated: a proxy does not outlive the
// service that it was made for.
template <typename I>
class Proxy : public ndk::BpCInterface<I> {
  public:
    explicit Proxy(const ndk::SpAIBinder& binder) : ndk::BpCInterface<I>(binder) {}

    ScopedAStatus getInterfaceVersion(int32_t* answer) override {
        if (cachedVersion == -1) return ask<&I::getInterfaceVersion>(kGetInterfaceVersion, *answer, cachedVersion);
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
        using Arguments = std::tuple<const Args&...>;
        constexpr auto repeat = [](ndk::ICInterface& implementation, const void* arguments) {
            const auto call = [&](const auto&... all) { return (static_cast<I&>(implementation).*Pointer)(all...); };
            return std::apply(call, *static_cast<const Arguments*>(arguments));
        };
        static constexpr Call call{codeOf<Pointer>(), proxy::write<Arguments>, nullptr, defaultImpl, repeat};
        const Arguments arguments(args...);
        return transact(*this, call, &arguments);
    }

  private:
    static ndk::ICInterface* defaultImpl() { return I::getDefaultImpl().get(); }

    template <auto Pointer, typename T>
    ScopedAStatus ask(transaction_code_t code, T& asked, T& cached) {
        const auto repeat = [](ndk::ICInterface& implementation, const void* answer) {
            return (static_cast<I&>(implementation).*Pointer)(static_cast<const proxy::Answer<T>*>(answer)->asked);
        };
        const proxy::Answer<T> answer{&asked, &cached};
        return transact(*this, {code, proxy::write<std::tuple<>>, proxy::read<T>, defaultImpl, repeat}, &answer);
    }

    int32_t cachedVersion = -1;     // -1: not asked yet
    std::string cachedHash = "-1";  // likewise; under the mutex
    std::mutex cachedHashMutex;
};

}  // namespace aidl::vendor::nuvel::data::orvixservice
