package vendor.nuvel.data.orvixservice;

import vendor.nuvel.data.orvixservice.BuildInfoParams;
import vendor.nuvel.data.orvixservice.TelephonyInfoParams;

/** The census: the build and any number of telephony entries, none included. */
@VintfStability
parcelable CensusInfo {
    BuildInfoParams buildInfo;
    TelephonyInfoParams[] telephonyInfos;
}
