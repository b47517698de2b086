// AStatus, and which numbers the platform passes on.
#pragma once

#include <android/binder_status.h>

#include <string>

struct AStatus {
    binder_exception_t exception = EX_NONE;
    int32_t serviceSpecific = 0;         // with EX_SERVICE_SPECIFIC
    binder_status_t status = STATUS_OK;  // with EX_TRANSACTION_FAILED
    std::string message = {};
};

namespace standin {

// Any other number becomes STATUS_UNKNOWN_ERROR.
binder_status_t knownStatus(binder_status_t status);

}  // namespace standin
