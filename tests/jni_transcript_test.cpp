// What the library does, line for line, against transcripts written by hand: tests/transcripts/*.txt.

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <future>
#include <map>
#include <thread>

#include "callback/OrvixCallback.h"
#include "client/AidlClient.h"
#include "tests/aidl_support.h"
#include "tests/fake_jni.h"
#include "tests/process.h"

namespace {

using namespace orvix;
using quiet::callNative;

struct Scene {
    const char* name;
    std::function<void()> prepare;  // what happens before the transcript begins
    std::function<void()> play;
};

// The sections of a file: "== name" and lines up to the next one. Empty lines and the head are not part of any.
std::map<std::string, std::string> sectionsOf(const std::string& file) {
    std::ifstream stream(TEST_TRANSCRIPTS "/" + file);
    std::map<std::string, std::string> sections;
    std::string* current = nullptr;
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with("== ")) {
            current = &sections[line.substr(3)];
        } else if (current != nullptr && !line.empty()) {
            *current += line + '\n';
        }
    }
    return sections;
}

// Plays the scenes of a file, each with a fresh client, and compares their transcripts whole.
void compare(const std::string& file, const std::vector<Scene>& scenes) {
    auto sections = sectionsOf(file);
    for (const Scene& scene : scenes) {
        const auto section = sections.extract(scene.name);
        ASSERT_FALSE(section.empty()) << file << " has no section " << scene.name;
        fake::reset();
        scene.prepare();
        fake::clearLines();
        scene.play();
        std::string transcript;
        for (const std::string& line : fake::lines()) transcript += line + '\n';
        EXPECT_EQ(section.mapped(), transcript) << file << ", " << scene.name;
        EXPECT_EQ(quiet::script.misuse, decltype(quiet::script.misuse){}) << "misuse that was to be seen";
    }
    for (const auto& [name, text] : sections) ADD_FAILURE() << file << ": nothing plays " << name;
}

// ---- what happens before

void nothing() {}

AidlClient* gEarlier = nullptr;  // the client before the last load; its storage stays

void load() {
    gEarlier = gAidlClient.get();
    fake::record("return " + std::to_string(JNI_OnLoad(quiet::vm(), nullptr)));
}

// A fresh client, on a thread that is not attached.
void loaded() {
    load();
    quiet::leave();
}

// A service of this process that answers every call so. The library has a proxy of it, as of one in another process.
template <typename I>
void registerOne(binder_status_t status = STATUS_OK) {
    EXPECT_TRUE(fake::registerService(orvix_test::peerOf<I>([=](auto...) { return status; })));
}

// The same while a service of this process is there.
void served() {
    loaded();
    registerOne<IOrvixService>();
}

void bindAndUp() {
    gAidlClient->bindToService();
    gAidlClient->handleEvents();
}

void bound() {
    served();
    bindAndUp();
}

void attachFails() { quiet::script.attach = JNI_ERR; }
void noObject() { quiet::script.allocObject = false; }
auto after(void (*before)(), std::function<void()> change) {
    return [=] {
        before();
        change();
    };
}

// ---- what happens

void handle(const CallbackEvent& event) {
    gAidlClient->pushEv(event);
    gAidlClient->handleEvents();
}
auto handling(const CallbackEvent& event) {
    return [=] { handle(event); };
}

Scene asked(const char* name, std::function<ScopedAStatus(IRequest&)> ask) {
    return {name, loaded, [ask = std::move(ask)] {
                EXPECT_TRUE(ask(*ndk::SharedRefBase::make<OrvixCallback>()).isOk());
                gAidlClient->handleEvents();
            }};
}

// A native method, called by a thread of Java.
template <typename... Args>
void java(const char* name, Args... args) {
    quiet::env();
    callNative(quiet::env(), name, args...);
    quiet::leave();
}

