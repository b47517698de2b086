// orvix-bench: what the library costs inside one process, beside its floors.
//
//   orvix-bench --benchmark_format=json    times (google-benchmark)
//   orvix-bench --allocations              heap allocations of one call of each, as JSON
//   valgrind --tool=callgrind --callgrind-out-file=FILE orvix-bench --instructions
//                                          one dump for each: FILE.1, FILE.2, … named in their "desc: Trigger" lines

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <valgrind/callgrind.h>

#include <barrier>
#include <cstdio>
#include <cstring>
#include <deque>
#include <limits>
#include <mutex>
#include <thread>

#include "bench/Operations.h"
#include "bench/allocations.h"
#include "client/AidlClient.h"

namespace {

using orvix::CallbackEvent;

constexpr int kLengths[] = {1'000, 10'000, 100'000, 1'000'000};  // of the queue
constexpr int kCounted = 200;                                    // runs, over which instructions are averaged
constexpr int kNobodys = 5;  // the code of an event that is queued, logged and dropped

void countInstructions(const std::vector<Operation>& all) {
    const auto count = [](const std::string& name, const std::function<void()>& run) {
        for (int i = 0; i < 20; ++i) run();
        CALLGRIND_ZERO_STATS;
        for (int i = 0; i < kCounted; ++i) run();
        CALLGRIND_DUMP_STATS_AT(name.c_str());
    };
    for (const int events : kLengths) {
        CALLGRIND_ZERO_STATS;
        for (int i = 0; i < events; ++i) orvix::gAidlClient->pushEv({.type = kNobodys, .intArg = i});
        orvix::gAidlClient->handleEvents();
        CALLGRIND_DUMP_STATS_AT(("queue/" + std::to_string(events)).c_str());
    }
    for (const Operation& operation : all) {
        count(operation.name + "/library", operation.library);
        if (operation.floor) count(operation.name + "/floor", operation.floor);
        if (operation.locked) count(operation.name + "/locked", operation.locked);
    }
}

// Averages, as a container may ask for room once for several.
void countAllocations(const std::vector<Operation>& all) {
    const auto print = [](const std::string& name, const std::function<void()>& run, const char* before) {
        for (int i = 0; i < 20; ++i) run();
        const allocations::Count count = allocations::of([&] {
            for (int i = 0; i < kCounted; ++i) run();
        });
        const auto each = [](size_t number) { return static_cast<double>(number) / kCounted; };
        std::printf("%s\n  \"%s\": {\"allocations\": %.2f, \"bytes\": %.2f, \"own\": %.2f}", before, name.c_str(),
                    each(count.allocations), each(count.bytes), each(count.own));
    };
    for (const Operation& operation : all) {
        print(operation.name + "/library", operation.library, &operation == &all.front() ? "{" : ",");
        if (operation.floor) print(operation.name + "/floor", operation.floor, ",");
    }
    std::puts("\n}");
}

// The least that a queue can do: the event is copied in under a lock and moved out under a lock.
struct PlainQueue {
    std::mutex mutex;
    std::deque<CallbackEvent> events;

    void push(const CallbackEvent& ev) {
        const std::lock_guard lock(mutex);
        events.push_back(ev);
    }
    void drain() {
        for (;;) {
            const std::lock_guard lock(mutex);
            if (events.empty()) return;
            benchmark::DoNotOptimize(CallbackEvent(std::move(events.front())));
            events.pop_front();
        }
    }
};

// Events from so many threads into the queue, out of it by one thread whenever so many have gathered. They come in
// bursts of the same size whatever the number, so that the threads get in each other's way as often.
constexpr int kEvents = 1'000'000;
constexpr int kBurst = 1'000;
template <typename Push, typename Drain>
void pushAndDrain(benchmark::State& state, const Push& push, const Drain& drain) {
    const auto gathered = static_cast<int>(state.range(0));
    const auto producers = static_cast<int>(state.range(1));
    // What the queue needs at most is there before it is measured: fresh memory is the kernel's matter.
    for (int i = 0; i < gathered; ++i) push({.type = kNobodys});
    drain();
    for (auto _ : state) {
        std::barrier<> turn(producers + 1);
        std::vector<std::thread> threads;
        for (int producer = 0; producer < producers; ++producer) {
            threads.emplace_back([&] {
                for (int pushed = 0; pushed < kEvents; pushed += kBurst) {
                    for (int i = 0; i < kBurst / producers; ++i) push({.type = kNobodys, .intArg = i});
                    turn.arrive_and_wait();
                    turn.arrive_and_wait();
                }
            });
        }
        for (int pushed = kBurst; pushed <= kEvents; pushed += kBurst) {
            turn.arrive_and_wait();
            if (pushed % gathered == 0) drain();
            turn.arrive_and_wait();
        }
        for (std::thread& thread : threads) thread.join();
    }
    state.SetItemsProcessed(state.iterations() * kEvents);
}

void registerAll(const std::vector<Operation>& all) {
    for (const Operation& operation : all) {
        using Side = std::pair<const char*, std::function<void()>>;
        for (const auto& [side, run] : {Side{"/library", operation.library}, Side{"/floor", operation.floor}}) {
            if (!run) continue;
            benchmark::RegisterBenchmark((operation.name + side).c_str(), [run = run](benchmark::State& state) {
                for (auto _ : state) run();
            });
        }
    }
    const auto add = [](const char* name, auto run) {
        auto* const made = benchmark::RegisterBenchmark(name, run);
        for (const int producers : {1, 4}) {
            for (const int events : kLengths) {
                if (producers == 1 || events == kLengths[0] || events == kLengths[3]) made->Args({events, producers});
            }
        }
        made->UseRealTime()->Iterations(1)->Repetitions(7);
    };
    add("queue/library", [](benchmark::State& state) {
        pushAndDrain(
            state, [](const CallbackEvent& ev) { orvix::gAidlClient->pushEv(ev); },
            [] { orvix::gAidlClient->handleEvents(); });
    });
    add("queue/floor", [](benchmark::State& state) {
        PlainQueue queue;
        pushAndDrain(
            state, [&](const CallbackEvent& ev) { queue.push(ev); }, [&] { queue.drain(); });
    });
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<Operation> all = operations();
    if (argc == 2 && std::strcmp(argv[1], "--instructions") == 0) {
        countInstructions(all);
    } else if (argc == 2 && std::strcmp(argv[1], "--allocations") == 0) {
        countAllocations(all);
    } else {
        // One heap for all threads, which gives nothing back: where memory comes from is not measured.
        mallopt(M_ARENA_MAX, 1);
        mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
        mallopt(M_TOP_PAD, 64 << 20);
        registerAll(all);
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
        benchmark::RunSpecifiedBenchmarks();
    }
    return 0;
}
