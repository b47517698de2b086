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

Address addressOf(int fd) {
    Address address;
    check(getsockname(fd, address.get(), &address.size) == 0, "getsockname");
    return address;
}

void limitWaiting(int fd) {
    const timeval second{1, 0};
    for (const int which : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        check(setsockopt(fd, SOL_SOCKET, which, &second, sizeof(second)) == 0, "setsockopt");
    }
}

void pass(int from, int to) {
    constexpr std::string_view kPacket = "through";
    char arrived[kPacket.size() + 1];
    check(send(from, kPacket.data(), kPacket.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(kPacket.size()), "send");
    const ssize_t length = recv(to, arrived, sizeof(arrived), 0);
    check(length >= 0, "recv");
    if (std::string_view(arrived, static_cast<size_t>(length)) != kPacket)
        throw std::runtime_error("recv: other bytes");
}

void exchange(int fd, int family, int type) {
    ndk::ScopedFileDescriptor peer(socket(family, type | SOCK_CLOEXEC, 0));
    check(peer.get() >= 0, "socket");
    limitWaiting(fd);
    limitWaiting(peer.get());
    Address address = loopback(family);
    check(bind(peer.get(), address.get(), address.size) == 0, "bind");
    if (type == SOCK_STREAM)
        check(listen(peer.get(), 1) == 0, "listen");
    else
        check(bind(fd, address.get(), address.size) == 0, "bind");
    address = addressOf(peer.get());
    check(connect(fd, address.get(), address.size) == 0, "connect");
    if (type == SOCK_STREAM) {
        peer.set(accept4(peer.get(), nullptr, nullptr, SOCK_CLOEXEC));
        check(peer.get() >= 0, "accept");
        limitWaiting(peer.get());
    } else {
        address = addressOf(fd);
        check(connect(peer.get(), address.get(), address.size) == 0, "connect");
    }
    pass(fd, peer.get());
    pass(peer.get(), fd);
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
        exchange(fd, family, type);
        facts["usable"] = true;
    } catch (const std::runtime_error& error) {
        facts["usable"] = false;
        facts["trouble"] = error.what();
    }
    return facts;
}

}  // namespace sim
