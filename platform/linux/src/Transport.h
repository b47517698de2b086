// Connections between processes. One thread of its own (never a caller's, never the pool's) reads them all; it runs no
// foreign code and waits for nobody.
#pragma once

#include <android/binder_auto_utils.h>

#include <poll.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "Frame.h"
#include "Object.h"
#include "Parcel.h"

namespace standin {

// A peer process. Calls may be made from any thread; they never wait for the peer except for the answer of a two-way
// call. The socket is closed by the reading thread alone.
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    // `name`: the listening socket of the peer, empty if it is the peer who connected.
    Connection(ndk::ScopedFileDescriptor socket, uid_t uid, pid_t pid, std::string name);

    const std::string& name() const { return mName; }
    int socket() const { return mSocket.get(); }
    bool isOpen() const { return mOpen; }
    // Asks the socket itself: the reading thread may not have noticed yet.
    bool peerLives();

    // Two-way: waits, and the answer is the peer's. One-way: STATUS_OK as soon as the peer can be expected to get it.
    binder_status_t transact(const RemoteBinder& target, uint32_t code, const Parcel& in, Parcel& out, bool oneway);
    // The proxy for a binder that the peer has registered.
    ndk::SpAIBinder acquire(uint32_t id, int32_t stability);
    // The last reference to the proxy is gone.
    void forget(const RemoteBinder& proxy);

    // For the reading thread. What to poll for; false: the peer is gone, or it has broken the rules, so close.
    short awaited() const { return mBacklog ? POLLIN | POLLOUT : POLLIN; }
    bool receive();
    void flush();
    void close();

  private:
    struct Export {  // a binder of this process that the peer knows
        ndk::SpAIBinder binder;
        uint64_t given = 0;
    };
    using Exports = std::unordered_map<uint32_t, Export>;
    struct Call {  // a two-way call that waits for its answer
        Parcel* out = nullptr;
        binder_status_t status = STATUS_DEAD_OBJECT;
        bool done = false;
        std::condition_variable ready;
    };
    struct Outgoing {
        std::vector<uint8_t> bytes;
        std::vector<ndk::ScopedFileDescriptor> descriptors;
        size_t sent = 0;
    };

    // With mLock held. False: the peer is gone.
    binder_status_t encode(FrameHeader header, const Parcel& parcel, Outgoing& frame);
    bool send(Outgoing frame);
    bool send(const FrameHeader& header);
    // How much of the frame went out; -1: the peer is gone.
    ssize_t sendSome(const Outgoing& frame) const;
    ndk::SpAIBinder proxyFor(uint32_t id, int32_t stability, bool& isNew);

    bool handle(const Frame& frame);
    bool onTransaction(const Frame& frame);
    bool onReply(const Frame& frame);
    bool decode(const Frame& frame, Parcel& parcel);
    static void dropOnPool(Exports exports);
    void serve(const ndk::SpAIBinder& target, const FrameHeader& header, std::shared_ptr<Parcel> in);
    void reply(uint64_t sequence, binder_status_t status, const Parcel& out);
    void handled(const FrameHeader& header);

    const uid_t mUid;
    const pid_t mPid;
    const std::string mName;
    std::atomic<bool> mOpen{true};
    std::atomic<bool> mBacklog{false};  // something is in the queue

    std::mutex mLock;  // guards what follows, up to the next blank line; never held while foreign code runs
    ndk::ScopedFileDescriptor mSocket;
    std::deque<Outgoing> mQueue;  // what the socket did not take yet
    size_t mQueuedBytes = 0;
    Exports mExports;
    std::unordered_map<uint32_t, RemoteBinder*> mProxies;  // each leaves when its last reference goes
    std::unordered_map<uint64_t, Call*> mCalls;
    uint64_t mLastSequence = 0;
    size_t mOnewayInFlight = 0;  // bytes sent, not yet worked off by the peer
    size_t mOnewayPending = 0;   // bytes received, not yet worked off here
    size_t mTwowayPending = 0;
    size_t mWorkedOff = 0;  // bytes of one-way calls, not yet told to the peer

    // Of the reading thread alone.
    std::vector<uint8_t> mInbox;
    std::deque<ndk::ScopedFileDescriptor> mDescriptors;
};

// The connection to the process that listens at this name in the folder; made if there is none. Null if there is no
// such process.
std::shared_ptr<Connection> connectTo(const std::string& name);
// The name at which this process listens in the folder, from now on; empty if that is impossible.
const std::string& listenAt();
// The reading thread looks anew at what it waits for.
void wakeReader();
// How often names have appeared in the folder so far, for this process to wait until it is more. False: in vain.
uint64_t namesChanged();
bool waitForNames(uint64_t since, std::chrono::seconds time);

// The private folder in which processes meet: a descriptor, or -1 (and a line in the log) if it is not private.
int folder();
// So many random hexadecimal digits that no two are the same.
std::string uniqueName();

// The id of a binder of this process, for its peers.
uint32_t idOf(LocalBinder& binder);
// A registered binder of this process, or null.
ndk::SpAIBinder registeredBinder(uint32_t id);

inline constexpr const char* kLogTag = "libbinder_ndk";

}  // namespace standin
