#include "Status.h"

#include <android/binder_parcel.h>

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "Parcel.h"

namespace {

// Older writers may put a header before the exception; it is skipped.
constexpr int32_t kHasReplyHeader = -128;

constexpr std::pair<binder_status_t, const char*> kStatuses[] = {
    {STATUS_OK, "OK"},
    {STATUS_NO_MEMORY, "NO_MEMORY"},
    {STATUS_INVALID_OPERATION, "INVALID_OPERATION"},
    {STATUS_BAD_VALUE, "BAD_VALUE"},
    {STATUS_BAD_TYPE, "BAD_TYPE"},
    {STATUS_NAME_NOT_FOUND, "NAME_NOT_FOUND"},
    {STATUS_PERMISSION_DENIED, "PERMISSION_DENIED"},
    {STATUS_NO_INIT, "NO_INIT"},
    {STATUS_ALREADY_EXISTS, "ALREADY_EXISTS"},
    {STATUS_DEAD_OBJECT, "DEAD_OBJECT"},
    {STATUS_FAILED_TRANSACTION, "FAILED_TRANSACTION"},
    {STATUS_BAD_INDEX, "BAD_INDEX"},
    {STATUS_NOT_ENOUGH_DATA, "NOT_ENOUGH_DATA"},
    {STATUS_WOULD_BLOCK, "WOULD_BLOCK"},
    {STATUS_TIMED_OUT, "TIMED_OUT"},
    {STATUS_UNKNOWN_TRANSACTION, "UNKNOWN_TRANSACTION"},
    {STATUS_FDS_NOT_ALLOWED, "FDS_NOT_ALLOWED"},
    {STATUS_UNEXPECTED_NULL, "UNEXPECTED_NULL"},
    {STATUS_UNKNOWN_ERROR, "UNKNOWN_ERROR"},
};

// Any other number is the last one.
const auto& listed(binder_status_t status) {
    const auto* row = std::begin(kStatuses);
    while (row->first != status && row + 1 != std::end(kStatuses)) ++row;
    return *row;
}

// By -exception.
constexpr const char* kExceptions[] = {"EX_NONE",
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

AStatus statusOf(binder_exception_t exception) {
    if (isListed(exception)) return {.exception = exception};
    return {.exception = EX_TRANSACTION_FAILED, .status = STATUS_FAILED_TRANSACTION};
}

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
    out = statusOf(exception);
    (void)parcel.readString(out.message);  // one that is not there is empty
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

binder_status_t knownStatus(binder_status_t status) { return listed(status).first; }

}  // namespace standin

AStatus* AStatus_newOk() { return new AStatus; }
AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return AStatus_fromExceptionCodeWithMessage(exception, "");
}
AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    auto* status = new AStatus(statusOf(exception));
    status->message = message;
    return status;
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
    std::string text = "No error";
    if (exception != EX_NONE) {
        text = "Status(" + std::to_string(exception) + ", " +
               (isListed(exception) ? kExceptions[-exception] : "EX_TRANSACTION_FAILED") + "): '";
        if (exception == EX_SERVICE_SPECIFIC) text += std::to_string(status->serviceSpecific) + ": ";
        if (exception == EX_TRANSACTION_FAILED) text += std::string(listed(status->status).second) + ": ";
        text += status->message + "'";
    }
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
