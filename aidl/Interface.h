// What both interfaces have in common beside their methods: the way from a binder to an object and back, and the
// process-wide default implementation.
#pragma once

#include <android/binder_interface_utils.h>

#include <cstring>
#include <memory>
#include <string>

#include "aidl/Method.h"

namespace aidl::vendor::nuvel::data::orvixservice {

// I is the interface, Bp its proxy class. I has descriptor and binderClass (defined once a process, at load).
template <typename I, typename Bp>
class Interface : public ndk::ICInterface {
  public:
    // The object behind a local binder, a new proxy for a remote one, empty for a binder of another interface. Asks the
    // peer for its descriptor when a remote binder is seen for the first time, and so may block.
    static std::shared_ptr<I> fromBinder(const ndk::SpAIBinder& binder) {
        if (!AIBinder_associateClass(binder.get(), I::binderClass)) {
            // Another copy of this interface in the process may own the binder: same descriptor, other class.
            const AIBinder_Class* owner = AIBinder_getClass(binder.get());
            if (owner == nullptr || std::strcmp(AIBinder_Class_getDescriptor(owner), I::descriptor) != 0)
                return nullptr;
        } else if (auto local = ndk::ICInterface::asInterface(binder.get())) {
            return std::static_pointer_cast<I>(local);
        }
        return ndk::SharedRefBase::make<Bp>(binder);
    }

    // An empty pointer travels as a null binder.
    static binder_status_t writeToParcel(AParcel* parcel, const std::shared_ptr<I>& object) {
        return AParcel_writeStrongBinder(parcel, object ? object->asBinder().get() : nullptr);
    }
    // A read that fails leaves object as it was; a null binder and one of another interface are read well, as empty.
    static binder_status_t readFromParcel(const AParcel* parcel, std::shared_ptr<I>* object) {
        ndk::SpAIBinder binder;
        const binder_status_t status = AParcel_readStrongBinder(parcel, binder.getR());
        if (status == STATUS_OK) *object = fromBinder(binder);
        return status;
    }

    // Answers for a service that does not know a method. An empty pointer changes nothing and returns false. Not
    // guarded against concurrent calls: set it before the proxies are used.
    static bool setDefaultImpl(const std::shared_ptr<I>& impl) {
        if (!impl) return false;
        defaultImpl = impl;
        return true;
    }
    static const std::shared_ptr<I>& getDefaultImpl() { return defaultImpl; }

  private:
    // Released at unload. The library itself never sets it: whoever does keeps calls from coming later than that.
    static inline std::shared_ptr<I> defaultImpl;
};

// Base of the default implementations, which do nothing: they have no binder, and know no method until they override
// it.
template <typename I>
class Default : public I {
  public:
    ndk::SpAIBinder asBinder() override { return ndk::SpAIBinder(); }
    bool isRemote() override { return false; }
    ScopedAStatus getInterfaceVersion(int32_t* answer) override {
        *answer = 0;
        return ScopedAStatus::ok();
    }
    ScopedAStatus getInterfaceHash(std::string* answer) override {
        answer->clear();
        return ScopedAStatus::ok();
    }

  protected:
    static ScopedAStatus unknown() { return ScopedAStatus::fromStatus(STATUS_UNKNOWN_TRANSACTION); }
};

}  // namespace aidl::vendor::nuvel::data::orvixservice
