// The vendor service: what it is told by the application. Every method is one-way: a call is accepted by the platform
// or not, and what the service makes of it never comes back. Codes, order and names are frozen.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "aidl/IRequest.h"
#include "aidl/Interface.h"
#include "aidl/Proxy.h"
#include "aidl/Records.h"
#include "aidl/Stub.h"

namespace aidl::vendor::nuvel::data::orvixservice {

class BpOrvixService;

class IOrvixService : public Interface<IOrvixService, BpOrvixService> {
  public:
    using I = IOrvixService;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.IOrvixService";
    static constexpr int32_t version = 7;
    static const std::string& hash;  // not destroyed at exit: a binder thread may still be asked for it
    static AIBinder_Class* const binderClass;

    virtual ScopedAStatus registerRequest(const std::shared_ptr<IRequest>& request) = 0;
    virtual ScopedAStatus sendRadioTechStatus(const RadioTechStatus& status) = 0;
    virtual ScopedAStatus sendNetworkStatsForAllUids(RatType ratType, const std::vector<NetworkStatsParams>& stats) = 0;
    virtual ScopedAStatus sendNetworkStatsForNetworkType(RatType ratType, const ByteTuple& bytes) = 0;
    virtual ScopedAStatus sendScreenState(bool on) = 0;
    virtual ScopedAStatus sendCensusInfo(const CensusInfo& census) = 0;
    virtual ScopedAStatus sendNetworkInfo(RatType ratType, const NetworkInfo& info) = 0;
    virtual ScopedAStatus sendBootCompleteInfo(bool completed) = 0;
    virtual ScopedAStatus sendFGNetworkInfo(RatType ratType, TechType techType, int64_t value) = 0;
    virtual ScopedAStatus sendLPMStatus(bool status) = 0;
    virtual ScopedAStatus sendThermalStatus(ThermalState state) = 0;
    virtual ScopedAStatus sendBatteryStatus(const BatteryState& state) = 0;
    virtual ScopedAStatus sendHotspotStatus(bool status) = 0;
    virtual ScopedAStatus queryStats() = 0;
    // A negative descriptor is refused with STATUS_UNEXPECTED_NULL and a line of syslog, and nothing is sent, here and
    // in sendSocketFd. The caller keeps and closes its descriptor.
    virtual ScopedAStatus sendFdforUID(const ndk::ScopedFileDescriptor& fd) = 0;
    virtual ScopedAStatus sendSocketFd(int32_t socketId, const ndk::ScopedFileDescriptor& fd) = 0;
    virtual ScopedAStatus sendBlobToMirel(int32_t tag, const std::vector<uint8_t>& blob) = 0;

    virtual ScopedAStatus getInterfaceVersion(int32_t* answer) = 0;
    virtual ScopedAStatus getInterfaceHash(std::string* answer) = 0;

    static constexpr auto methods =
        std::tuple{method<&I::registerRequest>(1, "registerRequest"),
                   method<&I::sendRadioTechStatus>(2, "sendRadioTechStatus"),
                   method<&I::sendNetworkStatsForAllUids>(3, "sendNetworkStatsForAllUids"),
                   method<&I::sendNetworkStatsForNetworkType>(4, "sendNetworkStatsForNetworkType"),
                   method<&I::sendScreenState>(5, "sendScreenState"),
                   method<&I::sendCensusInfo>(6, "sendCensusInfo"),
                   method<&I::sendNetworkInfo>(7, "sendNetworkInfo"),
                   method<&I::sendBootCompleteInfo>(8, "sendBootCompleteInfo"),
                   method<&I::sendFGNetworkInfo>(9, "sendFGNetworkInfo"),
                   method<&I::sendLPMStatus>(10, "sendLPMStatus"),
                   method<&I::sendThermalStatus>(11, "sendThermalStatus"),
                   method<&I::sendBatteryStatus>(12, "sendBatteryStatus"),
                   method<&I::sendHotspotStatus>(13, "sendHotspotStatus"),
                   method<&I::queryStats>(14, "queryStats"),
                   method<&I::sendFdforUID>(15, "sendFdforUID"),
                   method<&I::sendSocketFd>(16, "sendSocketFd"),
                   method<&I::sendBlobToMirel>(17, "sendBlobToMirel")};
};

class BpOrvixService : public Proxy<IOrvixService> {
  public:
    using Proxy::Proxy;

