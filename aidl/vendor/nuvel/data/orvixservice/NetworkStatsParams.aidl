package vendor.nuvel.data.orvixservice;

import vendor.nuvel.data.orvixservice.ByteTuple;

/** Traffic of one UID. In Java, bytes must be set: a null is refused by the reader. */
@VintfStability
parcelable NetworkStatsParams {
    int uid;
    boolean flag1;
    boolean flag2;
    String text1;
    ByteTuple bytes;
}
