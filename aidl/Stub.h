// The server side: from a transaction to a call of the implementation.
#pragma once

#include <android/binder_stability.h>

#include <array>
#include <string>

#include "aidl/Interface.h"

namespace aidl::vendor::nuvel::data::orvixservice {

namespace stub {

// Decodes the arguments of one method into locals that start empty, and calls it. A read that fails is the answer, and
// the method is not called; what the method returns is nobody's business, since every method is one-way.
template <auto Pointer>
binder_status_t invoke(typename Method<Pointer>::Interface& implementation, const AParcel* in) {
    typename Method<Pointer>::Arguments arguments{};
    const binder_status_t status = readArguments(in, arguments);
    if (status != STATUS_OK) return status;
    std::apply([&](const auto&... args) { (void)(implementation.*Pointer)(args...); }, arguments);
    return STATUS_OK;
}

template <typename I, auto... Pointers>
consteval auto invokersOf(const std::tuple<Method<Pointers>...>&) {
    return std::array<binder_status_t (*)(I&, const AParcel*), sizeof...(Pointers)>{&invoke<Pointers>...};
}

template <typename... Rows>
consteval bool codesCountFromOne(const std::tuple<Rows...>& methods) {
    return std::apply(
        [](const auto&... rows) {
            transaction_code_t code = FIRST_CALL_TRANSACTION;
            return ((rows.code == code++) && ...);
        },
        methods);
}

// Answers the two questions about the interface itself; every other code is unknown.
binder_status_t describe(transaction_code_t code, AParcel* out, int32_t version, const std::string& hash);

}  // namespace stub

// The handler of a binder class, on a binder thread, after the platform has checked the interface token. Holds its own
// reference to the implementation for the length of the call.
template <typename I>
binder_status_t onTransact(AIBinder* binder, transaction_code_t code, const AParcel* in, AParcel* out) {
    static_assert(stub::codesCountFromOne(I::methods), "codes are 1, 2, 3, … in the order of the list of methods");
    static constexpr auto invokers = stub::invokersOf<I>(I::methods);
    const auto implementation = std::static_pointer_cast<I>(ndk::ICInterface::asInterface(binder));
    if (code >= FIRST_CALL_TRANSACTION && code <= invokers.size()) {
        return invokers[code - FIRST_CALL_TRANSACTION](*implementation, in);
    }
    return stub::describe(code, out, I::version, I::hash);
}

// Base of the stubs: the answers about the interface itself, and a binder that may cross the vendor boundary.
template <typename I>
class Stub : public ndk::BnCInterface<I> {
  public:
    ScopedAStatus getInterfaceVersion(int32_t* answer) override {
        *answer = I::version;
        return ScopedAStatus::ok();
    }
    ScopedAStatus getInterfaceHash(std::string* answer) override {
        *answer = I::hash;
        return ScopedAStatus::ok();
    }

  protected:
    ndk::SpAIBinder createBinder() override {
        AIBinder* binder = AIBinder_new(I::binderClass, static_cast<ndk::ICInterface*>(this));
        AIBinder_markVintfStability(binder);
        return ndk::SpAIBinder(binder);
    }
};

}  // namespace aidl::vendor::nuvel::data::orvixservice
