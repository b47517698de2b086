// Names. A registered binder is a symbolic link in the folder whose text says where it is: the socket of its process,
// its id there, its stability. The link is renamed into place, so it appears whole, and replaces that of a process that
// is no more.
#include <android/binder_manager.h>
#include <android/log.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <thread>

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

AIBinder* AServiceManager_waitForService(const char* instance) {
    constexpr std::chrono::seconds kStep(1);
    if (!standin::isValidName(instance) || standin::fault("waitForService")) return nullptr;
    if (standin::folder() < 0) {
        // Nothing will ever come; a caller that asks again and again must not burn a processor.
        std::this_thread::sleep_for(kStep);
        return nullptr;
    }
    for (;;) {
        const uint64_t seen = standin::namesChanged();  // before the look, so that nothing falls between
        if (AIBinder* binder = standin::find(instance)) return binder;
        // The user's watches of folders may be used up: look again in any case.
        if (!standin::waitForNames(seen, kStep)) {
            __android_log_print(ANDROID_LOG_INFO, standin::kLogTag, "Waited one second for %s", instance);
        }
    }
}
