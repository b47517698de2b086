package vendor.nuvel.data.orvixservice;
@VintfStability
parcelable SocketInfo {
    int socketId;
    int uid;
    int ipFamily;
    int socketType;
    int protocol;
}
