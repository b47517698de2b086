// What waits in the queue for the dispatch thread, and the codes by which the two sides of the queue know it.
#pragma once

#include <cstdint>
#include <vector>

#include "aidl/Records.h"

namespace orvix {

using namespace aidl::vendor::nuvel::data::orvixservice;

// Not the transaction codes of the requests. 5 and 6 belong to nobody and stay free.
enum EventCode : int32_t {
    kServiceDown = -1,
    kServiceUp = 0,
    kGetRadioStatus = 1,
    kStartNetworkStatsPolling = 2,
    kStopNetworkStatsPolling = 3,
    kCollectCensusInfo = 4,
    kRegisterForScreenStateChanges = 7,
    kStartUidStatsPolling = 8,
    kStartRatStatsPolling = 9,
    kStopUidStatsPolling = 10,
    kStopRatStatsPolling = 11,
    kStartNetworkMonitorForRatType = 12,
    kStopNetworkMonitorForRatType = 13,
    kRequestWwanNetwork = 14,
    kReleaseWwanNetwork = 15,
    kRegisterForLPMStatusChange = 16,
    kRegisterForThermalStatusChange = 17,
    kRegisterForBatteryStatusChange = 18,
    kRegisterForHotspotStatusChange = 19,
    kStartStatsMonitoring = 20,
    kUpdateStats = 21,
    kStopStatsMonitoring = 22,
    kGetSocketFd = 23,
    kSendBlobToApk = 24,
};

// One request of the service, or one change of its availability. A plain value: every copy owns its memory. Each code
// uses the one field that belongs to it; the others keep these defaults.
struct CallbackEvent {
    int32_t type;  // an EventCode; the dispatch ignores what is none
    int32_t intArg = -1;
    int64_t longArg = -1;
    RatType ratType{-1};
    bool screenStateFlag = false;
    SlotId slotId{-1};
    bool lpmFlag = false;
    bool thermalFlag = false;
    bool batteryFlag = false;
    bool hotspotFlag = false;
    NetworkStats stats = {};
    SocketInfo socketInfo = {};
    int32_t blobTag = 0;
    std::vector<uint8_t> blob = {};
};

}  // namespace orvix
