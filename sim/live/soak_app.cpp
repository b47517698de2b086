// The application's half of the endurance run without a VM, for the sanitizers: the same lines as Soak.java's.
//
//   soak_app THREADS SEED
//
// Prints "available 0|1" and "request NUMBER" as Java is called; on "sent", what each thread has sent; on "references",
// the local references that are alive. Ends at the end of its input.

#include <android/log.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <string>
#include <thread>

#include "client/AidlClient.h"
#include "sim/vm/quiet_jni.h"

namespace {

using orvix::AidlClient;

constexpr size_t kThreads = 8;
std::atomic<int64_t> gSent[kThreads];
std::atomic<bool> gEnding = false;

// The number in a request, or -1 if it is not what was sent.
int64_t numberOf(const quiet::Call& call) {
    if (call.method == "startUidStatsPolling") return std::get<int64_t>(call.arguments[0]);
    if (call.method == "updateStats") {
        const auto number = std::get<int64_t>(call.arguments[0]);
        return std::get<std::string>(call.arguments[7]) == std::to_string(number) ? number : -1;
    }
    if (call.method != "sendBlobToApkJava") return -1;
    const auto& blob = std::get<std::vector<uint8_t>>(call.arguments[1]);
    int64_t number = 0;
    if (blob.size() < sizeof(number)) return -1;
    std::memcpy(&number, blob.data(), sizeof(number));
    const auto low = static_cast<int32_t>(number);
    return blob.size() == sizeof(number) + static_cast<size_t>(low % 1000) ? number : -1;
}

void onCall(const quiet::Call& call) {
    if (call.method == "onIServiceBinderAvailable") {
        std::printf("available %d\n", std::get<bool>(call.arguments[0]));
    } else {
        std::printf("request %lld\n", static_cast<long long>(numberOf(call)));
    }
}

void send(int32_t thread, int64_t sequence) {
    JNIEnv* const env = quiet::env();
    switch (sequence % 4) {
        case 0: {
            quiet::Object blob{.bytes = std::vector<uint8_t>(sizeof(sequence) + static_cast<size_t>(sequence % 500))};
            std::memcpy(blob.bytes.data(), &sequence, sizeof(sequence));
            AidlClient::sendBlobToMirel(env, nullptr, thread, reinterpret_cast<jbyteArray>(quiet::ref(blob)));
            break;
        }
        case 1: {
            const ndk::ScopedAParcel parcel(AParcel_create());
            orvix::ByteTuple{.long1 = sequence, .long2 = ~sequence}.writeToParcel(parcel.get());
            AParcel_setDataPosition(parcel.get(), 0);
            quiet::Object object{.parcel = parcel.get()};
            AidlClient::sendNetworkStatsForNetworkType(env, nullptr, thread, quiet::ref(object));
            break;
        }
        default: AidlClient::sendFGNetworkInfo(env, nullptr, thread, sequence, static_cast<jint>(sequence * 7));
    }
}

void traffic(int32_t thread, unsigned seed) {
    std::mt19937 random(seed + static_cast<unsigned>(thread));
    for (int64_t sequence = 1; !gEnding; ++sequence) {
        gSent[thread] = sequence;
        send(thread, sequence);
        std::this_thread::sleep_for(std::chrono::microseconds(250 + random() % 500));
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int threads = argc == 3 ? std::atoi(argv[1]) : 0;
    if (threads < 1 || threads > static_cast<int>(kThreads)) return 2;
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    __android_log_set_logger([](const __android_log_message*) {});
    quiet::script.onCall = onCall;
    quiet::env();
    if (JNI_OnLoad(quiet::vm(), nullptr) != JNI_VERSION_1_6) return 1;
    quiet::leave();
    AidlClient::initialize(quiet::env(), nullptr);
    std::vector<std::thread> senders;
    senders.reserve(static_cast<size_t>(threads));
    for (int thread = 0; thread < threads; ++thread) {
        senders.emplace_back(traffic, thread, static_cast<unsigned>(std::atoi(argv[2])));
    }
    for (std::string line; std::getline(std::cin, line);) {
        std::string answer = line;
        if (line == "sent") {
            for (int thread = 0; thread < threads; ++thread) answer += ' ' + std::to_string(gSent[thread]);
        } else if (line == "references") {
            answer += ' ' + std::to_string(quiet::localReferences);
        }
        std::printf("%s\n", answer.c_str());
    }
    // As a VM, which lets no thread call any more when it ends.
    gEnding = true;
    for (std::thread& sender : senders) sender.join();
    std::fflush(stdout);
    std::exit(0);
}
