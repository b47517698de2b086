// The simulated service. It has no code for single methods: a call is read by the types of its arguments and printed, a
// request is written by them.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "sim/service/Output.h"
#include "sim/service/Versions.h"
#include "sim/service/Words.h"

namespace sim {

// Safe from any thread. Must live as long as the process.
class Service {
  public:
    using Milliseconds = std::chrono::milliseconds;

    // Speaks this version of the records, and takes so long for each call.
    Service(Output& lines, int itsVersion, Milliseconds itsPace);

    AIBinder* binder() const { return own.get(); }

    // Sends a request to the callback that was registered last; it may be dead. BadInput if there is none, and for raw
    // bytes that are no words of 4.
    void send(const Method& request, const Typed& typed);
    // Any bytes as all the arguments of a request's code.
    void sendRaw(int32_t code, const Bytes& bytes, const Json& shown);
    // Until one that lives is registered. False: not within this time.
    bool waitForCallback(Milliseconds time);

  private:
    struct Callback {
        ndk::SpAIBinder binder;
        bool alive;
    };

    static binder_status_t onTransact(AIBinder* binder, transaction_code_t code, const AParcel* in, AParcel* out);
    binder_status_t describe(const Question& question, AParcel* out) const;
    void take(const Method& method, void* arguments);
    void keep(const ndk::SpAIBinder& callback);
    void bury(size_t number);
    void send(const char* name, uint32_t code, const Json& shown, const auto& write);

    Output& output;
    const int version;
    const Milliseconds pace;
    ndk::SpAIBinder own;
    const ndk::ScopedAIBinder_DeathRecipient recipient;
    std::mutex mutex;  // guards what follows
    std::condition_variable changed;
    std::vector<Callback> callbacks;  // each has a number: its index and 1
    size_t asked = 0;                 // the number of the one that is asked; 0: none
};

}  // namespace sim
