// Binders of the Linux platform, inside one process and between two: transactions, names, death, limits, hostile peers.
// The second process is this program again, as a service that does what it is asked.
#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/binder_stability.h>
#include <android/log.h>
#include <android/multinetwork.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/fsuid.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "platform/linux/src/Frame.h"
#include "tests/process.h"

namespace {

using namespace standin;
using orvix_test::patience;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// ---- The service, and what both sides need ----

constexpr const char* kName = "test.IPeer/default";
constexpr const char* kUnmarked = "test.IPeer/unmarked";  // beside it, without the VINTF mark

// What a peer can be asked. Arguments and answers are int32 unless said otherwise.
enum Code : transaction_code_t {
    kEcho = 1,   // answers the argument
    kNote,       // notes (number, milliseconds to take over it)
    kNotes,      // answers for each note: number, and how many were under way with it
    kHold,       // holds the strong binder
    kGiveBack,   // answers the held strong binder
    kNewBinder,  // answers a new strong binder of its own; marked if the argument is not 0
    kAnswer,     // its status is the argument
    kFill,       // answers a byte array of this length
    kDie,        // ends the process without an answer
    kEnd,        // ends the process in order; answers when its static destructors run, which take long
};

// Looks again and again.
bool eventually(const auto& condition) {
    const auto end = steady_clock::now() + patience();
    bool met = false;
    while (!(met = condition()) && steady_clock::now() < end) std::this_thread::sleep_for(milliseconds(5));
    return met;
}

std::atomic<int> living{0};       // binders of this class
std::atomic<bool> asked{false};   // to end in order
std::atomic<bool> ending{false};  // static destructors run

struct Peer {
    std::mutex lock;
    std::vector<int32_t> notes;
    int underWay = 0;
    ndk::SpAIBinder held;

    Peer() { ++living; }
    ~Peer() { --living; }
};

ndk::SpAIBinder newBinder(bool marked = true);

binder_status_t onTransact(AIBinder* binder, transaction_code_t code, const AParcel* in, AParcel* out) {
    sigset_t blocked;  // nothing: every pool thread takes the program's signals
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    if (sigismember(&blocked, SIGTERM) != 0) return STATUS_WOULD_BLOCK;
    auto& self = *static_cast<Peer*>(AIBinder_getUserData(binder));
    ndk::SpAIBinder given;
    if (code == kHold && AParcel_readStrongBinder(in, given.getR()) != STATUS_OK) return STATUS_BAD_TYPE;
    int32_t first = 0, second = 0;
    AParcel_readInt32(in, &first);
    AParcel_readInt32(in, &second);
    std::unique_lock lock(self.lock);
    switch (code) {
        case kEcho: return AParcel_writeInt32(out, first);
        case kNote:
            self.notes.insert(self.notes.end(), {first, ++self.underWay});
            lock.unlock();
            std::this_thread::sleep_for(milliseconds(second));
            lock.lock();
            --self.underWay;
            return STATUS_OK;
        case kNotes:
            for (const int32_t word : self.notes) AParcel_writeInt32(out, word);
            return STATUS_OK;
        case kHold: std::swap(self.held, given); return STATUS_OK;
        case kGiveBack: return AParcel_writeStrongBinder(out, self.held.get());
        case kNewBinder: return AParcel_writeStrongBinder(out, newBinder(first != 0).get());
        case kAnswer: return first;
        case kFill: return AParcel_writeByteArray(out, std::vector<int8_t>(size_t(first)).data(), first);
        case kDie: _exit(3);
        case kEnd:
            asked = true;
            asked.notify_one();
            lock.unlock();
            return eventually([] { return ending.load(); }) ? STATUS_OK : STATUS_TIMED_OUT;
        case LAST_CALL_TRANSACTION + 1: return STATUS_OK;  // if it were asked
        default: return STATUS_UNKNOWN_TRANSACTION;
    }
}

// Says its arguments.
binder_status_t onDump(AIBinder*, int fd, const char** args, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) dprintf(fd, "%s", args[i]);
    return STATUS_OK;
}

