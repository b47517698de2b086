#include "Object.h"

#include <android/binder_stability.h>
#include <android/log.h>

#include <cstdlib>
#include <deque>
#include <utility>
#include <vector>

#include "Faults.h"
#include "Parcel.h"
#include "Transport.h"

struct AIBinder_Weak {
    AIBinder* const binder;
};

namespace {

binder_status_t dumpTo(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    const AIBinder_onDump handler = binder->clazz.load()->onDump;
    return handler == nullptr ? binder_status_t{STATUS_OK} : handler(binder, fd, args, numArgs);
}

binder_status_t readAndDump(AIBinder* binder, const AParcel& in) {
    standin::Parcel& parcel = *in.content;
    ndk::ScopedFileDescriptor fd;
    uint32_t count = 0;
    binder_status_t status = parcel.readDescriptor(fd.getR());
    if (status == STATUS_OK) status = parcel.read(&count);
    if (status != STATUS_OK) return status;
    std::deque<std::string> texts;
    std::vector<const char*> args;
    while (args.size() < count) {
        const auto text = parcel.readString();
        if (!text) return STATUS_UNEXPECTED_NULL;
        args.push_back(texts.emplace_back(*text).c_str());
    }
    return dumpTo(binder, fd.get(), args.data(), count);
}

}  // namespace

namespace standin {

void LocalBinder::end() { clazz.load()->onDestroy(userData); }

binder_status_t LocalBinder::transact(transaction_code_t code, AParcel& in, AParcel& out, binder_flags_t) {
    const AIBinder_Class* const mine = clazz;
    in.content->position = 0;
    if (code == kDump) return readAndDump(this, in);
    if (code == kDescriptor) return out.content->writeString(mine->descriptor);
    if (!isUserCode(code)) return STATUS_UNKNOWN_TRANSACTION;
    if (!in.content->checkToken(mine->descriptor)) return STATUS_BAD_TYPE;
    return mine->onTransact(this, code, &in, &out);
}

void RemoteBinder::end() {
    unlinkAll(*this);
    connection->forget(*this);
}

binder_status_t RemoteBinder::transact(transaction_code_t code, AParcel& in, AParcel& out, binder_flags_t flags) {
    if (!alive) return STATUS_DEAD_OBJECT;
    const auto status = connection->transact(*this, code, *in.content, *out.content, (flags & FLAG_ONEWAY) != 0);
    // Also where a living peer answers so.
    if (status == STATUS_DEAD_OBJECT) alive = false;
    return status;
}

}  // namespace standin

bool AIBinder::tryIncStrong() {
    int32_t count = strong;
    while (count > 0 && !strong.compare_exchange_weak(count, count + 1)) {
    }
    return count > 0;
}

void AIBinder::decWeak() {
    if (weak.fetch_sub(1) == 1) delete this;
}

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor, AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy, AIBinder_Class_onTransact onTransact) {
    if (interfaceDescriptor == nullptr || onCreate == nullptr || onDestroy == nullptr || onTransact == nullptr) {
        return nullptr;
    }
    return new AIBinder_Class{interfaceDescriptor, onCreate, onDestroy, onTransact};
}
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) { clazz->onDump = onDump; }
void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz, AIBinder_handleShellCommand handler) {
    clazz->handleShellCommand = handler;
}
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) { return clazz->descriptor.c_str(); }

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
    return clazz == nullptr ? nullptr : new standin::LocalBinder(clazz, clazz->onCreate(args));
}

