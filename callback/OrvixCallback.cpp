#include "callback/OrvixCallback.h"

#include <utility>

#include "client/AidlClient.h"

namespace orvix {

ScopedAStatus OrvixCallback::post(CallbackEvent ev) {
    AidlClient::latest().pushEv(std::move(ev));
    return Status::ok();
}

}  // namespace orvix
