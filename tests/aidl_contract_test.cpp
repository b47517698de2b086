// The promises of the interface at its edges: framing, caches, default implementations, other binders; and bytes from a
// peer that is broken or means harm.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <set>
#include <thread>

#include "tests/aidl_support.h"

static thread_local size_t tLargestAllocation = 0;
static thread_local size_t tAllocations = 0;

// The thread sanitizer brings an operator new of its own; nothing is measured there.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ORVIX_UNMEASURED
#endif
#endif
#ifndef ORVIX_UNMEASURED
[[gnu::noinline]] void* operator new(size_t size) {
    tLargestAllocation = std::max(tLargestAllocation, size);
    ++tAllocations;
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept { std::free(memory); }
#endif

namespace orvix_test {
namespace {

constexpr auto kMax = std::numeric_limits<int32_t>::max();
constexpr auto kMin = std::numeric_limits<int32_t>::min();

Answer answering(binder_status_t status) {
    return [status](transaction_code_t, const AParcel*, AParcel*) { return status; };
}
// A proxy whose peer gives the answer that is there at the time.
template <typename I>
std::shared_ptr<I> proxyOf(const Answer& answer) {
    return I::fromBinder(peerOf<I>(
        [&answer](transaction_code_t code, const AParcel* in, AParcel* out) { return answer(code, in, out); }));
}

TEST(Contract, FramingGrowsAndShrinks) {
    // Read over {70, true}: members that the bytes do not have keep these.
    const struct {
        const char* name;
        std::vector<int32_t> words;
        binder_status_t status;
        int32_t int1;
        bool flag1;
        int32_t position;
        int32_t start = 0;
    } kCases[] = {
        {"any non-zero is true", {12, 7, 256}, STATUS_OK, 7, true, 12},
        {"newer writer", {16, 7, 0, 99}, STATUS_OK, 7, false, 16},
        {"older writer", {8, 7, 0}, STATUS_OK, 7, true, 8},
        {"ends inside the last member", {9, 7, 0}, STATUS_OK, 7, false, 9},
        {"runs past the data", {1000, 7, 0}, STATUS_OK, 7, false, 1000},
        {"ends at the last position", {0, kMax - 4, 7, 0}, STATUS_OK, 7, false, kMax, 4},
        {"ends behind the last position", {0, kMax - 3, 7, 0}, STATUS_BAD_VALUE, 70, true, 8, 4},
        {"size 3", {3, 7, 0}, STATUS_BAD_VALUE, 70, true, 4},
        {"last member missing", {12, 7}, STATUS_NOT_ENOUGH_DATA, 7, false, 8},
    };
    for (const auto& expected : kCases) {
        SCOPED_TRACE(expected.name);
        const ndk::ScopedAParcel parcel = parcelOf(expected.words);
        AParcel_setDataPosition(parcel.get(), expected.start);
        BatteryState record{70, true};
        EXPECT_EQ(record.readFromParcel(parcel.get()), expected.status);
        EXPECT_EQ(record.int1, expected.int1);
        EXPECT_EQ(record.flag1, expected.flag1);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), expected.position);
    }
}

// Early ends and skipped ends of nested records, with more to read behind them.
TEST(Contract, FramingStandsInFrontOfOtherMembers) {
    const ndk::ScopedAParcel parcel = parcelOf(std::vector<int32_t>{
        104, 1,  4,                                              // the build, of an older writer: no members
        3,                                                       // three entries:
        1,   8,  5,                                              // an older writer's, one member
        1,   52, 6, 0,         0, 0, 0, 0, 0, 0, 0, 60, 99, 99,  // a newer writer's, two words more
        1,   12, 7, 0x00010041                                   // one that ends where a string would begin
    });
    CensusInfo census;
    census.buildInfo.text8 = "kept";
    ASSERT_EQ(census.readFromParcel(parcel.get()), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(census.buildInfo.text8, "kept");
    ASSERT_EQ(census.telephonyInfos.size(), 3u);
    const auto& infos = census.telephonyInfos;
    EXPECT_EQ(std::tuple(infos[0].int1, infos[1].int1, infos[1].int2, infos[2].int1), std::tuple(5, 6, 60, 7));
}

TEST(Contract, AFailedWriteLeavesThePlaceholder) {
    ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ((DnsAddress{"a", "\xc3"}.writeToParcel(parcel.get())), STATUS_BAD_VALUE);  // ends inside a character
    EXPECT_EQ(contentOf(parcel.get()), contentOf(parcelOf(std::vector<int32_t>{0, 1, 'a'}).get()));
}

template <typename I>
void expectOwnCodesAlone(transaction_code_t beyond) {
    const auto proxy = recorderOf<I>([](const auto&, const auto&) {});
    for (const transaction_code_t code : {transaction_code_t{0}, beyond, transaction_code_t{0x00fffffd}}) {
        const ndk::ScopedAParcel in = parcelOf(Bytes{}), out = parcelOf(Bytes{});
        EXPECT_EQ(onTransact<I>(proxy->asBinder().get(), code, in.get(), out.get()), STATUS_UNKNOWN_TRANSACTION);
    }
    int32_t version = 0;
    std::string hash;
    EXPECT_TRUE(proxy->getInterfaceVersion(&version).isOk());
    EXPECT_TRUE(proxy->getInterfaceHash(&hash).isOk());
    EXPECT_EQ(version, 7);
    EXPECT_EQ(hash, "7c3e91a0f25d48b6a0e4c1d9358b2f7e64a0d13c");
}
TEST(Contract, CodesWithoutAMethod) {
    expectOwnCodesAlone<IOrvixService>(18);
    expectOwnCodesAlone<IRequest>(24);
}

// Asked through one proxy again and again, while the peer answers differently each time.
TEST(Contract, VersionIsAskedUntilThereIsAnAnswer) {
    const auto replying = [](binder_exception_t exception, std::vector<int32_t> values) -> Answer {
        return [=](transaction_code_t, const AParcel*, AParcel* out) {
            AParcel_writeStatusHeader(out, ScopedAStatus::fromExceptionCode(exception).get());
            for (const int32_t value : values) AParcel_writeInt32(out, value);
            return STATUS_OK;
        };
    };
    const struct {
        const char* name;
        Answer answer;
        binder_exception_t exception;
        binder_status_t status;
        size_t asked;
    } kSteps[] = {
        {"dead", answering(STATUS_DEAD_OBJECT), EX_TRANSACTION_FAILED, STATUS_DEAD_OBJECT, 1},
        {"no header", answering(STATUS_OK), EX_TRANSACTION_FAILED, STATUS_NOT_ENOUGH_DATA, 1},
        {"header of an error", replying(EX_ILLEGAL_STATE, {9}), EX_ILLEGAL_STATE, STATUS_OK, 1},
        {"no value", replying(EX_NONE, {}), EX_TRANSACTION_FAILED, STATUS_NOT_ENOUGH_DATA, 1},
        {"good", replying(EX_NONE, {8}), EX_NONE, STATUS_OK, 1},
        {"another", replying(EX_NONE, {9}), EX_NONE, STATUS_OK, 0},
        {"dead again", answering(STATUS_DEAD_OBJECT), EX_NONE, STATUS_OK, 0},
    };
    Answer answer;
    const auto proxy = proxyOf<IOrvixService>(answer);
    for (const auto& step : kSteps) {
        SCOPED_TRACE(step.name);
        answer = step.answer;
        takeTransactions();
        int32_t version = 0;
        const ScopedAStatus status = proxy->getInterfaceVersion(&version);
        EXPECT_EQ(status.getExceptionCode(), step.exception);
        EXPECT_EQ(status.getStatus(), step.status);
        EXPECT_EQ(version, step.exception == EX_NONE ? 8 : 0);
        const std::vector<Transaction> transactions = takeTransactions();
        EXPECT_EQ(transactions.size(), step.asked);
        for (const Transaction& transaction : transactions) EXPECT_EQ(transaction.flags, 0x10000000u);
    }
}

TEST(Contract, CallersOfTheHashWaitForOneAnswer) {
    std::atomic<int> asked = 0;
    Answer answer = [&](transaction_code_t, const AParcel*, AParcel* out) {
        ++asked;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        AParcel_writeStatusHeader(out, ScopedAStatus::ok().get());
        return AParcel_writeString(out, "h", 1);
    };
    const auto proxy = proxyOf<IRequest>(answer);
    std::string mine, others;
    std::thread other([&] { EXPECT_TRUE(proxy->getInterfaceHash(&others).isOk()); });
    EXPECT_TRUE(proxy->getInterfaceHash(&mine).isOk());
    other.join();
    EXPECT_EQ(mine + others, "hh");
    EXPECT_EQ(asked, 1);
}

TEST(Contract, DefaultImplementationAnswersForUnknownCodesAlone) {
    class Default : public IOrvixServiceDefault {
        ScopedAStatus sendFGNetworkInfo(RatType ratType, TechType techType, int64_t value) override {
            EXPECT_EQ(std::tuple(ratType, techType, value), std::tuple(RatType{kMin}, TechType{kMax}, int64_t{-5}));
            return ScopedAStatus::fromServiceSpecificError(9);
        }
    };
    Answer answer = answering(STATUS_UNKNOWN_TRANSACTION);
    const auto proxy = proxyOf<IOrvixService>(answer);
    const auto send = [&] { return proxy->sendFGNetworkInfo(RatType{kMin}, TechType{kMax}, -5); };

    EXPECT_EQ(send().getStatus(), STATUS_UNKNOWN_TRANSACTION);
    const auto impl = ndk::SharedRefBase::make<Default>();
    EXPECT_TRUE(IOrvixService::setDefaultImpl(impl));
    EXPECT_FALSE(IOrvixService::setDefaultImpl(nullptr));
    EXPECT_EQ(send().getServiceSpecificError(), 9);
    EXPECT_EQ(proxy->sendFdforUID(ndk::ScopedFileDescriptor()).getStatus(), STATUS_UNEXPECTED_NULL);
    int32_t version = 1;
    EXPECT_TRUE(proxy->getInterfaceVersion(&version).isOk());
    EXPECT_EQ(version, 0);

    answer = answering(STATUS_DEAD_OBJECT);
    EXPECT_EQ(send().getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(proxy->getInterfaceVersion(&version).getStatus(), STATUS_DEAD_OBJECT);  // the default's is not kept
}

TEST(Contract, AnIntIsDispatchedWithoutAnyAllocation) {
    struct Counter : IRequestDefault {
        int32_t got = 0;
        ScopedAStatus startNetworkStatsPolling(int32_t interval) override {
            got = interval;
            return ScopedAStatus();  // ok() would be an allocation of the implementation's
        }
    };
    const auto counter = ndk::SharedRefBase::make<Counter>();
    const ndk::SpAIBinder binder = stubOf<IRequest>(counter);
    const ndk::ScopedAParcel in = parcelOf(std::vector<int32_t>{5000});
    tAllocations = 0;
    const binder_status_t status = onTransact<IRequest>(binder.get(), 2, in.get(), nullptr);
    const size_t allocations = tAllocations;
    EXPECT_EQ(std::tuple(status, counter->got, allocations), std::tuple(STATUS_OK, 5000, 0u));
}

TEST(Contract, FromBinderTellsOwnAndForeignApart) {
    const std::shared_ptr<IRequest> own = ndk::SharedRefBase::make<IRequestDefault>();
    EXPECT_EQ(IRequest::fromBinder(stubOf(own)), own);
    EXPECT_EQ(own->getSocketFd({}).getStatus(), STATUS_UNKNOWN_TRANSACTION);
    EXPECT_EQ(IRequest::fromBinder(ndk::SpAIBinder()), nullptr);
    EXPECT_EQ(IRequest::fromBinder(peerOf<IOrvixService>(answering(STATUS_OK))), nullptr);
    const ndk::SpAIBinder twin = peerOf<IRequest>(answering(STATUS_OK));
    const auto proxy = IRequest::fromBinder(twin);
    ASSERT_NE(std::dynamic_pointer_cast<BpRequest>(proxy), nullptr);
    EXPECT_EQ(proxy->asBinder(), twin);
}

// The bytes cut at each place, and each of their words replaced by hostile numbers.
void forEachMutation(const Bytes& good, const std::function<void(const Bytes&)>& visit) {
    for (Bytes bytes = good; !bytes.empty();) {
        bytes.pop_back();
        visit(bytes);
    }
    const auto size = static_cast<int32_t>(good.size());
    const int32_t hostile[] = {kMin, -2,       -1,      0,          1,          3,        4,        5,        8,
                               size, size / 4, 0x10000, 0x1ffffffe, 0x3fffffff, kMax - 8, kMax - 4, kMax - 3, kMax};
    for (size_t word = 0; word < good.size() / 4; ++word) {
        for (const int32_t value : hostile) {
            Bytes bytes = good;
            std::memcpy(&bytes[4 * word], &value, sizeof value);
            visit(bytes);
        }
    }
}

// Every record is an argument of some call or a part of one.
template <typename I>
void refuseMalformedCalls() {
    static const std::set<binder_status_t> kAllowed{STATUS_OK,        STATUS_NOT_ENOUGH_DATA, STATUS_UNEXPECTED_NULL,
                                                    STATUS_BAD_VALUE, STATUS_NO_MEMORY,       STATUS_BAD_TYPE};
    int calls = 0;
    const auto proxy = recorderOf<I>([&](const auto&, const auto&) { ++calls; });
    forEachMeasuredCall<I>([&](const Json& row, const auto& method, const auto&) {
        if (!row.value("sent", true)) return;
        const Bytes good = bytesOfHex(row["hex"].get<std::string>());
        forEachMutation(good, [&](const Bytes& bytes) {
            SCOPED_TRACE(std::string(method.name) + " " + hexOf(bytes));
            const ndk::ScopedAParcel in = parcelOf(bytes);
            calls = 0;
            tLargestAllocation = 0;
            const binder_status_t status = onTransact<I>(proxy->asBinder().get(), method.code, in.get(), nullptr);
            const size_t largest = tLargestAllocation;
            EXPECT_EQ(kAllowed.count(status), 1u) << status;
            EXPECT_EQ(calls, status == STATUS_OK ? 1 : 0);
            // No count and no length costs more than the largest element for each byte present; what was read is also
            // written and told by the recorder.
            EXPECT_TRUE(status == STATUS_OK || largest <= sizeof(TelephonyInfoParams) * bytes.size() + 256) << largest;
            // The last three bytes may be padding.
            EXPECT_TRUE(status != STATUS_OK || bytes.size() + 3 >= good.size());
        });
    });
}
TEST(Malformed, ServiceCalls) { refuseMalformedCalls<IOrvixService>(); }
TEST(Malformed, RequestCalls) { refuseMalformedCalls<IRequest>(); }

TEST(Malformed, TellingCases) {
    const struct {
        const char* name;
        transaction_code_t code;
        std::vector<int32_t> words;
        binder_status_t status;
    } kCases[] = {
        {"the last argument in half", 9, {1, 2, 3}, STATUS_NOT_ENOUGH_DATA},
        {"null record", 12, {0, 12, 7, 0}, STATUS_UNEXPECTED_NULL},
        {"any other marker is a record", 12, {-9, 12, 7, 0}, STATUS_OK},
        {"size below its own", 12, {1, 3, 7, 0}, STATUS_BAD_VALUE},
        {"size past any position", 12, {1, kMax, 7, 0}, STATUS_BAD_VALUE},
        {"null list", 3, {1, -1}, STATUS_UNEXPECTED_NULL},
        {"count above the bytes left", 3, {1, 5, 1}, STATUS_NO_MEMORY},
        {"null descriptor", 15, {0}, STATUS_UNEXPECTED_NULL},
        {"words of a descriptor", 15, {1, 0, 0x66642a85, 0, 0, 0, 0, 0}, STATUS_BAD_TYPE},
        {"length above the bytes left", 17, {1, 5, 0}, STATUS_NO_MEMORY},
    };
    int calls = 0;
    const auto proxy = recorderOf<IOrvixService>([&](const auto&, const auto&) { ++calls; });
    for (const auto& expected : kCases) {
        SCOPED_TRACE(expected.name);
        calls = 0;
        const ndk::ScopedAParcel in = parcelOf(expected.words);
        const binder_status_t status =
            onTransact<IOrvixService>(proxy->asBinder().get(), expected.code, in.get(), nullptr);
        EXPECT_EQ(status, expected.status);
        EXPECT_EQ(calls, expected.status == STATUS_OK ? 1 : 0);
    }
}

}  // namespace
}  // namespace orvix_test
