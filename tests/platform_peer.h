// A second process for the test of the platform: the same program, run again as a service that does what it is asked.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/binder_stability.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/process.h"

namespace peer {

using std::chrono::milliseconds;

inline constexpr const char* kDescriptor = "test.IPeer";
inline constexpr const char* kName = "test.IPeer/default";
inline constexpr const char* kUnmarked = "test.IPeer/unmarked";  // beside the first, without the VINTF mark

// What a peer can be asked. Arguments and answers are int32 unless said otherwise.
enum Code : transaction_code_t {
    kEcho = 1,   // answers the argument
    kNote,       // notes (number, milliseconds to take over it)
    kNotes,      // answers for each note: number, calling pid, and how many were under way with it
    kHold,       // holds the strong binder
    kGiveBack,   // answers the held strong binder
    kNewBinder,  // answers a new strong binder of its own; marked if the argument is not 0
    kAnswer,     // its status is the argument
    kFill,       // answers a byte array of this length
    kDie,        // ends the process without an answer
    kEnd,        // ends the process in order; answers when its static destructors run, which take ten seconds
};

// Looks again and again for up to ten seconds.
bool eventually(const auto& condition) {
    const auto end = std::chrono::steady_clock::now() + orvix_test::patience();
    bool met = false;
    while (!(met = condition()) && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(milliseconds(5));
    return met;
}

inline std::atomic<int> living{0};       // binders of this class
inline std::atomic<bool> asked{false};   // to end in order
inline std::atomic<bool> ending{false};  // static destructors run

struct Note {
    int32_t number;
    int32_t pid;
    int32_t underWay;
};

struct Implementation {
    std::mutex lock;
    std::vector<Note> notes;
    int underWay = 0;
    ndk::SpAIBinder held;

    Implementation() { ++living; }
    ~Implementation() { --living; }

    binder_status_t note(int32_t number, int32_t duration) {
        {
            const std::lock_guard guard(lock);
            notes.push_back({number, AIBinder_getCallingPid(), ++underWay});
        }
        std::this_thread::sleep_for(milliseconds(duration));
        const std::lock_guard guard(lock);
        --underWay;
        return STATUS_OK;
    }
};

ndk::SpAIBinder newBinder(bool marked = true);

inline binder_status_t onTransact(AIBinder* binder, transaction_code_t code, const AParcel* in, AParcel* out) {
    sigset_t blocked;  // nothing: every pool thread takes the program's signals
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    if (sigismember(&blocked, SIGTERM) != 0) return STATUS_WOULD_BLOCK;
    auto& self = *static_cast<Implementation*>(AIBinder_getUserData(binder));
    ndk::SpAIBinder given;
    if (code == kHold && AParcel_readStrongBinder(in, given.getR()) != STATUS_OK) return STATUS_BAD_TYPE;
    int32_t first = 0;
    int32_t second = 0;
    AParcel_readInt32(in, &first);
    AParcel_readInt32(in, &second);
    if (code == kNote) return self.note(first, second);
    if (code == kEnd) {
        asked = true;
        asked.notify_one();
        return eventually([] { return ending.load(); }) ? STATUS_OK : STATUS_TIMED_OUT;
    }
    const std::lock_guard lock(self.lock);
    switch (code) {
        case kEcho: return AParcel_writeInt32(out, first);
        case kNotes:
            for (const Note& note : self.notes) {
                for (const int32_t word : {note.number, note.pid, note.underWay}) AParcel_writeInt32(out, word);
            }
            return STATUS_OK;
        case kHold: std::swap(self.held, given); return STATUS_OK;
        case kGiveBack: return AParcel_writeStrongBinder(out, self.held.get());
        case kNewBinder: return AParcel_writeStrongBinder(out, newBinder(first != 0).get());
        case kAnswer: return first;
        case kFill: return AParcel_writeByteArray(out, std::vector<int8_t>(static_cast<size_t>(first)).data(), first);
        case kDie: _exit(3);
        default: return STATUS_UNKNOWN_TRANSACTION;
    }
}

// Says its arguments.
inline binder_status_t onDump(AIBinder*, int fd, const char** args, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        if (write(fd, args[i], std::strlen(args[i])) < 0) return STATUS_UNKNOWN_ERROR;
    }
    return STATUS_OK;
}

inline AIBinder_Class* binderClass() {
    static AIBinder_Class* const clazz = [] {
        AIBinder_Class* const made = AIBinder_Class_define(
            kDescriptor, [](void*) -> void* { return new Implementation; },
            [](void* data) { delete static_cast<Implementation*>(data); }, onTransact);
        AIBinder_Class_setOnDump(made, onDump);
        return made;
    }();
    return clazz;
}

// A binder of this class in this process.
inline ndk::SpAIBinder newBinder(bool marked) {
    ndk::SpAIBinder binder(AIBinder_new(binderClass(), nullptr));
    if (marked) AIBinder_markVintfStability(binder.get());
    return binder;
}

// The registered binder with its class, when it is there.
inline ndk::SpAIBinder waitFor(const char* name) {
    ndk::SpAIBinder binder(AServiceManager_waitForService(name));
    EXPECT_TRUE(AIBinder_associateClass(binder.get(), binderClass()));
    return binder;
}

using Writer = std::function<void(AParcel*)>;
inline Writer words(std::vector<int32_t> values) {
    return [values = std::move(values)](AParcel* parcel) {
        for (const int32_t value : values) AParcel_writeInt32(parcel, value);
    };
}

struct Answer {
    binder_status_t status;
    ndk::ScopedAParcel parcel;

    int32_t word() const {
        int32_t value = -12345;
        if (parcel.get() != nullptr) AParcel_readInt32(parcel.get(), &value);
        return value;
    }
    ndk::SpAIBinder binder() const {
        ndk::SpAIBinder binder;
        if (parcel.get() != nullptr) AParcel_readStrongBinder(parcel.get(), binder.getR());
        return binder;
    }
};

// One transaction.
inline Answer call(const ndk::SpAIBinder& binder, Code code, const Writer& write = {}, binder_flags_t flags = 0) {
    ndk::ScopedAParcel in;
    Answer answer{AIBinder_prepareTransaction(binder.get(), in.getR()), ndk::ScopedAParcel()};
    if (answer.status != STATUS_OK) return answer;
    if (write) write(in.get());
    answer.status = AIBinder_transact(binder.get(), code, in.getR(), answer.parcel.getR(), flags);
    return answer;
}

inline std::vector<Note> notesOf(const ndk::SpAIBinder& binder) {
    std::vector<Note> notes;
    const Answer answer = call(binder, kNotes);
    EXPECT_EQ(STATUS_OK, answer.status);
    const int32_t size = answer.status == STATUS_OK ? AParcel_getDataSize(answer.parcel.get()) : 0;
    for (int32_t at = 0; at < size; at += 12) notes.push_back({answer.word(), answer.word(), answer.word()});
    return notes;
}

// What a process of the service does.
inline int serve() {
    static const struct Last {  // of all destructors, being the first to be made
        ~Last() {
            ending = true;
            std::this_thread::sleep_for(std::chrono::seconds(10));
        }
    } last;
    ABinderProcess_startThreadPool();
    for (const char* name : {kUnmarked, kName}) {
        if (AServiceManager_addService(newBinder(name == kName).get(), name) != EX_NONE) return 2;
    }
    asked.wait(false);
    return 0;
}

}  // namespace peer
