#include <android/log.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>

#include "Trace.h"
#include "Transport.h"

namespace standin {
namespace {

// A peer that does not read keeps so much waiting here before new calls fail; and so much, answers to its own calls
// above all, before it is given up.
constexpr size_t kMaxQueuedForCalls = 4 << 20;
constexpr size_t kMaxQueued = 16 << 20;
// Of two-way calls and of one-way calls.
constexpr size_t kMaxPending[] = {kMaxTransaction, kMaxOneway};
// Small change is told to the peer together.
constexpr size_t kWorkedOffStep = 4096;

template <typename T>
void append(std::vector<uint8_t>& bytes, const T& value) {
    const auto* from = reinterpret_cast<const uint8_t*>(&value);
    bytes.insert(bytes.end(), from, from + sizeof(value));
}

bool isOneway(const FrameHeader& header) { return header.sequence == 0; }

// The same on both sides: the sender and its number tell one transaction from all others.
std::string sectionName(const char* what, pid_t sender, const FrameHeader& header, const AIBinder& target) {
    const AIBinder_Class* const clazz = target.clazz;
    return std::string(what) + ' ' + std::to_string(sender) + '.' + std::to_string(header.number) + ' ' +
           (clazz == nullptr ? "?" : clazz->descriptor) + ' ' + std::to_string(header.code);
}

}  // namespace

bool Connection::peerLives() const {
    pollfd gone{mSocket.get(), POLLRDHUP, 0};
    return mOpen && poll(&gone, 1, 0) == 0;
}

pid_t Connection::peer() const {
    ucred credentials{};
    socklen_t size = sizeof(credentials);
    return getsockopt(mSocket.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 ? credentials.pid : 0;
}

// ---- Out ----

// Refuses before it touches the exports: a parcel that does not go leaves no trace.
binder_status_t Connection::encode(FrameHeader header, const Parcel& parcel, Outgoing& frame) {
    if (parcel.bytes.size() > kMaxTransaction) return STATUS_FAILED_TRANSACTION;
    for (const auto& [offset, object] : parcel.objects) {
        if (const AIBinder* binder = object.binder.get()) {
            const RemoteBinder* remote = binder->asRemote();
            if (remote == nullptr || remote->connection.get() == this) continue;
            __android_log_print(ANDROID_LOG_ERROR, kLogTag, "A binder of a third process cannot be passed on.");
            return STATUS_INVALID_OPERATION;
        }
        if (frame.descriptors.size() == kMaxDescriptors) return STATUS_FAILED_TRANSACTION;
        frame.descriptors.emplace_back(duplicateHigh(object.descriptor.get()));
        if (frame.descriptors.back().get() < 0) return STATUS_FAILED_TRANSACTION;
    }

    header.dataSize = static_cast<uint32_t>(parcel.bytes.size());
    header.objectCount = static_cast<uint32_t>(parcel.objects.size());
    append(frame.bytes, header);
    frame.bytes.insert(frame.bytes.end(), parcel.bytes.begin(), parcel.bytes.end());
    for (const auto& [offset, object] : parcel.objects) {
        WireObject wire{static_cast<uint32_t>(offset), ObjectKind::Descriptor, 0, 0};
        if (AIBinder* binder = object.binder.get(); binder == nullptr) {
            // Beside the frame.
        } else if (const RemoteBinder* remote = binder->asRemote()) {
            wire = {wire.offset, ObjectKind::Receivers, remote->id, 0};
        } else {
            wire = {wire.offset, ObjectKind::Senders, idOf(*binder->asLocal()), binder->stability};
            Export& given = mExports[wire.id];
            if (given.given++ == 0) given.binder = object.binder;
        }
        append(frame.bytes, wire);
    }
    return STATUS_OK;
}

ssize_t Connection::sendSome(const Outgoing& frame) const {
    iovec part{const_cast<uint8_t*>(frame.bytes.data()) + frame.sent, frame.bytes.size() - frame.sent};
    msghdr message{nullptr, 0, &part, 1, nullptr, 0, 0};
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxDescriptors * sizeof(int))] = {};
    if (frame.sent == 0 && !frame.descriptors.empty()) {
        const size_t size = frame.descriptors.size() * sizeof(int);
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(size);
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        *header = {CMSG_LEN(size), SOL_SOCKET, SCM_RIGHTS};
        auto* to = reinterpret_cast<int*>(CMSG_DATA(header));
        for (const auto& descriptor : frame.descriptors) *to++ = descriptor.get();
    }
    const ssize_t sent = sendmsg(mSocket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent < 0 && (errno == EAGAIN || errno == EINTR) ? 0 : sent;
}

void Connection::send(const FrameHeader& header) {
    Outgoing frame;
    append(frame.bytes, header);
    if (mOpen) send(std::move(frame));
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
        startThread([self = shared_from_this()] { self->flush(); });
    }
    mQueuedBytes += frame.bytes.size();
    mQueue.push_back(std::move(frame));
    // Too much is as bad as a broken rule.
    if (mQueuedBytes > kMaxQueued) shutdown(mSocket.get(), SHUT_RDWR);
    return true;
}

