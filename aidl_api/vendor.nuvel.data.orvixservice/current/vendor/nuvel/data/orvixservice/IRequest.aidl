package vendor.nuvel.data.orvixservice;
import vendor.nuvel.data.orvixservice.NetworkStats;
import vendor.nuvel.data.orvixservice.RatType;
import vendor.nuvel.data.orvixservice.SlotId;
import vendor.nuvel.data.orvixservice.SocketInfo;
@VintfStability
interface IRequest {
    oneway void getRadioStatus();
    oneway void startNetworkStatsPolling(int interval);
    oneway void stopNetworkStatsPolling();
    oneway void startUidStatsPolling(long interval);
    oneway void startRatStatsPolling(long interval);
    oneway void stopUidStatsPolling();
    oneway void stopRatStatsPolling();
    oneway void registerForScreenStateChanges(boolean on);
    oneway void collectCensusInfo();
    oneway void startcollectingNetworkInfo(RatType ratType);
    oneway void stopcollectingNetworkInfo(RatType ratType);
    oneway void requestWwanNetwork(SlotId slotId);
    oneway void releaseWwanNetwork(SlotId slotId);
    oneway void registerForLPMStatusChange(boolean on);
    oneway void registerForThermalStatusChange(boolean on);
    oneway void registerForBatteryStatusChange(boolean on);
    oneway void registerForHotspotStatusChange(boolean on);
    oneway void startStatsMonitoring();
    oneway void updateStats(in NetworkStats stats);
    oneway void stopStatsMonitoring();
    oneway void getFdforUID(int uid);
    oneway void getSocketFd(in SocketInfo info);
    oneway void sendBlobToApk(int tag, in byte[] blob);
}
