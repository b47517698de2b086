// Parcels and statuses of the Linux platform: bytes, answers and positions, as the device has them.
#include <android/binder_auto_utils.h>
#include <android/binder_parcel_jni.h>
#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "sim/json/Json.h"

namespace {

using ndk::ScopedAParcel;
using ndk::ScopedAStatus;
using sim::Bytes;
using sim::bytesOfHex;
using sim::hexOf;

// What has been written.
std::string bytesOf(const AParcel* parcel) {
    Bytes bytes(static_cast<size_t>(AParcel_getDataSize(parcel)));
    const binder_status_t status = bytes.empty() ? STATUS_UNEXPECTED_NULL : STATUS_OK;
    EXPECT_EQ(status, AParcel_marshal(parcel, bytes.data(), 0, bytes.size()));
    return hexOf(bytes);
}

// At position 0.
ScopedAParcel parcelOf(const std::string& hex) {
    ScopedAParcel parcel(AParcel_create());
    const Bytes bytes = bytesOfHex(hex);
    EXPECT_EQ(STATUS_OK, AParcel_unmarshal(parcel.get(), bytes.data(), bytes.size()));
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), AParcel_getDataPosition(parcel.get()));
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

// What an allocator was asked for, and where its bytes went; or the value.
struct Target {
    bool refuse = false;
    std::optional<int32_t> asked = {};
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

binder_status_t readWord(const AParcel* parcel, void*, size_t) {
    int32_t word = 0;
    return AParcel_readInt32(parcel, &word);
}

using Read = binder_status_t (*)(const AParcel*, Target&);
template <auto Function, typename T>
binder_status_t readPlain(const AParcel* parcel, Target& target) {
    T value = static_cast<T>(77);
    const binder_status_t status = Function(parcel, &value);
    target.asked = static_cast<int32_t>(value);
    return status;
}
const Read kInt32 = readPlain<AParcel_readInt32, int32_t>;
const Read kBool = readPlain<AParcel_readBool, bool>;
const Read kDescriptor = readPlain<AParcel_readParcelFileDescriptor, int>;
const Read kString = [](const AParcel* p, Target& t) { return AParcel_readString(p, &t, Target::allocate); };
const Read kBytes = [](const AParcel* p, Target& t) { return AParcel_readByteArray(p, &t, Target::allocate); };
const Read kArray = [](const AParcel* p, Target& t) {
    return AParcel_readParcelableArray(p, &t, Target::allocateArray, readWord);
};
const Read kBinder = [](const AParcel* p, Target&) {
    ndk::SpAIBinder binder;
    return AParcel_readStrongBinder(p, binder.getR());
};
const Read kHeader = [](const AParcel* p, Target& t) {
    ScopedAStatus status;
    const binder_status_t result = AParcel_readStatusHeader(p, status.getR());
    if (status.get() != nullptr) t.asked = status.getExceptionCode();
    return result;
};

TEST(Parcel, ReadsAnswerAndMoveAsOnTheDevice) {
    constexpr std::nullopt_t kNone = std::nullopt;
    const struct {
        const char* what;
        Read read;
        const char* hex;
        binder_status_t status;
        int32_t position;  // afterwards
        std::optional<int32_t> asked;
        bool refuse = false;
        int32_t start = 0;
    } cases[] = {
        {"int32 from nothing", kInt32, "", STATUS_NOT_ENOUGH_DATA, 0, 77},
        {"int32 at an odd place", kInt32, "0005000000000000", STATUS_OK, 5, 5, false, 1},
        {"int32 at the last position", kInt32, "05000000", STATUS_NOT_ENOUGH_DATA, INT32_MAX, 77, false, INT32_MAX},
        {"bool from nothing", kBool, "", STATUS_NOT_ENOUGH_DATA, 0, 0},

        {"string refused", kString, "020000006100620000000000", STATUS_NO_MEMORY, 12, 3, true},
        {"string longer than anything", kString, "ffffff7f61006200", STATUS_UNEXPECTED_NULL, 4, -1, true},
        {"string without terminator", kString, "020000006100620063000000", STATUS_OK, 12, -1},

        {"null bytes", kBytes, "ffffffff", STATUS_OK, 4, -1},
        {"null bytes refused", kBytes, "ffffffff", STATUS_UNEXPECTED_NULL, 4, -1, true},
        {"bytes of length -2", kBytes, "feffffff", STATUS_BAD_VALUE, 4, kNone},
        {"more bytes than left", kBytes, "0500000001020304", STATUS_NO_MEMORY, 4, kNone},
        {"bytes refused", kBytes, "0300000001020300", STATUS_NO_MEMORY, 4, 3, true},

        {"array with an element missing", kArray, "0200000007000000", STATUS_NOT_ENOUGH_DATA, 8, 2},
        {"null array", kArray, "ffffffff", STATUS_OK, 4, -1},
        {"null array refused", kArray, "ffffffff", STATUS_UNEXPECTED_NULL, 4, -1, true},
        {"array of length -2", kArray, "feffffff", STATUS_BAD_VALUE, 4, kNone},
        {"array longer than the bytes left", kArray, "0500000001020304", STATUS_NO_MEMORY, 4, kNone},

        {"null descriptor", kDescriptor, "00000000", STATUS_OK, 4, -1},
        {"descriptor of mere words", kDescriptor,
         "0100000000000000852a6466000000000300000000000000000000000000000000000000", STATUS_BAD_TYPE, 32, 77},
        {"binder of mere words", kBinder, "852a6273130100000800000000000000080000000000000000000000", STATUS_BAD_TYPE,
         24, kNone},

        {"-5 alone", kHeader, "fbffffff", STATUS_NOT_ENOUGH_DATA, 4, kNone},
        {"-8 alone", kHeader, "f8ffffff", STATUS_NOT_ENOUGH_DATA, 4, kNone},
        {"7 alone", kHeader, "07000000", STATUS_NOT_ENOUGH_DATA, 4, kNone},
        {"-129 alone", kHeader, "7fffffff", STATUS_NOT_ENOUGH_DATA, 4, kNone},
        {"exception", kHeader, "fdffffff010000006100000000000000", STATUS_OK, 16, EX_ILLEGAL_ARGUMENT},
        {"cut", kHeader, "fdffffff0100000061000000", STATUS_NOT_ENOUGH_DATA, 12, kNone},
        {"unknown exception", kHeader, "07000000ffffffff00000000", STATUS_OK, 12, EX_TRANSACTION_FAILED},
        {"stack trace", kHeader, "fdffffffffffffff04000000aaaaaaaa", STATUS_OK, 16, EX_ILLEGAL_ARGUMENT},
        {"service's value", kHeader, "f8ffffffffffffff000000002a000000", STATUS_OK, 16, EX_SERVICE_SPECIFIC},
        {"parcelable", kHeader, "f7ffffffffffffff0000000008000000bbbbbbbbcccccccc", STATUS_OK, 20, EX_PARCELABLE},
        {"reply header", kHeader, "80ffffff08000000bbbbbbbbcccccccc", STATUS_OK, 12, EX_NONE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ScopedAParcel parcel = parcelOf(c.hex);
        AParcel_setDataPosition(parcel.get(), c.start);
        Target target{.refuse = c.refuse};
        EXPECT_EQ(c.status, c.read(parcel.get(), target));
        EXPECT_EQ(c.position, AParcel_getDataPosition(parcel.get()));
        EXPECT_EQ(c.asked, target.asked);
    }
}

void expectWritten(const char* hex, binder_status_t status, auto function, auto... arguments) {
    const ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(status, function(parcel.get(), arguments...)) << hex;
    EXPECT_EQ(hex, bytesOf(parcel.get()));
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

TEST(Status, TravelsAndIsDescribedByItsListedName) {
    const struct {
        ScopedAStatus status;
        binder_exception_t exception;
        binder_status_t number;
        const char* description;
        const char* header;
    } cases[] = {
        {ScopedAStatus::fromStatus(STATUS_OK), EX_NONE, STATUS_OK, "No error", "00000000"},
        {ScopedAStatus::fromStatus(-5), -129, STATUS_UNKNOWN_ERROR,
         "Status(-129, EX_TRANSACTION_FAILED): 'UNKNOWN_ERROR: '", ""},
        {ScopedAStatus::fromStatus(-32), -129, STATUS_DEAD_OBJECT,
         "Status(-129, EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '", ""},
        {ScopedAStatus::fromExceptionCode(EX_PARCELABLE), -9, STATUS_OK, "Status(-9, EX_PARCELABLE): ''",
         "f7ffffff00000000000000000000000000000000"},
        {ScopedAStatus::fromExceptionCodeWithMessage(-5, "a"), -5, STATUS_OK, "Status(-5, EX_ILLEGAL_STATE): 'a'",
         "fbffffff010000006100000000000000"},
        {ScopedAStatus::fromServiceSpecificError(9), -8, STATUS_OK, "Status(-8, EX_SERVICE_SPECIFIC): '9: '",
         "f8ffffff00000000000000000000000009000000"},
    };
    for (const auto& [status, exception, number, description, header] : cases) {
        EXPECT_EQ(exception, status.getExceptionCode()) << description;
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
    std::ifstream rows(TEST_DATA "/strings.jsonl");
    int count = 0;
    for (std::string line; std::getline(rows, line); ++count) {
        SCOPED_TRACE(line);
        const sim::Json row = sim::parseJson(line);
        const std::string hex = row["hex"];
        if (row.contains("utf8_in")) {
            const Bytes bytes = bytesOfHex(row["utf8_in"].get<std::string>());
            const std::string in(bytes.begin(), bytes.end());
            expectWritten(hex.c_str(), row["write_status"], AParcel_writeString, in.data(),
                          static_cast<int32_t>(in.size()));
        }
        Target out;
        const auto allocate = [](void* target, int32_t length, char** buffer) {
            return length >= 0 && Target::allocate(target, length, buffer);
        };
        EXPECT_EQ(row["read_status"], AParcel_readString(parcelOf(hex).get(), &out, allocate));
        if (!out.data.empty()) out.data.pop_back();  // the terminator
        EXPECT_EQ(row["utf8_out"], hexOf(Bytes(out.data.begin(), out.data.end())));
    }
    EXPECT_EQ(23, count);
}

TEST(Parcel, PositionsAndRawBytes) {
    const ScopedAParcel parcel = parcelOf("0102030405");
    EXPECT_EQ(STATUS_BAD_VALUE, AParcel_setDataPosition(parcel.get(), -1));
    EXPECT_EQ(STATUS_OK, AParcel_setDataPosition(parcel.get(), 12));
    EXPECT_EQ(12, AParcel_getDataSize(parcel.get())) << "a position past the end counts as size";
    uint8_t bytes[12];
    for (const auto& [start, length] : {std::pair<size_t, size_t>{8, 1}, {0, 9}, {SIZE_MAX, 1}, {1, SIZE_MAX}}) {
        EXPECT_EQ(STATUS_BAD_VALUE, AParcel_marshal(parcel.get(), bytes, start, length));
    }
    AParcel_setDataPosition(parcel.get(), 2);
    EXPECT_EQ(STATUS_OK, AParcel_writeInt32(parcel.get(), -1));
    EXPECT_EQ("0102ffffffff0000", bytesOf(parcel.get())) << "an odd place is written all the same";
    AParcel_setDataPosition(parcel.get(), INT32_MAX);
    EXPECT_EQ(STATUS_NO_MEMORY, AParcel_writeInt32(parcel.get(), 1));
    AParcel_setDataPosition(parcel.get(), 0);
    const ndk::ScopedFileDescriptor lowest(dup(STDIN_FILENO));
    EXPECT_EQ(STATUS_OK, AParcel_writeParcelFileDescriptor(parcel.get(), STDIN_FILENO));
    EXPECT_EQ(lowest.get() + 1, lowest.dup().get()) << "its own has a high number";
    EXPECT_EQ(STATUS_INVALID_OPERATION, AParcel_marshal(parcel.get(), bytes, 0, 1)) << "objects are no bytes";
}

std::string thrown;

TEST(Parcel, ARecycledJavaParcelThrows) {
    JNINativeInterface table{};
    table.GetObjectClass = [](JNIEnv*, jobject object) { return static_cast<jclass>(object); };
    table.GetFieldID = [](JNIEnv*, jclass, const char*, const char*) { return reinterpret_cast<jfieldID>(&thrown); };
    table.DeleteLocalRef = [](JNIEnv*, jobject) {};
    table.GetLongField = [](JNIEnv*, jobject, jfieldID) { return jlong{0}; };
    table.FindClass = [](JNIEnv*, const char* name) { return reinterpret_cast<jclass>(const_cast<char*>(name)); };
    table.ThrowNew = [](JNIEnv*, jclass name, const char*) {
        thrown = reinterpret_cast<const char*>(name);
        return jint{0};
    };
    JNIEnv env{&table};
    EXPECT_EQ(nullptr, AParcel_fromJavaParcel(&env, nullptr));
    EXPECT_EQ("", thrown);
    EXPECT_EQ(nullptr, AParcel_fromJavaParcel(&env, reinterpret_cast<jobject>(&env)));
    EXPECT_EQ("java/lang/IllegalStateException", thrown);
}

}  // namespace
