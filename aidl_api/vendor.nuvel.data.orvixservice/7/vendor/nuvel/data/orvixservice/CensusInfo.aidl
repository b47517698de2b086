package vendor.nuvel.data.orvixservice;
import vendor.nuvel.data.orvixservice.BuildInfoParams;
import vendor.nuvel.data.orvixservice.TelephonyInfoParams;
@VintfStability
parcelable CensusInfo {
    BuildInfoParams buildInfo;
    TelephonyInfoParams[] telephonyInfos;
}
