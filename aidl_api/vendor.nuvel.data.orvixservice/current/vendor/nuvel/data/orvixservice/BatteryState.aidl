package vendor.nuvel.data.orvixservice;
@VintfStability
parcelable BatteryState {
    int int1;
    boolean flag1;
}
