#include "callback/OrvixCallback.h"

#include "client/AidlClient.h"

namespace orvix {

namespace {

ScopedAStatus post(CallbackEvent ev) {
    AidlClient::latest().pushEv(std::move(ev));
    return ScopedAStatus::ok();
}

}  // namespace

ScopedAStatus OrvixCallback::getRadioStatus() { return post({.type = 1}); }
ScopedAStatus OrvixCallback::startNetworkStatsPolling(int32_t interval) {
    return post({.type = 2, .intArg = interval});
}
ScopedAStatus OrvixCallback::stopNetworkStatsPolling() { return post({.type = 3}); }
ScopedAStatus OrvixCallback::collectCensusInfo() { return post({.type = 4}); }
ScopedAStatus OrvixCallback::registerForScreenStateChanges(bool on) { return post({.type = 7, .screenStateFlag = on}); }
ScopedAStatus OrvixCallback::startUidStatsPolling(int64_t interval) { return post({.type = 8, .longArg = interval}); }
ScopedAStatus OrvixCallback::startRatStatsPolling(int64_t interval) { return post({.type = 9, .longArg = interval}); }
ScopedAStatus OrvixCallback::stopUidStatsPolling() { return post({.type = 10}); }
ScopedAStatus OrvixCallback::stopRatStatsPolling() { return post({.type = 11}); }
ScopedAStatus OrvixCallback::startcollectingNetworkInfo(RatType ratType) {
    return post({.type = 12, .ratType = ratType});
}
ScopedAStatus OrvixCallback::stopcollectingNetworkInfo(RatType ratType) {
    return post({.type = 13, .ratType = ratType});
}
ScopedAStatus OrvixCallback::requestWwanNetwork(SlotId slotId) { return post({.type = 14, .slotId = slotId}); }
ScopedAStatus OrvixCallback::releaseWwanNetwork(SlotId slotId) { return post({.type = 15, .slotId = slotId}); }
ScopedAStatus OrvixCallback::registerForLPMStatusChange(bool on) { return post({.type = 16, .lpmFlag = on}); }
ScopedAStatus OrvixCallback::registerForThermalStatusChange(bool on) { return post({.type = 17, .thermalFlag = on}); }
ScopedAStatus OrvixCallback::registerForBatteryStatusChange(bool on) { return post({.type = 18, .batteryFlag = on}); }
ScopedAStatus OrvixCallback::registerForHotspotStatusChange(bool on) { return post({.type = 19, .hotspotFlag = on}); }
ScopedAStatus OrvixCallback::startStatsMonitoring() { return post({.type = 20}); }
ScopedAStatus OrvixCallback::updateStats(const NetworkStats& stats) { return post({.type = 21, .stats = stats}); }
ScopedAStatus OrvixCallback::stopStatsMonitoring() { return post({.type = 22}); }
ScopedAStatus OrvixCallback::getSocketFd(const SocketInfo& info) { return post({.type = 23, .socketInfo = info}); }
ScopedAStatus OrvixCallback::sendBlobToApk(int32_t tag, const std::vector<uint8_t>& blob) {
    return post({.type = 24, .blobTag = tag, .blob = blob});
}
// Answers and does nothing, on purpose: sockets are asked for with getSocketFd.
ScopedAStatus OrvixCallback::getFdforUID(int32_t) { return ScopedAStatus::ok(); }

}  // namespace orvix