void Connection::flush() {
    std::unique_lock lock(mLock);
    while (!mQueue.empty()) {
        Outgoing& frame = mQueue.front();
        const ssize_t sent = sendSome(frame);
        // The peer's last words may still be unread: its end is noticed when reading.
        if (sent < 0) return;
        frame.sent += static_cast<size_t>(sent);
        if (frame.sent == frame.bytes.size()) {
            mQueuedBytes -= frame.bytes.size();
            mQueue.pop_front();
            continue;
        }
        lock.unlock();
        pollfd room{mSocket.get(), POLLOUT, 0};
        poll(&room, 1, -1);
        lock.lock();
    }
}

binder_status_t Connection::transact(const RemoteBinder& target, uint32_t code, const Parcel& in, Parcel& out,
                                     bool oneway) {
    const size_t cost = costOf(in.bytes.size());
    std::unique_lock lock(mLock);
    if (!mOpen) return STATUS_DEAD_OBJECT;
    if (mQueuedBytes > kMaxQueuedForCalls || mSent[oneway] + cost > kMaxPending[oneway]) {
        return STATUS_FAILED_TRANSACTION;
    }
    static std::atomic<uint32_t> numbers;
    const FrameHeader header{.type = FrameType::Transaction,
                             .sequence = oneway ? 0 : ++mLastSequence,
                             .target = target.id,
                             .code = code,
                             .number = traced() ? ++numbers : 0};
    const Section section([&] { return sectionName("transact", getpid(), header, target); });
    Outgoing frame;
    const binder_status_t status = encode(header, in, frame);
    if (status != STATUS_OK) return status;
    if (!send(std::move(frame))) return STATUS_DEAD_OBJECT;
    mSent[oneway] += cost;
    if (oneway) return STATUS_OK;
    std::future<Reply> reply = mCalls[header.sequence].get_future();
    lock.unlock();
    Reply answer = reply.get();
    out = std::move(answer.second);
    lock.lock();
    mSent[oneway] -= cost;
    return answer.first;
}

ndk::SpAIBinder Connection::acquire(uint32_t id, int32_t stability) {
    const std::lock_guard lock(mLock);
    RemoteBinder*& known = mProxies[id];
    if (known == nullptr || !known->tryIncStrong()) known = new RemoteBinder(shared_from_this(), id, stability);
    return ndk::SpAIBinder(known);
}

void Connection::forget(const RemoteBinder& proxy) {
    const std::lock_guard lock(mLock);
    const auto found = mProxies.find(proxy.id);
    // Another may have taken its place, if the peer gave the binder away again meanwhile.
    if (found != mProxies.end() && found->second == &proxy) mProxies.erase(found);
    send(FrameHeader{.type = FrameType::Release, .sequence = proxy.received, .target = proxy.id});
}

// ---- In ----

bool Connection::receive() {
    uint8_t buffer[64 * 1024];
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
    iovec part{buffer, sizeof(buffer)};
    msghdr message{nullptr, 0, &part, 1, control, sizeof(control), 0};
    const ssize_t received = recvmsg(mSocket.get(), &message, MSG_CMSG_CLOEXEC);
    if (received < 0) return errno == EINTR;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const std::span numbers(reinterpret_cast<const int*>(CMSG_DATA(header)),
                                (header->cmsg_len - CMSG_LEN(0)) / sizeof(int));
        for (const int number : numbers) mDescriptors.emplace_back(number);
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
    return result != ParseResult::Violation && mDescriptors.size() <= (rest.empty() ? 0 : kMaxDescriptors);
}

