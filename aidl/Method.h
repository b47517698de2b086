// The methods of an interface as rows: one row a method, with its transaction code and name. Proxy, stub, tools and
// tests read the same rows; the argument types come from the C++ declaration.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <array>
#include <tuple>
#include <type_traits>
#include <utility>

#include "aidl/Codec.h"

namespace aidl::vendor::nuvel::data::orvixservice {

using ndk::ScopedAStatus;

// The two questions that every interface answers beside its own methods.
inline constexpr transaction_code_t kGetInterfaceVersion = 0x00FFFFFF;
inline constexpr transaction_code_t kGetInterfaceHash = 0x00FFFFFE;

template <typename Pointer>
struct MethodType;
template <typename I, typename... Args>
struct MethodType<ScopedAStatus (I::*)(Args...)> {
    using Interface = I;
    using Arguments = std::tuple<std::remove_cvref_t<Args>...>;
};

template <auto Pointer>
struct Method {
    using Interface = typename MethodType<decltype(Pointer)>::Interface;
    using Arguments = typename MethodType<decltype(Pointer)>::Arguments;  // in parcel order
    static constexpr auto pointer = Pointer;

    transaction_code_t code;
    const char* name;
};
template <auto Pointer>
consteval Method<Pointer> method(transaction_code_t code, const char* name) {
    return {code, name};
}

// The code of a method, from its row.
template <auto Pointer>
consteval transaction_code_t codeOf() {
    using Wanted = Method<Pointer>;
    return std::apply(
        [](const auto&... rows) {
            static_assert((std::is_same_v<std::remove_cvref_t<decltype(rows)>, Wanted> + ...) == 1,
                          "every method of an interface needs one row in its list of methods");
            return ((std::is_same_v<std::remove_cvref_t<decltype(rows)>, Wanted> ? rows.code : 0) + ...);
        },
        Wanted::Interface::methods);
}

// Writes arguments in order; stops at the first that fails.
template <typename... Args>
binder_status_t writeArguments([[maybe_unused]] AParcel* parcel, const Args&... args) {
    binder_status_t status = STATUS_OK;
    (void)(((status = writeValue(parcel, args)) == STATUS_OK) && ...);
    return status;
}

// Reads arguments in order; stops at the first that fails.
template <typename... Args>
binder_status_t readArguments(const AParcel* parcel, std::tuple<Args...>& arguments) {
    binder_status_t status = STATUS_OK;
    std::apply([&](auto&... args) { (void)(((status = readValue(parcel, args)) == STATUS_OK) && ...); }, arguments);
    return status;
}

}  // namespace aidl::vendor::nuvel::data::orvixservice
