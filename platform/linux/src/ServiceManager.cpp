// Names. A registered binder is a symbolic link in the folder whose text says where it is: the socket of its process,
// its id there, its stability. The link is renamed into place, so it appears whole, and replaces that of a process that
// is no more.
#include <android/binder_manager.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <thread>
#include <vector>

#include "Faults.h"
#include "Transport.h"

namespace standin {
namespace {

// What this process has registered, for ever or until it registers another under the name.
struct Registry {
    std::mutex lock;
    std::map<std::string, ndk::SpAIBinder> binders;

    static Registry& get() {
        static Registry* const registry = new Registry;
        return *registry;
    }
};

bool isValidName(const char* name) {
    if (name == nullptr) return false;
    const std::string_view text(name);
    return !text.empty() && text.size() <= 127 && std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
               c == '-' || c == '/';
    });
}

std::string linkOf(const char* name) {
    std::string link = std::string("s-") + name;
    std::replace(link.begin(), link.end(), '/', '%');
    return link;
}

// A reference for the caller, or null.
AIBinder* find(const char* name) {
    if (folder() < 0) return nullptr;
    char text[64] = {};
    if (readlinkat(folder(), linkOf(name).c_str(), text, sizeof(text) - 1) <= 0) return nullptr;
    char socket[19] = {};
    uint32_t id = 0;
    int32_t stability = 0;
    if (std::sscanf(text, "p-%16[0-9a-f] %u %d", socket, &id, &stability) != 3) return nullptr;
    const std::string process = std::string("p-") + socket;
    ndk::SpAIBinder binder;
    // A process that registers nothing does not listen, and need not begin to only because it looks for others.
    {
        Registry& registry = Registry::get();
        const std::lock_guard lock(registry.lock);
        if (!registry.binders.empty() && process == listenAt()) {
            const auto found = registry.binders.find(name);
            if (found != registry.binders.end()) binder = found->second;
        }
    }
    if (binder.get() == nullptr) {
        const std::shared_ptr<Connection> connection = connectTo(process);
        if (connection != nullptr) binder = connection->acquire(id, stability);
    }
    AIBinder_incStrong(binder.get());
    return binder.get();
}

// Looks out for names that appear in the folder. Closing its descriptor would keep the kernel busy for tens of
// milliseconds, with the caller waiting: it is kept for the next one.
class Lookout {
  public:
    Lookout() {
        {
            const std::lock_guard lock(idle().lock);
            if (!idle().descriptors.empty()) {
                mDescriptor = idle().descriptors.back();
                idle().descriptors.pop_back();
                return;
            }
        }
        const ndk::ScopedFileDescriptor low(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
        mDescriptor = duplicateHigh(low.get());
        const std::string path = "/proc/self/fd/" + std::to_string(folder());
        if (inotify_add_watch(mDescriptor, path.c_str(), IN_MOVED_TO) >= 0) return;
        close(mDescriptor);
        mDescriptor = -1;
    }
    ~Lookout() {
        const std::lock_guard lock(idle().lock);
        if (mDescriptor >= 0) idle().descriptors.push_back(mDescriptor);
    }
    Lookout(const Lookout&) = delete;
    Lookout& operator=(const Lookout&) = delete;

    // Until something has appeared since the last time, or the time in milliseconds is over; -1: no end.
    void wait(int milliseconds) const {
        if (mDescriptor < 0 && milliseconds < 0) milliseconds = 100;  // the user's watches may be used up
        pollfd change{mDescriptor, POLLIN, 0};
        poll(&change, 1, milliseconds);
        alignas(inotify_event) char events[4096];
        while (read(mDescriptor, events, sizeof(events)) > 0) {
        }
    }

  private:
    struct Idle {
        std::mutex lock;
        std::vector<int> descriptors;
    };
    static Idle& idle() {
        static Idle* const all = new Idle;
        return *all;
    }

    int mDescriptor = -1;
};

// Null when the time is over; no time: never.
AIBinder* waitFor(const char* name, std::chrono::milliseconds time = {}) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + time;
    if (folder() < 0) {
        // Nothing will ever come; a caller that asks again and again must not burn a processor.
        std::this_thread::sleep_for(std::chrono::seconds(1));
        return nullptr;
    }
    const Lookout lookout;  // before the first look, so that nothing falls between
    for (;;) {
        if (AIBinder* binder = find(name)) return binder;
        int wait = -1;
        if (time.count() > 0) {
            wait = static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count());
            if (wait <= 0) return nullptr;
        }
        lookout.wait(wait);
    }
}

}  // namespace

ndk::SpAIBinder registeredBinder(uint32_t id) {
    Registry& registry = Registry::get();
    const std::lock_guard lock(registry.lock);
    for (const auto& [name, binder] : registry.binders) {
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
    AIBinder_incStrong(binder);
    ndk::SpAIBinder held(binder);
    {
        // Before the name appears: whoever sees it finds the binder. The one before leaves outside the lock.
        Registry& registry = Registry::get();
        const std::lock_guard lock(registry.lock);
        std::swap(registry.binders[instance], held);
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
AIBinder* AServiceManager_getService(const char* instance) {
    if (!standin::isValidName(instance)) return nullptr;
    return standin::waitFor(instance, std::chrono::seconds(5));
}
AIBinder* AServiceManager_waitForService(const char* instance) {
    if (!standin::isValidName(instance) || standin::fault("waitForService")) return nullptr;
    return standin::waitFor(instance);
}

// There is no manifest here: what is registered is declared.
bool AServiceManager_isDeclared(const char* instance) {
    return ndk::SpAIBinder(AServiceManager_checkService(instance)).get() != nullptr;
}
