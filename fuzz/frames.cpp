// A hostile peer at the other end of a connection of the Linux platform: broken frames, good frames with wrong ids and
// objects, descriptors, answers to questions. Whatever it says, the connection goes on or closes; what it is told in
// return is well-formed; and afterwards nothing is left of it, no descriptor either.

#include "platform/linux/src/Frame.h"

#include <android/log.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <deque>
#include <filesystem>
#include <thread>

#include "fuzz/Fuzz.h"
#include "platform/linux/src/Transport.h"

namespace fuzz {
namespace {

using standin::Connection;
using standin::FrameHeader;
using standin::FrameType;
using standin::WireObject;

// Without pipes: the fuzzer's symbolizer has some, sooner or later.
size_t openDescriptors() {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        count += !std::filesystem::read_symlink(entry.path(), gone).string().starts_with("pipe:");
    }
    return count;
}

// What the platform has posted to its pool. The fuzzer is the pool, so that everything happens in one order.
std::deque<standin::Work>& posted() {
    static auto* const queue = new std::deque<standin::Work>;
    return *queue;
}
void work() {
    while (!posted().empty()) {
        const standin::Work item = std::move(posted().front());
        posted().pop_front();
        item();
    }
}

// The object that the peer calls: takes what it is sent and answers the same.
binder_status_t handle(AIBinder*, transaction_code_t code, const AParcel* in, AParcel* out) {
    ndk::SpAIBinder binder;
    ndk::ScopedFileDescriptor descriptor;
    if (code == 1) return AParcel_readStrongBinder(in, binder.getR());
    if (code == 2) return AParcel_readParcelFileDescriptor(in, descriptor.getR());
    for (const uint8_t byte : wordsOf(in)) AParcel_writeInt32(out, byte);
    if (code == 3 && AParcel_readStrongBinder(in, binder.getR()) == STATUS_OK)
        AParcel_writeStrongBinder(out, binder.get());
    return STATUS_OK;
}

ndk::SpAIBinder newObject() {
    static const AIBinder_Class* const own = AIBinder_Class_define(
        "test.IPeer", [](void* args) { return args; }, [](void*) {}, handle);
    return ndk::SpAIBinder(AIBinder_new(own, nullptr));
}

class Peer {
  public:
    Peer() {
        int ends[2];
        invariant(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) == 0, "there are sockets");
        mine.set(ends[0]);
        connection = std::make_shared<Connection>(ndk::ScopedFileDescriptor(ends[1]));
    }

    // Tells the peer of an object, as an argument of a call.
    void giveAway(const ndk::SpAIBinder& object) {
        const ndk::SpAIBinder proxy = connection->acquire(1, standin::kVintfStability);
        standin::Parcel in, out;
        in.writeBinder(object.get());
        connection->transact(*proxy.get()->asRemote(), 1, in, out, true);
    }

