// Binders of the Linux platform, inside one process and between two: transactions, names, death, limits, hostile peers.
#include <android/log.h>
#include <android/multinetwork.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <filesystem>

#include "platform/linux/src/Frame.h"
#include "tests/platform_peer.h"

namespace {

using namespace peer;
using namespace standin;
using std::chrono::steady_clock;

// Where the processes of this test meet.
char folder[] = "/tmp/orvix-binder-test-XXXXXX";

int lowestFree() { return ndk::ScopedFileDescriptor(dup(STDIN_FILENO)).get(); }

Writer bytes(size_t size) {
    return [=](AParcel* parcel) {
        AParcel_writeByteArray(parcel, std::vector<int8_t>(size, 7).data(), static_cast<int32_t>(size));
    };
}

class Remote : public testing::Test {
  protected:
    orvix_test::Process service{{"--peer"}};
    const int lowest = lowestFree();
    ndk::SpAIBinder binder = waitFor(kName);

    void TearDown() override { EXPECT_EQ(lowest, lowestFree()) << "descriptors of the platform have high numbers"; }

    ndk::SpAIBinder another(bool marked = true) const {
        ndk::SpAIBinder made = call(binder, kNewBinder, words({marked})).binder();
        EXPECT_TRUE(AIBinder_associateClass(made.get(), binderClass()));
        return made;
    }
};

TEST(Binder, ChecksComeInTheDevicesOrder) {
    const ndk::SpAIBinder binder = newBinder();
    const ndk::SpAIBinder other = newBinder();
    const ndk::SpAIBinder none;
    const struct {
        const char* what;
        const ndk::SpAIBinder& prepared;
        const ndk::SpAIBinder& called;
        transaction_code_t code;
        binder_flags_t flags;
        bool withOut;
        binder_status_t status;
    } cases[] = {
        {"all flags", binder, binder, kEcho, 0x10000021, true, STATUS_OK},
        {"code 0, and all else wrong", binder, none, 0, 2, false, STATUS_UNKNOWN_TRANSACTION},
        {"code too high", binder, binder, 0x01000000, 0, true, STATUS_UNKNOWN_TRANSACTION},
        {"unknown flag, and the rest wrong", binder, none, kEcho, 2, false, STATUS_BAD_VALUE},
        {"no binder", binder, none, kEcho, 0, true, STATUS_UNEXPECTED_NULL},
        {"no place for the answer", other, binder, kEcho, 0, false, STATUS_UNEXPECTED_NULL},
        {"prepared for another", other, binder, kEcho, 0, true, STATUS_BAD_VALUE},
        {"code that nobody knows", binder, binder, 99, 0, true, STATUS_UNKNOWN_TRANSACTION},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        AParcel* in = nullptr;
        ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(c.prepared.get(), &in));
        ndk::ScopedAParcel out;
        EXPECT_EQ(c.status, AIBinder_transact(c.called.get(), c.code, &in, c.withOut ? out.getR() : nullptr, c.flags));
        EXPECT_EQ(nullptr, in);
        EXPECT_EQ(c.status == STATUS_OK, out.get() != nullptr);
    }
    ndk::ScopedAParcel out;
    AParcel* nothing = nullptr;
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_transact(binder.get(), kEcho, &nothing, out.getR(), 0));
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_prepareTransaction(nullptr, &nothing));
    EXPECT_DEATH(AIBinder_markVintfStability(nullptr), "");
}

