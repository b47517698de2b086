// Connections between processes. Each has a thread of its own that reads (never a caller's, never the pool's); it runs
// no foreign code and waits for nobody.
#pragma once

#include <android/binder_auto_utils.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Frame.h"
#include "Object.h"
#include "Parcel.h"

namespace standin {

// A peer process. Calls may be made from any thread; they never wait for the peer except for the answer of a two-way
// call.
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    explicit Connection(ndk::ScopedFileDescriptor socket) : mSocket(std::move(socket)) {}

    int socket() const { return mSocket.get(); }
    bool isOpen() const { return mOpen; }
    // Asks the socket itself: the reading thread may not have noticed yet.
    bool peerLives() const;
    // Its process.
    pid_t peer() const;

    // Two-way: waits, and the answer is the peer's. One-way: STATUS_OK as soon as the peer can be expected to get it.
    binder_status_t transact(const RemoteBinder& target, uint32_t code, const Parcel& in, Parcel& out, bool oneway);
    // The proxy for a binder of the peer's.
    ndk::SpAIBinder acquire(uint32_t id, int32_t stability);
    // The last reference to the proxy is gone.
    void forget(const RemoteBinder& proxy);

    // For the reading thread. Waits for the peer; false: it is gone, or it has broken the rules, so close.
    bool receive();
    void close();

  private:
    struct Export {  // a binder of this process that the peer was given in parcels
        ndk::SpAIBinder binder;
        uint64_t given = 0;
    };
    using Exports = std::unordered_map<uint32_t, Export>;
    using Reply = std::pair<binder_status_t, Parcel>;
    struct Outgoing {
        std::vector<uint8_t> bytes;
        std::vector<ndk::ScopedFileDescriptor> descriptors;
        size_t sent = 0;
    };

    // With mLock held.
    binder_status_t encode(FrameHeader header, const Parcel& parcel, Outgoing& frame);
    // False: the peer is gone.
    bool send(Outgoing frame);
    void send(const FrameHeader& header);
    // How much of the frame went out; -1: the peer is gone.
    ssize_t sendSome(const Outgoing& frame) const;
    ndk::SpAIBinder binderOf(uint32_t id) const;

    // What the socket did not take at once, on a thread of its own.
    void flush();
    bool handle(const Frame& frame);
    bool decode(const Frame& frame, Parcel& parcel);
    static void dropOnPool(Exports exports);
    bool onTransaction(const FrameHeader& header, std::shared_ptr<Parcel> in);
    void serve(const ndk::SpAIBinder& target, const FrameHeader& header, std::shared_ptr<Parcel> in);

    const ndk::ScopedFileDescriptor mSocket;
    std::atomic<bool> mOpen{true};

    std::mutex mLock;             // guards what follows, up to the next blank line; never held while foreign code runs
    std::deque<Outgoing> mQueue;  // what the socket did not take yet
    size_t mQueuedBytes = 0;
    Exports mExports;
    std::unordered_map<uint32_t, RemoteBinder*> mProxies;  // each leaves when its last reference goes
    std::unordered_map<uint64_t, std::promise<Reply>> mCalls;
    uint64_t mLastSequence = 0;
    // Bytes of calls, two-way and one-way: sent and not worked off by the peer; received and not worked off here.
    size_t mSent[2] = {};
    size_t mReceived[2] = {};
    size_t mWorkedOff = 0;  // bytes of one-way calls, not yet told to the peer

    // Of the reading thread alone.
    std::vector<uint8_t> mInbox;
    std::deque<ndk::ScopedFileDescriptor> mDescriptors;
};

// A thread that takes no signals: they are for the threads of the program.
void startThread(std::function<void()> body);
// The connection to the process that listens at this name in the folder; made if there is none. Null if there is no
// such process.
std::shared_ptr<Connection> connectTo(const std::string& name);
// The name at which this process listens in the folder, from now on; empty if that is impossible.
const std::string& listenAt();

// The private folder in which processes meet: a descriptor, or -1 (and a line in the log) if it is not private.
int folder();
// Through the open folder, so that its own path may be as long as it likes.
std::string pathTo(const std::string& name);
// So many random hexadecimal digits that no two are the same.
std::string uniqueName();

// The id of a binder of this process, for its peers.
uint32_t idOf(LocalBinder& binder);
// A binder that this process has registered, or null.
ndk::SpAIBinder registeredBinder(uint32_t id);

inline constexpr const char* kLogTag = "libbinder_ndk";

}  // namespace standin
