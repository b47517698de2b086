package vendor.nuvel.data.orvixservice;

/** The socket that the service asks for; it comes back through IOrvixService.sendSocketFd. */
@VintfStability
parcelable SocketInfo {
    /** echoed as the first argument of sendSocketFd */
    int socketId;
    /** UID to tag the socket with, -1 for none */
    int uid;
    /** 2 for IPv6, any other value for IPv4 */
    int ipFamily;
    /** 2 for datagram, any other value for stream */
    int socketType;
    /** 1 for TCP, 2 for UDP, any other value for the family's default */
    int protocol;
}