TEST_F(Remote, AnswersAsALocalOneDoesExceptOneway) {
    const ndk::SpAIBinder local = newBinder();
    for (const ndk::SpAIBinder& each : {local, binder}) {
        EXPECT_EQ(STATUS_OK, call(each, kNote, words({7, 0})).status);
        EXPECT_EQ(getpid(), notesOf(each).at(0).pid);
        EXPECT_EQ(STATUS_TIMED_OUT, call(each, kAnswer, words({STATUS_TIMED_OUT})).status);
        EXPECT_EQ(STATUS_UNKNOWN_ERROR, call(each, kAnswer, words({-5})).status) << "a status that no list has";
        EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, call(each, Code{99}).status);
        int ends[2];
        ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
        const ndk::ScopedFileDescriptor out(ends[0]), in(ends[1]);
        const char* args[] = {"some", "text"};
        EXPECT_EQ(STATUS_OK, AIBinder_dump(each.get(), in.get(), args, 2));
        char said[9] = {};
        EXPECT_EQ(8, read(out.get(), said, 8));
        EXPECT_STREQ("sometext", said);
    }
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, call(local, Code{99}, {}, FLAG_ONEWAY).status);
    EXPECT_EQ(STATUS_OK, call(binder, Code{99}, {}, FLAG_ONEWAY).status) << "nothing of the answer is seen";
    EXPECT_EQ(STATUS_OK, call(local, kNote, words({8, 0}), FLAG_ONEWAY).status);
    EXPECT_EQ(2u, notesOf(local).size()) << "at once";

    const ndk::SpAIBinder other = another();
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(other, kAnswer, words({STATUS_DEAD_OBJECT})).status);
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(other, kEcho, words({1})).status) << "for good";
    EXPECT_FALSE(AIBinder_isAlive(other.get()));
    EXPECT_EQ(1, call(binder, kEcho, words({1})).word()) << "nobody else";
}

TEST_F(Remote, EveryWordOfTheTokenIsCheckedButTheFirstTwo) {
    ndk::ScopedAParcel token;
    ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(binder.get(), token.getR()));
    const int32_t size = AParcel_getDataSize(token.get());
    const ndk::SpAIBinder local = newBinder();
    for (int32_t at = 0; at < size; at += 4) {
        const auto spoil = [=](AParcel* p) {
            AParcel_setDataPosition(p, at);
            AParcel_writeInt32(p, 0x5a5a);
            AParcel_setDataPosition(p, size);
        };
        const binder_status_t status = at < 8 ? STATUS_OK : STATUS_BAD_TYPE;  // policy and work source may be anything
        EXPECT_EQ(status, call(local, kEcho, spoil).status) << at;
        EXPECT_EQ(status, call(binder, kEcho, spoil).status) << at;
    }
}

TEST_F(Remote, IsOneObjectAndOneClass) {
    EXPECT_EQ(binder, ndk::SpAIBinder(AServiceManager_checkService(kName)));
    static AIBinder_Class* const other = AIBinder_Class_define(
        "test.IOther", [](void* args) { return args; }, [](void*) {},
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) { return binder_status_t{STATUS_OK}; });
    EXPECT_FALSE(AIBinder_associateClass(binder.get(), other)) << "it has a class";
    EXPECT_EQ(binderClass(), AIBinder_getClass(binder.get()));
    const ndk::SpAIBinder unknown = call(binder, kNewBinder, words({1})).binder();
    EXPECT_NE(binder, unknown);
    EXPECT_FALSE(AIBinder_associateClass(unknown.get(), other)) << "another descriptor";
    ndk::ScopedAParcel in;
    EXPECT_EQ(STATUS_INVALID_OPERATION, AIBinder_prepareTransaction(unknown.get(), in.getR())) << "no class";
}

TEST_F(Remote, OnlyAMarkAllowsVendorsToCall) {
    const struct {
        const char* what;
        ndk::SpAIBinder binder;
        binder_status_t status;
    } cases[] = {
        {"local", newBinder(), STATUS_OK},
        {"local, unmarked", newBinder(false), STATUS_BAD_TYPE},
        {"by name", binder, STATUS_OK},
        {"by name, unmarked", waitFor(kUnmarked), STATUS_BAD_TYPE},
        {"in a parcel", another(true), STATUS_OK},
        {"in a parcel, unmarked", another(false), STATUS_BAD_TYPE},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.status, call(c.binder, kEcho, {}, FLAG_PRIVATE_VENDOR).status) << c.what;
        EXPECT_EQ(STATUS_OK, call(c.binder, kEcho).status) << c.what;
    }
}

