#include <android/log.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>

#include "Death.h"
#include "Transport.h"

namespace standin {
namespace {

// A peer that does not read keeps so much waiting here before new calls fail; and so much, answers to its own calls
// above all, before it is given up.
constexpr size_t kMaxQueuedForCalls = 4 << 20;
constexpr size_t kMaxQueued = 16 << 20;
// Small change is told to the peer together.
constexpr size_t kWorkedOffStep = 4096;

template <typename T>
void append(std::vector<uint8_t>& bytes, const T& value) {
    const auto* from = reinterpret_cast<const uint8_t*>(&value);
    bytes.insert(bytes.end(), from, from + sizeof(value));
}

}  // namespace

Connection::Connection(ndk::ScopedFileDescriptor socket, uid_t uid, pid_t pid, std::string name)
    : mUid(uid), mPid(pid), mName(std::move(name)), mSocket(std::move(socket)) {}

// ---- Out ----

// Refuses before it touches the exports: a parcel that does not go leaves no trace.
binder_status_t Connection::encode(FrameHeader header, const Parcel& parcel, Outgoing& frame) {
    if (parcel.bytes.size() > kMaxTransaction) return STATUS_FAILED_TRANSACTION;
    std::vector<const Object*> objects;
    for (const Object& object : parcel.objects) objects.push_back(&object);
    std::sort(objects.begin(), objects.end(), [](const Object* a, const Object* b) { return a->offset < b->offset; });
    for (const Object* object : objects) {
        if (const AIBinder* binder = object->binder.get()) {
            const RemoteBinder* remote = binder->asRemote();
            if (remote == nullptr || remote->connection.get() == this) continue;
            __android_log_print(ANDROID_LOG_ERROR, kLogTag, "A binder of a third process cannot be passed on.");
            return STATUS_INVALID_OPERATION;
        }
        if (frame.descriptors.size() == kMaxDescriptors) return STATUS_FAILED_TRANSACTION;
        frame.descriptors.emplace_back(duplicateHigh(object->descriptor.get()));
        if (frame.descriptors.back().get() < 0) return STATUS_FAILED_TRANSACTION;
    }

    header.dataSize = static_cast<uint32_t>(parcel.bytes.size());
    header.objectCount = static_cast<uint32_t>(objects.size());
    frame.bytes.reserve(sizeof(header) + parcel.bytes.size() + objects.size() * sizeof(WireObject));
    append(frame.bytes, header);
    frame.bytes.insert(frame.bytes.end(), parcel.bytes.begin(), parcel.bytes.end());
    for (const Object* object : objects) {
        WireObject wire{static_cast<uint32_t>(object->offset), ObjectKind::Descriptor, 0, 0};
        if (AIBinder* binder = object->binder.get(); binder == nullptr) {
            // Beside the frame.
        } else if (const RemoteBinder* remote = binder->asRemote()) {
            wire = {wire.offset, ObjectKind::Receivers, remote->id, 0};
        } else {
            wire = {wire.offset, ObjectKind::Senders, idOf(*binder->asLocal()), binder->stability};
            Export& given = mExports[wire.id];
            if (given.given++ == 0) given.binder = object->binder;
        }
        append(frame.bytes, wire);
    }
    return STATUS_OK;
}

ssize_t Connection::sendSome(const Outgoing& frame) const {
    iovec part{const_cast<uint8_t*>(frame.bytes.data()) + frame.sent, frame.bytes.size() - frame.sent};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxDescriptors * sizeof(int))] = {};
    if (frame.sent == 0 && !frame.descriptors.empty()) {
        const size_t size = frame.descriptors.size() * sizeof(int);
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(size);
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(size);
        auto* to = reinterpret_cast<int*>(CMSG_DATA(header));
        for (const auto& descriptor : frame.descriptors) *to++ = descriptor.get();
    }
    const ssize_t sent = sendmsg(mSocket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : sent;
}

