package vendor.nuvel.data.orvixservice;

/** Radio status. The application supplies the first three; the other two always arrive as false. */
@VintfStability
parcelable RadioTechStatus {
    boolean flag1;
    boolean flag2;
    boolean flag3;
    boolean flag4;
    boolean flag5;
}
