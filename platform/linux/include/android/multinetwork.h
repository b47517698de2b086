// Traffic accounting of sockets.
#pragma once

#include <stdint.h>
#include <sys/cdefs.h>
#include <sys/types.h>

__BEGIN_DECLS

// 0 or a negative errno.
int android_tag_socket_with_uid(int sockfd, uint32_t tag, uid_t uid);

__END_DECLS
