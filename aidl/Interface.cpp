// What both interfaces do the same way, whatever the types of their methods.
#include "aidl/Proxy.h"
#include "aidl/Stub.h"

namespace aidl::vendor::nuvel::data::orvixservice {

ScopedAStatus transact(ndk::ICInterface& proxy, const Call& call, const void* arguments) {
    const ndk::SpAIBinder binder = proxy.asBinder();
    ndk::ScopedAParcel in, out;
    binder_status_t status = AIBinder_prepareTransaction(binder.get(), in.getR());
    if (status == STATUS_OK) status = call.write(in.get(), arguments);
    if (status != STATUS_OK) return ScopedAStatus::fromStatus(status);

    const binder_flags_t flags = call.read == nullptr ? kOneWay : kTwoWay;
    status = AIBinder_transact(binder.get(), call.code, in.getR(), out.getR(), flags);
    if (status == STATUS_UNKNOWN_TRANSACTION && call.defaultImpl() != nullptr)
        return call.repeat(*call.defaultImpl(), arguments);
    if (status != STATUS_OK || call.read == nullptr) return ScopedAStatus::fromStatus(status);

    ScopedAStatus header;
    status = AParcel_readStatusHeader(out.get(), header.getR());
    if (status == STATUS_OK && !header.isOk()) return header;
    if (status == STATUS_OK) status = call.read(out.get(), arguments);
    return ScopedAStatus::fromStatus(status);
}

binder_status_t stub::describe(transaction_code_t code, AParcel* out, int32_t version, const std::string& hash) {
    if (code != kGetInterfaceVersion && code != kGetInterfaceHash) return STATUS_UNKNOWN_TRANSACTION;
    const ScopedAStatus ok = ScopedAStatus::ok();
    const binder_status_t status = AParcel_writeStatusHeader(out, ok.get());
    if (status != STATUS_OK) return status;
    return code == kGetInterfaceVersion ? writeValue(out, version) : writeValue(out, hash);
}

}  // namespace aidl::vendor::nuvel::data::orvixservice
