#include <android/multinetwork.h>
#include <sys/stat.h>

#include <cerrno>

#include "Faults.h"

// There is no traffic accounting to tell: only whether the descriptor could be tagged.
int android_tag_socket_with_uid(int sockfd, uint32_t, uid_t) {
    if (const auto fault = standin::fault("tagSocket")) return *fault;
    struct stat info {};
    if (fstat(sockfd, &info) != 0) return -errno;
    return S_ISSOCK(info.st_mode) ? 0 : -ENOTSOCK;
}
