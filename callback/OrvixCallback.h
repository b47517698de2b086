// What the service calls. Handed to it each time it comes up.
#pragma once

#include "aidl/IRequest.h"
#include "callback/CallbackEvent.h"

namespace orvix {

// Does no work: each request becomes one event in the client's queue, and the answer is ok at once, whatever the
// arguments are. Binder threads, several at once; keeps no state, so that an earlier instance works as well as the
// last.
class OrvixCallback : public BnRequest {
    using Status = ScopedAStatus;

  public:
    Status getRadioStatus() override { return post({.type = kGetRadioStatus}); }
    Status startNetworkStatsPolling(int32_t interval) override {
        return post({.type = kStartNetworkStatsPolling, .intArg = interval});
    }
    Status stopNetworkStatsPolling() override { return post({.type = kStopNetworkStatsPolling}); }
    Status startUidStatsPolling(int64_t interval) override {
        return post({.type = kStartUidStatsPolling, .longArg = interval});
    }
    Status startRatStatsPolling(int64_t interval) override {
        return post({.type = kStartRatStatsPolling, .longArg = interval});
    }
    Status stopUidStatsPolling() override { return post({.type = kStopUidStatsPolling}); }
    Status stopRatStatsPolling() override { return post({.type = kStopRatStatsPolling}); }
    Status registerForScreenStateChanges(bool on) override {
        return post({.type = kRegisterForScreenStateChanges, .screenStateFlag = on});
    }
    Status collectCensusInfo() override { return post({.type = kCollectCensusInfo}); }
    Status startcollectingNetworkInfo(RatType ratType) override {
        return post({.type = kStartNetworkMonitorForRatType, .ratType = ratType});
    }
    Status stopcollectingNetworkInfo(RatType ratType) override {
        return post({.type = kStopNetworkMonitorForRatType, .ratType = ratType});
    }
    Status requestWwanNetwork(SlotId slotId) override { return post({.type = kRequestWwanNetwork, .slotId = slotId}); }
    Status releaseWwanNetwork(SlotId slotId) override { return post({.type = kReleaseWwanNetwork, .slotId = slotId}); }
    Status registerForLPMStatusChange(bool on) override {
        return post({.type = kRegisterForLPMStatusChange, .lpmFlag = on});
    }
    Status registerForThermalStatusChange(bool on) override {
        return post({.type = kRegisterForThermalStatusChange, .thermalFlag = on});
    }
    Status registerForBatteryStatusChange(bool on) override {
        return post({.type = kRegisterForBatteryStatusChange, .batteryFlag = on});
    }
    Status registerForHotspotStatusChange(bool on) override {
        return post({.type = kRegisterForHotspotStatusChange, .hotspotFlag = on});
    }
    Status startStatsMonitoring() override { return post({.type = kStartStatsMonitoring}); }
    Status updateStats(const NetworkStats& stats) override { return post({.type = kUpdateStats, .stats = stats}); }
    Status stopStatsMonitoring() override { return post({.type = kStopStatsMonitoring}); }
    // Answers and does nothing, on purpose: sockets are asked for with getSocketFd.
    Status getFdforUID(int32_t) override { return Status::ok(); }
    Status getSocketFd(const SocketInfo& info) override { return post({.type = kGetSocketFd, .socketInfo = info}); }
    Status sendBlobToApk(int32_t tag, const std::vector<uint8_t>& blob) override {
        return post({.type = kSendBlobToApk, .blobTag = tag, .blob = blob});
    }

  private:
    static Status post(CallbackEvent ev);
};

}  // namespace orvix
