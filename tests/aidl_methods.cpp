#include "tests/aidl_methods.h"

#include <stdexcept>

#include "sim/json/Types.h"
#include "tests/aidl_peers.h"

namespace orvix_test {
namespace {

using namespace sim;

template <typename I>
ScopedAStatus callOn(ndk::ICInterface& object, const sim::Method& method, const void* arguments) {
    ScopedAStatus status;
    forEachMethod<I>([&]<auto Pointer>(const orvix::Method<Pointer>& row) {
        if (row.code != method.code) return;
        const auto& typed = *static_cast<const typename orvix::Method<Pointer>::Arguments*>(arguments);
        status = std::apply([&](const auto&... args) { return (static_cast<I&>(object).*Pointer)(args...); }, typed);
    });
    return status;
}

// What the stub calls is a proxy again, which spares an override for each method.
template <typename I, typename Bp>
std::shared_ptr<ndk::ICInterface> proxyTo(const Answer& answer) {
    return ndk::SharedRefBase::make<Bp>(stubOf<I>(ndk::SharedRefBase::make<Bp>(peerOf<I>(answer))));
}

}  // namespace

std::vector<sim::Method> methodsOf(const std::string& interface) {
    std::vector<sim::Method> methods;
    for (const sim::Method& method : allMethods())
        if (method.interface == interface) methods.push_back(method);
    return methods;
}

ScopedAStatus call(ndk::ICInterface& object, const sim::Method& method, const void* arguments) {
    const auto callIt = method.interface == "IRequest" ? callOn<IRequest> : callOn<IOrvixService>;
    return callIt(object, method, arguments);
}

std::shared_ptr<ndk::ICInterface> recorderOf(const std::string& interface, const OnCall& record) {
    const Answer read = [interface, record](transaction_code_t code, const AParcel* in, AParcel*) {
        for (const sim::Method& method : methodsOf(interface)) {
            if (method.code != code) continue;
            const std::shared_ptr<void> arguments = method.arguments.make();
            const binder_status_t status = method.arguments.read(in, arguments.get());
            if (status == STATUS_OK) record(method, arguments.get());
            return status;
        }
        return binder_status_t{STATUS_UNKNOWN_TRANSACTION};
    };
    return interface == "IRequest" ? proxyTo<IRequest, BpRequest>(read) : proxyTo<IOrvixService, BpOrvixService>(read);
}

binder_status_t dispatch(const std::string& interface, AIBinder* binder, transaction_code_t code, const AParcel* in,
                         AParcel* out) {
    return (interface == "IRequest" ? onTransact<IRequest> : onTransact<IOrvixService>)(binder, code, in, out);
}

const Type& typeNamed(const std::string& name) {
    for (const Type* type :
         {&typeOf<int32_t>(), &typeOf<bool>(), &typeOf<std::string>(), &typeOf<std::optional<std::string>>(),
          &typeOf<Bytes>(), &typeOf<std::vector<ByteTuple>>(), &typeOf<std::shared_ptr<IRequest>>(),
          &typeOf<ndk::ScopedFileDescriptor>(), &typeOf<BatteryState>()})
        if (type->name == name) return *type;
    throw std::runtime_error("no type " + name);
}

}  // namespace orvix_test