AIBinder_Class* binderClass() {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        "test.IPeer", [](void*) -> void* { return new Peer; }, [](void* data) { delete static_cast<Peer*>(data); },
        onTransact);
    AIBinder_Class_setOnDump(clazz, onDump);
    return clazz;
}

ndk::SpAIBinder newBinder(bool marked) {
    ndk::SpAIBinder binder(AIBinder_new(binderClass(), nullptr));
    if (marked) AIBinder_markVintfStability(binder.get());
    return binder;
}

int serve() {
    static const struct Last {  // of all destructors, being the first to be made
        ~Last() {
            ending = true;
            std::this_thread::sleep_for(patience());
        }
    } last;
    ABinderProcess_startThreadPool();
    for (const char* name : {kUnmarked, kName}) {
        if (AServiceManager_addService(newBinder(name == kName).get(), name) != EX_NONE) return 2;
    }
    asked.wait(false);
    return 0;
}

// ---- The tests' side ----

// Where the processes of this test meet.
char folder[] = "/tmp/orvix-binder-test-XXXXXX";

ndk::SpAIBinder withClass(ndk::SpAIBinder binder) {
    EXPECT_TRUE(AIBinder_associateClass(binder.get(), binderClass()));
    return binder;
}
ndk::SpAIBinder waitFor(const char* name) { return withClass(ndk::SpAIBinder(AServiceManager_waitForService(name))); }

using Words = std::vector<int32_t>;

struct Answer {
    binder_status_t status;
    Words words = {};
    ndk::SpAIBinder binder = nullptr;  // instead
};

// One transaction. With kHold it carries a binder.
Answer call(const ndk::SpAIBinder& binder, Code code, const Words& words = {}, binder_flags_t flags = 0,
            const ndk::SpAIBinder& held = nullptr) {
    ndk::ScopedAParcel in, out;
    Answer answer{AIBinder_prepareTransaction(binder.get(), in.getR())};
    if (answer.status != STATUS_OK) return answer;
    if (code == kHold) AParcel_writeStrongBinder(in.get(), held.get());
    for (const int32_t word : words) AParcel_writeInt32(in.get(), word);
    answer.status = AIBinder_transact(binder.get(), code, in.getR(), out.getR(), flags);
    if (answer.status != STATUS_OK || AParcel_readStrongBinder(out.get(), answer.binder.getR()) == STATUS_OK)
        return answer;
    AParcel_setDataPosition(out.get(), 0);
    for (int32_t word; AParcel_readInt32(out.get(), &word) == STATUS_OK;) answer.words.push_back(word);
    return answer;
}
// What comes back; there may be so many more words behind it on the way.
int32_t echo(const ndk::SpAIBinder& binder, int32_t value, size_t more = 0) {
    const Answer answer = call(binder, kEcho, Words(1 + more, value));
    return answer.words.size() == 1 ? answer.words[0] : answer.status;
}

int openLowOnes() {
    int count = 0;
    for (int fd = 0; fd < 512; ++fd) count += fcntl(fd, F_GETFD) >= 0;
    return count;
}

class Remote : public testing::Test {
  protected:
    orvix_test::Process service{{"--peer"}};
    const int lowOnes = openLowOnes();
    ndk::SpAIBinder binder = waitFor(kName);

    void TearDown() override { EXPECT_EQ(lowOnes, openLowOnes()) << "the platform's own have high numbers"; }
    ndk::SpAIBinder another(bool marked = true) const { return withClass(call(binder, kNewBinder, {marked}).binder); }
};

