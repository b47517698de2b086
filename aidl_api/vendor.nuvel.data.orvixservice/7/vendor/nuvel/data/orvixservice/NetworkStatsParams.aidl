package vendor.nuvel.data.orvixservice;
import vendor.nuvel.data.orvixservice.ByteTuple;
@VintfStability
parcelable NetworkStatsParams {
    int uid;
    boolean flag1;
    boolean flag2;
    String text1;
    ByteTuple bytes;
}
