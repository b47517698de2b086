// What was measured on a device: calls, and what is read of which bytes.
#include <gtest/gtest.h>
#include <syslog.h>

#include "sim/json/Names.h"
#include "tests/aidl_support.h"

namespace orvix_test {
namespace {

// From the arguments through proxy, platform and stub to the implementation's arguments. The bytes between are those of
// the parcel inspector, and tested there.
template <typename I>
void transactionsRoundTrip() {
    static const char* const kRefusal = "test: Passing -1 file descriptor as non-@nullable AIDL ParcelFileDescriptor\n";
    openlog("test", LOG_PERROR, LOG_USER);
    setlogmask(LOG_MASK(LOG_ERR));
    Json called;
    const auto proxy = recorderOf<I>([&](const auto& row, const auto& args) { called = {row.name, toJson(args)}; });
    forEachMethod<I>([&](const auto& method) {
        size_t calls = 0;
        for (const Json& row : rowsOf("transactions.jsonl")) {
            if (row["interface"] != shortName(I::descriptor) || row["method"] != method.name) continue;
            SCOPED_TRACE(row.dump());
            ArgumentsOf<decltype(method)> arguments;
            fromJson(row["args"], arguments);
            takeTransactions();
            testing::internal::CaptureStderr();
            const ScopedAStatus status = call(method, *proxy, arguments);
            const bool sent = row.value("sent", true);
            EXPECT_EQ(testing::internal::GetCapturedStderr(), sent ? "" : kRefusal);
            EXPECT_EQ(status.getStatus(), row["status"].get<binder_status_t>());
            EXPECT_EQ(status.getExceptionCode(), row.value("exception", 0));
            const std::vector<Transaction> transactions = takeTransactions();
            ASSERT_EQ(transactions.size(), sent ? 2u : 0u);  // the second is the recorder's own
            if (!sent) continue;
            EXPECT_EQ(std::exchange(called, nullptr), Json({method.name, toJson(arguments)}));
            EXPECT_EQ(transactions[0].code, row["code"]);
            EXPECT_EQ(transactions[0].flags, row["flags"]);
            ++calls;
        }
        EXPECT_GT(calls, 0u) << method.name;
    });
}
TEST(Golden, ServiceTransactionsRoundTrip) { transactionsRoundTrip<IOrvixService>(); }
TEST(Golden, RequestTransactionsRoundTrip) { transactionsRoundTrip<IRequest>(); }

// Reads as the row says. What is got is the value, the exception, or the method that was called.
binder_status_t read(const Json& row, const AParcel* parcel, Json& got) {
    binder_status_t status = STATUS_OK;
    const auto readOver = [&](auto value) {
        if (row["read"] != typeOf<decltype(value)>().name) return;
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
    std::shared_ptr<IRequest> callback;
    setLocalCallback(&callback);
    readOver(callback);
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
