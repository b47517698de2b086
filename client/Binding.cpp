// The life of the client and of its connection.
//
// Unbound: service is null. bindToService waits for the service and makes the client bound; event 0 tells Java and
// registers a callback. The service's death is event -1: handleServiceDown makes the client unbound, tells Java and
// starts the next binding thread. Java hears of a change after it has happened.

#include <android/binder_manager.h>

#include <string>
#include <thread>

#include "callback/OrvixCallback.h"
#include "client/AidlClient.h"
#include "client/Log.h"

namespace orvix {

std::unique_ptr<AidlClient> gAidlClient;

AidlClient::~AidlClient() {
    const Life before = life.exchange(Life::ended);
    javaClass = nullptr;  // the global reference stays: the VM may be gone by now
    // A binding thread that waits for a service that hangs keeps serviceLock: the end does not wait for that, and what
    // such a thread holds it drops itself.
    if (before != Life::asking) {
        const std::lock_guard lock(serviceLock);
        dropService();
    }
    const std::lock_guard lock(queueMutex);
    eventQueue.clear();
}

void AidlClient::dropService() {
    service.reset();
    std::atomic_store(&callback, {});
    deathRecipient.set(nullptr);
}

void AidlClient::startThread(void (AidlClient::*body)(), AidlClient& client) { std::thread(body, &client).detach(); }

std::shared_ptr<IOrvixService> AidlClient::getOrvixService() {
    const SharedGuard lock(serviceLock);
    return service;
}

void AidlClient::bindToService() {
    const std::string name = std::string(IOrvixService::descriptor) + "/default";
    for (;;) {
        const ndk::SpAIBinder binder(AServiceManager_waitForService(name.c_str()));
        if (binder.get() == nullptr) continue;
        const std::lock_guard lock(serviceLock);
        Life open = Life::open, asking = Life::asking;
        if (!life.compare_exchange_strong(open, asking)) return;
        service = IOrvixService::fromBinder(binder);
        if (!life.compare_exchange_strong(asking, open)) return dropService();
        if (!service) continue;
        deathRecipient.set(AIBinder_DeathRecipient_new(deathCallback));
        AIBinder_linkToDeath(service->asBinder().get(), deathRecipient.get(), this);
        break;
    }
    LOGD("bindToService is successful");
    pushEv({.type = kServiceUp});
}

void AidlClient::deathCallback(void*) { latest().pushEv({.type = kServiceDown}); }

void AidlClient::handleServiceUp() {
    LOGD("handleServiceUp start");
    if (!tellAvailability(true)) return;
    const auto bound = getOrvixService();
    if (!bound) return;
    const auto registered = ndk::SharedRefBase::make<OrvixCallback>();
    std::atomic_store(&callback, registered);  // a second initialize's dispatch thread may do the same, and the end
    bound->registerRequest(registered);
}

void AidlClient::handleServiceDown() {
    LOGD("handleServiceDown start");
    {
        const std::lock_guard lock(serviceLock);
        if (service) AIBinder_unlinkToDeath(service->asBinder().get(), deathRecipient.get(), this);
        service.reset();
    }
    // Without Java there is no use for the service: a failed attach leaves the client unbound for good.
    if (!tellAvailability(false)) return;
    startThread(&AidlClient::bindToService, *this);
}

}  // namespace orvix
