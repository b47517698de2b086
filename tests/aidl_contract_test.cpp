// The interface at its edges: framing, caches, default implementations, other binders; and bytes from a peer that is
// broken or means harm.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <new>
#include <thread>

#include "callback/OrvixCallback.h"
#include "tests/aidl_support.h"

static thread_local size_t tAllocations = 0;

// Sanitizers bring an operator new of their own, which also touches what it gives: nothing is measured there.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define ORVIX_SANITIZED
#endif
#endif
#ifndef ORVIX_SANITIZED
[[gnu::noinline]] void* operator new(size_t size) {
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

TEST(Contract, AnAbsentTextEmptiesItsTarget) {
    std::optional<std::string> text = "kept";
    EXPECT_EQ(readValue(parcelOf(std::vector<int32_t>{-1}).get(), text), STATUS_OK);
    EXPECT_EQ(text, std::nullopt);
}

#ifndef ORVIX_SANITIZED
// More than a length can say; no page of it is touched.
TEST(Contract, ATextOfFourGigabytesIsRefused) {
    std::string text;
    text.resize_and_overwrite((size_t{1} << 32) + 1, [](char*, size_t size) { return size; });
    ndk::ScopedAParcel parcel(AParcel_create());
    EXPECT_EQ(writeValue(parcel.get(), text), STATUS_BAD_VALUE);
}
#endif

template <typename I>
void expectOwnCodesAlone() {
    const auto proxy = recorderOf<I>([](const auto&, const auto&) {});
    const auto beyond = static_cast<transaction_code_t>(std::tuple_size_v<decltype(I::methods)>) + 1;
    for (const transaction_code_t code : {transaction_code_t{0}, beyond, transaction_code_t{0x00fffffd}}) {
        const ndk::ScopedAParcel in = parcelOf(Bytes{}), out = parcelOf(Bytes{});
        EXPECT_EQ(onTransact<I>(proxy->asBinder().get(), code, in.get(), out.get()), STATUS_UNKNOWN_TRANSACTION);
    }
}
TEST(Contract, CodesWithoutAMethod) {
    expectOwnCodesAlone<IOrvixService>();
    expectOwnCodesAlone<IRequest>();
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
// By the stub itself and through its dispatcher.
TEST(Contract, VersionAndHashAreToldInAndOutOfTheProcess) {
    static const char* const kHash = "7c3e91a0f25d48b6a0e4c1d9358b2f7e64a0d13c";
    expectVersionAndHash<IRequest>(*ndk::SharedRefBase::make<::orvix::OrvixCallback>(), 7, kHash);
    expectVersionAndHash<IRequest>(*recorderOf<IRequest>([](const auto&, const auto&) {}), 7, kHash);
    expectVersionAndHash<IOrvixService>(*recorderOf<IOrvixService>([](const auto&, const auto&) {}), 7, kHash);
}

template <typename I, typename Default>
void expectToKnowNothing() {
    const std::shared_ptr<I> object = ndk::SharedRefBase::make<Default>();
    forEachMethod<I>([&](const auto& method) {
        SCOPED_TRACE(method.name);
        EXPECT_EQ(call(method, *object, ArgumentsOf<decltype(method)>()).getStatus(), STATUS_UNKNOWN_TRANSACTION);
    });
    expectVersionAndHash(*object, 0, "");
    EXPECT_EQ(object->asBinder().get(), nullptr);
    EXPECT_FALSE(object->isRemote());
}
TEST(Contract, DefaultClassesKnowNothing) {
    expectToKnowNothing<IOrvixService, IOrvixServiceDefault>();
    expectToKnowNothing<IRequest, IRequestDefault>();
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
    EXPECT_EQ(IRequest::fromBinder(ndk::SpAIBinder()), nullptr);
    const auto nobodys = ndk::SharedRefBase::make<BpRequest>(ndk::SpAIBinder());
    EXPECT_EQ(nobodys->startUidStatsPolling(1).getStatus(), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(IRequest::fromBinder(peerOf<IOrvixService>(answering(STATUS_OK))), nullptr);
    const ndk::SpAIBinder twin = peerOf<IRequest>(answering(STATUS_OK));
    const auto proxy = IRequest::fromBinder(twin);
    ASSERT_NE(std::dynamic_pointer_cast<BpRequest>(proxy), nullptr);
    EXPECT_EQ(proxy->asBinder(), twin);
}

TEST(Contract, AReadThatFailsKeepsTheObject) {
    const std::shared_ptr<IRequest> own = ndk::SharedRefBase::make<IRequestDefault>();
    std::shared_ptr<IRequest> object = own;
    EXPECT_EQ(IRequest::readFromParcel(parcelOf(std::vector<int32_t>(7)).get(), &object), STATUS_BAD_TYPE);
    EXPECT_EQ(object, own);
    const ndk::ScopedAParcel null(AParcel_create());
    AParcel_writeStrongBinder(null.get(), nullptr);
    AParcel_setDataPosition(null.get(), 0);
    EXPECT_EQ(IRequest::readFromParcel(null.get(), &object), STATUS_OK);
    EXPECT_EQ(object, nullptr);
}

}  // namespace
}  // namespace orvix_test
