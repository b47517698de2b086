// What the tests of parcels and of the interface share: bytes, what was measured on a device, a look at what leaves the
// proxies.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <vector>

#include "sim/json/Type.h"

namespace orvix_test {

using namespace sim;

// A parcel of these bytes or words, to be read from its start.
ndk::ScopedAParcel parcelOf(const Bytes& bytes);
ndk::ScopedAParcel parcelOf(const std::vector<int32_t>& words);
// All that the parcel holds, objects included, word by word; the position is kept.
Bytes contentOf(const AParcel* parcel);

// One transaction as it leaves a proxy.
struct Transaction {
    transaction_code_t code;
    binder_flags_t flags;
};
// What this thread has given to AIBinder_transact since the last call.
std::vector<Transaction> takeTransactions();

// The rows of a file in tests/data, one JSON object a line.
std::vector<nlohmann::ordered_json> rowsOf(const char* file);

}  // namespace orvix_test
