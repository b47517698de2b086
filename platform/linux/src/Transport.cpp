#include "Transport.h"

#include <android/log.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <thread>

#include "Folder.h"

namespace standin {
namespace {

void logErrno(const char* what) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "%s: %s", what, std::strerror(errno));
}

ndk::ScopedFileDescriptor moveHigh(int fd) {
    const ndk::ScopedFileDescriptor low(fd);
    return ndk::ScopedFileDescriptor(low.get() < 0 ? -1 : duplicateHigh(low.get()));
}

// The kernel keeps a process of several threads waiting for many milliseconds when its table of descriptors grows. Most
// programs have one thread yet when this library is loaded.
[[gnu::constructor]] void growDescriptorTable() { moveHigh(open("/dev/null", O_RDONLY | O_CLOEXEC)); }

sockaddr_un addressOf(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    pathTo(name).copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

ndk::ScopedFileDescriptor newSocket() { return moveHigh(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)); }

// What the socket holds arrives even if this process is killed: it should hold all that may be on its way.
void widen(int socket) {
    const int size = 4 << 20;
    if (setsockopt(socket, SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof(size)) != 0)
        setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));  // as much as the system gives to anybody
}

int connectSocket(int fd, const std::string& name) {
    const sockaddr_un address = addressOf(name);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

// Null if the peer is not this user's.
std::shared_ptr<Connection> connectionOn(ndk::ScopedFileDescriptor socket) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return nullptr;
    if (peer.uid != geteuid()) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Refused a connection with pid %d of uid %u.", peer.pid,
                            peer.uid);
        return nullptr;
    }
    widen(socket.get());
    auto connection = std::make_shared<Connection>(std::move(socket));
    startThread([connection] {
        while (connection->receive()) {
        }
        connection->close();
    });
    return connection;
}

// Sockets whose process has ended. A living one is only touched; one that does not listen yet has another prefix.
void sweep() {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(pathTo(""), ignored)) {
        const std::string name = entry.path().filename();
        if (!name.starts_with("p-")) continue;
        const ndk::ScopedFileDescriptor socket = newSocket();
        if (connectSocket(socket.get(), name) != 0 && errno == ECONNREFUSED) unlinkat(folder(), name.c_str(), 0);
    }
}

std::string startListening() {
    if (folder() < 0) return "";
    sweep();
    const std::string unique = uniqueName();
    const std::string temporary = "t-" + unique;
    ndk::ScopedFileDescriptor socket = newSocket();
    const sockaddr_un address = addressOf(temporary);
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(socket.get(), SOMAXCONN) != 0 ||
        renameat(folder(), temporary.c_str(), folder(), ("p-" + unique).c_str()) != 0) {
        logErrno("Cannot listen");
        return "";
    }
    startThread([listener = socket.release()] {
        for (;;) {
            ndk::ScopedFileDescriptor peer = moveHigh(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
            if (peer.get() >= 0) {
                connectionOn(std::move(peer));
            } else {
                // Without descriptors the peer stays in the queue, and would be named again and again.
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
    });
    return "p-" + unique;
}

int openFolder() {
    const std::string path = binderFolder();
    mkdir(path.c_str(), 0700);
    ndk::ScopedFileDescriptor opened = moveHigh(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info {};
    if (opened.get() < 0 || fstat(opened.get(), &info) != 0) {
        logErrno(path.c_str());
        return -1;
    }
    if (info.st_uid != geteuid() || (info.st_mode & 0777) != 0700) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "%s must belong to uid %u and have mode 0700.", path.c_str(),
                            geteuid());
        return -1;
    }
    return opened.release();
}

}  // namespace

void startThread(std::function<void()> body) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) sigdelset(&all, fault);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::thread thread(std::move(body));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_setname_np(thread.native_handle(), "binder:io");
    thread.detach();
}

std::shared_ptr<Connection> connectTo(const std::string& name) {
    static auto* const lock = new std::mutex;
    static auto* const all = new std::map<std::string, std::weak_ptr<Connection>>;
    const std::lock_guard guard(*lock);
    std::erase_if(*all, [](const auto& each) { return each.second.expired(); });
    std::weak_ptr<Connection>& known = (*all)[name];
    std::shared_ptr<Connection> connection = known.lock();
    if (connection != nullptr && connection->peerLives()) return connection;
    ndk::ScopedFileDescriptor socket = newSocket();
    if (connectSocket(socket.get(), name) != 0) return nullptr;
    known = connection = connectionOn(std::move(socket));
    return connection;
}

const std::string& listenAt() {
    static const auto* const name = new std::string(startListening());
    return *name;
}

std::string pathTo(const std::string& name) { return "/proc/self/fd/" + std::to_string(folder()) + '/' + name; }

int folder() {
    static const int descriptor = openFolder();
    return descriptor;
}

std::string uniqueName() {
    std::random_device random;
    char text[17];
    std::snprintf(text, sizeof(text), "%08x%08x", random(), random());
    return text;
}

uint32_t idOf(LocalBinder& binder) {
    static std::atomic<uint32_t> last{0};
    uint32_t none = 0;
    if (binder.id == 0) binder.id.compare_exchange_strong(none, ++last);
    return binder.id;
}

}  // namespace standin
