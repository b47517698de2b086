package vendor.nuvel.data.orvixservice;

/** One modem or subscription, for the census. Every text must be set. */
@VintfStability
parcelable TelephonyInfoParams {
    int int1;
    String text1;
    String text2;
    String text3;
    String text4;
    int int2;
}
