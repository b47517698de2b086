#include "sim/service/Service.h"

#include <android/binder_stability.h>

#include <algorithm>
#include <cstring>
#include <thread>

#include "aidl/IOrvixService.h"
#include "sim/json/Names.h"
#include "sim/service/Socket.h"

namespace sim {
namespace {

namespace orvix = aidl::vendor::nuvel::data::orvixservice;

struct Grave {
    Service* service;
    size_t number;
};

binder_status_t writeWords(AParcel* parcel, const Bytes& bytes) {
    if (bytes.size() % 4 != 0) throw BadInput("a parcel has words of 4 bytes, not " + std::to_string(bytes.size()));
    binder_status_t status = STATUS_OK;
    for (size_t at = 0; at < bytes.size() && status == STATUS_OK; at += sizeof(int32_t)) {
        int32_t word = 0;
        std::memcpy(&word, &bytes[at], sizeof(word));
        status = AParcel_writeInt32(parcel, word);
    }
    return status;
}

}  // namespace

Service::Service(Output& lines, int itsVersion, Milliseconds itsPace)
    : output(lines), version(itsVersion), pace(itsPace), recipient(AIBinder_DeathRecipient_new([](void* cookie) {
          const auto* const grave = static_cast<const Grave*>(cookie);
          grave->service->bury(grave->number);
      })) {
    AIBinder_DeathRecipient_setOnUnlinked(recipient.get(), [](void* cookie) { delete static_cast<Grave*>(cookie); });
    static AIBinder_Class* const clazz = AIBinder_Class_define(  // a class has no end
        orvix::IOrvixService::descriptor, [](void* service) { return service; }, [](void*) {}, onTransact);
    own = ndk::SpAIBinder(AIBinder_new(clazz, this));
    AIBinder_markVintfStability(own.get());
}

binder_status_t Service::onTransact(AIBinder* binder, transaction_code_t code, const AParcel* in, AParcel* out) {
    auto& self = *static_cast<Service*>(AIBinder_getUserData(binder));
    const auto isAsked = [&](const auto& row) { return row.interface == "IOrvixService" && row.code == code; };
    const auto question = std::find_if(allQuestions().begin(), allQuestions().end(), isAsked);
    if (question != allQuestions().end()) return self.describe(*question, out);
    const auto method = std::find_if(allMethods().begin(), allMethods().end(), isAsked);
    if (method == allMethods().end()) return STATUS_UNKNOWN_TRANSACTION;
    const std::shared_ptr<void> arguments = method->arguments.make();
    const binder_status_t status = method->arguments.read(in, arguments.get());
    if (status == STATUS_OK)
        self.take(*method, arguments.get());
    else
        self.output.unreadable(method->name, nameOfStatus(status));
    std::this_thread::sleep_for(self.pace);
    return status;
}

binder_status_t Service::describe(const Question& question, AParcel* out) const {
    const ndk::ScopedAStatus ok = ndk::ScopedAStatus::ok();
    AParcel_writeStatusHeader(out, ok.get());
    return question.code == orvix::kGetInterfaceVersion ? orvix::writeValue(out, version)
                                                        : orvix::writeValue(out, orvix::IOrvixService::hash);
}

void Service::take(const Method& method, void* arguments) {
    Json shown = toJson(method.arguments, arguments);
    seeAs(version, method.arguments, shown);
    output.call(method.name, shown);
    for (const Member& argument : method.arguments.members) {
        void* const value = argument.in(arguments);
        if (argument.type.kind == Type::Kind::kCallback) {
            const auto& request = *static_cast<std::shared_ptr<orvix::IRequest>*>(value);
            if (request != nullptr) keep(request->asBinder());
        }
        if (argument.type.kind == Type::Kind::kDescriptor) {
            Json facts = Json::object();
            if (shown[0].is_number()) facts["id"] = shown[0];
            facts.update(trySocket(static_cast<ndk::ScopedFileDescriptor*>(value)->get()));
            output.socket(facts);
        }
    }
}

void Service::keep(const ndk::SpAIBinder& callback) {
    size_t number = 0;
    bool isNew = false;
    {
        const std::lock_guard lock(mutex);
        const auto known = std::find_if(callbacks.begin(), callbacks.end(),
                                        [&](const Callback& each) { return each.binder.get() == callback.get(); });
        number = static_cast<size_t>(known - callbacks.begin()) + 1;
        isNew = known == callbacks.end();
        if (isNew) callbacks.push_back({callback, true});
        asked = number;
    }
    output.callback(number);
    changed.notify_all();
    if (!isNew) return;
    auto* const grave = new Grave{this, number};
    if (AIBinder_linkToDeath(callback.get(), recipient.get(), grave) != STATUS_OK) bury(number);
}

void Service::bury(size_t number) {
    {
        const std::lock_guard lock(mutex);
        callbacks[number - 1].alive = false;
    }
    output.died(number);
}

void Service::send(const Method& request, const Typed& typed) {
    send(request.name.c_str(), request.code, typed.shown, [&](AParcel* parcel) {
        binder_status_t status = STATUS_OK;
        for (size_t i = 0; i < typed.raw.size() && status == STATUS_OK; ++i) {
            const Member& argument = request.arguments.members[i];
            if (typed.raw[i]) {
                AParcel_writeInt32(parcel, 1);
                status = writeWords(parcel, *typed.raw[i]);
            } else {
                status = writeArgument(version, parcel, argument.type, argument.in(typed.arguments.get()));
            }
        }
        return status;
    });
}

void Service::sendRaw(int32_t code, const Bytes& bytes, const Json& shown) {
    send("transact", static_cast<uint32_t>(code), shown, [&](AParcel* parcel) { return writeWords(parcel, bytes); });
}

void Service::send(const char* name, uint32_t code, const Json& shown, const auto& write) {
    size_t number = 0;
    ndk::SpAIBinder callback;
    {
        const std::lock_guard lock(mutex);
        if (asked == 0) throw BadInput("no callback is registered yet");
        number = asked;
        callback = callbacks[number - 1].binder;
    }
    ndk::ScopedAParcel in, out;
    binder_status_t status = AIBinder_prepareTransaction(callback.get(), in.getR());
    if (status == STATUS_OK) status = write(in.get());
    if (status == STATUS_OK) {
        status = AIBinder_transact(callback.get(), code, in.getR(), out.getR(), orvix::kOneWay);
    }
    output.request(name, shown, number, status == STATUS_OK ? "" : nameOfStatus(status));
}

bool Service::waitForCallback(Milliseconds time) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, time, [&] { return asked != 0 && callbacks[asked - 1].alive; });
}

}  // namespace sim
