package vendor.nuvel.data.orvixservice;

import android.os.ParcelFileDescriptor;
import vendor.nuvel.data.orvixservice.BatteryState;
import vendor.nuvel.data.orvixservice.ByteTuple;
import vendor.nuvel.data.orvixservice.CensusInfo;
import vendor.nuvel.data.orvixservice.IRequest;
import vendor.nuvel.data.orvixservice.NetworkInfo;
import vendor.nuvel.data.orvixservice.NetworkStatsParams;
import vendor.nuvel.data.orvixservice.RadioTechStatus;
import vendor.nuvel.data.orvixservice.RatType;
import vendor.nuvel.data.orvixservice.TechType;
import vendor.nuvel.data.orvixservice.ThermalState;

/**
 * The vendor service: what the application tells it. Registered as
 * "vendor.nuvel.data.orvixservice.IOrvixService/default".
 *
 * Every method is one-way: nothing comes back, and what the service makes of a call is not seen by the caller. Method
 * order fixes the transaction codes (1 for the first); methods are added at the end only.
 */
@VintfStability
interface IOrvixService {
    /**
     * The callback through which the service asks back. The last one registered counts; a new one comes after every
     * restart.
     */
    oneway void registerRequest(IRequest request);
    /** Radio status. */
    oneway void sendRadioTechStatus(in RadioTechStatus status);
    /** Traffic per UID; the application never sends an empty list. */
    oneway void sendNetworkStatsForAllUids(RatType ratType, in NetworkStatsParams[] stats);
    /** Traffic of one network type. */
    oneway void sendNetworkStatsForNetworkType(RatType ratType, in ByteTuple bytes);
    /** Screen on or off. */
    oneway void sendScreenState(boolean on);
    /** The census; its telephony list may be empty. */
    oneway void sendCensusInfo(in CensusInfo census);
    /** State of one network. */
    oneway void sendNetworkInfo(RatType ratType, in NetworkInfo info);
    /** The device has completed its start. */
    oneway void sendBootCompleteInfo(boolean completed);
    /** The network in the foreground. In Java's native method the 64-bit value is the second argument. */
    oneway void sendFGNetworkInfo(RatType ratType, TechType techType, long value);
    /** Low-power mode on or off. */
    oneway void sendLPMStatus(boolean status);
    /** Thermal state, as the application knows it. */
    oneway void sendThermalStatus(ThermalState state);
    /** Battery state. */
    oneway void sendBatteryStatus(in BatteryState state);
    /** Hotspot on or off. */
    oneway void sendHotspotStatus(boolean status);
    /** The application asks for statistics. */
    oneway void queryStats();
    /** A descriptor for a UID. The application never calls it. */
    oneway void sendFdforUID(in ParcelFileDescriptor fd);
    /** The tagged socket that IRequest.getSocketFd asked for; socketId is the request's. */
    oneway void sendSocketFd(int socketId, in ParcelFileDescriptor fd);
    /** Opaque bytes for the service to pass on. */
    oneway void sendBlobToMirel(int tag, in byte[] blob);
}
