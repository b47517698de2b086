// The library's own threads and a second initialize; and a service in another process that dies at each
// step of binding, of the way up and of the way down.
//
// The program is also that service: "--service FIRST" asks for numbered pollings once it has a callback.

#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <future>
#include <set>
#include <thread>

#include "client/AidlClient.h"
#include "tests/fake_jni.h"
#include "tests/process.h"

namespace {

using namespace orvix;
using namespace std::chrono_literals;

constexpr int kRequests = 20;  // of one service
constexpr const char* kCall = "jni CallVoidMethod(object, method, ";

// What Java was called with, in order.
using Story = std::vector<std::string>;
Story delivered() {
    Story arguments;
    for (const std::string& line : fake::lines()) {
        if (!line.starts_with(kCall)) continue;
        arguments.push_back(line.substr(std::strlen(kCall)));
        arguments.back().pop_back();
    }
    return arguments;
}

TEST(Threads, SecondInitializeBindsAgainAndSharesTheQueue) {
    fake::reset();
    fake::load();
    fake::serve();
    fake::initialize();
    fake::initialize();
    std::vector<std::thread> threads;
    for (int first = 0; first < 2000; first += 500) {
        threads.emplace_back([=] {
            for (int number = first; number < first + 500; ++number) {
                gAidlClient->pushEv({.type = kStartNetworkStatsPolling, .intArg = number});
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_TRUE(fake::waitFor("transact 1 ", 2));
    ASSERT_TRUE(fake::waitFor(kCall, 2002));
    const Story got = delivered();
    EXPECT_EQ(got.size(), 2002u);
    EXPECT_EQ(std::set(got.begin(), got.end()).size(), 2001u) << "each number once, true twice";
}

// Three releases allow one acquire, or three; the next one waits.
TEST(EventSemaphore, BinaryCollapsesAndCountingCounts) {
    static std::atomic<int> tooMany = 0;
    for (const int allowed : {1, 3}) {
        auto* const semaphore = allowed == 1 ? new EventSemaphore : new EventSemaphore(0);  // stays with the thread
        for (int i = 0; i < 3; ++i) semaphore->release();
        for (int i = 0; i < allowed; ++i) semaphore->acquire();
        std::thread([=] {
            semaphore->acquire();
            ++tooMany;
        }).detach();
    }
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(tooMany, 0);
}

int serve(int first) {
    fake::serve([=](transaction_code_t code, const AParcel* in, AParcel*) -> binder_status_t {
        if (code != codeOf<&IOrvixService::registerRequest>()) return STATUS_OK;
        static std::shared_ptr<IRequest> request;
        readValue(in, request);
        std::thread([=, request = request] {
            for (int number = first; number < first + kRequests; ++number) request->startNetworkStatsPolling(number);
        }).detach();
        return STATUS_OK;
    });
    ABinderProcess_startThreadPool();
    EXPECT_EQ(write(STDIN_FILENO, "!", 1), 1);  // registered: somebody waits for that
    for (;;) pause();
}

// This program as the service, from its registration to its kill.
struct Service : orvix_test::Process {
    explicit Service(int first) : Process({"--service", std::to_string(first)}) {
        char word = 0;
        EXPECT_EQ(read(channel.get(), &word, 1), 1) << "the service ends before it is registered";
    }
};

// What Java heard: "true", "false", and of a service's requests the first, unless one is missing or out of order.
Story story() {
    Story told;
    std::string next;
    for (const std::string& argument : delivered()) {
        if (argument != next) told.push_back(argument);
        if (std::isdigit(argument[0]) != 0) next = std::to_string(std::stoi(argument) + 1);
    }
    return told;
}

// A service dies when the line is made, before the step that the line names. On the way up it is the service that is
// being bound; on the way down it is the next one, which comes and dies while the first one's death is handled.
struct Step {
    bool down;
    std::string line;
    Story story;  // what Java hears until the last service has asked for everything
};
void PrintTo(const Step& step, std::ostream* out) { *out << (step.down ? "down, " : "up, ") << step.line; }
const std::string kBound = "log D bindToService is successful";
class Dying : public testing::TestWithParam<Step> {};

TEST_P(Dying, TheNextServiceIsBound) {
    fake::reset();
    const auto first = std::make_shared<Service>(100);
    const auto armed = std::make_shared<std::atomic<bool>>(!GetParam().down);
    const auto died = std::make_shared<std::promise<void>>();
    fake::script.then = [=, step = GetParam()](const std::string& line) {
        if (!line.starts_with(step.line) || !armed->exchange(false)) return;
        if (step.down) {
            Service next(200);
        } else {
            first->kill();
        }
        died->set_value();
    };
    fake::load();
    fake::initialize();
    const auto waitForLast = [](int number) {
        return fake::waitFor(kCall + std::to_string(number + kRequests - 1) + ")");
    };
    if (GetParam().down) {
        ASSERT_TRUE(waitForLast(100));
        *armed = true;
        first->kill();
    }
    ASSERT_EQ(died->get_future().wait_for(orvix_test::patience()), std::future_status::ready);
    if (GetParam().line == kBound) {  // its event may come late, and must not meet the next binding
        ASSERT_TRUE(fake::waitFor("log D handleEvent 0"));
    }
    const Service last(300);
    ASSERT_TRUE(waitForLast(300));
    Story told = story();
    std::erase(told, "100");
    // The death may overtake the news of the binding that it ended.
    if (GetParam().line == kBound && told[0] == "false") std::swap(told[0], told[1]);
    EXPECT_EQ(told, GetParam().story);
}

const Story kUnnoticed = {"true", "300"}, kNoticed = {"true", "false", "true", "300"};
const std::string kTrue = std::string(kCall) + "true)", kFalse = std::string(kCall) + "false)";
const std::string kRequest = std::string(kCall) + "110)";
INSTANTIATE_TEST_SUITE_P(
    AtEachStep, Dying,
    testing::Values(Step{false, "binder waitForService", kUnnoticed}, Step{false, "binder associateClass", kUnnoticed},
                    Step{false, kBound, kNoticed}, Step{false, "log D handleServiceUp start", kNoticed},
                    Step{false, "vm AttachCurrentThread", kNoticed}, Step{false, kTrue, kNoticed},
                    Step{false, "vm DetachCurrentThread", kNoticed}, Step{false, "transact 1 ", kNoticed},
                    Step{false, kRequest, kNoticed}, Step{true, "log D handleServiceDown start", kNoticed},
                    Step{true, "binder unlinkToDeath", kNoticed}, Step{true, "vm AttachCurrentThread", kNoticed},
                    Step{true, kFalse, kNoticed}, Step{true, "vm DetachCurrentThread", kNoticed}));

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && argv[1] == std::string("--service")) return serve(std::atoi(argv[2]));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