TEST_F(Remote, ForgetsWhatNobodyHolds) {
    ABinderProcess_startThreadPool();
    for (int round = 0; round < 100; ++round) {
        const ndk::SpAIBinder mine = newBinder();
        const auto give = [&](AParcel* p) { AParcel_writeStrongBinder(p, mine.get()); };
        ASSERT_EQ(STATUS_OK, call(binder, kHold, give, round % 2 == 0 ? binder_flags_t{FLAG_ONEWAY} : 0).status);
        ASSERT_TRUE(eventually([&] { return call(binder, kGiveBack).binder() == mine; }));
    }
    EXPECT_TRUE(eventually([] { return living == 1; })) << "only the last one is held: " << living;
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(binder, kDie).status) << "a call under way ends with its peer";
    EXPECT_TRUE(eventually([] { return living == 0; })) << "and so does what the peer held";
}

TEST_F(Remote, OnewayCallsKeepTheirOrderOneAtATime) {
    constexpr int kCalls = 5000;
    for (int i = 0; i < kCalls; ++i) {
        // The limit of what may be waiting is for the sender to mind.
        ASSERT_TRUE(eventually([&] { return call(binder, kNote, words({i, 0}), FLAG_ONEWAY).status == STATUS_OK; }));
    }
    std::vector<Note> notes;
    ASSERT_TRUE(eventually([&] { return (notes = notesOf(binder)).size() == kCalls; }));
    for (int i = 0; i < kCalls; ++i) {
        const Note& note = notes[static_cast<size_t>(i)];
        ASSERT_EQ(i, note.number);
        ASSERT_EQ(1, note.underWay);
        ASSERT_EQ(0, note.pid) << "nobody waits for the answer";
    }
}

