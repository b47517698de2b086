package vendor.nuvel.data.orvixservice;
@VintfStability
parcelable ByteTuple {
    long long1;
    long long2;
}
