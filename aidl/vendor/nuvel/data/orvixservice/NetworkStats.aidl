package vendor.nuvel.data.orvixservice;

/** Statistics that the service hands to the application, member by member in this order. */
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