TEST_F(Remote, TwoBindersRunInParallelAndTwoWayCallsOvertake) {
    const ndk::SpAIBinder other = another();
    for (const ndk::SpAIBinder& each : {binder, other}) {
        EXPECT_EQ(STATUS_OK, call(each, kNote, words({1, 10'000}), FLAG_ONEWAY).status);
        EXPECT_EQ(STATUS_OK, call(each, kNote, words({2, 0}), FLAG_ONEWAY).status);
    }
    const auto start = steady_clock::now();
    EXPECT_TRUE(eventually([&] { return notesOf(binder).size() + notesOf(other).size() == 2; })) << "one in each";
    EXPECT_LT(steady_clock::now() - start, milliseconds(8000));
}

// How many lines with this text have been logged since the last question.
int logged(const char* text) {
    static std::mutex lock;
    static std::vector<std::string> lines;
    const std::lock_guard guard(lock);
    __android_log_set_logger([](const __android_log_message* message) {
        const std::lock_guard again(lock);
        lines.emplace_back(message->message);
    });
    return static_cast<int>(std::erase_if(lines, [&](const auto& line) { return line.find(text) != line.npos; }));
}

TEST(Names, BadOnesAreRefusedAtOnce) {
    const std::string tooLong(128, 'n');
    for (const char* name : {"", "a b", "ä", "a\n", tooLong.c_str(), (const char*)nullptr}) {
        EXPECT_EQ(EX_ILLEGAL_ARGUMENT, AServiceManager_addService(newBinder().get(), name));
        EXPECT_EQ(nullptr, AServiceManager_waitForService(name));
    }
}

TEST(Names, WaitingIsWokenNotPolling) {
    const ndk::SpAIBinder late = newBinder();
    constexpr const char* kLine = "Waited one second for test.late";
    logged(kLine);
    rusage used{};
    std::thread waiter([&] {
        EXPECT_EQ(late, ndk::SpAIBinder(AServiceManager_waitForService("test.late")));
        getrusage(RUSAGE_THREAD, &used);
    });
    ASSERT_TRUE(eventually([&] { return logged(kLine) == 1; }));
    EXPECT_EQ(EX_NONE, AServiceManager_addService(late.get(), "test.late"));
    waiter.join();
    EXPECT_EQ(0, logged(kLine)) << "before the second is over";
    EXPECT_LT(used.ru_nvcsw, 10);
}

// What a recipient of deaths has seen; the cookie of its links.
struct Deaths {
    std::atomic<int> died{0};
    std::atomic<int> unlinked{0};
    std::atomic<bool> mayReturn{false};
    ndk::ScopedAIBinder_DeathRecipient recipient{AIBinder_DeathRecipient_new([](void* cookie) {
        auto& self = *static_cast<Deaths*>(cookie);
        ++self.died;
        eventually([&] { return self.mayReturn.load(); });
    })};

    Deaths() {
        AIBinder_DeathRecipient_setOnUnlinked(recipient.get(),
                                              [](void* cookie) { ++static_cast<Deaths*>(cookie)->unlinked; });
    }
    auto link(const ndk::SpAIBinder& binder) { return AIBinder_linkToDeath(binder.get(), recipient.get(), this); }
    auto unlink(const ndk::SpAIBinder& binder) { return AIBinder_unlinkToDeath(binder.get(), recipient.get(), this); }
};

TEST_F(Remote, DeathIsToldOnceAndTheNameFreed) {
    logged("");
    Deaths kept, refused, unlinked, deleted, dropped, silent;
    EXPECT_EQ(STATUS_INVALID_OPERATION, refused.link(newBinder())) << "local";
    EXPECT_EQ(1, refused.unlinked);
    EXPECT_EQ(STATUS_OK, kept.link(binder));
    EXPECT_EQ(STATUS_OK, kept.link(binder)) << "twice is once";
    EXPECT_EQ(STATUS_OK, unlinked.link(binder));
    EXPECT_EQ(STATUS_OK, unlinked.unlink(binder));
    EXPECT_EQ(STATUS_OK, deleted.link(binder));
    deleted.recipient.set(nullptr);
    EXPECT_EQ(STATUS_OK, dropped.link(another())) << "its last reference ends here";
    EXPECT_EQ(0, logged("non-null cookie and no onUnlink callback set"));
    AIBinder_DeathRecipient_setOnUnlinked(silent.recipient.get(), nullptr);
    EXPECT_EQ(STATUS_OK, silent.link(another()));
    EXPECT_EQ(1, logged("non-null cookie and no onUnlink callback set"));

    service.kill();
    EXPECT_EQ(nullptr, AServiceManager_checkService(kName)) << "at once";
    EXPECT_TRUE(AIBinder_isAlive(binder.get())) << "nobody has tried";
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(0, kept.died) << "no pool, no callback";
    ABinderProcess_startThreadPool();
    ASSERT_TRUE(eventually([&] { return kept.died == 1; }));
    EXPECT_FALSE(AIBinder_isAlive(binder.get()));
    EXPECT_EQ(STATUS_DEAD_OBJECT, kept.unlink(binder)) << "while the callback runs";
    EXPECT_EQ(1, logged("unlink failed: DEAD_OBJECT"));
    kept.mayReturn = true;
    ASSERT_TRUE(eventually([&] { return kept.unlinked == 1; }));
    EXPECT_EQ(STATUS_NAME_NOT_FOUND, kept.unlink(binder));
    EXPECT_EQ(STATUS_DEAD_OBJECT, refused.link(binder));
    EXPECT_EQ(2, refused.unlinked);
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(binder, kEcho, {}, FLAG_ONEWAY).status);

    const orvix_test::Process again({"--peer"});
    const ndk::SpAIBinder fresh = waitFor(kName);
    EXPECT_NE(binder, fresh);
    EXPECT_EQ(1, call(fresh, kEcho, words({1})).word());
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(binder, kEcho, words({1})).status) << "the old one stays dead";
    EXPECT_EQ(1, kept.died);
    for (const Deaths* each : {&unlinked, &deleted, &dropped}) {
        EXPECT_EQ(0, each->died);
        EXPECT_EQ(1, each->unlinked);
    }
}

TEST_F(Remote, ALinkToTheDeadIsToldUnlessSomebodyWas) {
    ABinderProcess_startThreadPool();
    const ndk::SpAIBinder called = another();
    service.kill();
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(called, kEcho).status);
    EXPECT_FALSE(AIBinder_isAlive(called.get()));
    for (const ndk::SpAIBinder& each : {binder, called}) {  // nobody has noticed; a call has failed
        Deaths late, refused;
        late.mayReturn = true;
        EXPECT_EQ(STATUS_OK, late.link(each));
        EXPECT_TRUE(eventually([&] { return late.unlinked == 1; }));
        EXPECT_EQ(1, late.died);
        EXPECT_EQ(STATUS_DEAD_OBJECT, refused.link(each));
    }
}

TEST_F(Remote, ThePoolWorksWhileTheProcessEnds) {
    EXPECT_EQ(STATUS_OK, call(binder, kEnd).status) << "begun before";
    EXPECT_EQ(STATUS_OK, call(binder, kNote, words({1, 0})).status) << "begun while destructors run";
}

TEST_F(Remote, OneTransactionAndWhatWaitsAreLimited) {
    ndk::ScopedAParcel token;
    ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(binder.get(), token.getR()));
    const size_t around = static_cast<size_t>(AParcel_getDataSize(token.get())) + sizeof(int32_t);
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, call(binder, kEcho, bytes(kMaxOneway - around + 4), FLAG_ONEWAY).status);
    EXPECT_EQ(STATUS_OK, call(binder, kEcho, bytes(kMaxOneway - around), FLAG_ONEWAY).status);
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, call(binder, kEcho, bytes(kMaxTransaction - around + 4)).status);
    EXPECT_EQ(STATUS_OK, call(binder, kEcho, bytes(kMaxTransaction - around)).status);
    EXPECT_EQ(STATUS_OK, call(binder, kFill, words({kMaxTransaction - 4})).status) << "the answer";
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, call(binder, kFill, words({kMaxTransaction})).status);

    EXPECT_TRUE(eventually([&] { return call(binder, kEcho, bytes(500'000), FLAG_ONEWAY).status == STATUS_OK; }));
    EXPECT_EQ(STATUS_OK, call(binder, kNote, words({1, 1000}), FLAG_ONEWAY).status) << "keeps the binder busy";
    std::thread other([&] {
        EXPECT_EQ(STATUS_OK, call(binder, kNote, [](AParcel* p) {
                                 words({2, 1000})(p);
                                 bytes(600'000)(p);
                             }).status);
    });
    ASSERT_TRUE(eventually([&] { return notesOf(binder).size() == 2; }));
    int accepted = 0;
    while (accepted < 100 && call(binder, kEcho, bytes(10'000), FLAG_ONEWAY).status == STATUS_OK) ++accepted;
    EXPECT_NEAR(50, accepted, 5) << "about 500 kB";
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, call(binder, kEcho, bytes(600'000)).status) << "beside the other";
    EXPECT_EQ(5, call(binder, kEcho, words({5})).word()) << "two-way calls have room of their own";
    other.join();
}

TEST_F(Remote, AStoppedPeerHoldsNobodyUp) {
    service.stop();
    const auto start = steady_clock::now();
    int accepted = 0;
    while (accepted < 1000 && call(binder, kEcho, bytes(5'000), FLAG_ONEWAY).status == STATUS_OK) ++accepted;
    EXPECT_NEAR(100, accepted, 10);
    EXPECT_EQ(binder, ndk::SpAIBinder(AServiceManager_checkService(kName)));
    std::thread caller([&] { EXPECT_EQ(900'000, call(binder, kEcho, bytes(900'000)).word()); });
    EXPECT_LT(steady_clock::now() - start, milliseconds(8000));
    service.signal(SIGCONT);
    caller.join();
    EXPECT_TRUE(eventually([&] { return call(binder, kEcho, bytes(500'000), FLAG_ONEWAY).status == STATUS_OK; }));
}

struct RawSocket {
    const ndk::ScopedFileDescriptor fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};

    // To the only process that listens in the folder.
    RawSocket() {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (!entry.path().filename().string().starts_with("p-")) continue;
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            std::strncpy(address.sun_path, entry.path().c_str(), sizeof(address.sun_path) - 1);
            EXPECT_EQ(0, connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
        }
    }

    void send(const std::string& text) const { ::send(fd.get(), text.data(), text.size(), MSG_NOSIGNAL); }
    void sendWithDescriptor(const std::string& text) const {
        iovec part{const_cast<char*>(text.data()), text.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
        msghdr message{nullptr, 0, &part, 1, control, sizeof(control), 0};
        *CMSG_FIRSTHDR(&message) = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        sendmsg(fd.get(), &message, MSG_NOSIGNAL);
    }
    // Whether the other side closes within ten seconds.
    bool closes() const {
        pollfd closed{fd.get(), POLLRDHUP, 0};
        return poll(&closed, 1, 10'000) == 1;
    }
};

constexpr int kCloses = 1;
constexpr int kSilent = 2;

// The status of the answer, or one of these.
int reactionOf(const RawSocket& raw, int expected) {
    FrameHeader header;
    pollfd ready{raw.fd.get(), POLLIN, 0};
    if (poll(&ready, 1, expected == kSilent ? 50 : 10'000) == 0) return kSilent;
    return recv(raw.fd.get(), &header, sizeof(header), MSG_WAITALL) == sizeof(header) ? header.status : kCloses;
}

std::string frameOf(FrameHeader header, const std::string& data = {}, const std::vector<WireObject>& objects = {}) {
    if (header.dataSize == 0) header.dataSize = static_cast<uint32_t>(data.size());
    header.objectCount += static_cast<uint32_t>(objects.size());
    const std::string frame(reinterpret_cast<const char*>(&header), sizeof(header));
    return frame + data +
           std::string(reinterpret_cast<const char*>(objects.data()), objects.size() * sizeof(objects[0]));
}

// The arguments of a call, behind their token.
std::string dataOf(const Writer& write) {
    ndk::ScopedAParcel parcel;
    EXPECT_EQ(STATUS_OK, AIBinder_prepareTransaction(newBinder().get(), parcel.getR()));
    write(parcel.get());
    std::string data(static_cast<size_t>(AParcel_getDataSize(parcel.get())), '\0');
    EXPECT_EQ(STATUS_OK, AParcel_marshal(parcel.get(), reinterpret_cast<uint8_t*>(data.data()), 0, data.size()));
    return data;
}

TEST_F(Remote, BrokenFramesCloseTheConnectionAndNothingElse) {
    using enum FrameType;
    using enum ObjectKind;
    const std::string room(64, 'x');
    const std::string acquire = frameOf({.type = Acquire, .target = 2});
    const FrameHeader call{.type = Transaction, .sequence = 1, .target = 2, .code = kEcho};
    const FrameHeader reserved{.type = Transaction, .sequence = 1, .target = 2, .code = LAST_CALL_TRANSACTION + 1};
    const FrameHeader longest{.type = Transaction, .dataSize = kMaxTransaction};
    const FrameHeader tooLong{.type = Transaction, .dataSize = kMaxTransaction + 1};
    const FrameHeader tooMany{.type = Transaction, .objectCount = 3};
    const FrameHeader oneway{.type = Transaction, .target = 2, .code = kEcho};
    const struct {
        const char* what;
        std::string bytes;
        int reaction;
        bool descriptor = false;
    } cases[] = {
        {"noise", room, kCloses},
        {"half a header", frameOf(call).substr(0, 20), kSilent},
        {"no such type", frameOf({.type = FrameType(9)}), kCloses},
        {"as much as a transaction holds", frameOf(longest), kSilent},
        {"more", frameOf(tooLong), kCloses},
        {"as much as may wait one-way", frameOf(oneway, std::string(kMaxOneway, 'x')), STATUS_OK},
        {"more", frameOf(oneway, std::string(kMaxOneway + 1, 'x')), kCloses},
        {"more objects than fit", frameOf(tooMany, room), kCloses},
        {"object beyond the data", frameOf(call, room, {{41, Senders, 1, 0}}), kCloses},
        {"objects that overlap", frameOf(call, room, {{0, Senders, 1, 0}, {23, Senders, 2, 0}}), kCloses},
        {"no such kind", frameOf(call, room, {{0, ObjectKind(7), 1, 0}}), kCloses},
        {"a binder that was never given", frameOf(call, room, {{0, Receivers, 1, 0}}), kCloses},
        {"a descriptor that did not come", frameOf(call, room, {{0, Descriptor, 0, 0}}), kCloses},
        {"a descriptor of no object", frameOf({.type = Release}), kCloses, true},
        {"an answer to no question", frameOf({.type = Reply, .sequence = 5}), kCloses},
        {"thanks for nothing", frameOf({.type = Done, .sequence = 100}), kCloses},
        {"release of the unknown", frameOf({.type = Release, .sequence = 1, .target = 77}), kSilent},
        {"a call to nobody", frameOf(call, room), STATUS_DEAD_OBJECT},
        {"a call without a token", acquire + frameOf(call, room), STATUS_BAD_TYPE},
        {"a code beyond the users'", acquire + frameOf(reserved, dataOf(words({}))), STATUS_UNKNOWN_TRANSACTION},
        {"a good call", acquire + frameOf(call, dataOf(words({1}))), STATUS_OK},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const RawSocket raw;
        c.descriptor ? raw.sendWithDescriptor(c.bytes) : raw.send(c.bytes);
        EXPECT_EQ(c.reaction, reactionOf(raw, c.reaction));
        EXPECT_EQ(6, peer::call(binder, kEcho, words({6})).word());
    }

    const RawSocket deaf;
    deaf.send(acquire);
    const FrameHeader fill{.type = Transaction, .sequence = 1, .target = 2, .code = kFill};
    for (int i = 0; i < 60; ++i) deaf.send(frameOf(fill, dataOf(words({500'000}))));
    EXPECT_TRUE(deaf.closes()) << "answers that nobody reads are kept up to a limit";
}

TEST_F(Remote, OtherUsersAreRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    // The thread's own user, as the peer will see it; to the file system it stays who it was.
    syscall(SYS_setresuid, -1, 1, -1);
    setfsuid(0);
    const RawSocket raw;
    syscall(SYS_setresuid, -1, 0, -1);
    EXPECT_TRUE(raw.closes());
}

TEST(Folder, MustBePrivate) {
    ASSERT_EQ(0, chmod(folder, 0750));
    EXPECT_EQ(EX_ILLEGAL_STATE, AServiceManager_addService(newBinder().get(), "a"));
    EXPECT_EQ(nullptr, AServiceManager_waitForService("a"));
}

TEST(NetTag, TakesSocketsOnly) {
    const ndk::ScopedFileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    for (const auto& [fd, answer] : {std::pair{socket.get(), 0}, {STDERR_FILENO, -ENOTSOCK}, {999, -EBADF}}) {
        EXPECT_EQ(answer, android_tag_socket_with_uid(fd, 1, 1)) << fd;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]) == "--peer") return peer::serve();
    testing::InitGoogleTest(&argc, argv);
    if (mkdtemp(folder) == nullptr) return 2;
    setenv("ORVIX_BINDER_DIR", folder, 1);
    // What a peer is reported for must be seen, though it is killed later.
    setenv("TSAN_OPTIONS", "halt_on_error=1", 0);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}
