// Compiled, not run: what the device's C++ helpers have, and what they refuse. What builds here is to build there.
#include <android/binder_auto_utils.h>

#include <type_traits>

#include "aidl/IRequest.h"

namespace {

namespace orvix = aidl::vendor::nuvel::data::orvixservice;

template <typename T>
concept Ordered = requires(const T& a) {
    a == a, a != a, a<a, a <= a, a> a, a >= a;
};
template <typename T>
concept Compared = requires(const T& a) {
    a == a;
};
template <typename T>
concept Allocated = requires {
    new T;
};

static_assert(Ordered<ndk::SpAIBinder> && Ordered<ndk::ScopedAParcel> && Ordered<ndk::ScopedFileDescriptor>);
static_assert(!Compared<ndk::ScopedAStatus> && !Compared<ndk::ScopedAIBinder_Weak>);
static_assert(!Allocated<orvix::IRequestDefault>, "objects that count themselves come from SharedRefBase::make alone");
static_assert(!std::is_same_v<decltype(&orvix::BpRequest::dump), decltype(&ndk::ICInterface::dump)>,
              "a proxy's dump asks the other side");
static_assert(std::is_same_v<decltype(orvix::BnRequest::makeServiceName("default")), std::string>);

// Ignored without a warning; and a function that an older library lacks, which so must be asked for.
[[maybe_unused]] bool useWeakly() {
    AParcel_create();
    return AIBinder_Class_setHandleShellCommand != nullptr;
}

}  // namespace
