// The callback: what the service asks of the application. Every method is one-way. Codes, order and names, with their
// odd capitals, are frozen.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "aidl/Interface.h"
#include "aidl/Proxy.h"
#include "aidl/Records.h"
#include "aidl/Stub.h"

namespace aidl::vendor::nuvel::data::orvixservice {

class BpRequest;

class IRequest : public Interface<IRequest, BpRequest> {
  public:
    using I = IRequest;
    static constexpr const char* descriptor = "vendor.nuvel.data.orvixservice.IRequest";
    static constexpr int32_t version = 7;
    static const std::string& hash;  // not destroyed at exit: a binder thread may still be asked for it
    static AIBinder_Class* const binderClass;

    virtual ScopedAStatus getRadioStatus() = 0;
    virtual ScopedAStatus startNetworkStatsPolling(int32_t interval) = 0;
    virtual ScopedAStatus stopNetworkStatsPolling() = 0;
    virtual ScopedAStatus startUidStatsPolling(int64_t interval) = 0;
    virtual ScopedAStatus startRatStatsPolling(int64_t interval) = 0;
    virtual ScopedAStatus stopUidStatsPolling() = 0;
    virtual ScopedAStatus stopRatStatsPolling() = 0;
    virtual ScopedAStatus registerForScreenStateChanges(bool on) = 0;
    virtual ScopedAStatus collectCensusInfo() = 0;
    virtual ScopedAStatus startcollectingNetworkInfo(RatType ratType) = 0;
    virtual ScopedAStatus stopcollectingNetworkInfo(RatType ratType) = 0;
    virtual ScopedAStatus requestWwanNetwork(SlotId slotId) = 0;
    virtual ScopedAStatus releaseWwanNetwork(SlotId slotId) = 0;
    virtual ScopedAStatus registerForLPMStatusChange(bool on) = 0;
    virtual ScopedAStatus registerForThermalStatusChange(bool on) = 0;
    virtual ScopedAStatus registerForBatteryStatusChange(bool on) = 0;
    virtual ScopedAStatus registerForHotspotStatusChange(bool on) = 0;
    virtual ScopedAStatus startStatsMonitoring() = 0;
    virtual ScopedAStatus updateStats(const NetworkStats& stats) = 0;
    virtual ScopedAStatus stopStatsMonitoring() = 0;
    virtual ScopedAStatus getFdforUID(int32_t uid) = 0;
    virtual ScopedAStatus getSocketFd(const SocketInfo& info) = 0;
    virtual ScopedAStatus sendBlobToApk(int32_t tag, const std::vector<uint8_t>& blob) = 0;

    virtual ScopedAStatus getInterfaceVersion(int32_t* answer) = 0;
    virtual ScopedAStatus getInterfaceHash(std::string* answer) = 0;

    static constexpr auto methods =
        std::tuple{method<&I::getRadioStatus>(1, "getRadioStatus"),
                   method<&I::startNetworkStatsPolling>(2, "startNetworkStatsPolling"),
                   method<&I::stopNetworkStatsPolling>(3, "stopNetworkStatsPolling"),
                   method<&I::startUidStatsPolling>(4, "startUidStatsPolling"),
                   method<&I::startRatStatsPolling>(5, "startRatStatsPolling"),
                   method<&I::stopUidStatsPolling>(6, "stopUidStatsPolling"),
                   method<&I::stopRatStatsPolling>(7, "stopRatStatsPolling"),
                   method<&I::registerForScreenStateChanges>(8, "registerForScreenStateChanges"),
                   method<&I::collectCensusInfo>(9, "collectCensusInfo"),
                   method<&I::startcollectingNetworkInfo>(10, "startcollectingNetworkInfo"),
                   method<&I::stopcollectingNetworkInfo>(11, "stopcollectingNetworkInfo"),
                   method<&I::requestWwanNetwork>(12, "requestWwanNetwork"),
                   method<&I::releaseWwanNetwork>(13, "releaseWwanNetwork"),
                   method<&I::registerForLPMStatusChange>(14, "registerForLPMStatusChange"),
                   method<&I::registerForThermalStatusChange>(15, "registerForThermalStatusChange"),
                   method<&I::registerForBatteryStatusChange>(16, "registerForBatteryStatusChange"),
                   method<&I::registerForHotspotStatusChange>(17, "registerForHotspotStatusChange"),
                   method<&I::startStatsMonitoring>(18, "startStatsMonitoring"),
                   method<&I::updateStats>(19, "updateStats"),
                   method<&I::stopStatsMonitoring>(20, "stopStatsMonitoring"),
                   method<&I::getFdforUID>(21, "getFdforUID"),
                   method<&I::getSocketFd>(22, "getSocketFd"),
                   method<&I::sendBlobToApk>(23, "sendBlobToApk")};
};

class BpRequest : public Proxy<IRequest> {
  public:
    using Proxy::Proxy;

