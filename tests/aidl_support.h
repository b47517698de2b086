// What the tests of the interface share: bytes, the calls measured on a device, a look at what leaves the proxies, and
// the two ends of a binder.
#pragma once

#include <android/binder_stability.h>

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "aidl/IOrvixService.h"
#include "aidl/IRequest.h"
#include "sim/json/Json.h"
#include "sim/json/Types.h"

namespace orvix_test {

using namespace aidl::vendor::nuvel::data::orvixservice;
using namespace sim;

// A parcel of these bytes or words, to be read from its start.
ndk::ScopedAParcel parcelOf(const Bytes& bytes);
ndk::ScopedAParcel parcelOf(const std::vector<int32_t>& words);
// All that the parcel holds, objects included, word by word; the position is kept.
Bytes contentOf(const AParcel* parcel);

// One transaction as it leaves a proxy.
struct Transaction {
    transaction_code_t code;
    binder_flags_t flags;
};
// What this thread has given to AIBinder_transact since the last call.
std::vector<Transaction> takeTransactions();

// The rows of a file in tests/data, one JSON object a line.
std::vector<Json> rowsOf(const char* file);

// Calls the row's method with the arguments.
template <typename Row, typename I, typename Arguments>
ScopedAStatus call(const Row&, I& object, const Arguments& arguments) {
    return std::apply([&](const auto&... args) { return (object.*Row::pointer)(args...); }, arguments);
}

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

// A proxy, as another process has it, of a stub that tells its calls to `record`: with the method's row and the
// arguments. What the stub calls is a proxy again, which spares an override for each method: its transactions end in a
// reading by the rows.
template <typename I>
auto recorderOf(const auto& record) {
    using Bp = std::conditional_t<std::is_same_v<I, IRequest>, BpRequest, BpOrvixService>;
    const auto read = [record](transaction_code_t code, const AParcel* in, AParcel*) {
        binder_status_t status = STATUS_UNKNOWN_TRANSACTION;
        forEachMethod<I>([&](const auto& method) {
            if (method.code != code) return;
            ArgumentsOf<decltype(method)> arguments;
            status = readArguments(in, arguments);
            if (status == STATUS_OK) record(method, arguments);
        });
        return status;
    };
    return ndk::SharedRefBase::make<Bp>(stubOf<I>(ndk::SharedRefBase::make<Bp>(peerOf<I>(read))));
}

}  // namespace orvix_test