TEST(Transcript, Load) {
    const auto missing = [](const char* name) { return [=] { quiet::script.missing = {name}; }; };
    const auto noClass = [] {
        quiet::script.missing = {"SorvixAidlClient"};
        quiet::script.misuse = {"GetMethodID of a null class", "AllocObject of a null class"};
    };
    compare("load.txt", {{"good", nothing, load},
                         {"GetEnv fails", [] { quiet::script.getEnv = JNI_EVERSION; }, load},
                         {"JniHelper missing", missing("JniHelper"), load},
                         {"RegisterNatives negative", [] { quiet::script.registerNatives = -1; }, load},
                         {"SorvixAidlClient missing: the load succeeds, every call-out fails at its look-up", noClass,
                          after(loaded, handling({.type = 1}))},
                         {"second load: what the first client had queued is lost, and nothing of the VM is released",
                          after(load, [] { gAidlClient->pushEv({.type = 1}); }),
                          after(load, [] { gAidlClient->handleEvents(); })}});
}

TEST(Transcript, Requests) {
    const auto nobody = [] {
        for (const int32_t code : {5, 6, 25, -2}) handle({.type = code});
    };
    const auto twice = [] {
        handle({.type = 1});
        quiet::script.attach = JNI_OK;
        handle({.type = 1});
    };
    const auto getEnvFails = [] { quiet::script.getEnv = JNI_EVERSION; };
    const auto noMethod = [] {
        quiet::script.missing = {"startUidStatsPolling"};
        quiet::script.misuse = {"AllocObject with an exception pending", "CallVoidMethod of a null method"};
    };
    const NetworkStats stats{1, -2, 30000000000, 4, 5, -6, 7, "wlan0, a name longer than any short buffer"};
    const NetworkStats beyondAscii{0, 0, 0, 0, 0, 0, 0, "Zoë 日本"};
    compare(
        "requests.txt",
        {asked("1 getRadioStatus", [](auto& r) { return r.getRadioStatus(); }),
         asked("2 startNetworkStatsPolling", [](auto& r) { return r.startNetworkStatsPolling(-1); }),
         asked("3 stopNetworkStatsPolling", [](auto& r) { return r.stopNetworkStatsPolling(); }),
         asked("4 collectCensusInfo", [](auto& r) { return r.collectCensusInfo(); }),
         asked("7 registerForScreenStateChanges", [](auto& r) { return r.registerForScreenStateChanges(true); }),
         asked("8 startUidStatsPolling", [](auto& r) { return r.startUidStatsPolling(5000000000); }),
         asked("9 startRatStatsPolling", [](auto& r) { return r.startRatStatsPolling(INT64_MIN); }),
         asked("10 stopUidStatsPolling", [](auto& r) { return r.stopUidStatsPolling(); }),
         asked("11 stopRatStatsPolling", [](auto& r) { return r.stopRatStatsPolling(); }),
         asked("12 startNetworkMonitorForRatType", [](auto& r) { return r.startcollectingNetworkInfo(RatType{13}); }),
         asked("13 stopNetworkMonitorForRatType", [](auto& r) { return r.stopcollectingNetworkInfo(RatType{-1}); }),
         asked("14 requestWwanNetwork", [](auto& r) { return r.requestWwanNetwork(SlotId{1}); }),
         asked("15 releaseWwanNetwork", [](auto& r) { return r.releaseWwanNetwork(SlotId{INT32_MAX}); }),
         asked("16 registerForLPMStatusChange", [](auto& r) { return r.registerForLPMStatusChange(true); }),
         asked("17 registerForThermalStatusChange", [](auto& r) { return r.registerForThermalStatusChange(false); }),
         asked("18 registerForBatteryStatusChange", [](auto& r) { return r.registerForBatteryStatusChange(true); }),
         asked("19 registerForHotspotStatusChange", [](auto& r) { return r.registerForHotspotStatusChange(false); }),
         asked("20 startStatsMonitoring", [](auto& r) { return r.startStatsMonitoring(); }),
         asked("21 updateStats", [&](auto& r) { return r.updateStats(stats); }),
         asked("21 updateStats, empty text", [](auto& r) { return r.updateStats({}); }),
         asked("21 updateStats, text beyond ASCII", [&](auto& r) { return r.updateStats(beyondAscii); }),
         asked("22 stopStatsMonitoring", [](auto& r) { return r.stopStatsMonitoring(); }),
         asked("24 sendBlobToApkNative",
               [](auto& r) {
                   return r.sendBlobToApk(5, {0x00, 0xff, 0x80});
               }),
         asked("24 sendBlobToApkNative, empty: an array of no bytes, not null",
               [](auto& r) { return r.sendBlobToApk(-5, {}); }),
         asked("getFdforUID: answered, nothing else", [](auto& r) { return r.getFdforUID(1000); }),
         {"codes that belong to nobody", loaded, nobody},
         {"a thread that is attached already: detached all the same", load, handling({.type = 1})},
         {"attach fails: the event is lost, the next one tries again", after(loaded, attachFails), twice},
         {"GetEnv fails", after(loaded, getEnvFails), handling({.type = 1})},
         {"method missing: called with a null identifier", after(loaded, noMethod), handling({.type = 8})},
         {"no object: not called, and no argument made", after(loaded, noObject), handling({.type = 21})}});
}