TEST(Binder, ChecksComeInTheDevicesOrder) {
    const ndk::SpAIBinder binder = newBinder(), other = newBinder(), none;
    // What is wrong, the binder that it is prepared for, the one that is called, code, flags, a place for the answer.
    using Binder = const ndk::SpAIBinder&;
    const std::tuple<const char*, Binder, Binder, transaction_code_t, binder_flags_t, bool, binder_status_t> cases[] = {
        {"all flags", binder, binder, kEcho, 0x10000021, true, STATUS_OK},
        {"code 0, and all else wrong", binder, none, 0, 2, false, STATUS_UNKNOWN_TRANSACTION},
        {"code too high", binder, binder, 0x01000000, 0, true, STATUS_UNKNOWN_TRANSACTION},
        {"unknown flag, and the rest wrong", binder, none, kEcho, 2, false, STATUS_BAD_VALUE},
        {"no binder", binder, none, kEcho, 0, true, STATUS_UNEXPECTED_NULL},
        {"no place for the answer", other, binder, kEcho, 0, false, STATUS_UNEXPECTED_NULL},
        {"prepared for another", other, binder, kEcho, 0, true, STATUS_BAD_VALUE},
        {"code that nobody knows", binder, binder, 99, 0, true, STATUS_UNKNOWN_TRANSACTION},
    };
    ndk::ScopedAParcel out;
    AParcel* in = nullptr;
    for (const auto& [what, prepared, called, code, flags, withOut, status] : cases) {
        SCOPED_TRACE(what);
        ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(prepared.get(), &in));
        EXPECT_EQ(status, AIBinder_transact(called.get(), code, &in, withOut ? out.getR() : nullptr, flags));
        EXPECT_EQ(nullptr, in);
        EXPECT_EQ(status == STATUS_OK, out.get() != nullptr);
        out.set(nullptr);
    }
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_transact(binder.get(), kEcho, &in, out.getR(), 0));
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_prepareTransaction(nullptr, &in));
    EXPECT_DEATH(AIBinder_markVintfStability(nullptr), "");
}

TEST_F(Remote, AnswersAsALocalOneDoesExceptOneway) {
    const ndk::SpAIBinder local = newBinder();
    for (const ndk::SpAIBinder& each : {local, binder}) {
        EXPECT_EQ(STATUS_TIMED_OUT, call(each, kAnswer, {STATUS_TIMED_OUT}).status);
        EXPECT_EQ(STATUS_UNKNOWN_ERROR, call(each, kAnswer, {-5}).status) << "a status that no list has";
        EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, call(each, Code{99}).status);
        const char* args[] = {"some", "text"};
        int ends[2];
        ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
        const ndk::ScopedFileDescriptor from(ends[0]);
        EXPECT_EQ(STATUS_OK, AIBinder_dump(each.get(), ndk::ScopedFileDescriptor(ends[1]).get(), args, 2));
        std::string said;  // until nobody has the other end open any more
        for (char letter; read(from.get(), &letter, 1) == 1;) said += letter;
        EXPECT_EQ("sometext", said);
    }
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, call(local, Code{99}, {}, FLAG_ONEWAY).status);
    EXPECT_EQ(STATUS_OK, call(binder, Code{99}, {}, FLAG_ONEWAY).status) << "nothing of the answer is seen";
    EXPECT_EQ(STATUS_OK, call(local, kNote, {8, 0}, FLAG_ONEWAY).status);
    EXPECT_EQ(2u, call(local, kNotes).words.size()) << "at once";

    const ndk::SpAIBinder other = another();
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(other, kAnswer, {STATUS_DEAD_OBJECT}).status);
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(other, kEcho).status) << "for good";
    EXPECT_FALSE(AIBinder_isAlive(other.get()));
    EXPECT_EQ(1, echo(binder, 1)) << "nobody else";
}

TEST_F(Remote, IsOneObjectAndOneClass) {
    static AIBinder_Class* const other = AIBinder_Class_define(
        "test.IOther", [](void* args) { return args; }, [](void*) {}, onTransact);
    EXPECT_EQ(binder, ndk::SpAIBinder(AServiceManager_checkService(kName)));
    EXPECT_FALSE(AIBinder_associateClass(binder.get(), other)) << "it has a class";
    EXPECT_EQ(binderClass(), AIBinder_getClass(binder.get()));
    const ndk::SpAIBinder unknown = call(binder, kNewBinder).binder;
    EXPECT_NE(binder, unknown);
    EXPECT_FALSE(AIBinder_associateClass(unknown.get(), other)) << "another descriptor";
    EXPECT_EQ(STATUS_INVALID_OPERATION, call(unknown, kEcho).status) << "no class";
}