    ScopedAStatus getRadioStatus() override { return oneway<&I::getRadioStatus>(); }
    ScopedAStatus startNetworkStatsPolling(int32_t interval) override {
        return oneway<&I::startNetworkStatsPolling>(interval);
    }
    ScopedAStatus stopNetworkStatsPolling() override { return oneway<&I::stopNetworkStatsPolling>(); }
    ScopedAStatus startUidStatsPolling(int64_t interval) override { return oneway<&I::startUidStatsPolling>(interval); }
    ScopedAStatus startRatStatsPolling(int64_t interval) override { return oneway<&I::startRatStatsPolling>(interval); }
    ScopedAStatus stopUidStatsPolling() override { return oneway<&I::stopUidStatsPolling>(); }
    ScopedAStatus stopRatStatsPolling() override { return oneway<&I::stopRatStatsPolling>(); }
    ScopedAStatus registerForScreenStateChanges(bool on) override {
        return oneway<&I::registerForScreenStateChanges>(on);
    }
    ScopedAStatus collectCensusInfo() override { return oneway<&I::collectCensusInfo>(); }
    ScopedAStatus startcollectingNetworkInfo(RatType ratType) override {
        return oneway<&I::startcollectingNetworkInfo>(ratType);
    }
    ScopedAStatus stopcollectingNetworkInfo(RatType ratType) override {
        return oneway<&I::stopcollectingNetworkInfo>(ratType);
    }
    ScopedAStatus requestWwanNetwork(SlotId slotId) override { return oneway<&I::requestWwanNetwork>(slotId); }
    ScopedAStatus releaseWwanNetwork(SlotId slotId) override { return oneway<&I::releaseWwanNetwork>(slotId); }
    ScopedAStatus registerForLPMStatusChange(bool on) override { return oneway<&I::registerForLPMStatusChange>(on); }
    ScopedAStatus registerForThermalStatusChange(bool on) override {
        return oneway<&I::registerForThermalStatusChange>(on);
    }
    ScopedAStatus registerForBatteryStatusChange(bool on) override {
        return oneway<&I::registerForBatteryStatusChange>(on);
    }
    ScopedAStatus registerForHotspotStatusChange(bool on) override {
        return oneway<&I::registerForHotspotStatusChange>(on);
    }
    ScopedAStatus startStatsMonitoring() override { return oneway<&I::startStatsMonitoring>(); }
    ScopedAStatus updateStats(const NetworkStats& stats) override { return oneway<&I::updateStats>(stats); }
    ScopedAStatus stopStatsMonitoring() override { return oneway<&I::stopStatsMonitoring>(); }
    ScopedAStatus getFdforUID(int32_t uid) override { return oneway<&I::getFdforUID>(uid); }
    ScopedAStatus getSocketFd(const SocketInfo& info) override { return oneway<&I::getSocketFd>(info); }
    ScopedAStatus sendBlobToApk(int32_t tag, const std::vector<uint8_t>& blob) override {
        return oneway<&I::sendBlobToApk>(tag, blob);
    }
};

// Answers every method with STATUS_UNKNOWN_TRANSACTION; a default implementation derives from it and overrides some.
class IRequestDefault : public Default<IRequest> {
  public:
    ScopedAStatus getRadioStatus() override { return unknown(); }
    ScopedAStatus startNetworkStatsPolling(int32_t) override { return unknown(); }
    ScopedAStatus stopNetworkStatsPolling() override { return unknown(); }
    ScopedAStatus startUidStatsPolling(int64_t) override { return unknown(); }
    ScopedAStatus startRatStatsPolling(int64_t) override { return unknown(); }
    ScopedAStatus stopUidStatsPolling() override { return unknown(); }
    ScopedAStatus stopRatStatsPolling() override { return unknown(); }
    ScopedAStatus registerForScreenStateChanges(bool) override { return unknown(); }
    ScopedAStatus collectCensusInfo() override { return unknown(); }
    ScopedAStatus startcollectingNetworkInfo(RatType) override { return unknown(); }
    ScopedAStatus stopcollectingNetworkInfo(RatType) override { return unknown(); }
    ScopedAStatus requestWwanNetwork(SlotId) override { return unknown(); }
    ScopedAStatus releaseWwanNetwork(SlotId) override { return unknown(); }
    ScopedAStatus registerForLPMStatusChange(bool) override { return unknown(); }
    ScopedAStatus registerForThermalStatusChange(bool) override { return unknown(); }
    ScopedAStatus registerForBatteryStatusChange(bool) override { return unknown(); }
    ScopedAStatus registerForHotspotStatusChange(bool) override { return unknown(); }
    ScopedAStatus startStatsMonitoring() override { return unknown(); }
    ScopedAStatus updateStats(const NetworkStats&) override { return unknown(); }
    ScopedAStatus stopStatsMonitoring() override { return unknown(); }
    ScopedAStatus getFdforUID(int32_t) override { return unknown(); }
    ScopedAStatus getSocketFd(const SocketInfo&) override { return unknown(); }
    ScopedAStatus sendBlobToApk(int32_t, const std::vector<uint8_t>&) override { return unknown(); }
};

// OrvixCallback derives from this; the service holds a BpRequest. Methods run on binder threads, several at once; the
// binder keeps the object alive.
class BnRequest : public Stub<IRequest> {};

}  // namespace aidl::vendor::nuvel::data::orvixservice
