package vendor.nuvel.data.orvixservice;

/** A name server. Both texts must be set; "" stands for none. */
@VintfStability
parcelable DnsAddress {
    String text1;
    String text2;
}
