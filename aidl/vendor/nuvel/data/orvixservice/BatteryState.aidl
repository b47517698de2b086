package vendor.nuvel.data.orvixservice;

/** Battery, as the application reports it. */
@VintfStability
parcelable BatteryState {
    int int1;
    boolean flag1;
}
