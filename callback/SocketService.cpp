// Sockets for the service, tagged with a UID so that their traffic is counted there.

#include <android/multinetwork.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/WithService.h"

namespace orvix {

namespace {

constexpr uint32_t kSocketTag = 1234;

int familyOf(const SocketInfo& info) { return info.ipFamily == 2 ? AF_INET6 : AF_INET; }
int typeOf(const SocketInfo& info) { return info.socketType == 2 ? SOCK_DGRAM : SOCK_STREAM; }
int protocolOf(const SocketInfo& info) {
    switch (info.protocol) {
        case 1: return IPPROTO_TCP;
        case 2: return IPPROTO_UDP;
        default: return 0;
    }
}

}  // namespace

// The service learns of a failure only by never getting a socket for its request.
void AidlClient::getSocketFd(const SocketInfo& info) {
    withService(*this, "getSocketFd", [&](IOrvixService& bound) {
        const int fd = socket(familyOf(info), typeOf(info), protocolOf(info));
        if (fd < 0) {
            LOGE("failed to create socket, error: %s", strerror(errno));
            return;
        }
        LOGD("successfully created socket");
        if (info.uid != -1) {
            const int result = android_tag_socket_with_uid(fd, kSocketTag, static_cast<uid_t>(info.uid));
            if (result < 0) {
                // The socket stays open: nothing untagged may be used or reused in its place.
                LOGE("failed to tag socket with uid, error: %d", result);
                return;
            }
            LOGD("successfully mapped socket to uid(%d)", info.uid);
        }
        const ndk::ScopedFileDescriptor wrapper(fd);
        bound.sendSocketFd(info.socketId, wrapper);
        // Closed here and once more by the wrapper, whose close then fails: libbinder's line about that in the system
        // log is how an operator counts the sockets handed over.
        close(fd);
    });
}

}  // namespace orvix
