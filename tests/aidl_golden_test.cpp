// Bytes measured on a device against the bytes of this code, in both directions.
#include <gtest/gtest.h>
#include <syslog.h>

#include <set>

#include "sim/json/Names.h"
#include "tests/aidl_support.h"

namespace orvix_test {
namespace {

// From the arguments through proxy, platform and stub to the implementation's arguments.
template <typename I>
void transactionsRoundTrip() {
    static const char* const kRefusal = "test: Passing -1 file descriptor as non-@nullable AIDL ParcelFileDescriptor\n";
    openlog("test", LOG_PERROR, LOG_USER);
    setlogmask(LOG_MASK(LOG_ERR));
    Json called;
    const auto proxy = recorderOf<I>([&](const auto& row, const auto& args) { called = lineOf(row, args); });
    ndk::ScopedAParcel empty;
    ASSERT_EQ(AIBinder_prepareTransaction(proxy->asBinder().get(), empty.getR()), STATUS_OK);
    const Bytes token = contentOf(empty.get());
    std::set<std::string> seen;
    forEachMeasuredCall<I>([&](const Json& row, const auto& method, const auto& arguments) {
        SCOPED_TRACE(row.dump());
        called = nullptr;
        takeTransactions();
        testing::internal::CaptureStderr();
        const ScopedAStatus status = call(method, *proxy, arguments);
        const bool sent = row.value("sent", true);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), sent ? "" : kRefusal);
        EXPECT_EQ(status.getStatus(), row["status"].get<binder_status_t>());
        EXPECT_EQ(status.getExceptionCode(), row.value("exception", 0));
        const std::vector<Transaction> transactions = takeTransactions();
        ASSERT_EQ(transactions.size(), sent ? 2u : 0u);  // the second is the recorder's own
        if (!sent) return;
        seen.insert(method.name);
        EXPECT_EQ(called, lineOf(method, arguments));
        EXPECT_EQ(transactions[0].code, row["code"]);
        EXPECT_EQ(transactions[0].flags, row["flags"]);
        const Bytes measured = bytesOfHex(row["hex"].get<std::string>());
        Bytes expected = token, bytes = transactions[0].content;
        expected.insert(expected.end(), measured.begin(), measured.end());
        ASSERT_EQ(bytes.size(), expected.size());
        for (const Json& object : row["objects"]) {
            for (const Json& run : object.value("masked", Json::array())) {
                const size_t offset = token.size() + run[0].get<size_t>();
                std::copy_n(&expected[offset], run[1].get<size_t>(), &bytes[offset]);
            }
        }
        EXPECT_EQ(hexOf(bytes), hexOf(expected));
    });
    std::set<std::string> all;
    forEachMethod<I>([&](const auto& method) { all.insert(method.name); });
    EXPECT_EQ(seen, all);
}
TEST(Golden, ServiceTransactionsRoundTrip) { transactionsRoundTrip<IOrvixService>(); }
TEST(Golden, RequestTransactionsRoundTrip) { transactionsRoundTrip<IRequest>(); }

// What an allocator is asked for, and where its bytes go.
struct Target {
    const bool refuse;
    Json& asked;
    std::string data = {};

    template <typename Char>
    static bool allocate(void* target, int32_t length, Char** buffer) {
        auto& self = *static_cast<Target*>(target);
        self.asked = length;
        if (self.refuse || length < 0) return !self.refuse;
        self.data.resize(static_cast<size_t>(length));
        *buffer = reinterpret_cast<Char*>(self.data.data());
        return true;
    }
    static bool allocateArray(void* target, int32_t length) {
        char* unused = nullptr;
        return allocate(target, length, &unused);
    }
};

template <typename T>
binder_status_t readPlain(binder_status_t (*function)(const AParcel*, T*), const AParcel* parcel, Json& got) {
    T value = static_cast<T>(77);
    const binder_status_t status = function(parcel, &value);
    got = static_cast<int32_t>(value);
    return status;
}

// Reads as the row says. What is got is the value, the length that an allocator is asked for, or the method called.
binder_status_t read(const Json& row, const AParcel* parcel, Json& got) {
    const std::string kind = row["read"];
    Target target{row.value("refuse", false), got};
    if (kind == "int32") return readPlain(AParcel_readInt32, parcel, got);
    if (kind == "bool") return readPlain(AParcel_readBool, parcel, got);
    if (kind == "descriptor") return readPlain(AParcel_readParcelFileDescriptor, parcel, got);
    if (kind == "string") return AParcel_readString(parcel, &target, Target::allocate);
    if (kind == "bytes") return AParcel_readByteArray(parcel, &target, Target::allocate);
    if (kind == "array") {
        const auto readWord = [](const AParcel* from, void*, size_t) {
            int32_t word = 0;
            return AParcel_readInt32(from, &word);
        };
        return AParcel_readParcelableArray(parcel, &target, Target::allocateArray, readWord);
    }
    if (kind == "binder") return AParcel_readStrongBinder(parcel, ndk::SpAIBinder().getR());
    if (kind == "header") {
        ScopedAStatus header;
        const binder_status_t status = AParcel_readStatusHeader(parcel, header.getR());
        if (header.get() != nullptr) got = header.getExceptionCode();
        return status;
    }
    if (kind == "BatteryState") {
        BatteryState record{70, true};  // members that the bytes do not have keep these
        const binder_status_t status = record.readFromParcel(parcel);
        got = toJson(record);
        return status;
    }
    const auto proxy = recorderOf<IOrvixService>([&](const auto& method, const auto&) { got = method.name; });
    return onTransact<IOrvixService>(proxy->asBinder().get(), row["code"], parcel, nullptr);
}
TEST(Golden, ReadsAnswerAndMoveAsOnTheDevice) {
    for (const Json& row : rowsOf("reads.jsonl")) {
        SCOPED_TRACE(row.dump());
        const ndk::ScopedAParcel parcel = parcelOf(bytesOfHex(row["hex"].get<std::string>()));
        AParcel_setDataPosition(parcel.get(), row.value("start", 0));
        Json got;
        const binder_status_t status = read(row, parcel.get(), got);
        EXPECT_EQ(row["status"], status == STATUS_OK ? "OK" : nameOfStatus(status));
        EXPECT_EQ(row["position"], AParcel_getDataPosition(parcel.get()));
        EXPECT_EQ(row.value("got", Json()), got);
    }
}

}  // namespace
}  // namespace orvix_test
