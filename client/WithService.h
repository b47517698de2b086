// The rule of everything that calls the service, natives and socket service alike.
#pragma once

#include "client/AidlClient.h"
#include "client/Log.h"

namespace orvix {

// Runs call on a reference to the service that is its own for the length of the call, or logs that there is none; name
// is the caller's, as the line has it. Any thread.
template <typename Call>
void withService(AidlClient& client, const char* name, const Call& call) {
    if (const auto service = client.getOrvixService()) {
        call(*service);
    } else {
        LOGE("%s: OrvixService is not ready", name);
    }
}

}  // namespace orvix