TEST_F(Remote, OnlyAMarkAllowsVendorsToCall) {
    const std::tuple<const char*, ndk::SpAIBinder, binder_status_t> cases[] = {
        {"local", newBinder(), STATUS_OK},
        {"local, unmarked", newBinder(false), STATUS_BAD_TYPE},
        {"by name", binder, STATUS_OK},
        {"by name, unmarked", waitFor(kUnmarked), STATUS_BAD_TYPE},
        {"in a parcel", another(true), STATUS_OK},
        {"in a parcel, unmarked", another(false), STATUS_BAD_TYPE},
    };
    for (const auto& [what, each, status] : cases) {
        EXPECT_EQ(status, call(each, kEcho, {}, FLAG_PRIVATE_VENDOR).status) << what;
        EXPECT_EQ(STATUS_OK, call(each, kEcho).status) << what;
    }
}

TEST_F(Remote, ForgetsWhatNobodyHolds) {
    ABinderProcess_startThreadPool();
    for (int round = 0; round < 100; ++round) {
        const ndk::SpAIBinder mine = newBinder();
        for (const binder_flags_t flags : {binder_flags_t{0}, binder_flags_t{FLAG_ONEWAY}}) {  // given twice, held once
            ASSERT_EQ(STATUS_OK, call(binder, kHold, {}, flags, mine).status);
        }
        ASSERT_TRUE(eventually([&] { return call(binder, kGiveBack).binder == mine; }));
    }
    EXPECT_TRUE(eventually([] { return living == 1; })) << "only the last one is held: " << living;
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(binder, kDie).status) << "a call under way ends with its peer";
    EXPECT_TRUE(eventually([] { return living == 0; })) << "and so does what the peer held";
}

TEST_F(Remote, OnewayCallsKeepTheirOrderOneAtATime) {
    constexpr int kCalls = 5000;
    std::vector<int32_t> expected, notes;
    for (int i = 0; i < kCalls; ++i) {
        // The limit of what may be waiting is for the sender to mind.
        ASSERT_TRUE(eventually([&] { return call(binder, kNote, {i, 0}, FLAG_ONEWAY).status == STATUS_OK; }));
        expected.insert(expected.end(), {i, 1});
    }
    ASSERT_TRUE(eventually([&] { return (notes = call(binder, kNotes).words).size() == expected.size(); }));
    EXPECT_EQ(expected, notes);
}

TEST_F(Remote, TwoBindersRunInParallelAndTwoWayCallsOvertake) {
    const ndk::SpAIBinder other = another();
    for (const ndk::SpAIBinder& each : {binder, other}) {
        EXPECT_EQ(STATUS_OK, call(each, kNote, {1, static_cast<int32_t>(patience().count())}, FLAG_ONEWAY).status);
        EXPECT_EQ(STATUS_OK, call(each, kNote, {2, 0}, FLAG_ONEWAY).status);
    }
    const std::vector<int32_t> first{1, 1};
    EXPECT_TRUE(eventually([&] { return call(binder, kNotes).words == first && call(other, kNotes).words == first; }));
}

TEST(Names, BadOnesAreRefusedAtOnce) {
    const std::string tooLong(128, 'n');
    for (const char* name : {"", "a b", "ä", "a\n", tooLong.c_str(), (const char*)nullptr}) {
        EXPECT_EQ(EX_ILLEGAL_ARGUMENT, AServiceManager_addService(newBinder().get(), name));
        EXPECT_EQ(nullptr, AServiceManager_waitForService(name));
    }
}