bool Connection::send(const FrameHeader& header) {
    Outgoing frame;
    append(frame.bytes, header);
    return send(std::move(frame));
}

bool Connection::send(Outgoing frame) {
    if (mQueue.empty()) {
        const ssize_t sent = sendSome(frame);
        if (sent < 0) {
            // What the peer said before can still be read; the reading thread closes after that.
            shutdown(mSocket.get(), SHUT_RDWR);
            return false;
        }
        frame.sent = static_cast<size_t>(sent);
        if (frame.sent == frame.bytes.size()) return true;
        mBacklog = true;
        wakeReader();
    }
    mQueuedBytes += frame.bytes.size();
    mQueue.push_back(std::move(frame));
    // Too much is as bad as a broken rule.
    if (mQueuedBytes > kMaxQueued) shutdown(mSocket.get(), SHUT_RDWR);
    return true;
}

void Connection::flush() {
    const std::lock_guard lock(mLock);
    while (!mQueue.empty()) {
        Outgoing& frame = mQueue.front();
        const ssize_t sent = sendSome(frame);
        // The peer's last words may still be unread: its end is noticed when reading.
        if (sent <= 0) return;
        frame.sent += static_cast<size_t>(sent);
        if (frame.sent < frame.bytes.size()) return;
        mQueuedBytes -= frame.bytes.size();
        mQueue.pop_front();
    }
    mBacklog = false;
}

bool Connection::peerLives() {
    const std::lock_guard lock(mLock);
    pollfd gone{mSocket.get(), POLLRDHUP, 0};
    return mOpen && poll(&gone, 1, 0) == 0;
}

binder_status_t Connection::transact(const RemoteBinder& target, uint32_t code, const Parcel& in, Parcel& out,
                                     bool oneway) {
    const size_t cost = costOf(in.bytes.size());
    std::unique_lock lock(mLock);
    if (!mOpen) return STATUS_DEAD_OBJECT;
    if (mQueuedBytes > kMaxQueuedForCalls || (oneway && mOnewayInFlight + cost > kMaxOneway)) {
        return STATUS_FAILED_TRANSACTION;
    }
    FrameHeader header{.type = FrameType::Transaction, .target = target.id, .code = code};
    if (!oneway) header.sequence = ++mLastSequence;
    Outgoing frame;
    const binder_status_t status = encode(header, in, frame);
    if (status != STATUS_OK) return status;
    if (!send(std::move(frame))) return STATUS_DEAD_OBJECT;
    if (oneway) {
        mOnewayInFlight += cost;
        return STATUS_OK;
    }
    Call call;
    call.out = &out;
    mCalls[header.sequence] = &call;
    call.ready.wait(lock, [&] { return call.done; });
    return call.status;
}

void Connection::reply(uint64_t sequence, binder_status_t status, const Parcel& out) {
    const std::lock_guard lock(mLock);
    if (!mOpen) return;
    FrameHeader header{.type = FrameType::Reply, .sequence = sequence, .status = status};
    Outgoing frame;
    if (status == STATUS_OK && encode(header, out, frame) == STATUS_OK) {
        send(std::move(frame));
        return;
    }
    if (status == STATUS_OK) header.status = STATUS_FAILED_TRANSACTION;
    send(header);
}

ndk::SpAIBinder Connection::acquire(uint32_t id, int32_t stability) {
    const std::lock_guard lock(mLock);
    bool isNew = false;
    const ndk::SpAIBinder proxy = proxyFor(id, stability, isNew);
    // One more reference is told to the peer only for a new proxy: an old one holds the binder already.
    if (isNew && mOpen) send(FrameHeader{.type = FrameType::Acquire, .target = id});
    return proxy;
}

