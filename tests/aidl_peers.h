// The other end of a proxy of the interface.
#pragma once

#include <android/binder_stability.h>

#include <functional>
#include <memory>
#include <utility>

#include "aidl/IOrvixService.h"
#include "aidl/IRequest.h"

namespace orvix_test {

using namespace aidl::vendor::nuvel::data::orvixservice;

// A binder of the interface's descriptor whose class is not the interface's own: every transaction goes to `answer`.
using Answer = std::function<binder_status_t(transaction_code_t code, const AParcel* in, AParcel* out)>;
template <typename I>
ndk::SpAIBinder peerOf(Answer answer) {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        I::descriptor, [](void* args) { return args; }, [](void* data) { delete static_cast<Answer*>(data); },
        [](AIBinder* binder, transaction_code_t code, const AParcel* in, AParcel* out) {
            return (*static_cast<Answer*>(AIBinder_getUserData(binder)))(code, in, out);
        });
    ndk::SpAIBinder binder(AIBinder_new(clazz, new Answer(std::move(answer))));
    AIBinder_markVintfStability(binder.get());
    return binder;
}

// The interface's own binder of an implementation.
template <typename I>
ndk::SpAIBinder stubOf(const std::shared_ptr<I>& implementation) {
    ndk::SpAIBinder binder(AIBinder_new(I::binderClass, static_cast<ndk::ICInterface*>(implementation.get())));
    AIBinder_markVintfStability(binder.get());
    return binder;
}

}  // namespace orvix_test
