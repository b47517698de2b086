// What the service calls. Handed to it each time it comes up.
#pragma once

#include "aidl/IRequest.h"

namespace orvix {

using namespace aidl::vendor::nuvel::data::orvixservice;

// Does no work: each request becomes one event in the client's queue, and the answer is ok at once, whatever the
// arguments are. Binder threads, several at once; keeps no state, so that an earlier instance works as well as the
// last.
class OrvixCallback : public BnRequest {
  public:
    ScopedAStatus getRadioStatus() override;
    ScopedAStatus startNetworkStatsPolling(int32_t interval) override;
    ScopedAStatus stopNetworkStatsPolling() override;
    ScopedAStatus startUidStatsPolling(int64_t interval) override;
    ScopedAStatus startRatStatsPolling(int64_t interval) override;
    ScopedAStatus stopUidStatsPolling() override;
    ScopedAStatus stopRatStatsPolling() override;
    ScopedAStatus registerForScreenStateChanges(bool on) override;
    ScopedAStatus collectCensusInfo() override;
    ScopedAStatus startcollectingNetworkInfo(RatType ratType) override;
    ScopedAStatus stopcollectingNetworkInfo(RatType ratType) override;
    ScopedAStatus requestWwanNetwork(SlotId slotId) override;
    ScopedAStatus releaseWwanNetwork(SlotId slotId) override;
    ScopedAStatus registerForLPMStatusChange(bool on) override;
    ScopedAStatus registerForThermalStatusChange(bool on) override;
    ScopedAStatus registerForBatteryStatusChange(bool on) override;
    ScopedAStatus registerForHotspotStatusChange(bool on) override;
    ScopedAStatus startStatsMonitoring() override;
    ScopedAStatus updateStats(const NetworkStats& stats) override;
    ScopedAStatus stopStatsMonitoring() override;
    ScopedAStatus getFdforUID(int32_t uid) override;
    ScopedAStatus getSocketFd(const SocketInfo& info) override;
    ScopedAStatus sendBlobToApk(int32_t tag, const std::vector<uint8_t>& blob) override;
};

}  // namespace orvix
