// What a received descriptor is good for.
#pragma once

#include "sim/json/Json.h"

namespace sim {

// {"family":"inet6","type":"dgram","protocol":"udp","usable":true}. Usable: it carried a packet over loopback;
// otherwise "trouble" says what failed. Takes a second at most for each step; the socket is then bound and connected to
// itself.
Json trySocket(int fd);

}  // namespace sim
