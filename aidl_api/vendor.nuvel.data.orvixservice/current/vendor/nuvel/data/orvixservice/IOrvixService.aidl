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
@VintfStability
interface IOrvixService {
    oneway void registerRequest(IRequest request);
    oneway void sendRadioTechStatus(in RadioTechStatus status);
    oneway void sendNetworkStatsForAllUids(RatType ratType, in NetworkStatsParams[] stats);
    oneway void sendNetworkStatsForNetworkType(RatType ratType, in ByteTuple bytes);
    oneway void sendScreenState(boolean on);
    oneway void sendCensusInfo(in CensusInfo census);
    oneway void sendNetworkInfo(RatType ratType, in NetworkInfo info);
    oneway void sendBootCompleteInfo(boolean completed);
    oneway void sendFGNetworkInfo(RatType ratType, TechType techType, long value);
    oneway void sendLPMStatus(boolean status);
    oneway void sendThermalStatus(ThermalState state);
    oneway void sendBatteryStatus(in BatteryState state);
    oneway void sendHotspotStatus(boolean status);
    oneway void queryStats();
    oneway void sendFdforUID(in ParcelFileDescriptor fd);
    oneway void sendSocketFd(int socketId, in ParcelFileDescriptor fd);
    oneway void sendBlobToMirel(int tag, in byte[] blob);
}
