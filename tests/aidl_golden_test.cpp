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

// Reads as the row says. What is got is the value, the exception, or the method that was called.
binder_status_t read(const Json& row, const AParcel* parcel, Json& got) {
    binder_status_t status = STATUS_OK;
    const auto readOver = [&](auto value) {
        if (row["read"] != typeName<decltype(value)>()) return;
        status = readValue(parcel, value);
        got = toJson(value);
    };
    readOver(int32_t{77});
    readOver(true);
    readOver(std::string("kept"));
    readOver(std::optional<std::string>("kept"));
    readOver(Bytes{1});
    readOver(std::vector<ByteTuple>{{1, 2}});
    readOver(ndk::ScopedFileDescriptor());
    readOver(json::localObject<IRequest>());
    if (row["read"] == "BatteryState") {  // as it is, without what stands before a record that is an argument
        BatteryState record{70, true};
        status = record.readFromParcel(parcel);
        got = toJson(record);
    } else if (row["read"] == "header") {
        ScopedAStatus header;
        status = AParcel_readStatusHeader(parcel, header.getR());
        if (header.get() != nullptr) got = header.getExceptionCode();
    } else if (row["read"] == "call") {
        const auto proxy = recorderOf<IOrvixService>([&](const auto& method, const auto&) { got = method.name; });
        status = onTransact<IOrvixService>(proxy->asBinder().get(), row["code"], parcel, nullptr);
    }
    return status;
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
