#include <android/binder_parcel.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "Object.h"
#include "Parcel.h"

struct AStatus {
    binder_exception_t exception = EX_NONE;
    int32_t serviceSpecific = 0;         // with EX_SERVICE_SPECIFIC
    binder_status_t status = STATUS_OK;  // with EX_TRANSACTION_FAILED
    std::string message = {};
};

namespace {

// Some writers put a header in the place of "no exception"; it is skipped.
constexpr int32_t kHasReplyHeader = -128;

#define NAMED(status) std::pair<binder_status_t, const char*>(STATUS_##status, #status)
constexpr std::array kStatuses = {NAMED(OK),
                                  NAMED(NO_MEMORY),
                                  NAMED(INVALID_OPERATION),
                                  NAMED(BAD_VALUE),
                                  NAMED(BAD_TYPE),
                                  NAMED(NAME_NOT_FOUND),
                                  NAMED(PERMISSION_DENIED),
                                  NAMED(NO_INIT),
                                  NAMED(ALREADY_EXISTS),
                                  NAMED(DEAD_OBJECT),
                                  NAMED(FAILED_TRANSACTION),
                                  NAMED(BAD_INDEX),
                                  NAMED(NOT_ENOUGH_DATA),
                                  NAMED(WOULD_BLOCK),
                                  NAMED(TIMED_OUT),
                                  NAMED(UNKNOWN_TRANSACTION),
                                  NAMED(FDS_NOT_ALLOWED),
                                  NAMED(UNEXPECTED_NULL),
                                  NAMED(UNKNOWN_ERROR)};
#undef NAMED

// Any other number is the last one.
const auto& listed(binder_status_t status) {
    const auto* row = kStatuses.begin();
    while (row->first != status && row + 1 != kStatuses.end()) ++row;
    return *row;
}

// By -exception, behind "EX_".
constexpr const char* kExceptions[] = {"NONE",
                                       "SECURITY",
                                       "BAD_PARCELABLE",
                                       "ILLEGAL_ARGUMENT",
                                       "NULL_POINTER",
                                       "ILLEGAL_STATE",
                                       "NETWORK_MAIN_THREAD",
                                       "UNSUPPORTED_OPERATION",
                                       "SERVICE_SPECIFIC",
                                       "PARCELABLE"};

bool isListed(binder_exception_t exception) { return exception <= EX_NONE && exception >= EX_PARCELABLE; }

AStatus statusOf(binder_exception_t exception) {
    if (isListed(exception)) return {.exception = exception};
    return {.exception = EX_TRANSACTION_FAILED, .status = STATUS_FAILED_TRANSACTION};
}

// Skips so many bytes as the next word says: counted from that word on, or from behind it.
binder_status_t skip(standin::Parcel& parcel, bool fromTheWord) {
    const size_t start = parcel.position;
    int32_t size = 0;
    const binder_status_t status = parcel.read(&size);
    if (status != STATUS_OK) return status;
    if (size < 0 || static_cast<size_t>(size) > parcel.left()) return STATUS_UNKNOWN_ERROR;
    parcel.position = (fromTheWord ? start : parcel.position) + static_cast<size_t>(size);
    return STATUS_OK;
}

binder_status_t readStatus(standin::Parcel& parcel, AStatus& out) {
    int32_t exception = 0;
    binder_status_t status = parcel.read(&exception);
    if (status != STATUS_OK || exception == EX_NONE) return status;
    if (exception == kHasReplyHeader) return skip(parcel, true);
    out = statusOf(exception);
    out.message = parcel.readString().value_or("");
    status = skip(parcel, false);  // the remote stack trace
    if (status == STATUS_OK && exception == EX_SERVICE_SPECIFIC) return parcel.read(&out.serviceSpecific);
    return status == STATUS_OK && exception == EX_PARCELABLE ? skip(parcel, true) : status;
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
        text = "Status(" + std::to_string(exception) + ", EX_" +
               (isListed(exception) ? kExceptions[-exception] : "TRANSACTION_FAILED") + "): '";
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
    result = out.writeString(status->message);
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
