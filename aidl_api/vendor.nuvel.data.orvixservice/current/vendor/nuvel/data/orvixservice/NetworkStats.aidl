package vendor.nuvel.data.orvixservice;
@VintfStability
parcelable NetworkStats {
    long long1;
    long long2;
    long long3;
    long long4;
    int int1;
    int int2;
    int int3;
    String text1;
}
