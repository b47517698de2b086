// The rule of every native method that sends something.
#pragma once

#include <jni.h>

#include "client/AidlClient.h"
#include "client/Log.h"

namespace orvix {

// Calls send with a reference to the service that is its own for the length of the call, or logs that there is none.
template <typename Send>
void withService(const char* method, const Send& send) {
    const auto bound = AidlClient::latest().getOrvixService();
    if (!bound) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "%s: OrvixService is not ready", method);
        return;
    }
    send(*bound);
}

// Any byte but 0, whatever Java's boolean may be.
inline bool isTrue(jboolean value) { return (value & 0xFF) != 0; }

}  // namespace orvix
