// The queue between binder threads and Java, and the one thread that drains it.

#include <android/binder_process.h>

#include <utility>

#include "client/AidlClient.h"
#include "client/Log.h"

namespace orvix {

void AidlClient::pushEv(CallbackEvent ev) {
    {
        const std::lock_guard lock(queueMutex);
        eventQueue.push_back(std::move(ev));
    }
    eventSignal.release();
}

void AidlClient::jniMainThread() {
    ABinderProcess_startThreadPool();
    startThread(&AidlClient::bindToService, *this);
    for (;;) {
        handleEvents();
        eventSignal.acquire();
        LOGD("new aidl event arrived");
    }
}

// One look under one lock: a second dispatch thread may drain the same queue.
std::optional<CallbackEvent> AidlClient::takeEvent() {
    const std::lock_guard lock(queueMutex);
    if (eventQueue.empty()) return std::nullopt;
    std::optional<CallbackEvent> ev = std::move(eventQueue.front());
    eventQueue.pop_front();
    return ev;
}

void AidlClient::handleEvents() {
    while (const auto ev = takeEvent()) handleEvent(*ev);
}

void AidlClient::handleEvent(const CallbackEvent& ev) {
    LOGD("handleEvent %d", ev.type);
    switch (EventCode{ev.type}) {  // without a default: the compiler names a code that has no case
        case kServiceDown: handleServiceDown(); break;
        case kServiceUp: handleServiceUp(); break;
        case kGetRadioStatus: getRadioStatus(); break;
        case kStartNetworkStatsPolling: startNetworkStatsPolling(ev.intArg); break;
        case kStopNetworkStatsPolling: stopNetworkStatsPolling(); break;
        case kCollectCensusInfo: collectCensusInfo(); break;
        case kRegisterForScreenStateChanges: registerForScreenStateChanges(ev.screenStateFlag); break;
        case kStartUidStatsPolling: startUidStatsPolling(ev.longArg); break;
        case kStartRatStatsPolling: startRatStatsPolling(ev.longArg); break;
        case kStopUidStatsPolling: stopUidStatsPolling(); break;
        case kStopRatStatsPolling: stopRatStatsPolling(); break;
        case kStartNetworkMonitorForRatType: startNetworkMonitorForRatType(ev.ratType); break;
        case kStopNetworkMonitorForRatType: stopNetworkMonitorForRatType(ev.ratType); break;
        case kRequestWwanNetwork: requestWwanNetwork(static_cast<int32_t>(ev.slotId)); break;
        case kReleaseWwanNetwork: releaseWwanNetwork(static_cast<int32_t>(ev.slotId)); break;
        case kRegisterForLPMStatusChange: registerForLPMStatusChange(ev.lpmFlag); break;
        case kRegisterForThermalStatusChange: registerForThermalStatusChange(ev.thermalFlag); break;
        case kRegisterForBatteryStatusChange: registerForBatteryStatusChange(ev.batteryFlag); break;
        case kRegisterForHotspotStatusChange: registerForHotspotStatusChange(ev.hotspotFlag); break;
        case kStartStatsMonitoring: startStatsMonitoring(); break;
        case kUpdateStats: updateStats(ev.stats); break;
        case kStopStatsMonitoring: stopStatsMonitoring(); break;
        case kGetSocketFd: getSocketFd(ev.socketInfo); break;
        case kSendBlobToApk: sendBlobToApkNative(ev.blobTag, ev.blob); break;
    }
}

}  // namespace orvix
