// The library between a Java VM of function tables and a recorded platform border.
//
// Everything that passes is one line of one transcript, in order: "log" the library's log, "jni" and "vm" its calls of
// the VM, "transact" what it sends to the service, "binder" the other steps of binding, "sys" and "syslog" its sockets.
// The border is drawn by the linker (--wrap), around the objects of this program only.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "aidl/IOrvixService.h"
#include "sim/vm/quiet_jni.h"
#include "tests/aidl_peers.h"

namespace fake {

namespace orvix = aidl::vendor::nuvel::data::orvixservice;

// What the platform answers; the VM has a script of its own. Set it while no other thread runs, except the atomic
// member.
struct Script {
    int tagSocket = 0;
    std::atomic<int> nullServices = 0;  // so many waits for the service give null at once
    // Runs on the thread that made the line, before the call is made.
    std::function<void(const std::string& line)> then;
};
extern Script& script;

// Before everything else, and again to forget the transcript and both scripts. The calling thread is attached, as
// threads of Java are. The services are those of this process and its children alone.
void reset();

void record(const std::string& line);
void clearLines();
std::vector<std::string> lines();
// Lines that begin so.
size_t count(std::string_view start);
// Waits until there are so many lines that begin so; false when patience (process.h) is at its end.
bool waitFor(std::string_view start, size_t times = 1);

// Java's objects.
jbyteArray bytes(const std::vector<uint8_t>& bytes);
jobject parcel(AParcel* content);  // takes the parcel, which is read from its position
jobjectArray array(const std::vector<jobject>& elements);
// The name that the library waits for.
inline constexpr const char* kServiceName = "vendor.nuvel.data.orvixservice.IOrvixService/default";

// Registers what the library waits for: a service of this process that answers each call so. The library has a proxy of
// it, as of one in another process.
template <typename I = orvix::IOrvixService>
void serve(orvix_test::Answer answer = [](auto...) { return STATUS_OK; }) {
    const ndk::SpAIBinder binder = orvix_test::peerOf<I>(std::move(answer));
    if (AServiceManager_addService(binder.get(), kServiceName) != EX_NONE) std::abort();
}

// What Java does: loads the library, which must succeed, and calls its initialize.
void load();
void initialize();

}  // namespace fake
