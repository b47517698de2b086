// What the fuzzers share: invariants, which hold for any input, bytes in parcels, and whole transactions out of an
// input.
//
// Selectors are taken from the end of an input and contents from its front, so that a seed is the bytes of a real call
// with its selectors behind them.
#pragma once

#include <android/binder_parcel.h>
#include <android/binder_stability.h>
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <vector>

#include "aidl/IOrvixService.h"
#include "aidl/IRequest.h"

namespace fuzz {

namespace wire = aidl::vendor::nuvel::data::orvixservice;
using Bytes = std::vector<uint8_t>;

inline void invariant(bool held, const char* text) {
    if (held) return;
    std::fprintf(stderr, "broken invariant: %s\n", text);
    std::abort();
}

inline ndk::ScopedAParcel newParcel() { return ndk::ScopedAParcel(AParcel_create()); }

// All bytes, as words may be read over objects; the position is kept.
inline Bytes wordsOf(const AParcel* parcel) {
    const int32_t position = AParcel_getDataPosition(parcel);
    const int32_t size = AParcel_getDataSize(parcel);
    Bytes bytes;
    AParcel_setDataPosition(parcel, 0);
    for (int32_t word = 0; AParcel_getDataPosition(parcel) < size && AParcel_readInt32(parcel, &word) == STATUS_OK;) {
        const auto* from = reinterpret_cast<const uint8_t*>(&word);
        bytes.insert(bytes.end(), from, from + sizeof(word));
    }
    AParcel_setDataPosition(parcel, position);
    return bytes;
}

// Appends the bytes as words; up to three that are left over are dropped.
inline void appendWords(AParcel* parcel, const Bytes& bytes) {
    for (size_t i = 0; i + sizeof(int32_t) <= bytes.size(); i += sizeof(int32_t)) {
        int32_t word = 0;
        std::memcpy(&word, bytes.data() + i, sizeof(word));
        AParcel_writeInt32(parcel, word);
    }
}

template <typename Arguments>
Bytes encode(const Arguments& arguments) {
    const ndk::ScopedAParcel parcel = newParcel();
    const binder_status_t status =
        std::apply([&](const auto&... args) { return wire::writeArguments(parcel.get(), args...); }, arguments);
    invariant(status == STATUS_OK, "what was accepted can be sent on");
    return wordsOf(parcel.get());
}

// Whether the bytes of a value are the same wherever it is: not so for binders and descriptors.
template <typename Arguments>
inline constexpr bool kPlain = false;
template <typename... Args>
inline constexpr bool kPlain<std::tuple<Args...>> = ((!std::is_same_v<Args, ndk::ScopedFileDescriptor> &&
                                                      !std::is_same_v<Args, std::shared_ptr<wire::IRequest>>)&&...);

// Where the arguments begin, behind the interface token.
template <typename I>
int32_t tokenSize() {
    const ndk::ScopedAParcel name = newParcel();
    AParcel_writeString(name.get(), I::descriptor, static_cast<int32_t>(std::strlen(I::descriptor)));
    return 3 * static_cast<int32_t>(sizeof(int32_t)) + AParcel_getDataSize(name.get());
}

struct Transaction {
    transaction_code_t code;
    ndk::ScopedAParcel in;
    bool goodToken;
};

// A transaction to the binder, with real objects among hostile words. `object` is what a strong binder in it may be.
template <typename I>
Transaction transactionOf(FuzzedDataProvider& input, AIBinder* binder, AIBinder* object) {
    constexpr size_t kMethods = std::tuple_size_v<decltype(I::methods)>;
    Transaction made{input.ConsumeIntegralInRange<uint8_t>(0, kMethods + 3), ndk::ScopedAParcel(), true};
    if (made.code == kMethods + 2) made.code = wire::kGetInterfaceHash;
    if (made.code == kMethods + 3) made.code = wire::kGetInterfaceVersion;
    const uint8_t oddities = input.ConsumeIntegral<uint8_t>();
    const uint8_t place = input.ConsumeIntegral<uint8_t>();
    invariant(AIBinder_prepareTransaction(binder, made.in.getR()) == STATUS_OK, "a transaction can be prepared");

    const Bytes words = input.ConsumeRemainingBytes<uint8_t>();
    const auto before = std::min<size_t>(place % 8 * sizeof(int32_t), words.size());
    const auto middle = words.begin() + static_cast<ptrdiff_t>(before);
    appendWords(made.in.get(), Bytes(words.begin(), middle));
    if ((oddities & 3) == 1) AParcel_writeStrongBinder(made.in.get(), object);
    if ((oddities & 3) == 2) AParcel_writeParcelFileDescriptor(made.in.get(), STDIN_FILENO);
    appendWords(made.in.get(), Bytes(middle, words.end()));
    if ((oddities & 0xfc) == 0xfc) {  // the token is not what it should be
        const int32_t end = AParcel_getDataPosition(made.in.get());
        AParcel_setDataPosition(made.in.get(), 8 + place / 8 * 4 % (tokenSize<I>() - 8));
        AParcel_writeInt32(made.in.get(), oddities);
        AParcel_setDataPosition(made.in.get(), end);
        made.goodToken = false;
    }
    return made;
}

// Calls visit(row) for the method of this code; false if there is none.
template <typename I>
bool visitMethod(transaction_code_t code, auto&& visit) {
    const auto tryOne = [&](const auto& row) {
        if (row.code != code) return false;
        visit(row);
        return true;
    };
    return std::apply([&](const auto&... rows) { return (tryOne(rows) || ...); }, I::methods);
}

}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
