package vendor.nuvel.data.orvixservice;
@VintfStability
parcelable DnsAddress {
    String text1;
    String text2;
}
