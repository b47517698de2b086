#include "Transport.h"

#include <android/log.h>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

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

// Through the open folder, so that its own path may be as long as it likes.
sockaddr_un addressOf(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d/%s", folder(), name.c_str());
    return address;
}

ndk::ScopedFileDescriptor newSocket() {
    return moveHigh(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

// What the socket holds arrives even if this process is killed: it should hold all that may be on its way.
void widen(int socket) {
    const int size = 4 << 20;
    if (setsockopt(socket, SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof(size)) == 0) return;
    setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));  // as much as the system gives to anybody
}

int connectSocket(int fd, const std::string& name) {
    const sockaddr_un address = addressOf(name);
    return connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

// Null if the peer is not this user's.
std::shared_ptr<Connection> connectionOn(ndk::ScopedFileDescriptor socket, std::string name) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return nullptr;
    if (peer.uid != geteuid()) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Refused a connection with pid %d of uid %u.", peer.pid,
                            peer.uid);
        return nullptr;
    }
    widen(socket.get());
    return std::make_shared<Connection>(std::move(socket), peer.uid, peer.pid, std::move(name));
}

// The reading thread and what it listens to. Lives for ever, like the thread.
class Loop {
  public:
    static Loop& get() {
        static Loop* const loop = new Loop;
        return *loop;
    }

    std::shared_ptr<Connection> connectTo(const std::string& name) {
        const std::lock_guard lock(mLock);
        for (const auto& each : mConnections) {
            if (each->name() == name && each->peerLives()) return each;
        }
        ndk::ScopedFileDescriptor socket = newSocket();
        if (connectSocket(socket.get(), name) != 0) return nullptr;
        return add(connectionOn(std::move(socket), name));
    }

    void listenOn(ndk::ScopedFileDescriptor socket) {
        const std::lock_guard lock(mLock);
        mListener = std::move(socket);
        wake();
    }

    void wake() const { eventfd_write(mWake.get(), 1); }

    uint64_t changes() {
        const std::lock_guard lock(mLock);
        return mChanges;
    }
    bool waitForChange(uint64_t since, std::chrono::seconds time) {
        std::unique_lock lock(mLock);
        return mChanged.wait_for(lock, time, [&] { return mChanges != since; });
    }

  private:
    Loop() {
        inotify_add_watch(mFolder.get(), ("/proc/self/fd/" + std::to_string(folder())).c_str(), IN_MOVED_TO);
        // Signals are for the threads of the program, except those of a fault of this one.
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) sigdelset(&all, fault);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        std::thread([this] {
            pthread_setname_np(pthread_self(), "binder:io");
            run();
        }).detach();
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }

    // With mLock held; null is fine.
    std::shared_ptr<Connection> add(std::shared_ptr<Connection> connection) {
        if (connection == nullptr) return nullptr;
        mConnections.push_back(connection);
        wake();
        return connection;
    }

    [[noreturn]] void run() {
        std::vector<std::shared_ptr<Connection>> connections;
        std::vector<pollfd> polled;
        for (;;) {
            {
                const std::lock_guard lock(mLock);
                connections = mConnections;
                polled = {{mWake.get(), POLLIN, 0}, {mListener.get(), POLLIN, 0}, {mFolder.get(), POLLIN, 0}};
            }
            for (const auto& each : connections) polled.push_back({each->socket(), each->awaited(), 0});
            if (poll(polled.data(), polled.size(), -1) <= 0) continue;
            eventfd_t ignored = 0;
            if (polled[0].revents != 0) eventfd_read(mWake.get(), &ignored);
            if (polled[1].revents != 0) acceptOne();
            if (polled[2].revents != 0) noteChange();
            for (size_t i = 0; i < connections.size(); ++i) {
                const int events = polled[i + 3].revents;
                if ((events & POLLOUT) != 0) connections[i]->flush();
                if ((events & ~POLLOUT) != 0 && !connections[i]->receive()) drop(connections[i]);
            }
        }
    }

    void acceptOne() {
        ndk::ScopedFileDescriptor socket =
            moveHigh(accept4(mListener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket.get() < 0) {
            // Without descriptors the peer stays in the queue, and poll names it again and again.
            if (errno != EAGAIN) std::this_thread::sleep_for(std::chrono::milliseconds(10));
            return;
        }
        std::shared_ptr<Connection> connection = connectionOn(std::move(socket), "");
        const std::lock_guard lock(mLock);
        add(std::move(connection));
    }

    void noteChange() {
        alignas(inotify_event) char events[4096];
        while (read(mFolder.get(), events, sizeof(events)) > 0) {
        }
        const std::lock_guard lock(mLock);
        ++mChanges;
        mChanged.notify_all();
    }

    void drop(const std::shared_ptr<Connection>& connection) {
        connection->close();
        const std::lock_guard lock(mLock);
        std::erase(mConnections, connection);
    }

    const ndk::ScopedFileDescriptor mWake = moveHigh(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    const ndk::ScopedFileDescriptor mFolder = moveHigh(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));

    std::mutex mLock;                     // guards what follows
    ndk::ScopedFileDescriptor mListener;  // set once
    std::vector<std::shared_ptr<Connection>> mConnections;
    uint64_t mChanges = 0;  // of the folder
    std::condition_variable mChanged;
};

// Sockets whose process has ended. A living one is only touched; one that does not listen yet has another prefix.
void sweep() {
    const int copy = openat(folder(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* entries = copy < 0 ? nullptr : fdopendir(copy);
    if (entries == nullptr) return;
    while (const dirent* entry = readdir(entries)) {
        if (std::strncmp(entry->d_name, "p-", 2) != 0) continue;
        const ndk::ScopedFileDescriptor socket = newSocket();
        if (connectSocket(socket.get(), entry->d_name) != 0 && errno == ECONNREFUSED) {
            unlinkat(folder(), entry->d_name, 0);
        }
    }
    closedir(entries);
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
    Loop::get().listenOn(std::move(socket));
    return "p-" + unique;
}

int openFolder() {
    std::string path;
    if (const char* given = std::getenv("ORVIX_BINDER_DIR"); given != nullptr && *given != '\0') {
        path = given;
    } else if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime != '\0') {
        path = std::string(runtime) + "/orvix-binder";
    } else {
        path = "/tmp/orvix-binder-" + std::to_string(geteuid());
    }
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

std::shared_ptr<Connection> connectTo(const std::string& name) { return Loop::get().connectTo(name); }
const std::string& listenAt() {
    static const auto* const name = new std::string(startListening());
    return *name;
}
void wakeReader() { Loop::get().wake(); }
uint64_t namesChanged() { return Loop::get().changes(); }
bool waitForNames(uint64_t since, std::chrono::seconds time) { return Loop::get().waitForChange(since, time); }

int folder() {
    static const int descriptor = openFolder();
    return descriptor;
}

std::string uniqueName() {
    uint64_t number = 0;
    if (getrandom(&number, sizeof(number), 0) != sizeof(number)) std::abort();
    char text[17];
    std::snprintf(text, sizeof(text), "%016lx", number);
    return text;
}

uint32_t idOf(LocalBinder& binder) {
    static std::atomic<uint32_t> last{0};
    uint32_t none = 0;
    if (binder.id == 0) binder.id.compare_exchange_strong(none, ++last);
    return binder.id;
}

}  // namespace standin