    void say(const Bytes& bytes, size_t descriptors) {
        iovec part{const_cast<uint8_t*>(bytes.data()), bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        alignas(cmsghdr) char control[CMSG_SPACE(4 * sizeof(int))] = {};
        if (descriptors > 0) {
            message.msg_control = control;
            message.msg_controllen = CMSG_SPACE(descriptors * sizeof(int));
            cmsghdr* header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(descriptors * sizeof(int));
            for (size_t i = 0; i < descriptors; ++i) {
                const int number = STDIN_FILENO;
                std::memcpy(CMSG_DATA(header) + i * sizeof(int), &number, sizeof(number));
            }
        }
        if (!bytes.empty()) (void)sendmsg(mine.get(), &message, MSG_NOSIGNAL);
    }

    // The connection reads all that was said. False: it does not want to go on.
    bool isHeard() const {
        pollfd readable{connection->socket(), POLLIN, 0};
        while (poll(&readable, 1, 0) > 0) {
            if (!connection->receive()) return false;
            work();
        }
        return true;
    }

    // What the connection says has to be frames.
    void listen() {
        uint8_t buffer[4096];
        for (ssize_t size; (size = read(mine.get(), buffer, sizeof(buffer))) > 0;) {
            heard.insert(heard.end(), buffer, buffer + size);
        }
        standin::Frame frame;
        std::span<const uint8_t> rest(heard);
        standin::ParseResult result;
        while ((result = standin::parseFrame(rest, frame)) == standin::ParseResult::Complete) {
            rest = rest.subspan(frame.size());
        }
        invariant(result == standin::ParseResult::Incomplete, "what it says is well-formed");
        heard.erase(heard.begin(), heard.end() - static_cast<ptrdiff_t>(rest.size()));
    }

    void waitUntilHeard() {
        pollfd readable{mine.get(), POLLIN, 0};
        int ready = -1;
        while ((ready = poll(&readable, 1, 5000)) < 0 && errno == EINTR) {  // the fuzzer's own alarm
        }
        invariant(ready == 1, "a call is sent");
    }

    void end() {
        connection->close();
        work();
        invariant(connection.use_count() == 1, "nothing is left of a peer that has gone");
        listen();
    }

    std::shared_ptr<Connection> connection;

  private:
    ndk::ScopedFileDescriptor mine;
    Bytes heard;
};

void append(Bytes& bytes, const auto& value) {
    const auto* from = reinterpret_cast<const uint8_t*>(&value);
    bytes.insert(bytes.end(), from, from + sizeof(value));
}

// A frame that holds together, but for what the input says about its objects and ids. `known` is an id that the peer
// was given.
Bytes frameOf(FuzzedDataProvider& input, uint32_t known, size_t& descriptors) {
    FrameHeader header{.type = FrameType(input.ConsumeIntegralInRange<uint32_t>(1, 4))};
    header.sequence = input.ConsumeIntegralInRange<uint64_t>(0, 3);
    header.target = input.ConsumeBool() ? known : input.ConsumeIntegralInRange<uint32_t>(0, 4);
    header.code = input.ConsumeIntegralInRange<uint32_t>(0, 4);
    const size_t count = input.ConsumeIntegralInRange<uint8_t>(0, 3);
    const uint8_t words = input.ConsumeIntegralInRange<uint8_t>(0, 40);
    std::vector<WireObject> table;
    descriptors = 0;
    for (size_t i = 0; i < count; ++i) {
        WireObject object{input.ConsumeIntegralInRange<uint8_t>(0, 50) * 4u,
                          standin::ObjectKind(input.ConsumeIntegralInRange<uint32_t>(1, 3)), 0,
                          standin::kVintfStability};
        object.id = input.ConsumeBool() ? known : input.ConsumeIntegralInRange<uint32_t>(0, 4);
        if (object.kind == standin::ObjectKind::Descriptor) ++descriptors;
        table.push_back(object);
    }
    Bytes data = {0, 0, 0, 0, 0, 0, 0, 0};
    if (input.ConsumeBool()) {  // a token that the object takes
        const ndk::ScopedAParcel name = newParcel();
        AParcel_writeString(name.get(), "test.IPeer", 10);
        append(data, uint32_t{0x53595354});
        const Bytes text = wordsOf(name.get());
        data.insert(data.end(), text.begin(), text.end());
    }
    const Bytes more = input.ConsumeBytes<uint8_t>(words * 4u);
    data.insert(data.end(), more.begin(), more.end());
    if (header.type != FrameType::Transaction && header.type != FrameType::Reply) data.clear();
    header.dataSize = static_cast<uint32_t>(data.size());
    header.objectCount = static_cast<uint32_t>(table.size());
    Bytes bytes;
    append(bytes, header);
    bytes.insert(bytes.end(), data.begin(), data.end());
    for (const WireObject& object : table) append(bytes, object);
    return bytes;
}

void play(FuzzedDataProvider& input) {
    const ndk::SpAIBinder object = newObject();
    Peer peer;
    peer.giveAway(object);
    const uint32_t known = standin::idOf(*object.get()->asLocal());
    peer.listen();
    // Somebody waits for an answer, which the peer may give, or not.
    std::thread asking;
    if (input.ConsumeIntegralInRange<uint8_t>(0, 3) == 0) {
        const ndk::SpAIBinder proxy = peer.connection->acquire(2, standin::kVintfStability);
        peer.listen();
        asking = std::thread([proxy, connection = peer.connection.get()] {
            standin::Parcel in, out;
            connection->transact(*proxy.get()->asRemote(), 1, in, out, false);
        });
        peer.waitUntilHeard();
    }
    bool open = true;
    for (int i = 0; i < 20 && open && input.remaining_bytes() > 0; ++i) {
        size_t descriptors = 0;
        Bytes bytes;
        if (input.ConsumeIntegralInRange<uint8_t>(0, 7) == 0) {
            descriptors = input.ConsumeIntegralInRange<uint8_t>(0, 4);
            bytes = input.ConsumeBytes<uint8_t>(input.ConsumeIntegral<uint8_t>());
        } else {
            bytes = frameOf(input, known, descriptors);
        }
        peer.say(bytes, descriptors);
        open = peer.isHeard();
        peer.listen();
    }
    peer.connection->close();
    if (asking.joinable()) asking.join();
    peer.end();
}

}  // namespace
}  // namespace fuzz

namespace standin {

void post(Work work) { fuzz::posted().push_back(std::move(work)); }
void postInOrder(OnewayQueue&, Work work) { post(std::move(work)); }

}  // namespace standin

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzz;
    static const bool started = [] {
        __android_log_set_logger([](const __android_log_message*) {});
        return true;
    }();
    static size_t inputs = 0, before = 0;
    FuzzedDataProvider input(data, size);
    invariant(started, "the platform starts");
    play(input);
    if (++inputs == 64) before = openDescriptors();
    if (inputs % 1024 == 0) invariant(openDescriptors() <= before, "no descriptor is left");
    return 0;
}
