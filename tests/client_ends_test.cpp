// The client's end, at a second load and at the end of the process, while threads of every kind are about: the process
// ends by its own exit, nobody hangs, and a new client works.
//
// The program is also the process that meets the end: "--end WAY [LINE]".

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <list>
#include <thread>

#include "callback/OrvixCallback.h"
#include "client/AidlClient.h"
#include "tests/fake_jni.h"
#include "tests/process.h"

namespace {

using namespace orvix;

constexpr int kExitCode = 7;
enum Fault : int { kHangs = 3, kWrongHash, kHandlesMore, kTellsMore };

// Whether the client has ended. Relaxed: threads are not to be ordered by it, or a sanitizer would see no race.
std::atomic<bool> gOver = false;
bool isOver() { return gOver.load(std::memory_order_relaxed); }

// Registered before any static object is made, so run after they are gone: what the client leaves is looked at.
[[gnu::constructor(101)]] void stayForAWhile() {
    std::atexit([] {
        gOver.store(true, std::memory_order_relaxed);
        usleep(100'000);
    });
}

using fake::initialize;
using fake::load;

void waitUntil(const auto& done) {
    const auto end = std::chrono::steady_clock::now() + orvix_test::patience() / 2;
    for (; !done(); usleep(1000)) {
        if (std::chrono::steady_clock::now() > end) _exit(kHangs);
    }
}

// A client after the first one has ended is bound and tells so, once; the threads of the first one, unless others keep
// them busy, handle neither what it had queued nor what the new one has.
void loadAgain(bool quiet) {
    const auto count = [] {
        return std::array{fake::count("binder linkToDeath"), fake::count("jni CallVoidMethod(object, method, true)"),
                          fake::count("transact 1 ")};
    };
    const auto [linked, told, registered] = count();
    const size_t handled = fake::count("log D handleEvent -1");
    load();
    gOver.store(true, std::memory_order_relaxed);
    gAidlClient->pushEv({.type = kGetRadioStatus});
    usleep(50'000);
    if (quiet && fake::count("log D handleEvent 1") + fake::count("log D handleEvent -1") != handled) {
        _exit(kHandlesMore);
    }
    // Among deaths that others report, nobody can say when the service is there for long enough to be told.
    const char* const news = quiet ? "transact 1 " : "jni CallVoidMethod";
    const size_t before = fake::count(news);
    initialize();
    waitUntil([=] { return fake::count(news) > before; });
    usleep(50'000);
    if (quiet && count() != std::array{linked + 1, told + 1, registered + 1}) _exit(kTellsMore);
}

// A thread of the client is held where it makes the line, until the end is over; with a lock that the end waits for,
// not for long.
void holdOneThread(const std::string& line) {
    static std::atomic<bool> held = false;
    fake::script.then = [line, main = std::this_thread::get_id()](const std::string& made) {
        if (!made.starts_with(line) || std::this_thread::get_id() == main || held.exchange(true)) return;
        const int limit = line.ends_with("ToDeath") ? 300 : 60'000;
        for (int i = 0; i < limit && !isOver(); ++i) usleep(1000);
    };
    load();
    initialize();
    waitUntil([] { return held || fake::count("transact 1 ") > 0; });
    if (held) return;
    gAidlClient->pushEv({.type = kStartNetworkStatsPolling});
    AidlClient::deathCallback(nullptr);
    waitUntil([] { return held.load(); });
}

// Threads of Java and of binder that go on for ever. Returns what waits until each of them has gone on.
auto keepThreadsBusy() {
    static std::atomic<int> rounds[4];
    const auto forEver = [](std::atomic<int>& count, auto work) {
        std::thread([&count, work] {
            for (;; ++count) work();
        }).detach();
    };
    load();
    initialize();
    waitUntil([] { return fake::count("transact 1 ") > 0; });
    static const auto& callback = *new auto(ndk::SharedRefBase::make<OrvixCallback>());
    static const auto& hash = *new std::string(IRequest::hash);
    forEver(rounds[0], [] { quiet::callNative(quiet::env(), "sendScreenState", jboolean{1}); });
    forEver(rounds[1], [] { quiet::callNative(quiet::env(), "queryStats"); });
    forEver(rounds[2], [] {
        for (int i = 0; i < 20; ++i, usleep(200)) callback->startNetworkStatsPolling(i);
        AidlClient::deathCallback(nullptr);
    });
    forEver(rounds[3], [] {
        std::string answer;
        callback->getInterfaceHash(&answer);
        if (answer != hash) _exit(kWrongHash);
    });
    return [] {
        for (std::atomic<int>& count : rounds) waitUntil([&, before = count.load()] { return count > before + 10; });
    };
}

int meetTheEnd(const std::string& way, const std::string& line) {
    fake::reset();
    fake::serve();
    std::function<void()> goOn = [] {};
    if (line.empty()) {
        goOn = keepThreadsBusy();
    } else {
        holdOneThread(line);
    }
    goOn();
    for (int i = 0; way == "load" && line.empty() && i < 50; ++i) {  // who is busy meets each new client at once
        load();
        fake::clearLines();
    }
    if (way == "load") loadAgain(!line.empty());
    goOn();
    exit(kExitCode);
}

class End : public testing::TestWithParam<const char*> {
  protected:
    // Meets the end with each line, all at once.
    static void meet(const std::vector<const char*>& lines) {
        std::list<orvix_test::Process> processes;
        for (const char* line : lines) {
            processes.emplace_back(std::vector<std::string>{"--end", GetParam(), line});
        }
        for (const char* line : lines) {
            EXPECT_EQ(processes.front().exitCode(), kExitCode) << GetParam() << ", " << line;
            processes.pop_front();
        }
    }
};

TEST_P(End, AmongBusyThreads) { meet({""}); }

TEST_P(End, WhileAThreadIsHeld) {
    meet({"binder waitForService", "binder associateClass", "binder linkToDeath", "log D bindToService is successful",
          "log D new aidl event arrived", "log D handleEvent 0", "jni CallVoidMethod(object, method, true)",
          "log D startNetworkStatsPolling start", "log D handleServiceDown start", "binder unlinkToDeath",
          "jni CallVoidMethod(object, method, false)"});
}

INSTANTIATE_TEST_SUITE_P(Client, End, testing::Values("exit", "load"),
                         [](const auto& tested) { return std::string(tested.param); });

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && argv[1] == std::string("--end")) return meetTheEnd(argv[2], argv[3]);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
