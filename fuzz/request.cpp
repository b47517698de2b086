// Hostile transactions to the library's callback: what the dispatcher accepts is one event, and that one call into
// Java with the same arguments; what it refuses is nothing.

#include <android/log.h>

#include "callback/OrvixCallback.h"
#include "client/AidlClient.h"
#include "fuzz/Fuzz.h"
#include "sim/vm/quiet_jni.h"

namespace fuzz {
namespace {

using wire::IRequest;

std::vector<quiet::Call> gCalls;

template <typename T>
quiet::Value valueOf(const T& value) {
    if constexpr (std::is_enum_v<T>) {
        return static_cast<int32_t>(value);
    } else {
        return value;
    }
}

// Java ends a string at its first zero.
void addValues(std::vector<quiet::Value>& values, const wire::NetworkStats& s) {
    values = {s.long1, s.long2, s.long3, s.long4, s.int1, s.int2, s.int3, std::string(s.text1.c_str())};
}
void addValues(std::vector<quiet::Value>&, const wire::SocketInfo&) {}
void addValues(std::vector<quiet::Value>& values, const auto& value) { values.push_back(valueOf(value)); }

// The name of the Java method, where it is not that of the request.
std::string javaName(const std::string& request) {
    if (request == "startcollectingNetworkInfo") return "startNetworkMonitorForRatType";
    if (request == "stopcollectingNetworkInfo") return "stopNetworkMonitorForRatType";
    if (request == "sendBlobToApk") return "sendBlobToApkJava";
    return request;
}

// The calls into Java that a request makes: one, but for the two that are no business of Java's.
template <typename Row, typename Arguments>
std::vector<quiet::Call> callsOf(const Row& row, const Arguments& arguments) {
    const std::string name = row.name;
    if (name == "getFdforUID" || name == "getSocketFd") return {};
    quiet::Call call{javaName(name), {}};
    std::apply([&](const auto&... args) { (addValues(call.arguments, args), ...); }, arguments);
    return {call};
}

// The service's end: a proxy, and behind it a binder that keeps what it gets, or does not know the method.
struct Keeper {
    Bytes arguments;
    binder_status_t answer = STATUS_OK;
} gKeeper;

std::shared_ptr<IRequest> keepingProxy() {
    static const ndk::SpAIBinder binder = [] {
        static const AIBinder_Class* const own = AIBinder_Class_define(
            IRequest::descriptor, [](void* args) { return args; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel* in, AParcel*) -> binder_status_t {
                const Bytes words = wordsOf(in);
                gKeeper.arguments.assign(words.begin() + tokenSize<IRequest>(), words.end());
                return gKeeper.answer;
            });
        ndk::SpAIBinder made(AIBinder_new(own, nullptr));
        AIBinder_markVintfStability(made.get());
        IRequest::setDefaultImpl(ndk::SharedRefBase::make<wire::IRequestDefault>());
        return made;
    }();
    return IRequest::fromBinder(binder);
}

template <typename Row, typename Arguments>
void sendOn(const Row&, const Arguments& arguments, bool unknown) {
    const auto proxy = keepingProxy();
    gKeeper.answer = unknown ? STATUS_UNKNOWN_TRANSACTION : STATUS_OK;
    const auto status =
        std::apply([&](const auto&... args) { return (proxy.get()->*Row::pointer)(args...); }, arguments);
    invariant(status.getStatus() == gKeeper.answer, "what was accepted can be sent on, or the default answers");
    invariant(gKeeper.arguments == encode(arguments), "and arrives as the same");
}

// What the two ends say about themselves: the callback its version, a default implementation nothing.
void askAbout(const ndk::SpAIBinder& callback) {
    const auto local = IRequest::fromBinder(callback);
    int32_t version = 0;
    std::string hash;
    invariant(local->getInterfaceVersion(&version).isOk() && version == 7, "the version is told");
    invariant(local->getInterfaceHash(&hash).isOk() && hash == IRequest::hash, "the hash is told");
    const auto proxy = keepingProxy();
    gKeeper.answer = STATUS_UNKNOWN_TRANSACTION;
    invariant(proxy->getInterfaceVersion(&version).isOk() && version == 0, "the default knows no version");
    invariant(proxy->getInterfaceHash(&hash).isOk() && hash.empty(), "the default knows no hash");
    auto& standIn = *IRequest::getDefaultImpl();
    invariant(standIn.asBinder().get() == nullptr && !standIn.isRemote(), "a default implementation has no binder");
}

ndk::SpAIBinder load() {
    __android_log_set_logger([](const __android_log_message*) {});
    quiet::script.onCall = [](const quiet::Call& call) { gCalls.push_back(call); };
    quiet::env();
    invariant(JNI_OnLoad(quiet::vm(), nullptr) == JNI_VERSION_1_6, "the library loads");
    quiet::leave();
    return ndk::SharedRefBase::make<orvix::OrvixCallback>()->asBinder();
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzz;
    static const ndk::SpAIBinder& callback = *new ndk::SpAIBinder(load());
    FuzzedDataProvider input(data, size);
    const bool unknown = input.ConsumeIntegral<uint8_t>() % 8 == 1;
    Transaction call = transactionOf<IRequest>(input, callback.get(), callback.get());

    binder_status_t expected = call.goodToken ? STATUS_UNKNOWN_TRANSACTION : STATUS_BAD_TYPE;
    if (call.goodToken && call.code >= wire::kGetInterfaceHash) expected = STATUS_OK;
    std::vector<quiet::Call> expectedCalls;
    const auto decode = [&](const auto& row) {
        typename std::remove_cvref_t<decltype(row)>::Arguments arguments{};
        AParcel_setDataPosition(call.in.get(), tokenSize<IRequest>());
        expected = wire::readArguments(call.in.get(), arguments);
        if (expected != STATUS_OK) return;
        sendOn(row, arguments, unknown);
        expectedCalls = callsOf(row, arguments);
    };
    if (call.goodToken) visitMethod<IRequest>(call.code, decode);
    if (call.code >= wire::kGetInterfaceHash) askAbout(callback);
    if (call.code == 0) expected = STATUS_UNKNOWN_TRANSACTION;

    gCalls.clear();
    ndk::ScopedAParcel out;
    const binder_status_t status =
        AIBinder_transact(callback.get(), call.code, call.in.getR(), out.getR(), wire::kOneWay);
    invariant(status == expected, "the dispatcher answers what the reader answers");
    invariant(gCalls.empty(), "a request does nothing but queue");
    orvix::gAidlClient->handleEvents();
    invariant(gCalls == expectedCalls, "Java gets what the service sent");
    invariant(quiet::localReferences == 0, "a call into Java leaves no local reference");
    return 0;
}
