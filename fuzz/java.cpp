// Hostile Java parcels through the native methods: each native that takes parcels or bytes makes its one call, with
// what the records' readers make of the parcels, well-formed whatever was in them.

#include <android/log.h>

#include <deque>

#include "client/AidlClient.h"
#include "fuzz/Fuzz.h"
#include "sim/vm/quiet_jni.h"

namespace fuzz {
namespace {

using orvix::AidlClient;
using wire::IOrvixService;

struct Sent {
    transaction_code_t code;
    Bytes arguments;
    bool operator==(const Sent&) const = default;
};
std::vector<Sent> gSent;
ndk::SpAIBinder gService;

binder_status_t receive(AIBinder*, transaction_code_t code, const AParcel* in, AParcel*) {
    if (code == wire::codeOf<&IOrvixService::registerRequest>()) return STATUS_OK;
    const bool known = visitMethod<IOrvixService>(code, [&](const auto& row) {
        typename std::remove_cvref_t<decltype(row)>::Arguments arguments{};
        const bool whole =
            wire::readArguments(in, arguments) == STATUS_OK && AParcel_getDataPosition(in) == AParcel_getDataSize(in);
        invariant(whole, "what leaves is well-formed");
        gSent.push_back({code, encode(arguments)});
    });
    invariant(known, "what leaves is a method of the service");
    return STATUS_OK;
}

void load() {
    __android_log_set_logger([](const __android_log_message*) {});
    static const AIBinder_Class* const receiving = AIBinder_Class_define(
        IOrvixService::descriptor, [](void* args) { return args; }, [](void*) {}, receive);
    gService.set(AIBinder_new(receiving, nullptr));
    AIBinder_markVintfStability(gService.get());
    quiet::env();
    invariant(JNI_OnLoad(quiet::vm(), nullptr) == JNI_VERSION_1_6, "the library loads");
    orvix::gAidlClient->bindToService();
    orvix::gAidlClient->handleEvents();
}

// Java's parcels, with the position where the caller left it.
class JavaParcels {
  public:
    explicit JavaParcels(FuzzedDataProvider& input) {
        const size_t count = input.ConsumeIntegralInRange<uint8_t>(1, 5);
        const int32_t position = input.ConsumeIntegralInRange<uint8_t>(0, 9);
        for (size_t i = 0; i < count; ++i) {
            const uint16_t length = input.ConsumeIntegral<uint16_t>();
            const Bytes bytes =
                i + 1 < count ? input.ConsumeBytes<uint8_t>(length) : input.ConsumeRemainingBytes<uint8_t>();
            owned.push_back(newParcel());
            AParcel_unmarshal(owned.back().get(), bytes.data(), bytes.size());
            starts.push_back(i == 0 ? position : 0);
            AParcel_setDataPosition(owned.back().get(), starts.back());
            objects.push_back({.parcel = owned.back().get()});
            if (i > 0) array.elements.push_back(&objects.back());
        }
    }

    jobject first() { return quiet::ref(objects.front()); }
    jobjectArray rest() { return reinterpret_cast<jobjectArray>(quiet::ref(array)); }

    // What is to be expected of the library, which ignores whether a read fails.
    template <typename R>
    R readFirst() const {
        return read<R>(0);
    }
    template <typename R>
    std::vector<R> readRest() const {
        std::vector<R> records;
        for (size_t i = 1; i < owned.size(); ++i) records.push_back(read<R>(i));
        return records;
    }

  private:
    template <typename R>
    R read(size_t i) const {
        R record;
        AParcel_setDataPosition(owned[i].get(), starts[i]);
        record.readFromParcel(owned[i].get());
        AParcel_setDataPosition(owned[i].get(), starts[i]);
        return record;
    }

    std::vector<ndk::ScopedAParcel> owned;
    std::vector<int32_t> starts;
    std::deque<quiet::Object> objects;
    quiet::Object array;
};

template <auto Pointer>
Sent sent(const auto&... args) {
    return {wire::codeOf<Pointer>(), encode(std::tuple(args...))};
}

}  // namespace
}  // namespace fuzz

// The border that the library waits at: the service is always there.
extern "C" AIBinder* __wrap_AServiceManager_waitForService(const char*) {
    AIBinder_incStrong(fuzz::gService.get());
    return fuzz::gService.get();
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzz;
    static const bool loaded = (load(), true);
    invariant(loaded && gSent.empty(), "nothing is left over");
    FuzzedDataProvider input(data, size);
    JNIEnv* const env = quiet::env();
    const uint8_t which = input.ConsumeIntegralInRange<uint8_t>(0, 4);
    const int32_t number = input.ConsumeIntegral<int32_t>();
    const wire::RatType ratType{number};
    std::vector<Sent> expected;
    if (which == 4) {
        quiet::Object blob{.bytes = input.ConsumeRemainingBytes<uint8_t>()};
        expected = {sent<&IOrvixService::sendBlobToMirel>(number, blob.bytes)};
        AidlClient::sendBlobToMirel(env, nullptr, number, reinterpret_cast<jbyteArray>(quiet::ref(blob)));
    } else {
        JavaParcels parcels(input);
        switch (which) {
            case 0: {
                const auto stats = parcels.readRest<wire::NetworkStatsParams>();
                if (!stats.empty()) expected = {sent<&IOrvixService::sendNetworkStatsForAllUids>(ratType, stats)};
                AidlClient::sendNetworkStatsForAllUids(env, nullptr, number, parcels.rest());
                break;
            }
            case 1:
                expected = {sent<&IOrvixService::sendNetworkStatsForNetworkType>(ratType,
                                                                                 parcels.readFirst<wire::ByteTuple>())};
                AidlClient::sendNetworkStatsForNetworkType(env, nullptr, number, parcels.first());
                break;
            case 2:
                expected = {sent<&IOrvixService::sendNetworkInfo>(ratType, parcels.readFirst<wire::NetworkInfo>())};
                AidlClient::sendNetworkInfo(env, nullptr, number, parcels.first());
                break;
            default:
                expected = {sent<&IOrvixService::sendCensusInfo>(
                    wire::CensusInfo{.buildInfo = parcels.readFirst<wire::BuildInfoParams>(),
                                     .telephonyInfos = parcels.readRest<wire::TelephonyInfoParams>()})};
                AidlClient::sendCensusInfo(env, nullptr, parcels.first(), parcels.rest());
        }
    }
    invariant(gSent == expected, "the service gets what the parcels hold");
    gSent.clear();
    quiet::leave();
    return 0;
}
