// orvix-bench-service: the service's half of the benchmarks. Says "registered TIME" when it can be found, "callback"
// when it has one. Commands on standard input:
//   requests N    asks N times for startUidStatsPolling(now), one a millisecond; then "requests"
//   arrivals      "arrivals nanoseconds …": what its sendFGNetworkInfo(_, now, _) calls took since the last time
// orvix-bench-service --burn SECONDS: keeps one processor busy so long.

#include <android/log.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "sim/live/Serve.h"

namespace {

using namespace aidl::vendor::nuvel::data::orvixservice;
using Clock = std::chrono::steady_clock;

// As Java's System.nanoTime.
int64_t now() { return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count(); }

class Service : public IOrvixServiceDefault {
  public:
    ScopedAStatus registerRequest(const std::shared_ptr<IRequest>& given) override {
        const std::lock_guard lock(mutex);
        request = given;
        std::cout << "callback" << std::endl;
        return ScopedAStatus::ok();
    }
    ScopedAStatus sendFGNetworkInfo(RatType, TechType, int64_t value) override {
        const int64_t time = now();
        const std::lock_guard lock(mutex);
        if (value > 0) arrivals.push_back(time - value);
        return ScopedAStatus::ok();
    }

    void ask(int count) {
        const std::shared_ptr<IRequest> asked = [this] {
            const std::lock_guard lock(mutex);
            return request;
        }();
        for (int i = 0; i < count && asked; ++i) {
            asked->startUidStatsPolling(now());
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        std::cout << "requests" << std::endl;
    }

    void printArrivals() {
        const std::lock_guard lock(mutex);
        std::cout << "arrivals";
        for (const int64_t time : arrivals) std::cout << ' ' << time;
        std::cout << std::endl;
        arrivals.clear();
    }

  private:
    std::mutex mutex;  // guards what follows
    std::shared_ptr<IRequest> request;
    std::vector<int64_t> arrivals;
};

int burn(int seconds) {
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    for (volatile uint64_t count = 0; Clock::now() < end;) count = count + 1;
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "--burn") return burn(std::atoi(argv[2]));
    const auto service = ndk::SharedRefBase::make<Service>();
    ABinderProcess_startThreadPool();
    const int64_t registered = now();
    if (!sim::serve(*service)) return 1;
    std::cout << "registered " << registered << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        if (line.starts_with("requests ")) service->ask(std::atoi(line.c_str() + 9));
        if (line == "arrivals") service->printArrivals();
    }
    return 0;
}
