// What the library does, line for line, against transcripts written by hand: tests/transcripts/*.txt.

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <future>
#include <map>
#include <sstream>
#include <thread>

#include "callback/OrvixCallback.h"
#include "client/AidlClient.h"
#include "tests/aidl_support.h"
#include "tests/fake_jni.h"
#include "tests/process.h"

namespace {

using namespace orvix;

// The sections of a file: "== name" and lines up to the next one, without empty ones. What stands before the first, but
// for comments, is the section without a name.
std::map<std::string, std::string> sectionsOf(const std::string& path) {
    std::ifstream stream(path);
    std::map<std::string, std::string> sections;
    std::string* current = &sections[""];
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with("== ")) {
            current = &sections[line.substr(3)];
        } else if (!line.empty() && !line.starts_with('#')) {
            *current += line + '\n';
        }
    }
    return sections;
}
std::map<std::string, std::string> scenesOf(const std::string& name) {
    return sectionsOf(TEST_SCENES "/" + name + ".txt");
}

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

void bound() {
    loaded();
    fake::serve();
    gAidlClient->bindToService();
    gAidlClient->handleEvents();
}

void handle(int32_t code) {
    gAidlClient->pushEv({.type = code});
    gAidlClient->handleEvents();
}

// What Java hands over for a value of a scene; of a record it is a parcel.
template <typename T>
auto javaOf(const sim::Json& json) {
    if constexpr (std::is_same_v<T, jboolean>) {
        return static_cast<T>(json.is_string() ? std::stoi(json.get<std::string>(), nullptr, 16) : json.get<int>());
    } else if constexpr (std::is_arithmetic_v<T>) {
        return json.get<T>();
    } else if constexpr (sim::RecordList<T>) {
        std::vector<jobject> parcels;
        for (const sim::Json& each : json) parcels.push_back(javaOf<typename T::value_type>(each));
        return fake::array(parcels);
    } else {
        T value;
        if (!json.is_null()) sim::fromJson(json, value);
        if constexpr (std::is_same_v<T, sim::Bytes>) {
            return json.is_null() ? nullptr : fake::bytes(value);
        } else {
            return fake::parcelOf(value);
        }
    }
}

// Calls a native method on a thread of Java; without a JNIEnv if an argument is null.
template <typename... Types>
void native(const std::string& name, const sim::Json& values) {
    JNIEnv* const env = quiet::env();
    const bool hasNull = std::find(values.begin(), values.end(), nullptr) != values.end();
    auto value = values.begin();
    const std::tuple<decltype(javaOf<Types>(*value))...> arguments{javaOf<Types>(*value++)...};
    std::apply([&](auto... args) { quiet::callNative(hasNull ? nullptr : env, name.c_str(), args...); }, arguments);
    quiet::leave();
}
const std::map<std::string, void (*)(const std::string&, const sim::Json&)> kNatives = {
    {"sendRadioStatus", native<jboolean, jboolean, jboolean>},
    {"sendNetworkStatsForAllUids", native<jint, std::vector<NetworkStatsParams>>},
    {"sendNetworkStatsForNetworkType", native<jint, ByteTuple>},
    {"sendScreenState", native<jboolean>},
    {"sendCensusInfo", native<BuildInfoParams, std::vector<TelephonyInfoParams>>},
    {"sendBootCompleteInfo", native<jboolean>},
    {"sendNetworkInfo", native<jint, NetworkInfo>},
    {"sendFGNetworkInfo", native<jint, jlong, jint>},
    {"sendLPMStatus", native<jboolean>},
    {"sendThermalStatus", native<jint>},
    {"sendBatteryStatus", native<jint, jboolean>},
    {"sendHotspotStatus", native<jboolean>},
    {"queryStats", native<>},
    {"sendBlobToMirel", native<jint, sim::Bytes>}};

