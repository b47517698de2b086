package vendor.nuvel.data.orvixservice;

import vendor.nuvel.data.orvixservice.NetworkStats;
import vendor.nuvel.data.orvixservice.RatType;
import vendor.nuvel.data.orvixservice.SlotId;
import vendor.nuvel.data.orvixservice.SocketInfo;

/**
 * The callback: what the service asks of the application.
 *
 * Every method is one-way and answered before any work is done; requests reach the application one at a time, in the
 * order sent. Method order fixes the transaction codes (1 for the first); methods are added at the end only. The odd
 * capitals of some names are frozen with the interface.
 */
@VintfStability
interface IRequest {
    /** Asks for IOrvixService.sendRadioTechStatus. */
    oneway void getRadioStatus();
    /** Poll network statistics. The unit of an interval, here and below, is agreed with the application. */
    oneway void startNetworkStatsPolling(int interval);
    /** End of startNetworkStatsPolling. */
    oneway void stopNetworkStatsPolling();
    /** Poll statistics per UID, for IOrvixService.sendNetworkStatsForAllUids. */
    oneway void startUidStatsPolling(long interval);
    /** Poll statistics per radio technology, for IOrvixService.sendNetworkStatsForNetworkType. */
    oneway void startRatStatsPolling(long interval);
    /** End of startUidStatsPolling. */
    oneway void stopUidStatsPolling();
    /** End of startRatStatsPolling. */
    oneway void stopRatStatsPolling();
    /** Report screen changes with IOrvixService.sendScreenState, or no longer. */
    oneway void registerForScreenStateChanges(boolean on);
    /** Asks for IOrvixService.sendCensusInfo. */
    oneway void collectCensusInfo();
    /** Watch a network type; reaches Java as startNetworkMonitorForRatType. */
    oneway void startcollectingNetworkInfo(RatType ratType);
    /** Reaches Java as stopNetworkMonitorForRatType. */
    oneway void stopcollectingNetworkInfo(RatType ratType);
    /** Request a WWAN network on a slot. */
    oneway void requestWwanNetwork(SlotId slotId);
    /** Release the WWAN network of a slot. */
    oneway void releaseWwanNetwork(SlotId slotId);
    /** Report low-power mode with IOrvixService.sendLPMStatus, or no longer. */
    oneway void registerForLPMStatusChange(boolean on);
    /** Report thermal state with IOrvixService.sendThermalStatus, or no longer. */
    oneway void registerForThermalStatusChange(boolean on);
    /** Report the battery with IOrvixService.sendBatteryStatus, or no longer. */
    oneway void registerForBatteryStatusChange(boolean on);
    /** Report the hotspot with IOrvixService.sendHotspotStatus, or no longer. */
    oneway void registerForHotspotStatusChange(boolean on);
    /** Start of statistics monitoring. */
    oneway void startStatsMonitoring();
    /** Statistics for the application. */
    oneway void updateStats(in NetworkStats stats);
    /** End of statistics monitoring. */
    oneway void stopStatsMonitoring();
    /** Accepted and answered; does nothing. */
    oneway void getFdforUID(int uid);
    /** Make and tag a socket; it comes back through IOrvixService.sendSocketFd. No Java method is called. */
    oneway void getSocketFd(in SocketInfo info);
    /** Opaque bytes for the application; reach Java as sendBlobToApkJava. */
    oneway void sendBlobToApk(int tag, in byte[] blob);
}
