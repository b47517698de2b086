// Statuses of the binder calls, and AStatus: the outcome of a method as it travels in a reply.
#pragma once

#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

// C programs read this too. NOLINTBEGIN(modernize-use-using)
__BEGIN_DECLS

enum {
    STATUS_OK = 0,
    STATUS_UNKNOWN_ERROR = (-2147483647 - 1),
    STATUS_NO_MEMORY = -12,
    STATUS_INVALID_OPERATION = -38,
    STATUS_BAD_VALUE = -22,
    STATUS_BAD_TYPE = STATUS_UNKNOWN_ERROR + 1,
    STATUS_NAME_NOT_FOUND = -2,
    STATUS_PERMISSION_DENIED = -1,
    STATUS_NO_INIT = -19,
    STATUS_ALREADY_EXISTS = -17,
    STATUS_DEAD_OBJECT = -32,
    STATUS_FAILED_TRANSACTION = STATUS_UNKNOWN_ERROR + 2,
    STATUS_BAD_INDEX = -75,
    STATUS_NOT_ENOUGH_DATA = -61,
    STATUS_WOULD_BLOCK = -11,
    STATUS_TIMED_OUT = -110,
    STATUS_UNKNOWN_TRANSACTION = -74,
    STATUS_FDS_NOT_ALLOWED = STATUS_UNKNOWN_ERROR + 7,
    STATUS_UNEXPECTED_NULL = STATUS_UNKNOWN_ERROR + 8,
};
// One of the STATUS_ values: what the platform itself answers.
typedef int32_t binder_status_t;

enum {
    EX_NONE = 0,
    EX_SECURITY = -1,
    EX_BAD_PARCELABLE = -2,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_NETWORK_MAIN_THREAD = -6,
    EX_UNSUPPORTED_OPERATION = -7,
    EX_SERVICE_SPECIFIC = -8,
    EX_PARCELABLE = -9,
    // Not an exception of the peer: the transaction itself failed, see AStatus_getStatus.
    EX_TRANSACTION_FAILED = -129,
};
// One of the EX_ values: what an implementation answers.
typedef int32_t binder_exception_t;

struct AStatus;
typedef struct AStatus AStatus;

// The makers give an object that the caller deletes with AStatus_delete; they never give null. Messages are copied.
// Exceptions and statuses that are not in the lists above become EX_TRANSACTION_FAILED and STATUS_UNKNOWN_ERROR.
AStatus* AStatus_newOk(void) __attribute__((warn_unused_result));
AStatus* AStatus_fromExceptionCode(binder_exception_t exception) __attribute__((warn_unused_result));
AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message)
    __attribute__((warn_unused_result));
AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) __attribute__((warn_unused_result));
AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message)
    __attribute__((warn_unused_result));
AStatus* AStatus_fromStatus(binder_status_t status) __attribute__((warn_unused_result));

bool AStatus_isOk(const AStatus* status);
binder_exception_t AStatus_getExceptionCode(const AStatus* status);
// 0 unless the exception is EX_SERVICE_SPECIFIC.
int32_t AStatus_getServiceSpecificError(const AStatus* status);
// STATUS_OK unless the exception is EX_TRANSACTION_FAILED.
binder_status_t AStatus_getStatus(const AStatus* status);
// Lives as long as the status; never null.
const char* AStatus_getMessage(const AStatus* status);
// For people; the caller deletes it with AStatus_deleteDescription.
const char* AStatus_getDescription(const AStatus* status) __attribute__((warn_unused_result));
void AStatus_deleteDescription(const char* description);
void AStatus_delete(AStatus* status);

__END_DECLS
// NOLINTEND(modernize-use-using)
