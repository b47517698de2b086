package vendor.nuvel.data.orvixadmin;

/**
 * Calls out of libOrvixJni: what the service asks, and whether it is there.
 *
 * <p><b>No constructor ever runs on the objects of this class.</b> For every call the library allocates a fresh object
 * without constructing it, calls one method and forgets it. So there are no instance fields here and there must be
 * none: an initialiser would not run and a value would not survive. Whatever a method needs is static.
 *
 * <p>The library finds the methods by name and signature, so both must stay, through obfuscation too, and none may
 * become static. All calls come one at a time, in the service's order, from one native thread that is attached anew for
 * each; a method that blocks holds up all that follow. An exception thrown here is caught by nobody.
 */
public final class SorvixAidlClient {
    /** Takes every call: the Java method's name and its arguments, boxed (int, long, boolean, String, byte[]). */
    public interface Sink {
        void called(String method, Object... args);
    }

    private static volatile Sink sink = (method, args) -> {};

    private SorvixAidlClient() {}

    /** To be set before {@link JniHelper#initialize}, or the first calls go nowhere. */
    public static void setSink(Sink newSink) {
        sink = newSink;
    }

    /** True when the service has come, false when it has died. */
    public void onIServiceBinderAvailable(boolean available) {
        sink.called("onIServiceBinderAvailable", available);
    }

    public void getRadioStatus() {
        sink.called("getRadioStatus");
    }

    public void startNetworkStatsPolling(int interval) {
        sink.called("startNetworkStatsPolling", interval);
    }

    public void stopNetworkStatsPolling() {
        sink.called("stopNetworkStatsPolling");
    }

    public void collectCensusInfo() {
        sink.called("collectCensusInfo");
    }

    public void registerForScreenStateChanges(boolean on) {
        sink.called("registerForScreenStateChanges", on);
    }

    public void startUidStatsPolling(long interval) {
        sink.called("startUidStatsPolling", interval);
    }

    public void startRatStatsPolling(long interval) {
        sink.called("startRatStatsPolling", interval);
    }

    public void stopUidStatsPolling() {
        sink.called("stopUidStatsPolling");
    }

    public void stopRatStatsPolling() {
        sink.called("stopRatStatsPolling");
    }

    /** The service's startcollectingNetworkInfo. */
    public void startNetworkMonitorForRatType(int ratType) {
        sink.called("startNetworkMonitorForRatType", ratType);
    }

    /** The service's stopcollectingNetworkInfo. */
    public void stopNetworkMonitorForRatType(int ratType) {
        sink.called("stopNetworkMonitorForRatType", ratType);
    }

    public void requestWwanNetwork(int slotId) {
        sink.called("requestWwanNetwork", slotId);
    }

    public void releaseWwanNetwork(int slotId) {
        sink.called("releaseWwanNetwork", slotId);
    }

    public void registerForLPMStatusChange(boolean on) {
        sink.called("registerForLPMStatusChange", on);
    }

    public void registerForThermalStatusChange(boolean on) {
        sink.called("registerForThermalStatusChange", on);
    }

    public void registerForBatteryStatusChange(boolean on) {
        sink.called("registerForBatteryStatusChange", on);
    }

    public void registerForHotspotStatusChange(boolean on) {
        sink.called("registerForHotspotStatusChange", on);
    }

    public void startStatsMonitoring() {
        sink.called("startStatsMonitoring");
    }

    /** The members of the service's NetworkStats, in order. */
    public void updateStats(
            long long1, long long2, long long3, long long4, int int1, int int2, int int3, String text1) {
        sink.called("updateStats", long1, long2, long3, long4, int1, int2, int3, text1);
    }

    public void stopStatsMonitoring() {
        sink.called("stopStatsMonitoring");
    }

    /** The service's sendBlobToApk. */
    public void sendBlobToApkJava(int tag, byte[] blob) {
        sink.called("sendBlobToApkJava", tag, blob);
    }
}
