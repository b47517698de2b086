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
        __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "new aidl event arrived");
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
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "handleEvent %d", ev.type);
    switch (ev.type) {
        case -1: handleServiceDown(); break;
        case 0: handleServiceUp(); break;
        case 1: getRadioStatus(); break;
        case 2: startNetworkStatsPolling(ev.intArg); break;
        case 3: stopNetworkStatsPolling(); break;
        case 4: collectCensusInfo(); break;
        // 5 and 6 belong to nobody and stay free.
        case 7: registerForScreenStateChanges(ev.screenStateFlag); break;
        case 8: startUidStatsPolling(ev.longArg); break;
        case 9: startRatStatsPolling(ev.longArg); break;
        case 10: stopUidStatsPolling(); break;
        case 11: stopRatStatsPolling(); break;
        case 12: startNetworkMonitorForRatType(ev.ratType); break;
        case 13: stopNetworkMonitorForRatType(ev.ratType); break;
        case 14: requestWwanNetwork(static_cast<int32_t>(ev.slotId)); break;
        case 15: releaseWwanNetwork(static_cast<int32_t>(ev.slotId)); break;
        case 16: registerForLPMStatusChange(ev.lpmFlag); break;
        case 17: registerForThermalStatusChange(ev.thermalFlag); break;
        case 18: registerForBatteryStatusChange(ev.batteryFlag); break;
        case 19: registerForHotspotStatusChange(ev.hotspotFlag); break;
        case 20: startStatsMonitoring(); break;
        case 21: updateStats(ev.stats); break;
        case 22: stopStatsMonitoring(); break;
        case 23: getSocketFd(ev.socketInfo); break;
        case 24: sendBlobToApkNative(ev.blobTag, ev.blob); break;
        default: break;
    }
}

}  // namespace orvix
