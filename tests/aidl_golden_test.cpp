// What was measured on a device: calls, and what is read of which bytes.
#include <gtest/gtest.h>
#include <syslog.h>

#include <map>
#include <utility>

#include "sim/json/Json.h"
#include "sim/json/Names.h"
#include "tests/aidl_methods.h"
#include "tests/aidl_support.h"

namespace orvix_test {
namespace {

// From the arguments through proxy, platform and stub to the implementation's arguments. The bytes between are those of
// the parcel inspector, and tested there.
void transactionsRoundTrip(const std::string& interface) {
    static const char* const kRefusal = "test: Passing -1 file descriptor as non-@nullable AIDL ParcelFileDescriptor\n";
    openlog("test", LOG_PERROR, LOG_USER);
    setlogmask(LOG_MASK(LOG_ERR));
    std::string called;
    const auto proxy = recorderOf(interface, [&](const Method& method, const void* arguments) {
        called = method.name + toJson(method.arguments, arguments).dump();
    });
    for (const Method& method : methodsOf(interface)) {
        size_t calls = 0;
        for (const Json& row : rowsOf("transactions.jsonl")) {
            if (row["interface"].get<std::string>() != interface) continue;
            if (row["method"].get<std::string>() != method.name) continue;
            SCOPED_TRACE(row.dump());
            const std::shared_ptr<void> arguments = method.arguments.make();
            fromJson(row["args"], method.arguments, arguments.get());
            takeTransactions();
            testing::internal::CaptureStderr();
            const ndk::ScopedAStatus status = call(*proxy, method, arguments.get());
            const bool sent = row.value("sent", true);
            EXPECT_EQ(testing::internal::GetCapturedStderr(), sent ? "" : kRefusal);
            EXPECT_EQ(status.getStatus(), row["status"].get<int>());
            EXPECT_EQ(status.getExceptionCode(), row.value("exception", 0));
            const std::vector<Transaction> transactions = takeTransactions();
            ASSERT_EQ(transactions.size(), sent ? 2u : 0u);  // the second is the recorder's own
            if (!sent) continue;
            EXPECT_EQ(std::exchange(called, ""), method.name + toJson(method.arguments, arguments.get()).dump());
            EXPECT_EQ(transactions[0].code, row["code"].get<uint32_t>());
            EXPECT_EQ(transactions[0].flags, row["flags"].get<uint32_t>());
            ++calls;
        }
        EXPECT_GT(calls, 0u) << method.name;
    }
}
TEST(Golden, ServiceTransactionsRoundTrip) { transactionsRoundTrip("IOrvixService"); }
TEST(Golden, RequestTransactionsRoundTrip) { transactionsRoundTrip("IRequest"); }

// Reads as the row says. What is got is the value, the exception, or the method that was called.
binder_status_t read(const Json& row, const AParcel* parcel, Json& got) {
    const std::string what = row["read"];
    if (what == "header") {
        ndk::ScopedAStatus header;
        const binder_status_t status = AParcel_readStatusHeader(parcel, header.getR());
        if (header.get() != nullptr) got = header.getExceptionCode();
        return status;
    }
    if (what == "call") {
        const auto proxy = recorderOf("IOrvixService", [&](const Method& method, auto) { got = method.name; });
        return dispatch("IOrvixService", proxy->asBinder().get(), row["code"], parcel, nullptr);
    }
    static const std::map<std::string, const char*> kBefore = {
        {"int", "77"},
        {"boolean", "true"},
        {"String", R"("kept")"},
        {"@nullable String", R"("kept")"},
        {"byte[]", R"("hex:01")"},
        {"ByteTuple[]", R"([{"long1":1,"long2":2}])"},
        {"IRequest", R"("local binder")"},
        {"ParcelFileDescriptor", "-1"},
        {"BatteryState", R"({"int1":70,"flag1":true})"},
    };
    const Type& type = typeNamed(what);
    const std::shared_ptr<void> value = type.make();
    fromJson(parseJson(kBefore.at(what)), type, value.get());
    const binder_status_t status = type.read(parcel, value.get());
    got = toJson(type, value.get());
    return status;
}
TEST(Golden, ReadsAnswerAndMoveAsOnTheDevice) {
    for (const Json& row : rowsOf("reads.jsonl")) {
        SCOPED_TRACE(row.dump());
        const ndk::ScopedAParcel parcel = parcelOf(bytesOfHex(row["hex"].get<std::string>()));
        AParcel_setDataPosition(parcel.get(), row.value("start", 0));
        Json got;
        const binder_status_t status = read(row, parcel.get(), got);
        EXPECT_EQ(row["status"].get<std::string>(), status == STATUS_OK ? "OK" : nameOfStatus(status));
        EXPECT_EQ(row["position"].get<int>(), AParcel_getDataPosition(parcel.get()));
        EXPECT_EQ(row.value("got", Json()).dump(), got.dump());
    }
}

}  // namespace
}  // namespace orvix_test
