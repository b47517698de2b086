package vendor.nuvel.data.orvixservice;

/** A pair of traffic counters. */
@VintfStability
parcelable ByteTuple {
    long long1;
    long long2;
}