// Every one but initialize, with something to send; the bytes by their own.
void everyNative() {
    java("sendRadioStatus", jboolean{1}, jboolean{1}, jboolean{1});
    java("sendNetworkStatsForAllUids", 1, fake::array({fake::parcelOf(NetworkStatsParams{})}));
    java("sendNetworkStatsForNetworkType", 1, fake::parcelOf(ByteTuple{}));
    java("sendScreenState", jboolean{1});
    java("sendCensusInfo", fake::parcelOf(BuildInfoParams{}), fake::array({}));
    java("sendBootCompleteInfo", jboolean{1});
    java("sendNetworkInfo", 1, fake::parcelOf(NetworkInfo{}));
    java("sendFGNetworkInfo", 5, jlong{1}, 7);
    java("sendLPMStatus", jboolean{1});
    java("sendThermalStatus", 1);
    java("sendBatteryStatus", 1, jboolean{1});
    java("sendHotspotStatus", jboolean{1});
    java("queryStats");
}

TEST(Transcript, Natives) {
    const auto unbound = [] {
        everyNative();
        callNative(nullptr, "sendBlobToMirel", 5, jbyteArray{});  // not even the missing JNIEnv is looked at
    };
    const auto booleans = [] {
        java("sendRadioStatus", jboolean{1}, jboolean{1}, jboolean{1});
        java("sendRadioStatus", jboolean{2}, jboolean{0xFF}, jboolean{0});
        java("sendRadioStatus", jboolean{0}, jboolean{0}, jboolean{0x80});
        for (const char* name : {"sendScreenState", "sendBootCompleteInfo", "sendLPMStatus", "sendHotspotStatus"}) {
            for (const int value : {1, 2, 0xFF, 0}) java(name, static_cast<jboolean>(value));
        }
        java("sendBatteryStatus", 87, jboolean{1});
        java("sendBatteryStatus", -5, jboolean{0xFF});
        java("sendBatteryStatus", 0, jboolean{0});
    };
    const auto numbers = [] {
        java("sendFGNetworkInfo", 5, jlong{123456789012}, 7);
        java("sendFGNetworkInfo", INT32_MIN, jlong{INT64_MIN}, INT32_MAX);
        java("sendThermalStatus", 3);
        java("sendThermalStatus", -1);
        java("queryStats");
    };
    const auto blobs = [] {
        java("sendBlobToMirel", 5, fake::bytes({0x00, 0xff, 0x80, 0x01}));
        java("sendBlobToMirel", -5, fake::bytes({}));
        callNative(nullptr, "sendBlobToMirel", 5, jbyteArray{});
    };
    const auto allUids = [] {
        const NetworkStatsParams wlan{10123, true, false, "wlan0", {1, 2}};
        const NetworkStatsParams rmnet{1000, false, true, "rmnet0", {30000000000, -4}};
        java("sendNetworkStatsForAllUids", 4,
             fake::array({fake::parcelOf(wlan), fake::parcelOf(rmnet), fake::parcelOf(NetworkStatsParams{})}));
        java("sendNetworkStatsForAllUids", 4, fake::array({}));
    };
    const auto cut = [] {
        AParcel* const atItsEnd = AParcel_create();
        NetworkStatsParams{7, true, true, "lost", {1, 2}}.writeToParcel(atItsEnd);
        AParcel* const ending = AParcel_create();
        for (const int32_t word : {64, 7, 1}) AParcel_writeInt32(ending, word);
        AParcel_setDataPosition(ending, 0);
        java("sendNetworkStatsForAllUids", -1, fake::array({fake::parcel(atItsEnd), fake::parcel(ending)}));
    };
    const auto oneParcel = [] {
        java("sendNetworkStatsForNetworkType", 13, fake::parcelOf(ByteTuple{123456789012, -1}));
        const DnsAddress v4{"10.0.0.1", ""}, v6{"", "fe80::1"};
        const NetworkInfo info{1,          true, false, "rmnet_data0", "10.0.0.2", 24,   v4, v6,
                               "internet", "",   1500,  "lte",         3,          true, -4, true};
        java("sendNetworkInfo", 2, fake::parcelOf(info));
        java("sendNetworkInfo", 2, fake::parcelOf(NetworkInfo{}));
    };
    const auto census = [] {
        const TelephonyInfoParams first{0, "one", "two", "three", "four", 1}, second{1, "", "", "", "", -1};
        const TelephonyInfoParams third{-2, "Zoë", "日本", "", "x", 3};
        const BuildInfoParams letters{"a", "b", "c", "d", "e", "f", "g", "h"};
        java("sendCensusInfo", fake::parcelOf(letters),
             fake::array({fake::parcelOf(first), fake::parcelOf(second), fake::parcelOf(third)}));
        java("sendCensusInfo", fake::parcelOf(BuildInfoParams{"1", "2", "3", "4", "5", "6", "7", "8"}),
             fake::array({}));
    };
    compare("natives.txt",
            {{"unbound: every one but initialize", loaded, unbound},
             {"booleans: any byte but 0 is true, and the last two of sendRadioStatus stay false", bound, booleans},
             {"numbers: unchanged, and those of sendFGNetworkInfo in another order", bound, numbers},
             {"bytes: some, none, and no JNIEnv", bound, blobs},
             {"sendNetworkStatsForAllUids: three parcels, and none, which is not sent", bound, allUids},
             {"a parcel at its end and one that is cut: sent as far as they could be read", bound, cut},
             {"one parcel", bound, oneParcel},
             {"sendCensusInfo: members 5 and 4 exchanged, no last comma; sent with an empty list too", bound, census}});
}

