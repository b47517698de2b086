// The life of the client and of its connection.
//
// Unbound: service is null. bindToService waits for the service and makes the client bound; event 0 tells Java and
// registers a callback. The service's death is event -1: handleServiceDown makes the client unbound, tells Java and
// starts the next binding thread. Java hears of a change after it has happened.

#include <android/binder_manager.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "client/AidlClient.h"
#include "client/Log.h"

namespace orvix {

std::unique_ptr<AidlClient> gAidlClient;

namespace {
std::atomic<bool> threadsStarted = false;
}  // namespace

AidlClient::~AidlClient() {
    if (threadsStarted) {
        // Never unlocked. A thread that comes back late from Java or from binding finds the queue or the service locked
        // and stays there; nobody stops these threads, and they must not work on a client that is gone. A binding
        // thread may hold serviceLock while it asks a service that hangs: the end of the process does not wait for
        // that, and what such a thread may still assign to is left empty below.
        queueMutex.lock();
        for (int tries = 0; tries < 100 && !serviceLock.try_lock(); ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    javaClass = nullptr;  // the global reference stays: the VM may be gone by now
    service.reset();
    callback.reset();
    deathRecipient.set(nullptr);
}

void AidlClient::operator delete(void* storage) {     // NOLINT(misc-new-delete-overloads)
    if (!threadsStarted) ::operator delete(storage);  // else such a thread may still look at the lock
}

void AidlClient::startThread(void (AidlClient::*body)(), AidlClient* client) {
    threadsStarted = true;
    std::thread(body, client).detach();
}

std::shared_ptr<IOrvixService> AidlClient::getOrvixService() {
    const SharedGuard lock(serviceLock);
    return service;
}

void AidlClient::bindToService() {
    const std::string name = std::string(IOrvixService::descriptor) + "/default";
    for (bool bound = false; !bound;) {
        const ndk::SpAIBinder binder(AServiceManager_waitForService(name.c_str()));
        if (binder.get() == nullptr) continue;
        const std::lock_guard lock(serviceLock);
        service = IOrvixService::fromBinder(binder);
        if (!service) continue;
        deathRecipient.set(AIBinder_DeathRecipient_new(deathCallback));
        AIBinder_linkToDeath(service->asBinder().get(), deathRecipient.get(), this);
        bound = true;
    }
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "bindToService is successful");
    pushEv({.type = 0});
}

void AidlClient::deathCallback(void*) { gAidlClient->pushEv({.type = -1}); }

void AidlClient::handleServiceUp() {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "handleServiceUp start");
    if (!tellAvailability(true)) return;
    const auto bound = getOrvixService();
    if (!bound) return;
    const auto registered = ndk::SharedRefBase::make<OrvixCallback>();
    {
        const std::lock_guard lock(serviceLock);  // against the destructor and a second initialize's dispatch thread
        callback = registered;
    }
    bound->registerRequest(registered);
}

void AidlClient::handleServiceDown() {
    __android_log_print(ANDROID_LOG_DEBUG, kLogTag, "handleServiceDown start");
    {
        const std::lock_guard lock(serviceLock);
        if (service) AIBinder_unlinkToDeath(service->asBinder().get(), deathRecipient.get(), this);
        service.reset();
    }
    // Without Java there is no use for the service: a failed attach leaves the client unbound for good.
    if (!tellAvailability(false)) return;
    startThread(&AidlClient::bindToService, this);
}

}  // namespace orvix