    ScopedAStatus registerRequest(const std::shared_ptr<IRequest>& request) override {
        return oneway<&I::registerRequest>(request);
    }
    ScopedAStatus sendRadioTechStatus(const RadioTechStatus& status) override {
        return oneway<&I::sendRadioTechStatus>(status);
    }
    ScopedAStatus sendNetworkStatsForAllUids(RatType ratType, const std::vector<NetworkStatsParams>& stats) override {
        return oneway<&I::sendNetworkStatsForAllUids>(ratType, stats);
    }
    ScopedAStatus sendNetworkStatsForNetworkType(RatType ratType, const ByteTuple& bytes) override {
        return oneway<&I::sendNetworkStatsForNetworkType>(ratType, bytes);
    }
    ScopedAStatus sendScreenState(bool on) override { return oneway<&I::sendScreenState>(on); }
    ScopedAStatus sendCensusInfo(const CensusInfo& census) override { return oneway<&I::sendCensusInfo>(census); }
    ScopedAStatus sendNetworkInfo(RatType ratType, const NetworkInfo& info) override {
        return oneway<&I::sendNetworkInfo>(ratType, info);
    }
    ScopedAStatus sendBootCompleteInfo(bool completed) override { return oneway<&I::sendBootCompleteInfo>(completed); }
    ScopedAStatus sendFGNetworkInfo(RatType ratType, TechType techType, int64_t value) override {
        return oneway<&I::sendFGNetworkInfo>(ratType, techType, value);
    }
    ScopedAStatus sendLPMStatus(bool status) override { return oneway<&I::sendLPMStatus>(status); }
    ScopedAStatus sendThermalStatus(ThermalState state) override { return oneway<&I::sendThermalStatus>(state); }
    ScopedAStatus sendBatteryStatus(const BatteryState& state) override { return oneway<&I::sendBatteryStatus>(state); }
    ScopedAStatus sendHotspotStatus(bool status) override { return oneway<&I::sendHotspotStatus>(status); }
    ScopedAStatus queryStats() override { return oneway<&I::queryStats>(); }
    ScopedAStatus sendFdforUID(const ndk::ScopedFileDescriptor& fd) override { return oneway<&I::sendFdforUID>(fd); }
    ScopedAStatus sendSocketFd(int32_t socketId, const ndk::ScopedFileDescriptor& fd) override {
        return oneway<&I::sendSocketFd>(socketId, fd);
    }
    ScopedAStatus sendBlobToMirel(int32_t tag, const std::vector<uint8_t>& blob) override {
        return oneway<&I::sendBlobToMirel>(tag, blob);
    }
};

// Answers every method with STATUS_UNKNOWN_TRANSACTION; a default implementation derives from it and overrides some.
class IOrvixServiceDefault : public Default<IOrvixService> {
  public:
    ScopedAStatus registerRequest(const std::shared_ptr<IRequest>&) override { return unknown(); }
    ScopedAStatus sendRadioTechStatus(const RadioTechStatus&) override { return unknown(); }
    ScopedAStatus sendNetworkStatsForAllUids(RatType, const std::vector<NetworkStatsParams>&) override {
        return unknown();
    }
    ScopedAStatus sendNetworkStatsForNetworkType(RatType, const ByteTuple&) override { return unknown(); }
    ScopedAStatus sendScreenState(bool) override { return unknown(); }
    ScopedAStatus sendCensusInfo(const CensusInfo&) override { return unknown(); }
    ScopedAStatus sendNetworkInfo(RatType, const NetworkInfo&) override { return unknown(); }
    ScopedAStatus sendBootCompleteInfo(bool) override { return unknown(); }
    ScopedAStatus sendFGNetworkInfo(RatType, TechType, int64_t) override { return unknown(); }
    ScopedAStatus sendLPMStatus(bool) override { return unknown(); }
    ScopedAStatus sendThermalStatus(ThermalState) override { return unknown(); }
    ScopedAStatus sendBatteryStatus(const BatteryState&) override { return unknown(); }
    ScopedAStatus sendHotspotStatus(bool) override { return unknown(); }
    ScopedAStatus queryStats() override { return unknown(); }
    ScopedAStatus sendFdforUID(const ndk::ScopedFileDescriptor&) override { return unknown(); }
    ScopedAStatus sendSocketFd(int32_t, const ndk::ScopedFileDescriptor&) override { return unknown(); }
    ScopedAStatus sendBlobToMirel(int32_t, const std::vector<uint8_t>&) override { return unknown(); }
};

// The library is only a client of this interface; services, simulated ones too, derive from this.
// Methods run on binder threads, several at once; the binder keeps the object alive.
class BnOrvixService : public Stub<IOrvixService> {};

}  // namespace aidl::vendor::nuvel::data::orvixservice
