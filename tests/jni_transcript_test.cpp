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

// How a section comes about that is not played in the usual way.
struct Scene {
    std::function<void()> prepare;    // what happens before the transcript begins
    std::function<void()> play = {};  // empty: the section's calls in tests/scenes
};

// The sections of a file: "== name" and lines up to the next one. Empty lines and the head are not part of any.
std::map<std::string, std::string> sectionsOf(const std::string& path) {
    std::ifstream stream(path);
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
std::map<std::string, std::string> scenesOf(const std::string& file) { return sectionsOf(TEST_SCENES "/" + file); }

void play(const std::string& calls);

// Plays the sections of a file, each with a fresh client, and compares their transcripts whole. What is not unusual is
// prepared so, and its calls are in tests/scenes.
void compare(const std::string& file, void (*prepare)(), const std::map<std::string, Scene>& unusual) {
    const auto sections = sectionsOf(TEST_TRANSCRIPTS "/" + file), calls = scenesOf(file);
    for (const auto& [name, transcript] : sections) {
        const auto found = unusual.find(name);
        const Scene scene = found == unusual.end() ? Scene{prepare} : found->second;
        fake::reset();
        scene.prepare();
        fake::clearLines();
        scene.play ? scene.play() : play(calls.at(name));
        std::string played;
        for (const std::string& line : fake::lines()) played += line + '\n';
        EXPECT_EQ(transcript, played) << file << ", " << name;
        EXPECT_EQ(quiet::script.misuse, decltype(quiet::script.misuse){}) << "misuse that was to be seen";
    }
    for (const auto& [name, scene] : unusual) EXPECT_TRUE(sections.contains(name)) << file << ", " << name;
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

// Calls of a scene, one a line: a native method or a request of the service, and its arguments.
void play(const std::string& calls) {
    std::istringstream lines(calls);
    for (std::string name, arguments; lines >> name && std::getline(lines, arguments);) {
        const sim::Json values = sim::parseJson(arguments);
        if (kNatives.contains(name)) kNatives.at(name)(name, values);
        sim::forEachMethod<IRequest>([&](const auto& method) {
            if (name != method.name) return;
            sim::ArgumentsOf<decltype(method)> typed;
            sim::fromJson(values, typed);
            EXPECT_TRUE(orvix_test::call(method, *ndk::SharedRefBase::make<OrvixCallback>(), typed).isOk());
            gAidlClient->handleEvents();
        });
    }
}

TEST(Transcript, Load) {
    const auto missing = [](const char* name) { return [=] { quiet::script.missing = {name}; }; };
    const auto noClass = [] {
        quiet::script.missing = {"SorvixAidlClient"};
        quiet::script.misuse = {"GetMethodID of a null class", "AllocObject of a null class"};
    };
    compare(
        "load.txt", nothing,
        {{"good", {nothing, load}},
         {"GetEnv fails", {[] { quiet::script.getEnv = JNI_EVERSION; }, load}},
         {"JniHelper missing", {missing("JniHelper"), load}},
         {"RegisterNatives negative", {[] { quiet::script.registerNatives = -1; }, load}},
         {"SorvixAidlClient missing: the load succeeds, every call-out fails at its look-up",
          {noClass, after(loaded, handling({.type = 1}))}},
         {"second load: what the first client had queued is lost, and nothing of the VM is released",
          {after(load, [] { gAidlClient->pushEv({.type = 1}); }), after(load, [] { gAidlClient->handleEvents(); })}}});
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
    compare("requests.txt", loaded,
            {{"codes that belong to nobody", {loaded, nobody}},
             {"a thread that is attached already: detached all the same", {load, handling({.type = 1})}},
             {"attach fails: the event is lost, the next one tries again", {after(loaded, attachFails), twice}},
             {"GetEnv fails", {after(loaded, getEnvFails), handling({.type = 1})}},
             {"method missing: called with a null identifier", {after(loaded, noMethod), handling({.type = 8})}},
             {"no object: not called, and no argument made", {after(loaded, noObject), handling({.type = 21})}}});
}

const std::string kUnbound = "unbound: every one but initialize";

TEST(Transcript, Natives) {
    const auto cut = [] {
        AParcel* const atItsEnd = AParcel_create();
        NetworkStatsParams{7, true, true, "lost", {1, 2}}.writeToParcel(atItsEnd);
        AParcel* const ending = AParcel_create();
        for (const int32_t word : {64, 7, 1}) AParcel_writeInt32(ending, word);
        AParcel_setDataPosition(ending, 0);
        const jobjectArray parcels = fake::array({fake::parcel(atItsEnd), fake::parcel(ending)});
        quiet::callNative(quiet::env(), "sendNetworkStatsForAllUids", -1, parcels);
    };
    compare("natives.txt", bound,
            {{kUnbound, {loaded}},
             {"a parcel at its end and one that is cut: sent as far as they could be read", {bound, cut}}});
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
        play("queryStats []");
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
        "availability.txt", nothing,
        {{"bound and up", {served, bindAndUp}},
         {"down, bound again, up", {bound, died}},
         {"down while unbound: no unlink, Java told all the same", {served, died}},
         {"up while unbound: Java told, nothing registered", {served, handling({.type = 0})}},
         {"attach fails in up: no callback registered", {after(served, attachFails), bindAndUp}},
         {"attach fails in down: unbound for good", {after(bound, attachFails), diedForGood}},
         {"no object in up: not told, registered all the same", {after(served, noObject), bindAndUp}},
         {"no object in down: not told, bound again all the same", {after(bound, noObject), died}},
         {"no service found three times: asked again at once, silently", {after(served, notThere), bind}},
         {"a binder of another interface twice: asked again at once, silently", {after(loaded, otherInterface), bind}},
         {"registerRequest refused: nobody is told", {after(loaded, refusing), bindAndUp}}});
}

TEST(Transcript, Sockets) {
    const auto ask = handling({.type = 23, .socketInfo = {7, 10123, 0, 0, 1}});
    const auto tagFails = [](int status) { return after(bound, [=] { fake::script.tagSocket = status; }); };
    compare("sockets.txt", bound,
            {{"tagging fails: neither sent nor closed", {tagFails(-1), ask}},
             {"tagging fails with another error", {tagFails(-EACCES), ask}},
             {"unbound: no socket is made", {loaded, ask}}});
}

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
    play(scenesOf("natives.txt").at(kUnbound));
    play("sendBlobToMirel [5,\"hex:01\"]");
    for (int32_t code = kSendBlobToApk; code >= kServiceDown; --code) handle({.type = code});
    EXPECT_EQ(calls, 23u);
    EXPECT_EQ(transactions, 16u);
}

}  // namespace
