#include "tests/jni_scenes.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "callback/OrvixCallback.h"
#include "client/AidlClient.h"
#include "sim/json/Json.h"
#include "tests/aidl_methods.h"
#include "tests/fake_jni.h"

namespace scenes {
namespace {

using namespace orvix;

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

// What Java hands over for a value of a scene: a number, bytes, or a parcel of each record, which T then names.
jobject parcelOf(const char* descriptor, const sim::Json& json) {
    const auto& all = sim::allRecords();
    const auto isNamed = [&](const sim::Type* type) {
        return std::string_view(descriptor).ends_with('.' + type->name);
    };
    const sim::Type& type = **std::find_if(all.begin(), all.end(), isNamed);
    const std::shared_ptr<void> record = type.make();
    if (!json.is_null()) sim::fromJson(json, type, record.get());
    AParcel* const content = AParcel_create();
    type.write(content, record.get());
    AParcel_setDataPosition(content, 0);
    return fake::parcel(content);
}
template <typename T>
auto javaOf(const sim::Json& json) {
    if constexpr (std::is_same_v<T, jboolean>) {
        return static_cast<T>(json.is_string() ? std::stoi(json.get<std::string>(), nullptr, 16) : json.get<int>());
    } else if constexpr (std::is_arithmetic_v<T>) {
        return json.get<T>();
    } else if constexpr (std::is_same_v<T, sim::Bytes>) {
        if (json.is_null()) return jbyteArray{};
        return fake::bytes(sim::bytesOfHex(json.get<std::string>().substr(std::strlen("hex:"))));
    } else if constexpr (Record<T>) {
        return parcelOf(T::descriptor, json);
    } else {
        std::vector<jobject> parcels;
        for (const sim::Json& each : json) parcels.push_back(javaOf<typename T::value_type>(each));
        return fake::array(parcels);
    }
}

// Calls a native method on a thread of Java; without a JNIEnv if an argument is null.
template <typename... Types>
void native(const std::string& name, const sim::Json& values) {
    JNIEnv* const env = quiet::env();
    const bool hasNull =
        std::any_of(values.begin(), values.end(), [](const sim::Json& value) { return value.is_null(); });
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
    {"missing", [](const auto& names) { names.get_to(quiet::script.missing); }},
    {"misuse", [](const auto& texts) { texts.get_to(quiet::script.misuse); }},
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

}  // namespace

void play(const std::string& steps) {
    std::istringstream lines(steps);
    for (std::string name, arguments; lines >> name && std::getline(lines, arguments);) {
        const sim::Json values = sim::parseJson(arguments);
        bool known = kSteps.contains(name) || kNatives.contains(name);
        if (kSteps.contains(name)) kSteps.at(name)(values);
        if (kNatives.contains(name)) kNatives.at(name)(name, values);
        for (const sim::Method& method : orvix_test::methodsOf("IRequest")) {
            if (name != method.name) continue;
            known = true;
            const std::shared_ptr<void> typed = method.arguments.make();
            sim::fromJson(values, method.arguments, typed.get());
            const std::shared_ptr<IRequest> callback = ndk::SharedRefBase::make<OrvixCallback>();
            if (!orvix_test::call(*callback, method, typed.get()).isOk())
                throw std::runtime_error(name + " is refused");
            gAidlClient->handleEvents();
        }
        if (!known) throw std::runtime_error("no step " + name);
    }
}

}  // namespace scenes
