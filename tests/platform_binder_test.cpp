// Binders of the Linux platform, inside one process and between two: transactions, names, death, limits, hostile peers.
#include <poll.h>
#include <sys/fsuid.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>

#include "platform/linux/src/Frame.h"
#include "tests/platform_peer.h"

namespace {

using namespace peer;
using namespace standin;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Where the processes of this test meet.
char folder[] = "/tmp/orvix-binder-test-XXXXXX";

class Remote : public testing::Test {
  protected:
    Service service{kName};
    ndk::SpAIBinder binder = waitFor(kName);

    Answer sendBytes(size_t size, binder_flags_t flags = 0) const {
        const std::vector<int8_t> data(size, 7);
        const auto length = static_cast<int32_t>(size);
        return call(
            binder, kEcho, [&](AParcel* p) { AParcel_writeByteArray(p, data.data(), length); }, flags);
    }
};

TEST(Binder, ChecksComeInTheDevicesOrder) {
    const ndk::SpAIBinder binder = newBinder();
    const ndk::SpAIBinder other = newBinder();
    const ndk::SpAIBinder unmarked(AIBinder_new(binderClass(), nullptr));
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
        {"not for vendors", unmarked, unmarked, kEcho, FLAG_PRIVATE_VENDOR, true, STATUS_BAD_TYPE},
        {"unmarked, not from a vendor", unmarked, unmarked, kEcho, 0, true, STATUS_OK},
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
}

TEST_F(Remote, AnswersAsALocalOneDoesExceptOneway) {
    const ndk::SpAIBinder local = newBinder();
    for (const ndk::SpAIBinder& each : {local, binder}) {
        EXPECT_EQ(STATUS_OK, call(each, kNote, words({7, 0})).status);
        EXPECT_EQ(getpid(), notesOf(each).at(0).pid);
        EXPECT_EQ(STATUS_TIMED_OUT, call(each, kAnswer, words({STATUS_TIMED_OUT})).status);
        EXPECT_EQ(STATUS_UNKNOWN_ERROR, call(each, kAnswer, words({-5})).status) << "a status that no list has";
        EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, call(each, Code{99}).status);
    }
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, call(local, Code{99}, {}, FLAG_ONEWAY).status);
    EXPECT_EQ(STATUS_OK, call(binder, Code{99}, {}, FLAG_ONEWAY).status) << "nothing of the answer is seen";
    EXPECT_EQ(STATUS_OK, call(local, kNote, words({8, 0}), FLAG_ONEWAY).status);
    EXPECT_EQ(2u, notesOf(local).size()) << "at once";
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
    const ndk::SpAIBinder unknown = call(binder, kNewBinder).binder();
    EXPECT_NE(binder, unknown);
    EXPECT_FALSE(AIBinder_associateClass(unknown.get(), other)) << "another descriptor";
    ndk::ScopedAParcel in;
    EXPECT_EQ(STATUS_INVALID_OPERATION, AIBinder_prepareTransaction(unknown.get(), in.getR())) << "no class";
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
    const ndk::SpAIBinder other = call(binder, kNewBinder).binder();
    ASSERT_TRUE(AIBinder_associateClass(other.get(), binderClass()));
    for (const ndk::SpAIBinder& each : {binder, other}) {
        EXPECT_EQ(STATUS_OK, call(each, kNote, words({1, 10'000}), FLAG_ONEWAY).status);
        EXPECT_EQ(STATUS_OK, call(each, kNote, words({2, 0}), FLAG_ONEWAY).status);
    }
    const auto start = steady_clock::now();
    EXPECT_TRUE(eventually([&] { return notesOf(binder).size() + notesOf(other).size() == 2; })) << "one in each";
    EXPECT_LT(steady_clock::now() - start, milliseconds(8000));
}

TEST(Names, BadOnesAreRefusedAtOnce) {
    const std::string tooLong(128, 'n');
    for (const char* name : {"", "a b", "ä", "a\n", tooLong.c_str(), (const char*)nullptr}) {
        EXPECT_EQ(EX_ILLEGAL_ARGUMENT, AServiceManager_addService(newBinder().get(), name));
        EXPECT_EQ(nullptr, AServiceManager_waitForService(name));
    }
}

TEST(Names, WaitingIsWokenNotPolling) {
    timespec used{};
    std::thread waiter([&] {
        EXPECT_EQ(1, call(waitFor(kName), kEcho, words({1})).word());
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    });
    std::this_thread::sleep_for(milliseconds(300));
    const Service other("test.other");
    const Service service(kName);
    waiter.join();
    EXPECT_LT(used.tv_sec * 1000 + used.tv_nsec / 1'000'000, 100);
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
    Deaths kept, unlinked, deleted, dropped;
    EXPECT_EQ(STATUS_INVALID_OPERATION, kept.link(newBinder())) << "local";
    EXPECT_EQ(STATUS_OK, kept.link(binder));
    EXPECT_EQ(STATUS_OK, kept.link(binder)) << "twice is once";
    EXPECT_EQ(STATUS_OK, unlinked.link(binder));
    EXPECT_EQ(STATUS_OK, unlinked.unlink(binder));
    EXPECT_EQ(STATUS_OK, deleted.link(binder));
    deleted.recipient.set(nullptr);
    EXPECT_EQ(STATUS_OK, dropped.link(call(binder, kNewBinder).binder())) << "its last reference ends here";

    service.signal(SIGKILL);
    ASSERT_TRUE(eventually([&] { return !AIBinder_isAlive(binder.get()); }));
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ(0, kept.died) << "no pool, no callback";
    ABinderProcess_startThreadPool();
    ASSERT_TRUE(eventually([&] { return kept.died == 1; }));
    EXPECT_EQ(STATUS_DEAD_OBJECT, kept.unlink(binder)) << "while the callback runs";
    kept.mayReturn = true;
    ASSERT_TRUE(eventually([&] { return kept.unlinked == 1; }));
    EXPECT_EQ(STATUS_NAME_NOT_FOUND, kept.unlink(binder));
    EXPECT_EQ(STATUS_DEAD_OBJECT, kept.link(binder));
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(binder, kEcho, {}, FLAG_ONEWAY).status);
    EXPECT_EQ(nullptr, AServiceManager_checkService(kName));

    const Service again(kName);
    const ndk::SpAIBinder fresh = waitFor(kName);
    EXPECT_NE(binder, fresh);
    EXPECT_EQ(1, call(fresh, kEcho, words({1})).word());
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(binder, kEcho, words({1})).status) << "the old one stays dead";
    EXPECT_EQ(1, kept.died);
    for (const Deaths* silent : {&unlinked, &deleted, &dropped}) {
        EXPECT_EQ(0, silent->died);
        EXPECT_EQ(1, silent->unlinked);
    }
}

TEST_F(Remote, ALinkToTheDeadIsToldUnlessSomebodyWas) {
    ABinderProcess_startThreadPool();
    const ndk::SpAIBinder called = call(binder, kNewBinder).binder();
    ASSERT_TRUE(AIBinder_associateClass(called.get(), binderClass()));
    service.signal(SIGKILL);
    ASSERT_TRUE(eventually([&] { return call(called, kEcho).status == STATUS_DEAD_OBJECT; }));
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
    EXPECT_EQ(1'000'000, sendBytes(1'000'000).word());
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, sendBytes(1 << 20).status);
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, sendBytes(600'000, FLAG_ONEWAY).status);
    EXPECT_EQ(STATUS_OK, call(binder, kNote, words({1, 3000}), FLAG_ONEWAY).status) << "keeps the binder busy";
    int accepted = 0;
    while (accepted < 100 && sendBytes(10'000, FLAG_ONEWAY).status == STATUS_OK) ++accepted;
    EXPECT_NEAR(50, accepted, 5) << "about 500 kB";
    EXPECT_EQ(5, call(binder, kEcho, words({5})).word()) << "two-way calls have room of their own";
    EXPECT_TRUE(eventually([&] { return sendBytes(500'000, FLAG_ONEWAY).status == STATUS_OK; }));
}

TEST_F(Remote, AStoppedPeerHoldsNobodyUp) {
    service.stop();
    const auto start = steady_clock::now();
    int accepted = 0;
    while (accepted < 1000 && sendBytes(5'000, FLAG_ONEWAY).status == STATUS_OK) ++accepted;
    EXPECT_NEAR(100, accepted, 10);
    EXPECT_EQ(binder, ndk::SpAIBinder(AServiceManager_checkService(kName)));
    std::thread caller([&] { EXPECT_EQ(900'000, sendBytes(900'000).word()); });
    EXPECT_LT(steady_clock::now() - start, milliseconds(8000));
    service.signal(SIGCONT);
    caller.join();
    EXPECT_TRUE(eventually([&] { return sendBytes(500'000, FLAG_ONEWAY).status == STATUS_OK; }));
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
    // Whether the other side closes within so many milliseconds.
    bool closes(int within) const {
        pollfd closed{fd.get(), POLLRDHUP, 0};
        return poll(&closed, 1, within) == 1;
    }
};

std::string frameOf(FrameHeader header, const std::string& data = {}, const std::vector<WireObject>& objects = {}) {
    if (header.dataSize == 0) header.dataSize = static_cast<uint32_t>(data.size());
    header.objectCount += static_cast<uint32_t>(objects.size());
    const std::string frame(reinterpret_cast<const char*>(&header), sizeof(header));
    return frame + data +
           std::string(reinterpret_cast<const char*>(objects.data()), objects.size() * sizeof(objects[0]));
}

TEST_F(Remote, BrokenFramesCloseTheConnectionAndNothingElse) {
    const std::string room(64, 'x');
    const FrameHeader call{.type = FrameType::Transaction, .sequence = 1, .target = 1, .code = kEcho};
    const FrameHeader tooLong{.type = FrameType::Transaction, .dataSize = 1 << 20};
    const FrameHeader tooMany{.type = FrameType::Transaction, .objectCount = 3};
    const struct {
        const char* what;
        std::string bytes;
        bool closes;
    } cases[] = {
        {"noise", room, true},
        {"half a header", frameOf(call).substr(0, 20), false},
        {"no such type", frameOf({.type = FrameType(9)}), true},
        {"more than a transaction holds", frameOf(tooLong), true},
        {"more objects than fit", frameOf(tooMany, room), true},
        {"object beyond the data", frameOf(call, room, {{41, ObjectKind::Senders, 1, 0}}), true},
        {"objects that overlap", frameOf(call, room, {{0, ObjectKind::Senders, 1, 0}, {23, ObjectKind::Senders, 2, 0}}),
         true},
        {"no such kind", frameOf(call, room, {{0, ObjectKind(7), 1, 0}}), true},
        {"a binder that was never given", frameOf(call, room, {{0, ObjectKind::Receivers, 1, 0}}), true},
        {"a descriptor that did not come", frameOf(call, room, {{0, ObjectKind::Descriptor, 0, 0}}), true},
        {"an answer to no question", frameOf({.type = FrameType::Reply, .sequence = 5}), true},
        {"thanks for nothing", frameOf({.type = FrameType::Done, .sequence = 100}), true},
        {"release of the unknown", frameOf({.type = FrameType::Release, .sequence = 1, .target = 77}), false},
        {"a call without a token", frameOf({.type = FrameType::Acquire, .target = 1}) + frameOf(call, room), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const RawSocket raw;
        raw.send(c.bytes);
        EXPECT_EQ(c.closes, raw.closes(c.closes ? 5000 : 50));
        EXPECT_EQ(6, peer::call(binder, kEcho, words({6})).word());
    }
}

TEST_F(Remote, OtherUsersAreRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    // The thread's own user, as the peer will see it; to the file system it stays who it was.
    syscall(SYS_setresuid, -1, 1, -1);
    setfsuid(0);
    const RawSocket raw;
    syscall(SYS_setresuid, -1, 0, -1);
    EXPECT_TRUE(raw.closes(5000));
}

TEST(Folder, MustBePrivate) {
    ASSERT_EQ(0, chmod(folder, 0750));
    EXPECT_EQ(EX_ILLEGAL_STATE, AServiceManager_addService(newBinder().get(), "a"));
    EXPECT_EQ(nullptr, AServiceManager_waitForService("a"));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "--peer") return peer::serve(argv[2]);
    testing::InitGoogleTest(&argc, argv);
    if (mkdtemp(folder) == nullptr) return 2;
    setenv("ORVIX_BINDER_DIR", folder, 1);
    // What a peer is reported for must be seen, though it is killed later.
    setenv("TSAN_OPTIONS", "halt_on_error=1", 0);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}
