package vendor.nuvel.data.orvixservice;
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