void Connection::forget(const RemoteBinder& proxy) {
    const std::lock_guard lock(mLock);
    const auto found = mProxies.find(proxy.id);
    // Another may have taken its place, if the peer gave the binder away again meanwhile.
    if (found != mProxies.end() && found->second == &proxy) mProxies.erase(found);
    if (mOpen) send(FrameHeader{.type = FrameType::Release, .sequence = proxy.received, .target = proxy.id});
}

// ---- In ----

bool Connection::receive() {
    uint8_t buffer[64 * 1024];
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
    iovec part{buffer, sizeof(buffer)};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    const ssize_t received = recvmsg(mSocket.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (received < 0) return errno == EAGAIN || errno == EINTR;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < count; ++i) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(header) + i * sizeof(int), sizeof(int));
            mDescriptors.emplace_back(fd);
        }
    }
    if (received == 0 || (message.msg_flags & MSG_CTRUNC) != 0) return false;
    mInbox.insert(mInbox.end(), buffer, buffer + received);

    std::span<const uint8_t> rest(mInbox);
    Frame frame;
    ParseResult result;
    while ((result = parseFrame(rest, frame)) == ParseResult::Complete) {
        if (!handle(frame)) return false;
        rest = rest.subspan(frame.size());
    }
    mInbox.erase(mInbox.begin(), mInbox.end() - static_cast<ptrdiff_t>(rest.size()));
    // Descriptors come with the first byte of their frame, so none may be left without one.
    const size_t waiting = mDescriptors.size();
    return result != ParseResult::Violation && waiting <= (rest.empty() ? 0 : kMaxDescriptors);
}

bool Connection::handle(const Frame& frame) {
    switch (frame.header.type) {
        case FrameType::Transaction: return onTransaction(frame);
        case FrameType::Reply: return onReply(frame);
        case FrameType::Acquire: {
            const ndk::SpAIBinder binder = registeredBinder(frame.header.target);
            // Not registered any more: calls to it will find nobody.
            if (binder.get() == nullptr) return true;
            const std::lock_guard lock(mLock);
            Export& given = mExports[frame.header.target];
            if (given.given++ == 0) given.binder = binder;
            return true;
        }
        case FrameType::Release: {
            Exports ended;
            {
                const std::lock_guard lock(mLock);
                const auto found = mExports.find(frame.header.target);
                if (found == mExports.end()) return true;
                if (frame.header.sequence < found->second.given) {
                    found->second.given -= frame.header.sequence;
                    return true;
                }
                ended.insert(mExports.extract(found));
            }
            dropOnPool(std::move(ended));
            return true;
        }
        case FrameType::Done: {
            const std::lock_guard lock(mLock);
            if (frame.header.sequence > mOnewayInFlight) return false;
            mOnewayInFlight -= frame.header.sequence;
            return true;
        }
    }
    return false;
}

// Objects may end with these references, and their destructors are foreign code: not for the reading thread.
void Connection::dropOnPool(Exports exports) {
    if (exports.empty()) return;
    auto held = std::make_shared<Exports>(std::move(exports));
    post([held = std::move(held)] {});
}

// With mLock held.
ndk::SpAIBinder Connection::proxyFor(uint32_t id, int32_t stability, bool& isNew) {
    const auto found = mProxies.find(id);
    isNew = found == mProxies.end() || !found->second->tryIncStrong();
    if (!isNew) return ndk::SpAIBinder(found->second);
    auto* proxy = new RemoteBinder(shared_from_this(), id, stability);
    mProxies[id] = proxy;
    return ndk::SpAIBinder(proxy);
}