bool Connection::handle(const Frame& frame) {
    const FrameHeader& header = frame.header;
    auto parcel = std::make_shared<Parcel>();
    if (!decode(frame, *parcel)) return false;
    if (header.type == FrameType::Transaction) return onTransaction(header, std::move(parcel));
    const std::lock_guard lock(mLock);
    if (header.type == FrameType::Reply) {
        auto call = mCalls.extract(header.sequence);
        if (call) call.mapped().set_value({header.status, std::move(*parcel)});
        return !call.empty();
    }
    if (header.type == FrameType::Release) {
        const auto found = mExports.find(header.target);
        if (found == mExports.end()) return true;
        found->second.given -= std::min(found->second.given, header.sequence);
        Exports ended;
        if (found->second.given == 0) ended.insert(mExports.extract(found));
        dropOnPool(std::move(ended));
        return true;
    }
    if (header.sequence > mSent[true]) return false;
    mSent[true] -= header.sequence;
    return true;
}

// Objects may end with these references, and their destructors are foreign code: not for the reading thread.
void Connection::dropOnPool(Exports exports) {
    if (exports.empty()) return;
    post([held = std::make_shared<Exports>(std::move(exports))] {});
}

// With mLock held.
ndk::SpAIBinder Connection::binderOf(uint32_t id) const {
    const auto given = mExports.find(id);
    return given == mExports.end() ? registeredBinder(id) : given->second.binder;
}

// From a frame to a parcel of this process: ids become references. False: the peer names what it was never given.
bool Connection::decode(const Frame& frame, Parcel& parcel) {
    if (frame.descriptors > mDescriptors.size()) return false;
    parcel.bytes.assign(frame.data.begin(), frame.data.end());
    for (size_t i = 0; i < frame.header.objectCount; ++i) {
        const WireObject wire = frame.object(i);
        Object object;
        if (wire.kind == ObjectKind::Descriptor) {
            object.descriptor = std::move(mDescriptors.front());
            mDescriptors.pop_front();
        } else if (wire.kind == ObjectKind::Senders) {
            object.binder = acquire(wire.id, wire.stability);
            ++object.binder.get()->asRemote()->received;
        } else {
            const std::lock_guard lock(mLock);
            object.binder = binderOf(wire.id);
            if (object.binder.get() == nullptr) return false;
        }
        parcel.place(wire.offset, std::move(object));
    }
    return true;
}

bool Connection::onTransaction(const FrameHeader& header, std::shared_ptr<Parcel> in) {
    ndk::SpAIBinder target;
    {
        const std::lock_guard lock(mLock);
        size_t& pending = mReceived[isOneway(header)];
        pending += costOf(header.dataSize);
        // Whoever keeps the rules fails on his own side.
        if (pending > kMaxPending[isOneway(header)]) return false;
        target = binderOf(header.target);
    }
    Work work = [self = shared_from_this(), target, header, in = std::move(in)]() mutable {
        self->serve(target, header, std::move(in));
    };
    if (isOneway(header) && target.get() != nullptr) {
        postInOrder(target.get()->asLocal()->oneways, std::move(work));
    } else {
        post(std::move(work));
    }
    return true;
}

// On a thread of the pool.
void Connection::serve(const ndk::SpAIBinder& target, const FrameHeader& header, std::shared_ptr<Parcel> in) {
    AParcel out;
    AParcel parcel{std::move(in), nullptr};
    binder_status_t status = STATUS_DEAD_OBJECT;
    if (target.get() != nullptr) {
        const Section section([&] { return sectionName("serve", peer(), header, *target.get()); });
        status = target.get()->transact(header.code, parcel, out, 0);
    }

    const std::lock_guard lock(mLock);
    const size_t cost = costOf(header.dataSize);
    mReceived[isOneway(header)] -= cost;
    if (isOneway(header)) {
        mWorkedOff += cost;
        if (mWorkedOff < kWorkedOffStep) return;
        send(FrameHeader{.type = FrameType::Done, .sequence = mWorkedOff});
        mWorkedOff = 0;
        return;
    }
    if (!mOpen) return;
    FrameHeader reply{.type = FrameType::Reply, .sequence = header.sequence, .status = status};
    Outgoing frame;
    if (status == STATUS_OK && encode(reply, *out.content, frame) == STATUS_OK) {
        send(std::move(frame));
    } else {
        if (status == STATUS_OK) reply.status = STATUS_FAILED_TRANSACTION;
        send(reply);
    }
}

// The socket itself stays until nobody uses the connection: another thread may be about to poll it.
void Connection::close() {
    {
        const std::lock_guard lock(mLock);
        mOpen = false;
        shutdown(mSocket.get(), SHUT_RDWR);
        mQueue.clear();
        mQueuedBytes = 0;
        for (auto& [sequence, call] : mCalls) call.set_value({STATUS_DEAD_OBJECT, Parcel()});
        mCalls.clear();
        dropOnPool(std::exchange(mExports, {}));
    }
    announceDeath(*this);
}

}  // namespace standin
