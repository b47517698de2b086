// Binders: classes, references, local objects and proxies.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_shell.h>

#include <atomic>
#include <memory>
#include <string>

#include "Process.h"

namespace standin {

class Connection;
class Parcel;
struct LocalBinder;
struct RemoteBinder;

// Transactions that every binder answers by itself; the codes lie outside the user's range.
enum MetaTransaction : transaction_code_t {
    kDump = 0x5f444d50,        // "_DMP"
    kDescriptor = 0x5f4e5446,  // "_NTF"
};

constexpr int32_t kSystemStability = 0x0c;
constexpr int32_t kVintfStability = 0x3f;

// What a status is passed on as: any that no list has becomes STATUS_UNKNOWN_ERROR.
binder_status_t knownStatus(binder_status_t status);

inline bool isUserCode(transaction_code_t code) {
    return code >= FIRST_CALL_TRANSACTION && code <= LAST_CALL_TRANSACTION;
}

}  // namespace standin

struct AIBinder_Class {
    const std::string descriptor;
    const AIBinder_Class_onCreate onCreate;
    const AIBinder_Class_onDestroy onDestroy;
    const AIBinder_Class_onTransact onTransact;
    AIBinder_onDump onDump = nullptr;
    AIBinder_handleShellCommand handleShellCommand = nullptr;
};

// Two counts: the object ends with the last strong reference, its memory with the last weak one. All strong references
// together hold one weak reference.
struct AIBinder {
    std::atomic<int32_t> strong{1};
    std::atomic<int32_t> weak{1};
    std::atomic<const AIBinder_Class*> clazz;
    std::atomic<int32_t> stability;

    AIBinder(const AIBinder_Class* itsClass, int32_t itsStability) : clazz(itsClass), stability(itsStability) {}
    virtual ~AIBinder() = default;
    virtual standin::LocalBinder* asLocal() { return nullptr; }
    virtual const standin::RemoteBinder* asRemote() const { return nullptr; }
    // The last strong reference is gone.
    virtual void end() = 0;
    // `in` stands at its start, behind which a user's code has the token; `out` is empty.
    virtual binder_status_t transact(transaction_code_t code, AParcel& in, AParcel& out, binder_flags_t flags) = 0;

    bool tryIncStrong();
    void decWeak();
};

namespace standin {

struct LocalBinder final : AIBinder {
    void* const userData;
    std::atomic<uint32_t> id{0};  // among the binders of this process that others know; 0: none does
    OnewayQueue oneways;

    LocalBinder(const AIBinder_Class* itsClass, void* data) : AIBinder(itsClass, kSystemStability), userData(data) {}
    LocalBinder* asLocal() override { return this; }
    void end() override;
    binder_status_t transact(transaction_code_t code, AParcel& in, AParcel& out, binder_flags_t flags) override;
};

// One object for each binder of a peer, as long as anybody holds it.
struct RemoteBinder final : AIBinder {
    const std::shared_ptr<Connection> connection;
    const uint32_t id;                          // the peer's
    mutable std::atomic<uint64_t> received{0};  // how often it came in a parcel of the peer's
    mutable std::atomic<bool> alive{true};      // until a call or a link has shown the contrary
    mutable bool deathTold = false;             // to anybody who was linked; guarded by the links

    RemoteBinder(std::shared_ptr<Connection> itsConnection, uint32_t itsId, int32_t itsStability)
        : AIBinder(nullptr, itsStability), connection(std::move(itsConnection)), id(itsId) {}
    const RemoteBinder* asRemote() const override { return this; }
    void end() override;
    binder_status_t transact(transaction_code_t code, AParcel& in, AParcel& out, binder_flags_t flags) override;
};

// The connection is closed for good: everybody who is linked to a binder behind it is told, on the pool.
void announceDeath(const Connection& connection);
// The proxy ends: its links end without a word.
void unlinkAll(const RemoteBinder& binder);

}  // namespace standin
