#include <android/binder_manager.h>
#include <android/log.h>

#include <cstdio>
#include <cstdlib>

#include "bench/Bare.h"
#include "bench/Operations.h"
#include "bench/Twin.h"
#include "client/AidlClient.h"
#include "sim/vm/quiet_jni.h"

namespace {

using namespace orvix;

void check(bool held, const char* what) {
    if (held) return;
    std::fprintf(stderr, "orvix-bench: %s\n", what);
    std::exit(1);
}

// Accepts everything: a binder of another class than the library's, so that calls go through the proxy and its bytes.
ndk::SpAIBinder newService() {
    const AIBinder_Class* own = AIBinder_Class_define(
        IOrvixService::descriptor, [](void* args) { return args; }, [](void*) {},
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t { return STATUS_OK; });
    ndk::SpAIBinder binder(AIBinder_new(own, nullptr));
    AIBinder_markVintfStability(binder.get());
    return binder;
}

AIBinder* service() {
    static const ndk::SpAIBinder binder = newService();
    return binder.get();
}

template <typename R>
void addRecord(std::vector<Operation>& all, const std::string& kind, const R& record) {
    const auto parcel = [] { return std::make_shared<ndk::ScopedAParcel>(AParcel_create()); };
    const auto write = [&, to = parcel()](auto codec) {
        return [=] {
            AParcel_setDataPosition(to->get(), 0);
            check(codec(to->get()) == STATUS_OK, "a record is not written");
        };
    };
    const auto from = parcel();
    record.writeToParcel(from->get());
    const auto read = [&](auto codec) {
        return [=] {
            R target;
            AParcel_setDataPosition(from->get(), 0);
            check(codec(from->get(), target) == STATUS_OK, "a record is not read");
        };
    };
    all.push_back({"write " + kind, write([=](AParcel* p) { return record.writeToParcel(p); }),
                   write([=](AParcel* p) { return twin::write(p, record); })});
    all.push_back({"read " + kind, read([](const AParcel* p, R& target) { return target.readFromParcel(p); }),
                   read([](const AParcel* p, R& target) { return twin::read(p, target); })});
}

}  // namespace

extern "C" AIBinder* __wrap_AServiceManager_waitForService(const char*) {
    AIBinder_incStrong(service());
    return service();
}

std::vector<Operation> operations() {
    __android_log_set_logger([](const __android_log_message*) {});
    JNIEnv* const env = quiet::env();
    check(JNI_OnLoad(quiet::vm(), nullptr) == JNI_VERSION_1_6, "the library does not load");
    gAidlClient->bindToService();
    gAidlClient->handleEvents();

    static bare::Locked locked;
    const auto sendFG = [] { return bare::sendFGNetworkInfo(service(), 5, 7, 123456789012); };
    const auto sendBattery = [] { return bare::sendBatteryStatus(service(), 87, true); };
    std::vector<Operation> all;
    const ByteTuple bytes{.long1 = 123456789012, .long2 = 345};
    addRecord(all, "flat record", bytes);
    addRecord(all, "record in a record", NetworkStatsParams{.uid = 10001, .text1 = "rmnet_data0", .bytes = bytes});
    all.push_back({"native sendFGNetworkInfo", [=] { AidlClient::sendFGNetworkInfo(env, nullptr, 5, 123456789012, 7); },
                   [=] { sendFG(); }, [=] { locked.around(sendFG); }});
    all.push_back({"native sendBatteryStatus", [=] { AidlClient::sendBatteryStatus(env, nullptr, 87, JNI_TRUE); },
                   [=] { sendBattery(); }, [=] { locked.around(sendBattery); }});
    // Beside its floor it stands where there is a VM.
    all.push_back({"call-out, without a VM", [] {
                       gAidlClient->pushEv({.type = 8, .longArg = 5000});
                       gAidlClient->handleEvents();
                   }});
    return all;
}
