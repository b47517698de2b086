#include "Status.h"

#include <android/binder_parcel.h>

#include <cstdlib>
#include <cstring>

#include "Parcel.h"

namespace {

// Older writers may put a header before the exception; it is skipped.
constexpr int32_t kHasReplyHeader = -128;

constexpr const char* kExceptionNames[] = {"EX_NONE",
                                           "EX_SECURITY",
                                           "EX_BAD_PARCELABLE",
                                           "EX_ILLEGAL_ARGUMENT",
                                           "EX_NULL_POINTER",
                                           "EX_ILLEGAL_STATE",
                                           "EX_NETWORK_MAIN_THREAD",
                                           "EX_UNSUPPORTED_OPERATION",
                                           "EX_SERVICE_SPECIFIC",
                                           "EX_PARCELABLE"};

bool isListed(binder_exception_t exception) { return exception <= EX_NONE && exception >= EX_PARCELABLE; }

// Skips a block that begins with its own size.
binder_status_t skipBlock(standin::Parcel& parcel) {
    const size_t start = parcel.position;
    int32_t size = 0;
    const binder_status_t status = parcel.read(&size);
    if (status != STATUS_OK) return status;
    if (size < 0 || static_cast<size_t>(size) > parcel.left()) return STATUS_UNKNOWN_ERROR;
    parcel.position = start + static_cast<size_t>(size);
    return STATUS_OK;
}

binder_status_t readStatus(standin::Parcel& parcel, AStatus& out) {
    int32_t exception = 0;
    binder_status_t status = parcel.read(&exception);
    if (status == STATUS_OK && exception == kHasReplyHeader) {
        status = skipBlock(parcel);
        exception = EX_NONE;
    }
    if (status != STATUS_OK || exception == EX_NONE) return status;
    out.exception = isListed(exception) ? exception : binder_exception_t{EX_TRANSACTION_FAILED};
    if (out.exception == EX_TRANSACTION_FAILED) out.status = STATUS_UNKNOWN_ERROR;
    if (!parcel.readString(out.message)) return STATUS_UNEXPECTED_NULL;
    // The remote stack trace: a size and so many bytes behind it.
    int32_t trace = 0;
    status = parcel.read(&trace);
    if (status != STATUS_OK) return status;
    if (trace < 0 || static_cast<size_t>(trace) > parcel.left()) return STATUS_UNKNOWN_ERROR;
    parcel.position += static_cast<size_t>(trace);
    if (exception == EX_SERVICE_SPECIFIC) return parcel.read(&out.serviceSpecific);
    return exception == EX_PARCELABLE ? skipBlock(parcel) : status;
}

}  // namespace

namespace standin {

binder_status_t knownStatus(binder_status_t status) {
    switch (status) {
        case STATUS_OK:
        case STATUS_NO_MEMORY:
        case STATUS_INVALID_OPERATION:
        case STATUS_BAD_VALUE:
        case STATUS_BAD_TYPE:
        case STATUS_NAME_NOT_FOUND:
        case STATUS_PERMISSION_DENIED:
        case STATUS_NO_INIT:
        case STATUS_ALREADY_EXISTS:
        case STATUS_DEAD_OBJECT:
        case STATUS_FAILED_TRANSACTION:
        case STATUS_BAD_INDEX:
        case STATUS_NOT_ENOUGH_DATA:
        case STATUS_WOULD_BLOCK:
        case STATUS_TIMED_OUT:
        case STATUS_UNKNOWN_TRANSACTION:
        case STATUS_FDS_NOT_ALLOWED:
        case STATUS_UNEXPECTED_NULL: return status;
        default: return STATUS_UNKNOWN_ERROR;
    }
}

}  // namespace standin

AStatus* AStatus_newOk() { return new AStatus; }
AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return AStatus_fromExceptionCodeWithMessage(exception, "");
}
AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    if (isListed(exception)) return new AStatus{.exception = exception, .message = message};
    return new AStatus{.exception = EX_TRANSACTION_FAILED, .status = STATUS_UNKNOWN_ERROR, .message = message};
}
AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, "");
}
AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    return new AStatus{.exception = EX_SERVICE_SPECIFIC, .serviceSpecific = serviceSpecific, .message = message};
}
AStatus* AStatus_fromStatus(binder_status_t status) {
    if (status == STATUS_OK) return AStatus_newOk();
    return new AStatus{.exception = EX_TRANSACTION_FAILED, .status = standin::knownStatus(status)};
}

bool AStatus_isOk(const AStatus* status) { return status->exception == EX_NONE; }
binder_exception_t AStatus_getExceptionCode(const AStatus* status) { return status->exception; }
int32_t AStatus_getServiceSpecificError(const AStatus* status) { return status->serviceSpecific; }
binder_status_t AStatus_getStatus(const AStatus* status) { return status->status; }
const char* AStatus_getMessage(const AStatus* status) { return status->message.c_str(); }

const char* AStatus_getDescription(const AStatus* status) {
    const binder_exception_t exception = status->exception;
    std::string text = "Status(" + std::to_string(exception) + ", " +
                       (isListed(exception) ? kExceptionNames[-exception] : "EX_TRANSACTION_FAILED") + "): '";
    if (exception == EX_SERVICE_SPECIFIC) text += std::to_string(status->serviceSpecific) + ": ";
    if (exception == EX_TRANSACTION_FAILED) text += std::to_string(status->status) + ": ";
    text += status->message + "'";
    return strdup(text.c_str());
}
void AStatus_deleteDescription(const char* description) { free(const_cast<char*>(description)); }
void AStatus_delete(AStatus* status) { delete status; }

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
    if (status->exception == EX_TRANSACTION_FAILED) return status->status;
    standin::Parcel& out = *parcel->content;
    binder_status_t result = out.write(status->exception);
    if (result != STATUS_OK || status->exception == EX_NONE) return result;
    result = out.writeString(status->message.data(), static_cast<int32_t>(status->message.size()));
    if (result == STATUS_OK) result = out.write(int32_t{0});  // no stack trace
    if (result == STATUS_OK && status->exception == EX_SERVICE_SPECIFIC) result = out.write(status->serviceSpecific);
    if (result == STATUS_OK && status->exception == EX_PARCELABLE) result = out.write(int32_t{0});
    return result;
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
    AStatus read;
    const binder_status_t result = readStatus(*parcel->content, read);
    if (result == STATUS_OK) *status = new AStatus(std::move(read));
    return result;
}
