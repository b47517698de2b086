// Names. A registered binder is a symbolic link in the folder whose text says where it is: the socket of its process,
// its id there, its stability. The link is renamed into place, so it appears whole, and replaces that of a process that
// is no more.
#include <android/binder_manager.h>
#include <android/log.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <thread>

#include "Faults.h"
#include "Transport.h"

namespace standin {
namespace {

// What this process has registered, for ever: a peer that found a binder by its name holds nothing else of it.
struct Registered {
    std::mutex lock;
    std::vector<ndk::SpAIBinder> binders;
};
Registered& registered = *new Registered;  // pool threads may ask while static destructors run

bool isValidName(const char* name) {
    constexpr const char* kAllowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-/";
    const std::string_view text(name == nullptr ? "" : name);
    return !text.empty() && text.size() <= 127 && text.find_first_not_of(kAllowed) == text.npos;
}

std::string linkOf(const char* name) {
    std::string link = std::string("s-") + name;
    std::replace(link.begin(), link.end(), '/', '%');
    return link;
}

// A reference for the caller, or null.
AIBinder* find(const char* name) {
    char text[64] = {};
    if (folder() < 0 || readlinkat(folder(), linkOf(name).c_str(), text, sizeof(text) - 1) <= 0) return nullptr;
    char process[19] = {};
    uint32_t id = 0;
    int32_t stability = 0;
    if (std::sscanf(text, "%18[-p0-9a-f] %u %d", process, &id, &stability) != 3) return nullptr;
    // A process that registers nothing does not listen, and need not begin to only because it looks for others.
    ndk::SpAIBinder binder = registeredBinder(id);
    if (binder.get() == nullptr || process != listenAt()) {
        const std::shared_ptr<Connection> connection = connectTo(process);
        binder = connection == nullptr ? nullptr : connection->acquire(id, stability);
    }
    AIBinder_incStrong(binder.get());
    return binder.get();
}

// Counts the names that appear in the folder, for those who wait for one.
class Lookout {
  public:
    static Lookout& get() {
        static Lookout* const lookout = new Lookout;
        return *lookout;
    }

    // Until the count is not what the caller has seen, which is then told; false: not within the time.
    bool wait(uint64_t& seen, std::chrono::seconds time) {
        std::unique_lock lock(mLock);
        const bool changed = mChanged.wait_for(lock, time, [&] { return mCount != seen; });
        seen = mCount;
        return changed;
    }

  private:
    // Where the user's watches are used up, nothing is read.
    Lookout() {
        const ndk::ScopedFileDescriptor low(inotify_init1(IN_CLOEXEC));
        const int watch = duplicateHigh(low.get());
        inotify_add_watch(watch, pathTo("").c_str(), IN_MOVED_TO);
        startThread([this, watch] {
            alignas(inotify_event) char events[4096];
            while (read(watch, events, sizeof(events)) > 0) {
                const std::lock_guard lock(mLock);
                ++mCount;
                mChanged.notify_all();
            }
        });
    }

    std::mutex mLock;
    std::condition_variable mChanged;
    uint64_t mCount = 0;
};

}  // namespace

ndk::SpAIBinder registeredBinder(uint32_t id) {
    const std::lock_guard lock(registered.lock);
    for (const ndk::SpAIBinder& binder : registered.binders) {
        if (binder.get()->asLocal()->id == id) return binder;
    }
    return nullptr;
}

}  // namespace standin

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    using namespace standin;
    if (binder == nullptr || binder->asLocal() == nullptr || !isValidName(instance)) return EX_ILLEGAL_ARGUMENT;
    const std::string& process = listenAt();
    if (process.empty()) return EX_ILLEGAL_STATE;
    const uint32_t id = idOf(*binder->asLocal());
    if (registeredBinder(id).get() == nullptr) {  // before the name appears: whoever sees it finds the binder
        AIBinder_incStrong(binder);
        const std::lock_guard lock(registered.lock);
        registered.binders.emplace_back(binder);
    }
    const std::string text = process + ' ' + std::to_string(id) + ' ' + std::to_string(binder->stability);
    const std::string temporary = "t-" + uniqueName();
    if (symlinkat(text.c_str(), folder(), temporary.c_str()) != 0) return EX_ILLEGAL_STATE;
    if (renameat(folder(), temporary.c_str(), folder(), linkOf(instance).c_str()) == 0) return EX_NONE;
    unlinkat(folder(), temporary.c_str(), 0);
    return EX_ILLEGAL_STATE;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    if (!standin::isValidName(instance) || standin::fault("checkService")) return nullptr;
    return standin::find(instance);
}

AIBinder* AServiceManager_waitForService(const char* instance) {
    using namespace standin;
    constexpr std::chrono::seconds kStep(1);
    if (!isValidName(instance) || fault("waitForService")) return nullptr;
    if (folder() < 0) {
        // Nothing will ever come; a caller that asks again and again must not burn a processor.
        std::this_thread::sleep_for(kStep);
        return nullptr;
    }
    for (uint64_t seen = UINT64_MAX;;) {  // the first wait is none; a name that appears after it ends the next
        if (!Lookout::get().wait(seen, kStep)) {
            __android_log_print(ANDROID_LOG_INFO, kLogTag, "Waited one second for %s", instance);
        }
        if (AIBinder* binder = find(instance)) return binder;
    }
}
