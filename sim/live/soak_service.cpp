// The service's half of the endurance run, to be killed at any time: what it has printed survives it.
//
//   soak_service LIFE THREADS SEED [MICROSECONDS]
//
// Prints "up" when it can be found and "registered" for each callback, the first of which THREADS threads then ask;
// "accepted THREAD SEQUENCE" for each of their requests that the platform has accepted; and what arrives of the
// application: "call THREAD SEQUENCE", "socket NUMBER", or "bad" when the content is not what was sent. Kills itself so
// many microseconds after it can be found, if they are given.

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include "sim/live/Serve.h"

namespace {

using namespace aidl::vendor::nuvel::data::orvixservice;

int64_t gLife;
int gThreads;
int gSeed;
std::atomic<bool> gAsked;

// Three kinds of requests, each with its number in it.
binder_status_t ask(IRequest& request, int64_t number) {
    const auto low = static_cast<int32_t>(number);
    switch (low % 8) {
        case 0: {
            std::vector<uint8_t> blob(sizeof(number) + static_cast<size_t>(low % 1000));
            std::memcpy(blob.data(), &number, sizeof(number));
            return request.sendBlobToApk(low, blob).getStatus();
        }
        case 1: return request.updateStats({.long1 = number, .int3 = low, .text1 = std::to_string(number)}).getStatus();
        default: return request.startUidStatsPolling(number).getStatus();
    }
}

void sendRequests(const std::shared_ptr<IRequest>& request, int thread) {
    std::mt19937 random(static_cast<unsigned>(gSeed + thread));
    for (int sequence = 1;; ++sequence) {
        if (ask(*request, gLife << 40 | int64_t{thread} << 32 | sequence) != STATUS_OK) return;
        std::printf("accepted %d %d\n", thread, sequence);
        if (thread == 0 && sequence % 16 == 0) request->getSocketFd({.socketId = sequence, .uid = -1, .socketType = 2});
        std::this_thread::sleep_for(std::chrono::microseconds(500 + random() % 1000));
    }
}

class Service : public IOrvixServiceDefault {
  public:
    ScopedAStatus registerRequest(const std::shared_ptr<IRequest>& request) override {
        std::puts("registered");
        if (gAsked.exchange(true)) return ScopedAStatus::ok();
        for (int thread = 0; thread < gThreads; ++thread) std::thread(sendRequests, request, thread).detach();
        return ScopedAStatus::ok();
    }
    ScopedAStatus sendFGNetworkInfo(RatType thread, TechType check, int64_t sequence) override {
        return seen(thread, sequence, static_cast<int32_t>(check) == static_cast<int32_t>(sequence * 7));
    }
    ScopedAStatus sendNetworkStatsForNetworkType(RatType thread, const ByteTuple& bytes) override {
        return seen(thread, bytes.long1, bytes.long2 == ~bytes.long1);
    }
    ScopedAStatus sendBlobToMirel(int32_t thread, const std::vector<uint8_t>& blob) override {
        int64_t sequence = 0;
        if (blob.size() >= sizeof(sequence)) std::memcpy(&sequence, blob.data(), sizeof(sequence));
        return seen(RatType{thread}, sequence, blob.size() == sizeof(sequence) + static_cast<size_t>(sequence % 500));
    }
    ScopedAStatus sendSocketFd(int32_t socketId, const ndk::ScopedFileDescriptor& fd) override {
        struct stat info {};
        if (fstat(fd.get(), &info) == 0 && S_ISSOCK(info.st_mode))
            std::printf("socket %d\n", socketId);
        else
            std::puts("bad");
        return ScopedAStatus::ok();
    }

  private:
    static ScopedAStatus seen(RatType thread, int64_t sequence, bool good) {
        if (good)
            std::printf("call %d %lld\n", static_cast<int>(thread), static_cast<long long>(sequence));
        else
            std::puts("bad");
        return ScopedAStatus::ok();
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    gLife = std::atoll(argv[1]);
    gThreads = std::atoi(argv[2]);
    gSeed = std::atoi(argv[3]);
    std::setvbuf(stdout, nullptr, _IOLBF, 0);

    const auto service = ndk::SharedRefBase::make<Service>();
    ABinderProcess_startThreadPool();
    if (!sim::serve(*service)) return 1;
    std::puts("up");
    if (argc > 4) {
        std::this_thread::sleep_for(std::chrono::microseconds(std::atoi(argv[4])));
        std::raise(SIGKILL);
    }
    for (;;) pause();
}
