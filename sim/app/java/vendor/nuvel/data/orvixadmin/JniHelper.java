package vendor.nuvel.data.orvixadmin;

import android.os.Parcel;

/**
 * Calls into libOrvixJni. The library registers these fifteen methods when it is loaded, by name and signature: both
 * must stay, through obfuscation too.
 *
 * <p>None returns anything and none throws. While the service is away, a call is logged as not ready and lost. Any
 * thread may call. Enumerations are plain ints and are passed on unchanged.
 *
 * <p>A Parcel holds one record and is handed over positioned at the record's start ({@code setDataPosition(0)} after
 * writing); the library reads from the position it finds. When the method returns, the parcel is the caller's again, to
 * recycle. Null parcels and null arrays end the process.
 */
public final class JniHelper {
    private JniHelper() {}

    /** Starts the connection to the service and the calls to {@link SorvixAidlClient}. To be called exactly once. */
    public static native void initialize();

    public static native void sendRadioStatus(boolean flag1, boolean flag2, boolean flag3);

    /** Each parcel holds a NetworkStatsParams. An empty array is not sent. */
    public static native void sendNetworkStatsForAllUids(int ratType, Parcel[] stats);

    /** The parcel holds a ByteTuple. */
    public static native void sendNetworkStatsForNetworkType(int ratType, Parcel bytes);

    public static native void sendScreenState(boolean on);

    /** A BuildInfoParams, and one TelephonyInfoParams a parcel. An empty array is sent. */
    public static native void sendCensusInfo(Parcel buildInfo, Parcel[] telephonyInfos);

    public static native void sendBootCompleteInfo(boolean completed);

    /** The parcel holds a NetworkInfo. */
    public static native void sendNetworkInfo(int ratType, Parcel info);

    public static native void sendFGNetworkInfo(int ratType, long value, int techType);

    public static native void sendLPMStatus(boolean status);

    public static native void sendThermalStatus(int state);

    public static native void sendBatteryStatus(int int1, boolean flag1);

    public static native void sendHotspotStatus(boolean status);

    public static native void queryStats();

    public static native void sendBlobToMirel(int tag, byte[] blob);
}
