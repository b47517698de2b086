// Hostile transactions to the service's dispatcher; and what it accepts, sent on by the proxy, arrives as the same.

#include "fuzz/Fuzz.h"

namespace fuzz {
namespace {

using wire::IOrvixService;

// A peer as the proxy sees it: a binder of another class with the service's descriptor, which hands each call on.
struct Peer {
    AIBinder* service = nullptr;         // whose dispatcher answers
    binder_status_t answer = STATUS_OK;  // instead, unless OK
    Bytes arguments;                     // of the last call
} gPeer;

binder_status_t relay(AIBinder*, transaction_code_t code, const AParcel* in, AParcel* out) {
    if (gPeer.answer != STATUS_OK) return gPeer.answer;
    const Bytes words = wordsOf(in);
    gPeer.arguments.assign(words.begin() + tokenSize<IOrvixService>(), words.end());
    return wire::onTransact<IOrvixService>(gPeer.service, code, in, out);
}

struct Ends {
    ndk::SpAIBinder service, peer, request;

    Ends() {
        static const auto implementation = ndk::SharedRefBase::make<wire::IOrvixServiceDefault>();
        service.set(AIBinder_new(IOrvixService::binderClass, static_cast<ndk::ICInterface*>(implementation.get())));
        static const auto callback = ndk::SharedRefBase::make<wire::IRequestDefault>();
        request.set(AIBinder_new(wire::IRequest::binderClass, static_cast<ndk::ICInterface*>(callback.get())));
        static const AIBinder_Class* const relaying = AIBinder_Class_define(
            IOrvixService::descriptor, [](void* args) { return args; }, [](void*) {}, relay);
        peer.set(AIBinder_new(relaying, nullptr));
        AIBinder_markVintfStability(peer.get());
        gPeer.service = service.get();
        IOrvixService::setDefaultImpl(implementation);
    }
};

template <typename Row, typename Arguments>
void sendOn(const Row&, const Ends& ends, const Arguments& arguments, bool unknown) {
    const auto proxy = IOrvixService::fromBinder(ends.peer);
    gPeer.answer = unknown ? STATUS_UNKNOWN_TRANSACTION : STATUS_OK;
    gPeer.arguments.clear();
    const auto status =
        std::apply([&](const auto&... args) { return (proxy.get()->*Row::pointer)(args...); }, arguments);
    if (unknown) {
        invariant(status.getStatus() == STATUS_UNKNOWN_TRANSACTION, "the default implementation answers");
        return;
    }
    invariant(status.isOk(), "what was accepted can be sent on");
    if constexpr (kPlain<Arguments>) invariant(gPeer.arguments == encode(arguments), "and arrives as the same");
}

void askAbout(const Ends& ends, bool unknown) {
    const auto proxy = IOrvixService::fromBinder(ends.peer);
    gPeer.answer = unknown ? STATUS_UNKNOWN_TRANSACTION : STATUS_OK;
    int32_t version = -5;
    std::string hash;
    for (int i = 0; i < 2; ++i) {
        invariant(proxy->getInterfaceVersion(&version).isOk() && version == (unknown ? 0 : 7), "the version is told");
        invariant(proxy->getInterfaceHash(&hash).isOk() && hash == (unknown ? "" : IOrvixService::hash),
                  "the hash is told");
    }
    invariant(proxy->sendSocketFd(1, ndk::ScopedFileDescriptor()).getStatus() == STATUS_UNEXPECTED_NULL,
              "a descriptor that is none is not sent");
    auto& standIn = *IOrvixService::getDefaultImpl();
    invariant(standIn.asBinder().get() == nullptr && !standIn.isRemote(), "a default implementation has no binder");
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzz;
    static const Ends& ends = *new Ends;
    FuzzedDataProvider input(data, size);
    const bool unknown = input.ConsumeIntegral<uint8_t>() % 8 == 1;
    Transaction call = transactionOf<IOrvixService>(input, ends.service.get(), ends.request.get());

    binder_status_t expected = call.goodToken ? STATUS_UNKNOWN_TRANSACTION : STATUS_BAD_TYPE;
    const bool question = call.code >= wire::kGetInterfaceHash;
    if (question && call.goodToken) expected = STATUS_OK;
    const auto decodeAndSend = [&](const auto& row) {
        typename std::remove_cvref_t<decltype(row)>::Arguments arguments{};
        AParcel_setDataPosition(call.in.get(), tokenSize<IOrvixService>());
        expected = wire::readArguments(call.in.get(), arguments);
        if (expected == STATUS_OK) sendOn(row, ends, arguments, unknown);
    };
    if (call.goodToken) visitMethod<IOrvixService>(call.code, decodeAndSend);
    if (question) askAbout(ends, unknown);
    ndk::ScopedAParcel out;
    const binder_status_t status =
        AIBinder_transact(ends.service.get(), call.code, call.in.getR(), out.getR(), FLAG_ONEWAY);
    // Code 0 is refused by the platform before anybody is asked.
    if (call.code == 0) expected = STATUS_UNKNOWN_TRANSACTION;
    invariant(status == expected, "the dispatcher answers what the reader answers");
    return 0;
}
