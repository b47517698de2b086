// Binder objects: classes of local objects, references, transactions and death.
//
// Every call may be made from any thread. A binder is local (made here by AIBinder_new) or remote (a proxy for an
// object of another process). References are counted; a function that returns an AIBinder* gives the caller one.
#pragma once

#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>
#include <sys/types.h>

// C programs read this too. NOLINTBEGIN(modernize-use-using)
__BEGIN_DECLS

typedef uint32_t binder_flags_t;
enum {
    // The caller does not wait, and nothing comes back.
    FLAG_ONEWAY = 0x01,
};

typedef uint32_t transaction_code_t;
enum
#ifdef __cplusplus
    : transaction_code_t
#endif
{
    FIRST_CALL_TRANSACTION = 0x00000001,
    LAST_CALL_TRANSACTION = 0x00ffffff,
};

struct AIBinder;
typedef struct AIBinder AIBinder;
struct AIBinder_Weak;
typedef struct AIBinder_Weak AIBinder_Weak;
struct AIBinder_Class;
typedef struct AIBinder_Class AIBinder_Class;
struct AIBinder_DeathRecipient;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

// Turns the argument of AIBinder_new into the user data of the new binder.
typedef void* (*AIBinder_Class_onCreate)(void* args);
// Runs inside the call that drops the last strong reference.
typedef void (*AIBinder_Class_onDestroy)(void* userData);
// Handles one transaction, after the interface token has been checked. `in` stands behind the token; what is written to
// `out` goes back to a two-way caller if the answer is STATUS_OK. Runs on many threads at once.
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code, const AParcel* in,
                                                     AParcel* out);
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args, uint32_t numArgs);

// A class lives for ever. Null if an argument is null; the descriptor is copied.
AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor, AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy, AIBinder_Class_onTransact onTransact)
    __attribute__((warn_unused_result));
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump);
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz);

// A local binder with one strong reference. Null if the class is null.
AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) __attribute__((warn_unused_result));

// These answer false, null or an error for a null binder.
bool AIBinder_isRemote(const AIBinder* binder);
bool AIBinder_isAlive(const AIBinder* binder);
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs);

// The callback runs once for each link, on a thread of the pool, when the process of a remote binder has ended. Local:
// STATUS_INVALID_OPERATION; already known dead: STATUS_DEAD_OBJECT.
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie);
// STATUS_NAME_NOT_FOUND if not linked (any more), STATUS_DEAD_OBJECT while the callback is running.
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient, void* cookie);

// Null is allowed.
void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);

// Whether the binder is of this class from now on. A remote binder without a class is asked for its descriptor, so this
// may block.
bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz);
const AIBinder_Class* AIBinder_getClass(AIBinder* binder);
// Null for a remote binder.
void* AIBinder_getUserData(AIBinder* binder);

// A parcel that begins with the interface token, to be filled and given to AIBinder_transact. STATUS_INVALID_OPERATION
// for a remote binder without a class.
binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in);
// Takes `*in` and sets it to null, whatever the answer. `*out` is null unless the answer is STATUS_OK; then the caller
// deletes it.
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in, AParcel** out,
                                  binder_flags_t flags);

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) __attribute__((warn_unused_result));
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder);
// Null once the last strong reference is gone.
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) __attribute__((warn_unused_result));

typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);
typedef void (*AIBinder_DeathRecipient_onBinderUnlinked)(void* cookie);
AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(AIBinder_DeathRecipient_onBinderDied onBinderDied)
    __attribute__((warn_unused_result));
// Runs once for each link when it has ended, in whatever way: the last use of its cookie.
void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked);
// Ends all links. Safe while a callback is running.
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient);

__END_DECLS
// NOLINTEND(modernize-use-using)
