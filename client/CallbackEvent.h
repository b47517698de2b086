// What waits in the queue for the dispatch thread.
#pragma once

#include <cstdint>
#include <vector>

#include "aidl/Records.h"

namespace orvix {

using namespace aidl::vendor::nuvel::data::orvixservice;

// One request of the service, or one change of its availability. A plain value: every copy owns its memory. Each code
// uses the one field that belongs to it; the others keep these defaults.
struct CallbackEvent {
    int32_t type;  // the event code; not the transaction code of the request
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
