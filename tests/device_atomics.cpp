// Counts references from many threads, in the way that the processor at hand has. Its argument says whether that way is
// to be the newer instructions (1) or the older (0); where only the older are there, one of the newer ends the program.
#include <android/binder_auto_utils.h>

#include <cstdio>
#include <thread>
#include <vector>

#include "callback/OrvixCallback.h"

using aidl::vendor::nuvel::data::orvixservice::IRequest;

// Set when a program or library is loaded, from the processor's abilities; each has its own.
extern "C" __attribute__((visibility("hidden"))) unsigned char __aarch64_have_lse_atomics;

int main(int, char** argv) {
    const auto callback = ndk::SharedRefBase::make<orvix::OrvixCallback>();
    const ndk::SpAIBinder binder = callback->asBinder();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 20000; ++round) IRequest::fromBinder(binder);
        });
    }
    for (std::thread& thread : threads) thread.join();
    const bool newer = __aarch64_have_lse_atomics != 0;
    std::printf("%s instructions, %ld references\n", newer ? "newer" : "older", callback.use_count());
    return newer == (*argv[1] == '1') && callback.use_count() == 2 ? 0 : 1;
}