// The service dies, and an earlier client was linked; events are handled as they come until the next callback is
// registered.
void died() {
    AidlClient::deathCallback(gEarlier);
    for (int i = 0; i < 10000 && fake::count("transact 1 ") == 0; ++i) {
        gAidlClient->handleEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

TEST(Transcript, Availability) {
    const auto bind = [] { gAidlClient->bindToService(); };
    const auto diedForGood = [] {
        AidlClient::deathCallback(nullptr);
        gAidlClient->handleEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        java("queryStats");
    };
    const auto notThere = [] { fake::script.nullServices = 3; };
    const auto otherInterface = [] {
        registerOne<IRequest>();
        fake::script.then = [](const std::string&) {
            if (fake::count("binder associateClass") == 2) registerOne<IOrvixService>();
        };
    };
    const auto refusing = [] { registerOne<IOrvixService>(STATUS_PERMISSION_DENIED); };
    compare(
        "availability.txt",
        {{"bound and up", served, bindAndUp},
         {"down, bound again, up", bound, died},
         {"down while unbound: no unlink, Java told all the same", served, died},
         {"up while unbound: Java told, nothing registered", served, handling({.type = 0})},
         {"attach fails in up: no callback registered", after(served, attachFails), bindAndUp},
         {"attach fails in down: unbound for good", after(bound, attachFails), diedForGood},
         {"no object in up: not told, registered all the same", after(served, noObject), bindAndUp},
         {"no object in down: not told, bound again all the same", after(bound, noObject), died},
         {"no service found three times: asked again at once, silently", after(served, notThere), bind},
         {"a binder of another interface twice: asked again at once, silently", after(loaded, otherInterface), bind},
         {"registerRequest refused: nobody is told", after(loaded, refusing), bindAndUp}});
}

TEST(Transcript, Sockets) {
    const auto ask = [](const SocketInfo& info) { return handling({.type = 23, .socketInfo = info}); };
    const auto defaults = [] {
        handle({.type = 23, .socketInfo = {0, 0, 0, 0, 0}});
        handle({.type = 23, .socketInfo = {-1, 1, 1, 3, 1}});
    };
    const auto tagFails = [](int status) { return [=] { fake::script.tagSocket = status; }; };
    compare("sockets.txt",
            {{"family 2, type 2, protocol 2", bound, ask({7, 10123, 2, 2, 2})},
             {"every other code is the default", bound, defaults},
             {"uid -1: sent untagged", bound, ask({8, -1, 2, 1, 1})},
             {"refused by the kernel", bound, ask({9, 10123, 0, 2, 1})},
             {"tagging fails: neither sent nor closed", after(bound, tagFails(-1)), ask({7, 10123, 0, 0, 1})},
             {"unbound: no socket is made", loaded, ask({7, 10123, 2, 2, 2})},
             {"codes above 2 are the default, and any uid but -1 is tagged", bound, ask({-1, -2, 3, 3, 3})},
             {"tagging fails with another error", after(bound, tagFails(-EACCES)), ask({7, 10123, 0, 0, 1})}});
}

// What other threads do meanwhile at a call that leaves the library: they call it, ask of it, and bind, for which
// serviceLock must be free.
bool othersGoOn() {
    const auto done = std::make_shared<std::promise<void>>();
    std::thread([done] {
        java("queryStats");
        gAidlClient->pushEv({.type = 25});
        gAidlClient->bindToService();
        done->set_value();
    }).detach();
    return done->get_future().wait_for(orvix_test::patience()) == std::future_status::ready;
}

TEST(Locks, AreFreeAtEveryCallOutOfTheLibrary) {
    fake::reset();
    bound();
    size_t calls = 0, transactions = 0;
    std::set<std::string> seen;  // others bind, which tells Java again: each line once for a method
    fake::script.then = [&, main = std::this_thread::get_id(),
                         method = std::string()](const std::string& line) mutable {
        const std::string kind = line.substr(0, line.find(' '));
        if (std::this_thread::get_id() != main || kind == "log" || kind == "binder") return;
        if (line.starts_with("jni GetMethodID")) method = line;
        if (!seen.insert(method + line).second) return;
        calls += line.starts_with("jni CallVoidMethod");
        transactions += kind == "transact";
        if (othersGoOn()) return;
        ADD_FAILURE() << "a lock is held at " << line;
        std::quick_exit(1);
    };
    everyNative();
    java("sendBlobToMirel", 5, fake::bytes({1}));
    for (int32_t code = kSendBlobToApk; code >= kServiceDown; --code) handle({.type = code});
    EXPECT_EQ(calls, 23u);
    EXPECT_EQ(transactions, 16u);
}

}  // namespace
