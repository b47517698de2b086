// Parcels and statuses of the Linux platform: bytes, answers and positions, as the device has them.
#include <android/binder_auto_utils.h>
#include <android/binder_parcel_jni.h>
#include <gtest/gtest.h>

#include "aidl/Codec.h"
#include "sim/json/Json.h"
#include "sim/vm/quiet_jni.h"
#include "tests/aidl_support.h"

namespace orvix_test {
namespace {

using aidl::vendor::nuvel::data::orvixservice::codec::allocateString;
using ndk::ScopedAStatus;

void expectWritten(const std::string& hex, binder_status_t status, auto function, auto... arguments) {
    const ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(status, function(parcel.get(), arguments...)) << hex;
    EXPECT_EQ(hex, hexOf(contentOf(parcel.get())));
}

TEST(Parcel, WritesTheDevicesBytesOrNothing) {
    const auto* bytes = reinterpret_cast<const int8_t*>("\x01\x02\x03\x04\x05");
    const auto element = [](AParcel* p, const void*, size_t index) {
        return index == 2 ? binder_status_t{STATUS_BAD_VALUE} : AParcel_writeInt32(p, static_cast<int32_t>(index + 7));
    };
    expectWritten("ffffffff", STATUS_OK, AParcel_writeString, nullptr, -1);
    expectWritten("", STATUS_BAD_VALUE, AParcel_writeString, nullptr, 0);
    expectWritten("", STATUS_BAD_VALUE, AParcel_writeString, "a", -1);
    expectWritten("050000000102030405000000", STATUS_OK, AParcel_writeByteArray, bytes, 5);
    expectWritten("ffffffff", STATUS_OK, AParcel_writeByteArray, nullptr, -1);
    expectWritten("00000000", STATUS_OK, AParcel_writeByteArray, nullptr, 0);
    expectWritten("", STATUS_BAD_VALUE, AParcel_writeByteArray, nullptr, 3);
    expectWritten("", STATUS_BAD_VALUE, AParcel_writeByteArray, bytes, -1);
    expectWritten("020000000700000008000000", STATUS_OK, AParcel_writeParcelableArray, nullptr, 2, element);
    expectWritten("030000000700000008000000", STATUS_BAD_VALUE, AParcel_writeParcelableArray, nullptr, 3, element);
    expectWritten("852a6273130000000000000000000000000000000000000000000000", STATUS_OK, AParcel_writeStrongBinder,
                  nullptr);
    expectWritten("00000000", STATUS_OK, AParcel_writeParcelFileDescriptor, -1);
    expectWritten("", STATUS_UNKNOWN_ERROR, AParcel_writeParcelFileDescriptor, -2);
    expectWritten("01000000", STATUS_UNKNOWN_ERROR, AParcel_writeParcelFileDescriptor, 999);  // is not open
}

TEST(Parcel, AllocatorsDecide) {
    const auto never = [](auto...) { return false; };
    const auto always = [](auto...) { return true; };
    const std::vector<int32_t> text{1, 'a'}, two{2, 3}, null{-1};
    EXPECT_EQ(STATUS_NO_MEMORY, AParcel_readString(parcelOf(text).get(), nullptr, never));
    EXPECT_EQ(STATUS_NO_MEMORY, AParcel_readByteArray(parcelOf(two).get(), nullptr, never));
    EXPECT_EQ(STATUS_OK, AParcel_readByteArray(parcelOf(null).get(), nullptr, always));
    EXPECT_EQ(STATUS_OK, AParcel_readParcelableArray(parcelOf(null).get(), nullptr, always, nullptr));
}

TEST(Status, TravelsAndIsDescribedByItsListedName) {
    const std::tuple<ScopedAStatus, binder_status_t, const char*, const char*> cases[] = {
        {ScopedAStatus::fromStatus(STATUS_OK), STATUS_OK, "No error", "00000000"},
        {ScopedAStatus::fromStatus(-5), STATUS_UNKNOWN_ERROR, "Status(-129, EX_TRANSACTION_FAILED): 'UNKNOWN_ERROR: '",
         ""},
        {ScopedAStatus::fromStatus(-32), STATUS_DEAD_OBJECT, "Status(-129, EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '",
         ""},
        {ScopedAStatus::fromExceptionCode(EX_PARCELABLE), STATUS_OK, "Status(-9, EX_PARCELABLE): ''",
         "f7ffffff00000000000000000000000000000000"},
        {ScopedAStatus::fromExceptionCodeWithMessage(-5, "a"), STATUS_OK, "Status(-5, EX_ILLEGAL_STATE): 'a'",
         "fbffffff010000006100000000000000"},
        {ScopedAStatus::fromServiceSpecificError(9), STATUS_OK, "Status(-8, EX_SERVICE_SPECIFIC): '9: '",
         "f8ffffff00000000000000000000000009000000"},
    };
    for (const auto& [status, number, description, header] : cases) {
        EXPECT_EQ(number, status.getStatus()) << description;
        EXPECT_EQ(description, status.getDescription());
        expectWritten(header, number, AParcel_writeStatusHeader, status.get());
    }
    for (const binder_exception_t unknown : {-10, -128, -129, 3}) {
        const ScopedAStatus status = ScopedAStatus::fromExceptionCode(unknown);
        EXPECT_EQ(EX_TRANSACTION_FAILED, status.getExceptionCode()) << unknown;
        EXPECT_EQ(STATUS_FAILED_TRANSACTION, status.getStatus()) << unknown;
    }
}

TEST(Parcel, StringsCrossTheEncodingsAsMeasured) {
    for (const Json& row : rowsOf("strings.jsonl")) {
        SCOPED_TRACE(row.dump());
        const std::string hex = row["hex"];
        if (row.contains("utf8_in")) {
            const Bytes bytes = bytesOfHex(row["utf8_in"].get<std::string>());
            const std::string in(bytes.begin(), bytes.end());
            expectWritten(hex, row["write_status"], AParcel_writeString, in.data(), static_cast<int32_t>(in.size()));
        }
        std::string out;
        EXPECT_EQ(row["read_status"].get<binder_status_t>(),
                  AParcel_readString(parcelOf(bytesOfHex(hex)).get(), &out, allocateString));
        EXPECT_EQ(row["utf8_out"].get<std::string>(), hexOf(Bytes(out.begin(), out.end())));
    }
}

TEST(Parcel, PositionsAndRawBytes) {
    uint8_t bytes[12];
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AParcel_marshal(ndk::ScopedAParcel(AParcel_create()).get(), bytes, 0, 0));
    const ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(STATUS_OK, AParcel_unmarshal(parcel.get(), bytesOfHex("0102030405").data(), 5));
    EXPECT_EQ(8, AParcel_getDataPosition(parcel.get()));
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_setDataPosition(parcel.get(), -1));
    EXPECT_EQ(STATUS_OK, AParcel_setDataPosition(parcel.get(), 12));
    EXPECT_EQ(12, AParcel_getDataSize(parcel.get())) << "a position past the end counts as size";
    for (const auto& [start, length] : {std::pair<size_t, size_t>{8, 1}, {0, 9}, {SIZE_MAX, 1}, {1, SIZE_MAX}}) {
        EXPECT_EQ(STATUS_BAD_VALUE, AParcel_marshal(parcel.get(), bytes, start, length));
    }
    EXPECT_EQ(STATUS_OK, AParcel_marshal(parcel.get(), bytes, 3, 5));
    EXPECT_EQ("0405000000", hexOf(Bytes(bytes, bytes + 5)));
    AParcel_setDataPosition(parcel.get(), 2);
    EXPECT_EQ(STATUS_OK, AParcel_writeInt32(parcel.get(), -1));
    EXPECT_EQ("0102ffffffff0000", hexOf(contentOf(parcel.get()))) << "an odd place is written all the same";
    AParcel_setDataPosition(parcel.get(), 0);
    EXPECT_EQ(STATUS_OK, AParcel_writeByteArray(parcel.get(), reinterpret_cast<const int8_t*>(bytes), 1));
    EXPECT_EQ("0100000004000000", hexOf(contentOf(parcel.get()))) << "no old bytes in the padding";
    AParcel_setDataPosition(parcel.get(), INT32_MAX);
    EXPECT_EQ(STATUS_NO_MEMORY, AParcel_writeInt32(parcel.get(), 1));
    AParcel_setDataPosition(parcel.get(), 0);
    const ndk::ScopedFileDescriptor lowest(dup(STDIN_FILENO));
    EXPECT_EQ(STATUS_OK, AParcel_writeParcelFileDescriptor(parcel.get(), STDIN_FILENO));
    EXPECT_EQ(lowest.get() + 1, lowest.dup().get()) << "its own has a high number";
    EXPECT_EQ(STATUS_INVALID_OPERATION, AParcel_marshal(parcel.get(), bytes, 0, 1)) << "objects are no bytes";
    AParcel_setDataPosition(parcel.get(), 28);
    EXPECT_EQ(STATUS_OK, AParcel_writeInt32(parcel.get(), 1));
    EXPECT_EQ(STATUS_OK, AParcel_marshal(parcel.get(), bytes, 0, 1)) << "what is written over is no object any more";
}

TEST(Parcel, ARecycledJavaParcelThrows) {
    static std::string thrown;
    JNINativeInterface table = *quiet::env()->functions;
    table.ThrowNew = [](JNIEnv*, jclass name, const char*) {
        thrown = reinterpret_cast<const char*>(name);
        return jint{0};
    };
    table.FindClass = [](JNIEnv*, const char* name) { return reinterpret_cast<jclass>(const_cast<char*>(name)); };
    JNIEnv env{&table};
    quiet::Object recycled;
    EXPECT_EQ(nullptr, AParcel_fromJavaParcel(&env, nullptr));
    EXPECT_EQ("", thrown);
    EXPECT_EQ(nullptr, AParcel_fromJavaParcel(&env, quiet::ref(recycled)));
    EXPECT_EQ("java/lang/IllegalStateException", thrown);
}

}  // namespace
}  // namespace orvix_test
