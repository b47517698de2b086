// The service's half of the endurance run, to be killed at any time: what it has seen and done stands in a mapped file
// that survives it.
//
//   soak_service LIFE FILE THREADS SEED    FILE: zeros, with room for Log

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include "aidl/IOrvixService.h"

namespace {

using namespace aidl::vendor::nuvel::data::orvixservice;

constexpr size_t kThreads = 8;
constexpr size_t kEntries = 100'000;

// As soak.py reads it. One-way calls come one at a time, so entries has one writer.
struct Log {
    std::atomic<uint64_t> count;
    std::atomic<uint64_t> attempted[kThreads];  // requests of each thread, before each call
    std::atomic<uint64_t> accepted[kThreads];   // and after each that the platform has accepted
    uint64_t entries[kEntries];
};

enum Kind : uint64_t { kRegistered = 0xe0, kSocket = 0xf0, kBad = 0xff };  // below: the application's thread

Log* gLog;
uint64_t gLife;
size_t gThreads;
unsigned gSeed;

void note(uint64_t kind, uint64_t number) {
    const uint64_t at = gLog->count;
    if (at < kEntries) gLog->entries[at] = kind << 56 | (number & 0xff'ffff'ffff'ffff);
    gLog->count = at + 1;
}

// Three kinds of requests, each with its number in it; the fourth asks for a socket.
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

void sendRequests(const std::shared_ptr<IRequest>& request, size_t thread) {
    std::mt19937 random(gSeed + static_cast<unsigned>(thread));
    for (uint64_t sequence = 1;; ++sequence) {
        gLog->attempted[thread] = sequence;
        const uint64_t number = gLife << 40 | uint64_t{thread} << 32 | sequence;
        if (ask(*request, static_cast<int64_t>(number)) != STATUS_OK) return;
        gLog->accepted[thread] = sequence;
        if (thread == 0 && sequence % 16 == 0) {
            request->getSocketFd({.socketId = static_cast<int32_t>(sequence), .uid = -1, .socketType = 2});
        }
        std::this_thread::sleep_for(std::chrono::microseconds(500 + random() % 1000));
    }
}

class Service : public IOrvixServiceDefault {
  public:
    ScopedAStatus registerRequest(const std::shared_ptr<IRequest>& request) override {
        note(kRegistered, 0);
        for (size_t thread = 0; thread < gThreads; ++thread) std::thread(sendRequests, request, thread).detach();
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
        const bool isSocket = fstat(fd.get(), &info) == 0 && S_ISSOCK(info.st_mode);
        note(isSocket ? kSocket : kBad, static_cast<uint64_t>(socketId));
        return ScopedAStatus::ok();
    }

  private:
    static ScopedAStatus seen(RatType thread, int64_t sequence, bool good) {
        note(good ? static_cast<uint64_t>(thread) : kBad, static_cast<uint64_t>(sequence));
        return ScopedAStatus::ok();
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    gLife = std::strtoull(argv[1], nullptr, 10);
    gThreads = std::strtoull(argv[3], nullptr, 10);
    gSeed = static_cast<unsigned>(std::strtoul(argv[4], nullptr, 10));
    const int file = open(argv[2], O_RDWR | O_CLOEXEC);
    void* const mapped = mmap(nullptr, sizeof(Log), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (file < 0 || mapped == MAP_FAILED || gThreads > kThreads) return 2;
    gLog = static_cast<Log*>(mapped);

    const auto service = ndk::SharedRefBase::make<Service>();
    const ndk::SpAIBinder binder(
        AIBinder_new(IOrvixService::binderClass, static_cast<ndk::ICInterface*>(service.get())));
    AIBinder_markVintfStability(binder.get());
    ABinderProcess_startThreadPool();
    const std::string name = std::string(IOrvixService::descriptor) + "/default";
    if (AServiceManager_addService(binder.get(), name.c_str()) != EX_NONE) return 1;
    for (;;) pause();
}
