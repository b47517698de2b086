package vendor.nuvel.data.orvixservice;

import vendor.nuvel.data.orvixservice.DnsAddress;

/** State of one network. In Java every String and both name servers must be set, optText1 alone may be null. */
@VintfStability
parcelable NetworkInfo {
    int int1;
    boolean flag1;
    boolean flag2;
    String text1;
    String text2;
    int int2;
    DnsAddress dns1;
    DnsAddress dns2;
    String text3;
    String text4;
    int int3;
    @nullable String optText1;
    int int4;
    boolean flag3;
    int int5;
    boolean flag4;
}
