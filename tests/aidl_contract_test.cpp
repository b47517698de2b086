// The interface at its edges: what compiles, caches, default implementations, other binders.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "bench/allocations.h"
#include "callback/OrvixCallback.h"
#include "tests/aidl_methods.h"
#include "tests/aidl_peers.h"
#include "tests/aidl_support.h"

namespace orvix_test {
namespace {

Answer answering(binder_status_t status) {
    return [status](transaction_code_t, const AParcel*, AParcel*) { return status; };
}
// A proxy whose peer gives the answer that is there at the time.
template <typename I>
std::shared_ptr<I> proxyOf(const Answer& answer) {
    return I::fromBinder(peerOf<I>(
        [&answer](transaction_code_t code, const AParcel* in, AParcel* out) { return answer(code, in, out); }));
}

// What does not list every member once does not compile as a record.
struct Twice {
    int32_t int1 = 0, int2 = 0;
    static constexpr auto members = std::tuple{field("int1", &Twice::int1), field("int1", &Twice::int1)};
};
struct Short {
    int32_t int1 = 0, int2 = 0;
    static constexpr auto members = std::tuple{field("int1", &Short::int1)};
};
static_assert(!record::kComplete<Twice> && !record::kComplete<Short> && record::kComplete<BatteryState>);

TEST(Contract, AFailedWriteLeavesThePlaceholder) {
    ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ((DnsAddress{"a", "\xc3"}.writeToParcel(parcel.get())), STATUS_BAD_VALUE);  // ends inside a character
    EXPECT_EQ(contentOf(parcel.get()), contentOf(parcelOf(std::vector<int32_t>{0, 1, 'a'}).get()));
}

template <typename I>
void expectVersionAndHash(I& object, int32_t version, const char* hash) {
    int32_t toldVersion = -1;
    std::string toldHash = "-1";
    EXPECT_TRUE(object.getInterfaceVersion(&toldVersion).isOk());
    EXPECT_TRUE(object.getInterfaceHash(&toldHash).isOk());
    EXPECT_EQ(toldVersion, version);
    EXPECT_EQ(toldHash, hash);
}

template <typename I, typename Default>
void expectToKnowItsOwn(const std::string& name) {
    static const char* const kHash = "7c3e91a0f25d48b6a0e4c1d9358b2f7e64a0d13c";
    const auto stub = recorderOf(name, [](auto...) {});
    expectVersionAndHash<I>(static_cast<I&>(*stub), 7, kHash);
    const auto beyond = static_cast<transaction_code_t>(std::tuple_size_v<decltype(I::methods)>) + 1;
    for (const transaction_code_t code : {transaction_code_t{0}, beyond, transaction_code_t{0x00fffffd}}) {
        const ndk::ScopedAParcel in = parcelOf(Bytes{}), out = parcelOf(Bytes{});
        EXPECT_EQ(dispatch(name, stub->asBinder().get(), code, in.get(), out.get()), STATUS_UNKNOWN_TRANSACTION);
    }
    const std::shared_ptr<I> object = ndk::SharedRefBase::make<Default>();
    for (const sim::Method& method : methodsOf(name)) {
        const ScopedAStatus status = call(*object, method, method.arguments.make().get());
        EXPECT_EQ(status.getStatus(), STATUS_UNKNOWN_TRANSACTION) << method.name;
    }
    expectVersionAndHash(*object, 0, "");
    EXPECT_EQ(object->asBinder().get(), nullptr);
    EXPECT_FALSE(object->isRemote());
}
TEST(Contract, StubsKnowTheirOwnAndDefaultsNothing) {
    expectToKnowItsOwn<IOrvixService, IOrvixServiceDefault>("IOrvixService");
    expectToKnowItsOwn<IRequest, IRequestDefault>("IRequest");
    // Asked in the process, without a transaction.
    const auto local = ndk::SharedRefBase::make<::orvix::OrvixCallback>();
    expectVersionAndHash<IRequest>(*local, IRequest::version, IRequest::hash.c_str());
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
    const std::tuple<const char*, Answer, binder_exception_t, binder_status_t, size_t> kSteps[] = {
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
    for (const auto& [name, next, exception, status, asked] : kSteps) {
        SCOPED_TRACE(name);
        answer = next;
        takeTransactions();
        int32_t version = 0;
        const ScopedAStatus told = proxy->getInterfaceVersion(&version);
        EXPECT_EQ(told.getExceptionCode(), exception);
        EXPECT_EQ(told.getStatus(), status);
        EXPECT_EQ(version, exception == EX_NONE ? 8 : 0);
        const std::vector<Transaction> transactions = takeTransactions();
        EXPECT_EQ(transactions.size(), asked);
        for (const Transaction& transaction : transactions) EXPECT_EQ(transaction.flags, 0x10000000u);
    }
}

bool sleeps(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(stat, text);
    return text.find(") S ") != std::string::npos;
}
// While the first call is asking, another one comes; it can only wait for the first one's lock, or ask too.
TEST(Contract, CallersOfTheHashWaitForOneAnswer) {
    std::shared_ptr<IRequest> proxy;
    std::string mine, others;
    std::atomic<int> asked = 0;
    std::atomic<pid_t> waiting = 0;
    std::thread other;
    Answer answer = [&](transaction_code_t code, const AParcel*, AParcel* out) {
        EXPECT_EQ(code, 0x00fffffeu);
        if (++asked == 1) {
            other = std::thread([&] {
                waiting = gettid();
                EXPECT_TRUE(proxy->getInterfaceHash(&others).isOk());
            });
            while (asked == 1 && !sleeps(waiting)) std::this_thread::yield();
        }
        AParcel_writeStatusHeader(out, ScopedAStatus::ok().get());
        return AParcel_writeString(out, "h", 1);
    };
    proxy = proxyOf<IRequest>(answer);
    EXPECT_TRUE(proxy->getInterfaceHash(&mine).isOk());
    other.join();
    EXPECT_EQ(mine + others, "hh");
    EXPECT_EQ(asked, 1);
}

TEST(Contract, DefaultImplementationAnswersForUnknownCodesAlone) {
    class Default : public IOrvixServiceDefault {
        ScopedAStatus sendFGNetworkInfo(RatType ratType, TechType techType, int64_t value) override {
            EXPECT_EQ(std::tuple(ratType, techType, value),
                      std::tuple(RatType{INT32_MIN}, TechType{INT32_MAX}, int64_t{-5}));
            return ScopedAStatus::fromServiceSpecificError(9);
        }
    };
    Answer answer = answering(STATUS_UNKNOWN_TRANSACTION);
    const auto proxy = proxyOf<IOrvixService>(answer);
    const auto send = [&] { return proxy->sendFGNetworkInfo(RatType{INT32_MIN}, TechType{INT32_MAX}, -5); };

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

#ifdef ORVIX_COUNTS_ALLOCATIONS  // not under a sanitizer, which has an allocator of its own that touches what it gives
// More than a length can say; no page of it is touched.
TEST(Contract, ATextOfFourGigabytesIsRefused) {
    std::string text;
    text.resize_and_overwrite((size_t{1} << 32) + 1, [](char*, size_t size) { return size; });
    ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(writeValue(parcel.get(), text), STATUS_BAD_VALUE);
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
    const auto dispatchInt = [&] { EXPECT_EQ(dispatch("IRequest", binder.get(), 2, in.get(), nullptr), STATUS_OK); };
    EXPECT_EQ(allocations::of(dispatchInt).allocations, 0u);
    EXPECT_EQ(counter->got, 5000);
}
#endif

TEST(Contract, FromBinderTellsOwnAndForeignApart) {
    const std::shared_ptr<IRequest> own = ndk::SharedRefBase::make<IRequestDefault>();
    EXPECT_EQ(IRequest::fromBinder(stubOf(own)), own);
    EXPECT_EQ(IRequest::fromBinder(ndk::SpAIBinder()), nullptr);
    const auto nobodys = ndk::SharedRefBase::make<BpRequest>(ndk::SpAIBinder());
    EXPECT_EQ(nobodys->startUidStatsPolling(1).getStatus(), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(IRequest::fromBinder(peerOf<IOrvixService>(answering(STATUS_OK))), nullptr);
    const ndk::SpAIBinder twin = peerOf<IRequest>(answering(STATUS_OK));
    const auto proxy = IRequest::fromBinder(twin);
    ASSERT_NE(std::dynamic_pointer_cast<BpRequest>(proxy), nullptr);
    EXPECT_EQ(proxy->asBinder(), twin);
}

}  // namespace
}  // namespace orvix_test
