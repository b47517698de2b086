package vendor.nuvel.data.orvixservice;
@VintfStability
parcelable RadioTechStatus {
    boolean flag1;
    boolean flag2;
    boolean flag3;
    boolean flag4;
    boolean flag5;
}