// How many lines with this text have been logged since the last question; the first one begins to listen.
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

// The last time that this thread of the process went to sleep, by its number; empty while it is awake.
std::string sleepOf(pid_t thread) {
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    std::string state, count;
    for (std::string word; status >> word;) {
        if (word == "State:") status >> state;
        if (word == "voluntary_ctxt_switches:") status >> count;
    }
    return state == "S" ? count : "";
}

TEST(Names, WaitingIsWokenNotPolling) {
    constexpr const char* kLine = "Waited one second for test.late";
    const ndk::SpAIBinder late = newBinder();
    logged(kLine);
    std::atomic<pid_t> tid{0};
    std::thread waiter([&] {
        tid = gettid();
        EXPECT_EQ(late, ndk::SpAIBinder(AServiceManager_waitForService("test.late")));
    });
    EXPECT_TRUE(eventually([&] {
        const std::string before = sleepOf(tid);
        usleep(300'000);
        return !before.empty() && before == sleepOf(tid);
    })) << "never asleep for so long at a time";
    ASSERT_TRUE(eventually([&] { return logged(kLine) == 1; }));
    EXPECT_EQ(EX_NONE, AServiceManager_addService(late.get(), "test.late"));
    waiter.join();
    EXPECT_EQ(0, logged(kLine)) << "before the second is over";
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
    constexpr const char* kNobodyFrees = "non-null cookie and no onUnlink callback set";
    Deaths kept, refused, unlinked, deleted, dropped, bare;
    EXPECT_EQ(STATUS_INVALID_OPERATION, refused.link(newBinder())) << "local";
    EXPECT_EQ(1, refused.unlinked);
    EXPECT_EQ(STATUS_OK, kept.link(binder));
    EXPECT_EQ(STATUS_OK, kept.link(binder)) << "twice is once";
    EXPECT_EQ(STATUS_OK, unlinked.link(binder));
    EXPECT_EQ(STATUS_OK, unlinked.unlink(binder));
    EXPECT_EQ(STATUS_OK, deleted.link(binder));
    deleted.recipient.set(nullptr);
    EXPECT_EQ(0, logged(kNobodyFrees));
    EXPECT_EQ(STATUS_OK, dropped.link(another())) << "its last reference ends here";
    EXPECT_EQ(0, logged(kNobodyFrees));
    AIBinder_DeathRecipient_setOnUnlinked(bare.recipient.get(), nullptr);
    EXPECT_EQ(STATUS_OK, bare.link(another()));
    EXPECT_EQ(1, logged(kNobodyFrees));

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
    EXPECT_EQ(1, echo(fresh, 1));
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(binder, kEcho).status) << "the old one stays dead";
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
    EXPECT_EQ(STATUS_OK, call(binder, kEcho).status) << "begun while destructors run";
}

TEST_F(Remote, TransactionsAreLimitedToTheByte) {
    ndk::ScopedAParcel token;
    ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(binder.get(), token.getR()));
    const auto least = static_cast<size_t>(AParcel_getDataSize(token.get()));
    const std::tuple<Code, Words, binder_flags_t, binder_status_t> cases[] = {
        {kEcho, Words((kMaxOneway - least) / 4 + 1), FLAG_ONEWAY, STATUS_FAILED_TRANSACTION},
        {kEcho, Words((kMaxOneway - least) / 4), FLAG_ONEWAY, STATUS_OK},
        {kEcho, Words((kMaxTransaction - least) / 4 + 1), 0, STATUS_FAILED_TRANSACTION},
        {kEcho, Words((kMaxTransaction - least) / 4), 0, STATUS_OK},
        {kFill, {kMaxTransaction}, 0, STATUS_FAILED_TRANSACTION},
        {kFill, {kMaxTransaction - 4}, 0, STATUS_OK},
    };
    for (const auto& [code, words, flags, status] : cases) EXPECT_EQ(status, call(binder, code, words, flags).status);
}

