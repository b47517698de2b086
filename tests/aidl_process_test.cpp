// The interface between two real processes. This program is both: with --peer it is the service. On a channel between
// the two the service tells each call that it receives, and is told the requests that it makes.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <mutex>

#include "tests/aidl_support.h"
#include "tests/process.h"

namespace orvix_test {
namespace {

constexpr const char* kInstance = "vendor.nuvel.data.orvixservice.IOrvixService/default";

// One packet of JSON a message.
void say(const ndk::ScopedFileDescriptor& end, const Json& message) {
    const std::string text = message.dump();
    EXPECT_EQ(write(end.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}
// Null at the end. A message that never comes ends the test by its time limit.
Json hear(const ndk::ScopedFileDescriptor& end) {
    char buffer[65536];
    const ssize_t size = read(end.get(), buffer, sizeof buffer);
    return size > 0 ? Json::parse(buffer, buffer + size) : Json();
}

struct Channel {
    Channel() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("socketpair");
        here.set(ends[0]);
        there.set(ends[1]);
    }
    ndk::ScopedFileDescriptor here, there;
};

int servePeer() {
    const ndk::ScopedFileDescriptor channel(STDIN_FILENO);
    std::mutex mutex;
    std::shared_ptr<IRequest> callback;
    const auto service = recorderOf<IOrvixService>([&](const auto& method, const auto& arguments) {
        using Arguments = ArgumentsOf<decltype(method)>;
        if constexpr (std::is_same_v<Arguments, std::tuple<std::shared_ptr<IRequest>>>) {
            const std::lock_guard lock(mutex);
            callback = std::get<0>(arguments);
        } else if constexpr (std::is_same_v<Arguments, std::tuple<ndk::ScopedFileDescriptor>>) {
            dprintf(std::get<0>(arguments).get(), "through");
        }
        say(channel, lineOf(method, arguments));
    });
    if (AServiceManager_addService(service->asBinder().get(), kInstance) != EX_NONE) return 2;
    ABinderProcess_startThreadPool();
    say(channel, "ready");
    for (Json request; !(request = hear(channel)).is_null();) {
        forEachMethod<IRequest>([&](const auto& method) {
            if (request["call"] != method.name) return;
            ArgumentsOf<decltype(method)> arguments;
            fromJson(request["args"], arguments);
            const std::lock_guard lock(mutex);
            call(method, *callback, arguments);
        });
    }
    return 0;
}

struct Peer : Process {
    Peer() : Process({"--peer"}) {
        ABinderProcess_startThreadPool();
        // The name may still be that of a peer killed before.
        if (hear(channel) != "ready") throw std::runtime_error("the peer did not start");
        service = IOrvixService::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(kInstance)));
    }

    std::shared_ptr<IOrvixService> service;
};

TEST(TwoProcesses, EveryMethodCrossesWithItsValues) {
    Channel called;
    Peer peer;
    const auto callback = recorderOf<IRequest>(
        [&](const auto& method, const auto& arguments) { say(called.there, lineOf(method, arguments)); });
    int crossed = 0;
    forEachMeasuredCall<IOrvixService>([&](const Json& row, const auto& method, const auto& arguments) {
        if (!row.value("sent", true)) return;
        Json expected = lineOf(method, arguments);
        std::replace(expected["args"].begin(), expected["args"].end(), Json("local binder"), Json("remote binder"));
        EXPECT_TRUE(call(method, *peer.service, arguments).isOk());
        ASSERT_EQ(hear(peer.channel), expected);
        ++crossed;
    });
    ASSERT_TRUE(peer.service->registerRequest(callback).isOk());
    ASSERT_EQ(hear(peer.channel), (Json{{"call", "registerRequest"}, {"args", {"remote binder"}}}));
    forEachMeasuredCall<IRequest>([&](const Json&, const auto& method, const auto& arguments) {
        const Json line = lineOf(method, arguments);
        say(peer.channel, line);
        ASSERT_EQ(hear(called.here), line);
        ++crossed;
    });
    EXPECT_EQ(crossed, 32 + 46);
}

TEST(TwoProcesses, ADescriptorArrivesUsableAndIsClosedAfterwards) {
    Peer peer;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const ndk::ScopedFileDescriptor readEnd(ends[0]);
    ASSERT_TRUE(peer.service->sendFdforUID(ndk::ScopedFileDescriptor(ends[1])).isOk());
    std::string text;
    // Ends when nobody has the other end open any more.
    for (char letter; read(readEnd.get(), &letter, 1) == 1;) text += letter;
    EXPECT_EQ(text, "through");
}

TEST(TwoProcesses, TenThousandCallsArriveInOrder) {
    Peer peer;
    int64_t sent = 0;
    for (int64_t arrived = 0; arrived < 10000; ++arrived) {
        // Until the receiver has as much ahead of it as the platform allows; then it works off one.
        ScopedAStatus status = ScopedAStatus::ok();
        const auto send = [&] { return peer.service->sendFGNetworkInfo(RatType{1}, TechType{2}, sent); };
        while (sent < 10000 && (status = send()).isOk()) ++sent;
        ASSERT_EQ(status.getStatus(), status.isOk() ? STATUS_OK : STATUS_FAILED_TRANSACTION);
        ASSERT_EQ(hear(peer.channel), (Json{{"call", "sendFGNetworkInfo"}, {"args", {1, 2, arrived}}}));
    }
}

TEST(TwoProcesses, AKilledPeerIsNoticedOnce) {
    Channel deaths;
    Peer peer;
    const ndk::ScopedAIBinder_DeathRecipient recipient(
        AIBinder_DeathRecipient_new([](void* cookie) { say(static_cast<Channel*>(cookie)->there, "death"); }));
    ASSERT_EQ(AIBinder_linkToDeath(peer.service->asBinder().get(), recipient.get(), &deaths), STATUS_OK);
    EXPECT_TRUE(peer.service->sendScreenState(true).isOk());
    peer.kill();
    EXPECT_EQ(hear(deaths.here), "death");
    EXPECT_EQ(peer.service->sendScreenState(true).getStatus(), STATUS_DEAD_OBJECT);
    usleep(200000);  // for a second notice
    say(deaths.there, "end");
    EXPECT_EQ(hear(deaths.here), "end");
}

TEST(TwoProcesses, VersionAndHashAreAskedOnce) {
    Peer peer;
    takeTransactions();
    int32_t version = 0;
    std::string hash;
    for (int round = 0; round < 3; ++round) {
        EXPECT_TRUE(peer.service->getInterfaceVersion(&version).isOk() && version == 7);
        EXPECT_TRUE(peer.service->getInterfaceHash(&hash).isOk() && hash == IOrvixService::hash);
    }
    const std::vector<Transaction> transactions = takeTransactions();
    ASSERT_EQ(transactions.size(), 2u);
    EXPECT_EQ(transactions[0].code, 0x00ffffffu);
    EXPECT_EQ(transactions[1].code, 0x00fffffeu);
}

}  // namespace
}  // namespace orvix_test

int main(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]) == "--peer") return orvix_test::servePeer();
    testing::InitGoogleTest(&argc, argv);
    char folder[] = "/tmp/orvix-test-XXXXXX";
    if (mkdtemp(folder) == nullptr) return 2;
    setenv("ORVIX_BINDER_DIR", folder, 1);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}