// From a frame to a parcel of this process: ids become references. False: the peer names what it was never given.
bool Connection::decode(const Frame& frame, Parcel& parcel) {
    if (frame.descriptors > mDescriptors.size()) return false;
    parcel.bytes.assign(frame.data.begin(), frame.data.end());
    for (size_t i = 0; i < frame.header.objectCount; ++i) {
        const WireObject wire = frame.object(i);
        Object object{wire.offset, nullptr, {}};
        if (wire.kind == ObjectKind::Descriptor) {
            object.descriptor = std::move(mDescriptors.front());
            mDescriptors.pop_front();
        } else {
            const std::lock_guard lock(mLock);
            if (wire.kind == ObjectKind::Receivers) {
                const auto found = mExports.find(wire.id);
                if (found == mExports.end()) return false;
                object.binder = found->second.binder;
            } else {
                bool isNew = false;
                object.binder = proxyFor(wire.id, wire.stability, isNew);
                if (!isNew) ++mProxies[wire.id]->received;
            }
        }
        parcel.place(std::move(object));
    }
    return true;
}

bool Connection::onTransaction(const Frame& frame) {
    const FrameHeader& header = frame.header;
    auto in = std::make_shared<Parcel>();
    if (!decode(frame, *in)) return false;
    const size_t cost = costOf(header.dataSize);
    ndk::SpAIBinder target;
    bool full = false;
    {
        const std::lock_guard lock(mLock);
        const bool oneway = header.sequence == 0;
        size_t& pending = oneway ? mOnewayPending : mTwowayPending;
        full = pending + cost > (oneway ? kMaxOneway : kMaxTransaction);
        if (full && oneway) return false;  // whoever keeps the rules fails on his own side
        if (!full) pending += cost;
        const auto found = mExports.find(header.target);
        if (found != mExports.end()) target = found->second.binder;
    }
    if (full || target.get() == nullptr) {
        if (header.sequence != 0) {
            reply(header.sequence, full ? STATUS_FAILED_TRANSACTION : STATUS_DEAD_OBJECT, Parcel());
        }
        if (!full) handled(header);
        return true;
    }
    OnewayQueue& oneways = target.get()->asLocal()->oneways;
    Work work = [self = shared_from_this(), target, header, in = std::move(in)]() mutable {
        self->serve(target, header, std::move(in));
    };
    if (header.sequence == 0) {
        postInOrder(oneways, std::move(work));
    } else {
        post(std::move(work));
    }
    return true;
}

// On a thread of the pool.
void Connection::serve(const ndk::SpAIBinder& target, const FrameHeader& header, std::shared_ptr<Parcel> in) {
    AParcel out;
    binder_status_t status;
    {
        const CallingScope scope(mUid, header.sequence == 0 ? 0 : mPid);
        AParcel parcel{std::move(in), nullptr};
        status = target.get()->transact(header.code, parcel, out, 0);
    }
    handled(header);
    if (header.sequence != 0) reply(header.sequence, status, *out.content);
}

void Connection::handled(const FrameHeader& header) {
    const size_t cost = costOf(header.dataSize);
    const std::lock_guard lock(mLock);
    if (header.sequence != 0) {
        mTwowayPending -= cost;
        return;
    }
    mOnewayPending -= cost;
    mWorkedOff += cost;
    if (mWorkedOff < kWorkedOffStep || !mOpen) return;
    send(FrameHeader{.type = FrameType::Done, .sequence = mWorkedOff});
    mWorkedOff = 0;
}

bool Connection::onReply(const Frame& frame) {
    Parcel out;
    if (!decode(frame, out)) return false;
    const std::lock_guard lock(mLock);
    const auto call = mCalls.find(frame.header.sequence);
    if (call == mCalls.end()) return false;
    call->second->status = frame.header.status;
    *call->second->out = std::move(out);
    call->second->done = true;
    call->second->ready.notify_one();
    mCalls.erase(call);
    return true;
}

void Connection::close() {
    Exports exports;
    {
        const std::lock_guard lock(mLock);
        mOpen = false;
        mSocket.set(-1);
        mQueue.clear();
        mQueuedBytes = 0;
        exports.swap(mExports);
        for (const auto& [sequence, call] : mCalls) {
            call->done = true;
            call->ready.notify_one();
        }
        mCalls.clear();
    }
    announceDeath(*this);
    dropOnPool(std::move(exports));
}

}  // namespace standin
