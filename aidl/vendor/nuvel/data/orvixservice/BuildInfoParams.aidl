package vendor.nuvel.data.orvixservice;

/** Identity of the device's build, for the census. Every text must be set. */
@VintfStability
parcelable BuildInfoParams {
    String text1;
    String text2;
    String text3;
    String text4;
    String text5;
    String text6;
    String text7;
    String text8;
}
