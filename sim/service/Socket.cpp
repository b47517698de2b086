#include "sim/service/Socket.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <string_view>

namespace sim {
namespace {

void check(bool good, const char* step) {
    if (!good) throw std::runtime_error(std::string(step) + ": " + std::strerror(errno));
}

Json name(int value, std::initializer_list<std::pair<int, const char*>> names) {
    for (const auto& [known, text] : names) {
        if (known == value) return text;
    }
    return value;
}

int option(int fd, int which) {
    int value = -1;
    socklen_t size = sizeof(value);
    check(getsockopt(fd, SOL_SOCKET, which, &value, &size) == 0, "getsockopt");
    return value;
}

struct Address {
    sockaddr_storage storage{};
    socklen_t size = sizeof(storage);
    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
};

Address loopback(int family) {
    Address address;
    if (family == AF_INET) {
        const sockaddr_in any{
            .sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
        std::memcpy(&address.storage, &any, address.size = sizeof(any));
    } else {
        sockaddr_in6 any{};
        any.sin6_family = AF_INET6;
        any.sin6_addr = in6addr_loopback;
        std::memcpy(&address.storage, &any, address.size = sizeof(any));
    }
    return address;
}

// A socket that is connected to its own address sends to itself, a stream too: both ends of a TCP connection may be
// one.
void passThrough(int fd, int family) {
    const timeval second{1, 0};
    check(setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof(second)) == 0, "setsockopt");
    check(setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &second, sizeof(second)) == 0, "setsockopt");
    Address address = loopback(family);
    check(bind(fd, address.get(), address.size) == 0, "bind");
    check(getsockname(fd, address.get(), &address.size) == 0, "getsockname");
    check(connect(fd, address.get(), address.size) == 0, "connect");
    constexpr std::string_view kPacket = "through";
    char arrived[kPacket.size() + 1];
    check(send(fd, kPacket.data(), kPacket.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(kPacket.size()), "send");
    const ssize_t length = recv(fd, arrived, sizeof(arrived), 0);
    check(length >= 0, "recv");
    if (std::string_view(arrived, static_cast<size_t>(length)) != kPacket)
        throw std::runtime_error("recv: other bytes");
}

}  // namespace

Json trySocket(int fd) {
    Json facts = Json::object();
    try {
        const int family = option(fd, SO_DOMAIN), type = option(fd, SO_TYPE), protocol = option(fd, SO_PROTOCOL);
        facts = {{"family", name(family, {{AF_INET, "inet"}, {AF_INET6, "inet6"}, {AF_UNIX, "unix"}})},
                 {"type", name(type, {{SOCK_STREAM, "stream"}, {SOCK_DGRAM, "dgram"}})},
                 {"protocol", name(protocol, {{IPPROTO_TCP, "tcp"}, {IPPROTO_UDP, "udp"}})},
                 {"usable", false}};
        if ((family != AF_INET && family != AF_INET6) || (type != SOCK_STREAM && type != SOCK_DGRAM)) {
            throw std::runtime_error("only inet and inet6, stream and dgram are tried");
        }
        passThrough(fd, family);
        facts["usable"] = true;
    } catch (const std::runtime_error& error) {
        facts["usable"] = false;
        facts["trouble"] = error.what();
    }
    return facts;
}

}  // namespace sim