// What else happens in scenes.
const std::map<std::string, void (*)(const sim::Json&)> kSteps = {
    {"load", [](const auto&) { load(); }},
    {"loaded", [](const auto&) { loaded(); }},
    {"serve",
     [](const auto& status) { fake::serve([code = status[0].template get<int>()](auto...) { return code; }); }},
    {"bind", [](const auto&) { gAidlClient->bindToService(); }},
    {"bound", [](const auto&) { bound(); }},
    {"push", [](const auto& code) { gAidlClient->pushEv({.type = code[0]}); }},
    {"handle", [](const auto&) { gAidlClient->handleEvents(); }},
    {"event", [](const auto& code) { handle(code[0]); }},
    {"pause", [](const auto& time) { std::this_thread::sleep_for(std::chrono::milliseconds(time[0])); }},
    // What the VM and the platform answer from then on.
    {"getEnv", [](const auto& result) { quiet::script.getEnv = result[0].template get<jint>(); }},
    {"registerNatives", [](const auto& result) { quiet::script.registerNatives = result[0]; }},
    {"attach", [](const auto& result) { quiet::script.attach = result[0].template get<jint>(); }},
    {"allocObject", [](const auto& can) { quiet::script.allocObject = can[0]; }},
    {"missing",
     [](const auto& names) {
         quiet::script.missing = {names.begin(), names.end()};
     }},
    {"misuse",
     [](const auto& texts) {
         quiet::script.misuse = {texts.begin(), texts.end()};
     }},
    {"tagSocket", [](const auto& result) { fake::script.tagSocket = result[0]; }},
    {"nullServices", [](const auto& times) { fake::script.nullServices = times[0].template get<int>(); }},
    {"serveAnotherTwice",
     [](const auto&) {
         fake::serve<IRequest>();
         fake::script.then = [](const std::string&) {
             if (fake::count("binder associateClass") == 2) fake::serve();
         };
     }},
    {"death",
     [](const auto&) {
         AidlClient::deathCallback(nullptr);
         gAidlClient->handleEvents();
     }},
    // An earlier client was linked; events are handled as they come until the next callback is registered.
    {"died",
     [](const auto&) {
         AidlClient::deathCallback(gEarlier);
         for (int i = 0; i < 10000 && fake::count("transact 1 ") == 0; ++i) {
             gAidlClient->handleEvents();
             std::this_thread::sleep_for(std::chrono::milliseconds(1));
         }
     }},
    {"cutParcels", [](const auto&) {
         AParcel* const atItsEnd = AParcel_create();
         NetworkStatsParams{7, true, true, "lost", {1, 2}}.writeToParcel(atItsEnd);
         AParcel* const ending = AParcel_create();
         for (const int32_t word : {64, 7, 1}) AParcel_writeInt32(ending, word);
         AParcel_setDataPosition(ending, 0);
         const jobjectArray parcels = fake::array({fake::parcel(atItsEnd), fake::parcel(ending)});
         quiet::callNative(quiet::env(), "sendNetworkStatsForAllUids", -1, parcels);
     }}};

// Steps, one a line: each is one of the above, a native method or a request of the service's, with its arguments.
void play(const std::string& steps) {
    std::istringstream lines(steps);
    for (std::string name, arguments; lines >> name && std::getline(lines, arguments);) {
        const sim::Json values = sim::parseJson(arguments);
        bool known = kSteps.contains(name) || kNatives.contains(name);
        if (kSteps.contains(name)) kSteps.at(name)(values);
        if (kNatives.contains(name)) kNatives.at(name)(name, values);
        sim::forEachMethod<IRequest>([&](const auto& method) {
            if (name != method.name) return;
            known = true;
            sim::ArgumentsOf<decltype(method)> typed;
            sim::fromJson(values, typed);
            EXPECT_TRUE(orvix_test::call(method, *ndk::SharedRefBase::make<OrvixCallback>(), typed).isOk());
            gAidlClient->handleEvents();
        });
        EXPECT_TRUE(known) << name;
    }
}

// Plays the scenes of a file, each with a fresh client, and compares their transcripts whole. What stands before "--"
// is the preparation; without it, the file's own.
class Transcript : public testing::TestWithParam<const char*> {};

TEST_P(Transcript, IsWhatTheLibraryDoes) {
    const std::string between = "--\n";
    auto transcripts = sectionsOf(TEST_TRANSCRIPTS "/" + std::string(GetParam()) + ".txt");
    const auto scenes = scenesOf(GetParam());
    EXPECT_EQ(transcripts.size(), scenes.size());
    transcripts.erase("");
    for (const auto& [name, transcript] : transcripts) {
        SCOPED_TRACE(name);
        const size_t end = scenes.at(name).find(between);
        fake::reset();
        play(end == std::string::npos ? scenes.at("") : scenes.at(name).substr(0, end));
        fake::clearLines();
        play(end == std::string::npos ? scenes.at(name) : scenes.at(name).substr(end + between.size()));
        std::string played;
        for (const std::string& line : fake::lines()) played += line + '\n';
        EXPECT_EQ(transcript, played);
        EXPECT_EQ(quiet::script.misuse, decltype(quiet::script.misuse){}) << "misuse that was to be seen";
    }
}

INSTANTIATE_TEST_SUITE_P(Of, Transcript, testing::Values("load", "requests", "natives", "availability", "sockets"),
                         [](const auto& tested) { return std::string(tested.param); });

// What other threads do meanwhile at a call that leaves the library: they call it, ask of it, and bind, for which
// serviceLock must be free.
bool othersGoOn() {
    const auto done = std::make_shared<std::promise<void>>();
    std::thread([done] {
        play("queryStats []");
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
    const std::string natives = scenesOf("natives").at("unbound: every one but initialize");
    play(natives.substr(natives.find("sendRadioStatus")));
    play("sendBlobToMirel [5,\"hex:01\"]");
    for (int32_t code = kSendBlobToApk; code >= kServiceDown; --code) handle(code);
    EXPECT_EQ(calls, 23u);
    EXPECT_EQ(transactions, 16u);
}

}  // namespace
