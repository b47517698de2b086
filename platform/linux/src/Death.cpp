#include "Death.h"

#include <android/binder_ibinder.h>

#include <algorithm>
#include <list>
#include <mutex>
#include <utility>
#include <vector>

#include "Faults.h"
#include "Object.h"
#include "Transport.h"

struct AIBinder_DeathRecipient {
    const AIBinder_DeathRecipient_onBinderDied onDied;
    AIBinder_DeathRecipient_onBinderUnlinked onUnlinked = nullptr;
};

namespace standin {
namespace {

// Linked until it is ended from outside or its delivery begins. While it is delivered the binder and the recipient may
// go; only what the delivery has copied is used then.
struct Link {
    uint64_t id;
    const RemoteBinder* binder;
    const AIBinder_DeathRecipient* recipient;
    void* cookie;
    bool delivering = false;
};

using Unlinked = std::pair<AIBinder_DeathRecipient_onBinderUnlinked, void*>;

class Links {
  public:
    static Links& get() {
        static Links* const links = new Links;
        return *links;
    }

    binder_status_t link(const RemoteBinder& binder, const AIBinder_DeathRecipient& recipient, void* cookie) {
        const std::lock_guard lock(mLock);
        if (binder.deathTold) return STATUS_DEAD_OBJECT;
        if (find(binder, recipient, cookie) != mLinks.end()) return STATUS_OK;
        mLinks.push_back({++mLastId, &binder, &recipient, cookie});
        // The peer may be gone already, and nobody was told. A connection closes first and asks for the lock then, so
        // one of the two sees the other; where both do, the second delivery finds nothing.
        if (!binder.connection->isOpen()) postDelivery(mLastId);
        return STATUS_OK;
    }

    binder_status_t unlink(const RemoteBinder& binder, const AIBinder_DeathRecipient& recipient, void* cookie) {
        std::unique_lock lock(mLock);
        const auto found = find(binder, recipient, cookie);
        if (found == mLinks.end()) return STATUS_NAME_NOT_FOUND;
        if (found->delivering) return STATUS_DEAD_OBJECT;
        const auto onUnlinked = recipient.onUnlinked;
        mLinks.erase(found);
        lock.unlock();
        if (onUnlinked != nullptr) onUnlinked(cookie);
        return STATUS_OK;
    }

    void setOnUnlinked(AIBinder_DeathRecipient& recipient, AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
        const std::lock_guard lock(mLock);
        recipient.onUnlinked = onUnlinked;
    }

    template <typename Chosen>
    void endIf(Chosen chosen) {
        std::vector<Unlinked> ended;
        {
            const std::lock_guard lock(mLock);
            for (auto link = mLinks.begin(); link != mLinks.end();) {
                const auto here = link++;
                if (!chosen(*here)) continue;
                if (here->delivering) {
                    // Its names may soon be those of others.
                    here->binder = nullptr;
                    here->recipient = nullptr;
                } else {
                    ended.emplace_back(here->recipient->onUnlinked, here->cookie);
                    mLinks.erase(here);
                }
            }
        }
        for (const auto& [onUnlinked, cookie] : ended) {
            if (onUnlinked != nullptr) onUnlinked(cookie);
        }
    }

    void announce(const Connection& connection) {
        const std::lock_guard lock(mLock);
        for (const Link& link : mLinks) {
            if (!link.delivering && link.binder->connection.get() == &connection) {
                postDelivery(link.id);
            }
        }
    }

  private:
    void postDelivery(uint64_t id) {
        post([this, id] { deliver(id); });
    }

    void deliver(uint64_t id) {
        std::unique_lock lock(mLock);
        const auto link = std::find_if(mLinks.begin(), mLinks.end(), [&](const Link& each) { return each.id == id; });
        if (link == mLinks.end() || link->delivering) return;
        link->delivering = true;
        link->binder->deathTold = true;
        const auto onDied = link->recipient->onDied;
        const Unlinked unlinked(link->recipient->onUnlinked, link->cookie);
        lock.unlock();
        onDied(unlinked.second);
        lock.lock();
        mLinks.erase(link);
        lock.unlock();
        if (unlinked.first != nullptr) unlinked.first(unlinked.second);
    }

    std::list<Link>::iterator find(const RemoteBinder& binder, const AIBinder_DeathRecipient& recipient, void* cookie) {
        return std::find_if(mLinks.begin(), mLinks.end(), [&](const Link& link) {
            return link.binder == &binder && link.recipient == &recipient && link.cookie == cookie;
        });
    }

    std::mutex mLock;
    std::list<Link> mLinks;
    uint64_t mLastId = 0;
};

}  // namespace

void announceDeath(const Connection& connection) { Links::get().announce(connection); }
void unlinkAll(const RemoteBinder& binder) {
    Links::get().endIf([&](const Link& link) { return link.binder == &binder; });
}

}  // namespace standin

using standin::Links;

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    if (const auto fault = standin::fault("linkToDeath")) return *fault;
    const standin::RemoteBinder* remote = binder->asRemote();
    return remote == nullptr ? binder_status_t{STATUS_INVALID_OPERATION}
                             : Links::get().link(*remote, *recipient, cookie);
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    if (const auto fault = standin::fault("unlinkToDeath")) return *fault;
    const standin::RemoteBinder* remote = binder->asRemote();
    return remote == nullptr ? binder_status_t{STATUS_INVALID_OPERATION}
                             : Links::get().unlink(*remote, *recipient, cookie);
}

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    return onBinderDied == nullptr ? nullptr : new AIBinder_DeathRecipient{onBinderDied};
}
void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
    Links::get().setOnUnlinked(*recipient, onUnlinked);
}
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    Links::get().endIf([&](const standin::Link& link) { return link.recipient == recipient; });
    delete recipient;
}