bool AIBinder_isRemote(const AIBinder* binder) { return binder != nullptr && binder->asRemote() != nullptr; }
bool AIBinder_isAlive(const AIBinder* binder) {
    const standin::RemoteBinder* remote = binder == nullptr ? nullptr : binder->asRemote();
    return binder != nullptr && (remote == nullptr || remote->alive);
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (binder->asLocal() != nullptr) return dumpTo(binder, fd, args, numArgs);
    AParcel in;
    AParcel out;
    binder_status_t status = in.content->writeDescriptor(fd);
    if (status == STATUS_OK) status = in.content->write(numArgs);
    for (uint32_t i = 0; i < numArgs && status == STATUS_OK; ++i) status = in.content->writeString(args[i]);
    return status == STATUS_OK ? standin::knownStatus(binder->transact(standin::kDump, in, out, 0)) : status;
}

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) ++binder->strong;
}
void AIBinder_decStrong(AIBinder* binder) {
    if (binder == nullptr || --binder->strong != 0) return;
    binder->end();
    binder->decWeak();
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
    if (binder == nullptr || clazz == nullptr) return false;
    const AIBinder_Class* current = binder->clazz;
    if (current == clazz) return true;
    if (binder->asLocal() != nullptr) return false;
    if (current == nullptr) {
        AParcel in;
        AParcel out;
        if (binder->transact(standin::kDescriptor, in, out, 0) != STATUS_OK) return false;
        out.content->position = 0;
        if (out.content->readString() != clazz->descriptor) return false;
        // Another thread may have been first.
        if (binder->clazz.compare_exchange_strong(current, clazz)) return true;
    }
    return current->descriptor == clazz->descriptor;
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) { return binder == nullptr ? nullptr : binder->clazz.load(); }
void* AIBinder_getUserData(AIBinder* binder) {
    const standin::LocalBinder* local = binder == nullptr ? nullptr : binder->asLocal();
    return local == nullptr ? nullptr : local->userData;
}
void AIBinder_markVintfStability(AIBinder* binder) {
    if (binder == nullptr) std::abort();
    if (binder->asLocal() != nullptr) binder->stability = standin::kVintfStability;
}

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
    if (binder == nullptr || in == nullptr) return STATUS_UNEXPECTED_NULL;
    const AIBinder_Class* clazz = binder->clazz;
    if (clazz == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, "libbinder_ndk", "Transaction prepared on a binder without a class.");
        return STATUS_INVALID_OPERATION;
    }
    AIBinder_incStrong(binder);
    *in = new AParcel{.binder = ndk::SpAIBinder(binder)};
    return (*in)->content->writeToken(clazz->descriptor);
}

binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out,
                                  binder_flags_t flags) {
    if (out != nullptr) *out = nullptr;
    if (in == nullptr) return STATUS_UNEXPECTED_NULL;
    const std::unique_ptr<AParcel> sent(std::exchange(*in, nullptr));
    if (!standin::isUserCode(code)) return STATUS_UNKNOWN_TRANSACTION;
    constexpr binder_flags_t kKnownFlags = binder_flags_t{FLAG_ONEWAY} | 0x20 /* clear buffer */ | FLAG_PRIVATE_VENDOR;
    if ((flags & ~kKnownFlags) != 0) return STATUS_BAD_VALUE;
    if (binder == nullptr || sent == nullptr || out == nullptr) return STATUS_UNEXPECTED_NULL;
    if (sent->binder.get() != binder) return STATUS_BAD_VALUE;
    if ((flags & FLAG_PRIVATE_VENDOR) != 0 && binder->stability != standin::kVintfStability) return STATUS_BAD_TYPE;
    if (const auto fault = standin::fault("transact")) return *fault;

    auto reply = std::make_unique<AParcel>();
    const binder_status_t status = standin::knownStatus(binder->transact(code, *sent, *reply, flags));
    if (status != STATUS_OK) return status;
    if ((flags & FLAG_ONEWAY) != 0) reply->content->clear();
    reply->content->position = 0;
    *out = reply.release();
    return STATUS_OK;
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    ++binder->weak;
    return new AIBinder_Weak{binder};
}
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr) return;
    weakBinder->binder->decWeak();
    delete weakBinder;
}
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
    return weakBinder != nullptr && weakBinder->binder->tryIncStrong() ? weakBinder->binder : nullptr;
}
