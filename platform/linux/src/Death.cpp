
#include <android/binder_ibinder.h>
#include <android/log.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

#include "Faults.h"
#include "Object.h"
#include "Trace.h"
#include "Transport.h"

struct AIBinder_DeathRecipient {
    const AIBinder_DeathRecipient_onBinderDied onDied;
    AIBinder_DeathRecipient_onBinderUnlinked onUnlinked = nullptr;
};

namespace standin {
namespace {

// However it ends (refused, unlinked, told, or in silence), the last use of the cookie is its destructor's.
struct Link {
    const RemoteBinder* const binder;
    const AIBinder_DeathRecipient* const recipient;
    void* const cookie;
    const AIBinder_DeathRecipient_onBinderDied onDied;
    const AIBinder_DeathRecipient_onBinderUnlinked onUnlinked;
    bool delivering = false;

    ~Link() {
        if (onUnlinked != nullptr) onUnlinked(cookie);
    }
};
using Links = std::vector<std::shared_ptr<Link>>;

// Those whose binder and recipient exist: a link that is being delivered may have lost them and then is not here.
struct Registry {
    std::mutex lock;
    Links links;
};
Registry& registry = *new Registry;  // pool threads use it while static destructors run

// They leave the registry, and end with the answer.
Links take(auto matches) {
    const std::lock_guard lock(registry.lock);
    Links& links = registry.links;
    const auto rest =
        std::stable_partition(links.begin(), links.end(), [&](const auto& each) { return !matches(each); });
    Links taken(std::make_move_iterator(rest), std::make_move_iterator(links.end()));
    links.erase(rest, links.end());
    return taken;
}

void deliver(const std::shared_ptr<Link>& link) {
    {
        const std::lock_guard lock(registry.lock);
        const Links& links = registry.links;
        if (link->delivering || std::find(links.begin(), links.end(), link) == links.end()) return;
        link->delivering = true;
        link->binder->deathTold = true;
        link->binder->alive = false;
    }
    {
        const Section section([&] { return "death " + std::to_string(link->binder->connection->peer()); });
        link->onDied(link->cookie);
    }
    take([&](const auto& each) { return each == link; });
}

void postDelivery(const std::shared_ptr<Link>& link) {
    post([weak = std::weak_ptr(link)] {
        if (const std::shared_ptr<Link> stillThere = weak.lock()) deliver(stillThere);
    });
}

Links::iterator find(const AIBinder* binder, const AIBinder_DeathRecipient* recipient, const void* cookie) {
    Links& links = registry.links;
    return std::find_if(links.begin(), links.end(), [&](const auto& link) {
        return link->binder == binder && link->recipient == recipient && link->cookie == cookie;
    });
}

}  // namespace

void announceDeath(const Connection& connection) {
    const std::lock_guard lock(registry.lock);
    for (const auto& link : registry.links) {
        if (link->binder->connection.get() == &connection) postDelivery(link);
    }
}
void unlinkAll(const RemoteBinder& binder) {
    take([&](const auto& link) { return link->binder == &binder; });
}

}  // namespace standin

using namespace standin;

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    if (cookie != nullptr && recipient->onUnlinked == nullptr) {
        __android_log_print(ANDROID_LOG_WARN, kLogTag, "linkToDeath: non-null cookie and no onUnlink callback set");
    }
    std::shared_ptr<Link> link;  // refused, it ends after the lock
    const std::lock_guard lock(registry.lock);
    if (find(binder, recipient, cookie) != registry.links.end()) return STATUS_OK;
    const RemoteBinder* remote = binder->asRemote();
    link.reset(new Link{remote, recipient, cookie, recipient->onDied, recipient->onUnlinked});
    if (const auto fault = standin::fault("linkToDeath")) return *fault;
    if (remote == nullptr) return STATUS_INVALID_OPERATION;
    if (remote->deathTold) return STATUS_DEAD_OBJECT;
    registry.links.push_back(link);
    // The peer may be gone already, and nobody was told. A connection closes first and asks for the lock then, so one
    // of the two sees the other; where both do, the second delivery finds nothing.
    if (!remote->connection->isOpen()) postDelivery(link);
    return STATUS_OK;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    if (const auto fault = standin::fault("unlinkToDeath")) return *fault;
    if (binder->asRemote() == nullptr) return STATUS_INVALID_OPERATION;
    std::shared_ptr<Link> taken;  // ends after the lock
    const std::lock_guard lock(registry.lock);
    const auto found = find(binder, recipient, cookie);
    if (found == registry.links.end()) return STATUS_NAME_NOT_FOUND;
    if ((*found)->delivering) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "unlinkToDeath: unlink failed: DEAD_OBJECT");
        return STATUS_DEAD_OBJECT;
    }
    taken = std::move(*found);
    registry.links.erase(found);
    return STATUS_OK;
}

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    return onBinderDied == nullptr ? nullptr : new AIBinder_DeathRecipient{onBinderDied};
}
void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
    recipient->onUnlinked = onUnlinked;
}
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    take([&](const auto& link) { return link->recipient == recipient; });
    delete recipient;
}
