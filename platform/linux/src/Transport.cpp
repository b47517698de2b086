#include "Transport.h"

#include <android/log.h>
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <thread>

namespace standin {
namespace {

constexpr uint32_t kReadable = EPOLLIN | EPOLLRDHUP;

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

// The reading thread and its connections. Lives for ever, like the thread.
class Loop {
  public:
    static Loop& get() {
        static Loop* const loop = new Loop;
        return *loop;
    }

    std::shared_ptr<Connection> connectTo(const std::string& name) {
        const std::lock_guard lock(mLock);
        if (const auto found = mByName.find(name); found != mByName.end() && found->second->isOpen()) {
            return found->second;
        }
        ndk::ScopedFileDescriptor socket = newSocket();
        if (connectSocket(socket.get(), name) != 0) return nullptr;
        std::shared_ptr<Connection> connection = connectionOn(std::move(socket), name);
        if (connection == nullptr) return nullptr;
        mByName[name] = connection;
        watch(connection);
        return connection;
    }

    void listenOn(ndk::ScopedFileDescriptor socket) {
        const std::lock_guard lock(mLock);
        mListener = std::move(socket);
        control(EPOLL_CTL_ADD, mListener.get(), EPOLLIN, nullptr);
    }

    void stopWatching(const Connection& connection) { control(EPOLL_CTL_DEL, connection.socket(), 0, &connection); }

    void wantToWrite(const Connection& connection, bool want) {
        control(EPOLL_CTL_MOD, connection.socket(), want ? kReadable | EPOLLOUT : kReadable, &connection);
    }

  private:
    Loop() : mEpoll(moveHigh(epoll_create1(EPOLL_CLOEXEC))) {
        // Signals are for the threads of the program, except those of a fault of this one.
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) sigdelset(&all, fault);
        pthread_sigmask(SIG_SETMASK, &all, &before);
        std::thread thread([this] {
            pthread_setname_np(pthread_self(), "binder:io");
            run();
        });
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        thread.detach();
    }

    void control(int operation, int fd, uint32_t events, const Connection* connection) {
        epoll_event event{};
        event.events = events;
        event.data.ptr = const_cast<Connection*>(connection);
        if (epoll_ctl(mEpoll.get(), operation, fd, &event) != 0) logErrno("epoll_ctl");
    }

    // With mLock held.
    void watch(const std::shared_ptr<Connection>& connection) {
        mAll[connection.get()] = connection;
        control(EPOLL_CTL_ADD, connection->socket(), kReadable, connection.get());
    }

    [[noreturn]] void run() {
        for (;;) {
            epoll_event events[32];
            const int count = epoll_wait(mEpoll.get(), events, std::size(events), -1);
            for (int i = 0; i < count; ++i) {
                if (events[i].data.ptr == nullptr) {
                    acceptOne();
                    continue;
                }
                const std::shared_ptr<Connection> connection = watched(events[i].data.ptr);
                bool alive = true;
                if ((events[i].events & ~uint32_t{EPOLLOUT}) != 0) alive = connection->receive();
                if (alive && (events[i].events & EPOLLOUT) != 0) connection->flush();
                if (!alive) drop(*connection);
            }
        }
    }

    // Only the reading thread takes connections out.
    std::shared_ptr<Connection> watched(const void* connection) {
        const std::lock_guard lock(mLock);
        return mAll.at(static_cast<const Connection*>(connection));
    }

    void acceptOne() {
        std::unique_lock lock(mLock);
        const int listener = mListener.get();
        lock.unlock();
        ndk::ScopedFileDescriptor socket = moveHigh(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket.get() < 0) {
            // Without descriptors the peer stays in the queue, and epoll names it again and again.
            if (errno != EAGAIN) std::this_thread::sleep_for(std::chrono::milliseconds(10));
            return;
        }
        const std::shared_ptr<Connection> connection = connectionOn(std::move(socket), "");
        lock.lock();
        if (connection != nullptr) watch(connection);
    }

    void drop(Connection& connection) {
        connection.close();
        const std::lock_guard lock(mLock);
        mAll.erase(&connection);
        const auto named = mByName.find(connection.name());
        if (named != mByName.end() && named->second.get() == &connection) mByName.erase(named);
    }

    const ndk::ScopedFileDescriptor mEpoll;
    ndk::ScopedFileDescriptor mListener;
    std::mutex mLock;
    std::map<const Connection*, std::shared_ptr<Connection>> mAll;
    std::map<std::string, std::shared_ptr<Connection>> mByName;
};

// Sockets whose process was killed. A living one is only touched; one that does not listen yet has another prefix.
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

// The name, for the end of the process. A forked child must leave its parent's socket alone.
struct Listening {
    std::string name;
    pid_t owner = 0;
};

const Listening& listening() {
    static const Listening* const made = [] {
        auto* result = new Listening;
        if (folder() < 0) return result;
        sweep();
        const std::string unique = uniqueName();
        const std::string temporary = "t-" + unique;
        ndk::ScopedFileDescriptor socket = newSocket();
        const sockaddr_un address = addressOf(temporary);
        if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
            listen(socket.get(), SOMAXCONN) != 0 ||
            renameat(folder(), temporary.c_str(), folder(), ("p-" + unique).c_str()) != 0) {
            logErrno("Cannot listen");
            return result;
        }
        *result = {"p-" + unique, getpid()};
        Loop::get().listenOn(std::move(socket));
        std::atexit([] {
            if (listening().owner == getpid()) unlinkat(folder(), listening().name.c_str(), 0);
        });
        return result;
    }();
    return *made;
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
const std::string& listenAt() { return listening().name; }
void wantToWrite(const Connection& connection, bool want) { Loop::get().wantToWrite(connection, want); }
void stopWatching(const Connection& connection) { Loop::get().stopWatching(connection); }

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
