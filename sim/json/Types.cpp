#include "sim/json/Types.h"

namespace sim {
namespace {

std::shared_ptr<orvix::IRequest>& callbackIn(void* value) {
    return *static_cast<std::shared_ptr<orvix::IRequest>*>(value);
}

template <typename I>
void addMethods(std::vector<Method>& methods) {
    forEachMethod<I>([&](const auto& row) {
        methods.push_back({shortName(I::descriptor), row.name, row.code, typeOf<ArgumentsOf<decltype(row)>>()});
    });
}

}  // namespace

binder_status_t writeArgument(AParcel* parcel, const Type& type, const void* value) {
    if (type.kind == Type::Kind::kRecord) {
        const binder_status_t status = AParcel_writeInt32(parcel, 1);
        if (status != STATUS_OK) return status;
    }
    return type.write(parcel, value);
}

const char* nameOfCallback(const void* callback) {
    const auto& request = callbackIn(const_cast<void*>(callback));
    return request == nullptr ? nullptr : request->isRemote() ? "remote binder" : "local binder";
}

void setLocalCallback(void* callback) {
    // Not the interface's own class: a proxy then stands for the object, and nobody has to implement every method.
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        orvix::IRequest::descriptor, [](void*) -> void* { return nullptr; }, [](void*) {},
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
            return STATUS_UNKNOWN_TRANSACTION;
        });
    const ndk::SpAIBinder binder(AIBinder_new(clazz, nullptr));
    AIBinder_markVintfStability(binder.get());
    callbackIn(callback) = orvix::IRequest::fromBinder(binder);
}

const std::vector<const Type*>& allRecords() {
    static const auto& records = *std::apply(
        []<typename... R>(const R&...) { return new std::vector<const Type*>{&typeOf<R>()...}; }, orvix::Records());
    return records;
}

const std::vector<Method>& allMethods() {
    static const auto& methods = []() -> auto& {
        auto& all = *new std::vector<Method>;
        addMethods<orvix::IOrvixService>(all);
        addMethods<orvix::IRequest>(all);
        return all;
    }
    ();
    return methods;
}

const std::vector<Question>& allQuestions() {
    static const auto& questions = []() -> auto& {
        auto& all = *new std::vector<Question>;
        for (const char* descriptor : {orvix::IOrvixService::descriptor, orvix::IRequest::descriptor}) {
            const Type& none = typeOf<std::tuple<>>();
            all.push_back({shortName(descriptor), "getInterfaceVersion", orvix::kGetInterfaceVersion, none,
                           typeOf<std::tuple<int32_t>>()});
            all.push_back({shortName(descriptor), "getInterfaceHash", orvix::kGetInterfaceHash, none,
                           typeOf<std::tuple<std::string>>()});
        }
        return all;
    }
    ();
    return questions;
}

}  // namespace sim
