#include "tests/aidl_support.h"

#include <dlfcn.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "sim/json/Json.h"

namespace orvix_test {

static thread_local std::vector<Transaction> tTransactions;

ndk::ScopedAParcel parcelOf(const Bytes& bytes) {
    ndk::ScopedAParcel parcel(AParcel_create());
    if (!bytes.empty() && AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size()) != STATUS_OK)
        throw std::runtime_error("unmarshal");
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

ndk::ScopedAParcel parcelOf(const std::vector<int32_t>& words) {
    const auto* const from = reinterpret_cast<const uint8_t*>(words.data());
    return parcelOf(Bytes(from, from + words.size() * sizeof(int32_t)));
}

Bytes contentOf(const AParcel* parcel) {
    const int32_t position = AParcel_getDataPosition(parcel);
    AParcel_setDataPosition(parcel, 0);
    Bytes bytes;
    for (int32_t word = 0; AParcel_readInt32(parcel, &word) == STATUS_OK;) {
        const auto* from = reinterpret_cast<const uint8_t*>(&word);
        bytes.insert(bytes.end(), from, from + sizeof word);
    }
    AParcel_setDataPosition(parcel, position);
    return bytes;
}

std::vector<Transaction> takeTransactions() { return std::exchange(tTransactions, {}); }

std::vector<Json> rowsOf(const char* file) {
    std::ifstream stream(std::string(TEST_DATA "/") + file);
    std::vector<Json> rows;
    for (std::string line; std::getline(stream, line);) rows.push_back(parseJson(line));
    if (rows.empty()) throw std::runtime_error(std::string("no rows in ") + file);
    return rows;
}

}  // namespace orvix_test

// The program's own definitions come before the libraries': every call of the code under test passes here.
extern "C" binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out,
                                             binder_flags_t flags) {
    using namespace orvix_test;
    static const auto real = reinterpret_cast<decltype(&AIBinder_transact)>(dlsym(RTLD_NEXT, "AIBinder_transact"));
    tTransactions.push_back({code, flags});
    return real(binder, code, in, out, flags);
}