TEST_F(Remote, AStoppedPeerHoldsNobodyUp) {
    service.stop();
    int accepted = 0;
    while (accepted < 1000 && call(binder, kEcho, Words(1'250), FLAG_ONEWAY).status == STATUS_OK) ++accepted;
    EXPECT_NEAR(100, accepted, 10) << "about 500 kB";
    EXPECT_EQ(binder, ndk::SpAIBinder(AServiceManager_checkService(kName)));
    std::thread caller([&] { EXPECT_EQ(9, echo(binder, 9, 225'000)); });
    service.signal(SIGCONT);
    caller.join();
    EXPECT_TRUE(eventually([&] { return call(binder, kEcho, Words(125'000), FLAG_ONEWAY).status == STATUS_OK; }));
}

// ---- Peers that break the rules ----

constexpr int kCloses = 1, kSilent = 2;

struct RawSocket {
    const ndk::ScopedFileDescriptor fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};

    // To the only process that listens in the folder.
    RawSocket() {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            if (!entry.path().filename().string().starts_with("p-")) continue;
            sockaddr_un address{AF_UNIX, {}};
            entry.path().string().copy(address.sun_path, sizeof(address.sun_path) - 1);
            EXPECT_EQ(0, connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
        }
    }

    void send(std::string text, bool withDescriptor = false) const {
        iovec part{text.data(), text.size()};
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
        msghdr message{nullptr, 0, &part, 1, control, withDescriptor ? sizeof(control) : 0, 0};
        if (withDescriptor) *CMSG_FIRSTHDR(&message) = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        sendmsg(fd.get(), &message, MSG_NOSIGNAL);
    }
    // What the other side does: the status of its answer, or kCloses, or kSilent.
    int reaction(int event = POLLIN, milliseconds time = patience()) const {
        FrameHeader header;
        pollfd ready{fd.get(), static_cast<short>(event), 0};
        if (poll(&ready, 1, static_cast<int>(time.count())) == 0) return kSilent;
        const bool answers = event == POLLIN && recv(fd.get(), &header, sizeof(header), MSG_WAITALL) == sizeof(header);
        return answers ? header.status : kCloses;
    }
};

std::string frameOf(FrameHeader header, const std::string& data = {}, const std::vector<WireObject>& objects = {}) {
    if (header.dataSize == 0) header.dataSize = static_cast<uint32_t>(data.size());
    header.objectCount += static_cast<uint32_t>(objects.size());
    const std::string frame(reinterpret_cast<const char*>(&header), sizeof(header));
    return frame + data +
           std::string(reinterpret_cast<const char*>(objects.data()), objects.size() * sizeof(WireObject));
}

// An argument behind the token, one byte of which may be wrong.
std::string dataOf(int32_t argument, size_t wrong = SIZE_MAX) {
    ndk::ScopedAParcel parcel;
    EXPECT_EQ(STATUS_OK, AIBinder_prepareTransaction(newBinder().get(), parcel.getR()));
    AParcel_writeInt32(parcel.get(), argument);
    std::string data(static_cast<size_t>(AParcel_getDataSize(parcel.get())), '\0');
    EXPECT_EQ(STATUS_OK, AParcel_marshal(parcel.get(), reinterpret_cast<uint8_t*>(data.data()), 0, data.size()));
    if (wrong < data.size()) ++data[wrong];
    return data;
}

TEST_F(Remote, BrokenFramesCloseTheConnectionAndNothingElse) {
    using enum FrameType;
    using enum ObjectKind;
    const auto callTo = [](uint32_t target, uint32_t code) {
        return FrameHeader{.type = Transaction, .sequence = 1, .target = target, .code = code};
    };
    const std::string room(64, 'x');
    const FrameHeader call = callTo(2, kEcho), oneway{.type = Transaction, .target = 2, .code = kEcho};
    const std::tuple<const char*, std::string, int> cases[] = {
        {"noise", room, kCloses},
        {"half a header", frameOf(call).substr(0, 20), kSilent},
        {"another protocol", frameOf({.magic = 1, .type = Release}), kCloses},
        {"no such type", frameOf({.type = FrameType(9)}), kCloses},
        {"as much as a transaction holds", frameOf({.type = Transaction, .dataSize = kMaxTransaction}), kSilent},
        {"more", frameOf({.type = Transaction, .dataSize = kMaxTransaction + 1}), kCloses},
        {"as much as may wait one-way", frameOf(oneway, std::string(kMaxOneway, 'x')), STATUS_OK},
        {"more", frameOf(oneway, std::string(kMaxOneway + 1, 'x')), kCloses},
        {"more objects than fit", frameOf({.type = Transaction, .objectCount = 3}, room), kCloses},
        {"object beyond the data", frameOf(call, room, {{41, Senders, 1, 0}}), kCloses},
        {"objects that overlap", frameOf(call, room, {{0, Senders, 1, 0}, {23, Senders, 2, 0}}), kCloses},
        {"no such kind", frameOf(call, room, {{0, ObjectKind(7), 1, 0}}), kCloses},
        {"a binder that was never given", frameOf(call, room, {{0, Receivers, 77, 0}}), kCloses},
        {"a descriptor that did not come", frameOf(call, room, {{0, Descriptor, 0, 0}}), kCloses},
        {"an answer to no question", frameOf({.type = Reply, .sequence = 5}), kCloses},
        {"thanks for nothing", frameOf({.type = Done, .sequence = 100}), kCloses},
        {"release of the unknown", frameOf({.type = Release, .sequence = 1, .target = 77}), kSilent},
        {"a call to nobody", frameOf(callTo(77, kEcho), room), STATUS_DEAD_OBJECT},
        {"a call without a token", frameOf(call, room), STATUS_BAD_TYPE},
        {"another policy", frameOf(call, dataOf(1, 0)), STATUS_OK},
        {"another work source", frameOf(call, dataOf(1, 4)), STATUS_OK},
        {"another mark", frameOf(call, dataOf(1, 8)), STATUS_BAD_TYPE},
        {"another interface", frameOf(call, dataOf(1, 16)), STATUS_BAD_TYPE},
        {"a reserved code", frameOf(callTo(2, LAST_CALL_TRANSACTION + 1), dataOf(1)), STATUS_UNKNOWN_TRANSACTION},
        {"a good call", frameOf(call, dataOf(1)), STATUS_OK},
    };
    for (const auto& [what, bytes, reaction] : cases) {
        const RawSocket raw;
        raw.send(bytes);
        EXPECT_EQ(reaction, raw.reaction(POLLIN, reaction == kSilent ? milliseconds(50) : patience())) << what;
        EXPECT_EQ(6, echo(binder, 6)) << what;
    }
    const RawSocket giving, deaf;
    giving.send(frameOf({.type = Release}), true);
    EXPECT_EQ(kCloses, giving.reaction()) << "a descriptor of no object";
    for (int i = 0; i < 60; ++i) deaf.send(frameOf(callTo(2, kFill), dataOf(500'000)));
    EXPECT_EQ(kCloses, deaf.reaction(POLLRDHUP)) << "answers that nobody reads are kept up to a limit";
}

TEST_F(Remote, OtherUsersAreRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    // The thread's own user, as the peer will see it; to the file system it stays who it was.
    syscall(SYS_setresuid, -1, 1, -1);
    setfsuid(0);
    const RawSocket raw;
    syscall(SYS_setresuid, -1, 0, -1);
    EXPECT_EQ(kCloses, raw.reaction());
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
    if (argc == 2 && std::string(argv[1]) == "--peer") return serve();
    testing::InitGoogleTest(&argc, argv);
    if (mkdtemp(folder) == nullptr) return 2;
    setenv("ORVIX_BINDER_DIR", folder, 1);
    // What a peer is reported for must be seen, though it is killed later.
    setenv("TSAN_OPTIONS", "halt_on_error=1", 0);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}
