package vendor.nuvel.data.orvixservice;

import vendor.nuvel.data.orvixservice.ByteTuple;

/** Traffic of one UID. In Java, text1 and bytes must be set: a null is refused by the reader. */
@VintfStability
parcelable NetworkStatsParams {
    int uid;
    boolean flag1;
    boolean flag2;
    String text1;
    ByteTuple bytes;
}
