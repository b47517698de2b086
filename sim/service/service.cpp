// orvix-service: a service to try applications with. It prints every call that it receives, and sends the requests that
// are typed on its input to the callback that was registered last.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>

#include "sim/json/Names.h"
#include "sim/service/Output.h"
#include "sim/service/Socket.h"
#include "sim/service/Words.h"

namespace sim {
namespace {

using ndk::ScopedAStatus;

constexpr const char* kInstance = "vendor.nuvel.data.orvixservice.IOrvixService/default";

class Service : public orvix::BnOrvixService {
  public:
    explicit Service(Output& lines) : output(lines) {}

    // The callback registered last; empty before.
    std::shared_ptr<orvix::IRequest> request() {
        const std::lock_guard lock(mutex);
        return callback;
    }

    ScopedAStatus registerRequest(const std::shared_ptr<orvix::IRequest>& request) override {
        {
            const std::lock_guard lock(mutex);
            callback = request;
        }
        return told<&I::registerRequest>(request);
    }
    ScopedAStatus sendRadioTechStatus(const orvix::RadioTechStatus& status) override {
        return told<&I::sendRadioTechStatus>(status);
    }
    ScopedAStatus sendNetworkStatsForAllUids(orvix::RatType ratType,
                                             const std::vector<orvix::NetworkStatsParams>& stats) override {
        return told<&I::sendNetworkStatsForAllUids>(ratType, stats);
    }
    ScopedAStatus sendNetworkStatsForNetworkType(orvix::RatType ratType, const orvix::ByteTuple& bytes) override {
        return told<&I::sendNetworkStatsForNetworkType>(ratType, bytes);
    }
    ScopedAStatus sendScreenState(bool on) override { return told<&I::sendScreenState>(on); }
    ScopedAStatus sendCensusInfo(const orvix::CensusInfo& census) override { return told<&I::sendCensusInfo>(census); }
    ScopedAStatus sendNetworkInfo(orvix::RatType ratType, const orvix::NetworkInfo& info) override {
        return told<&I::sendNetworkInfo>(ratType, info);
    }
    ScopedAStatus sendBootCompleteInfo(bool completed) override { return told<&I::sendBootCompleteInfo>(completed); }
    ScopedAStatus sendFGNetworkInfo(orvix::RatType ratType, orvix::TechType techType, int64_t value) override {
        return told<&I::sendFGNetworkInfo>(ratType, techType, value);
    }
    ScopedAStatus sendLPMStatus(bool status) override { return told<&I::sendLPMStatus>(status); }
    ScopedAStatus sendThermalStatus(orvix::ThermalState state) override { return told<&I::sendThermalStatus>(state); }
    ScopedAStatus sendBatteryStatus(const orvix::BatteryState& state) override {
        return told<&I::sendBatteryStatus>(state);
    }
    ScopedAStatus sendHotspotStatus(bool status) override { return told<&I::sendHotspotStatus>(status); }
    ScopedAStatus queryStats() override { return told<&I::queryStats>(); }
    ScopedAStatus sendFdforUID(const ndk::ScopedFileDescriptor& fd) override {
        ScopedAStatus status = told<&I::sendFdforUID>(fd);
        output.socket(trySocket(fd.get()));
        return status;
    }
    ScopedAStatus sendSocketFd(int32_t socketId, const ndk::ScopedFileDescriptor& fd) override {
        ScopedAStatus status = told<&I::sendSocketFd>(socketId, fd);
        Json facts = {{"id", socketId}};
        facts.update(trySocket(fd.get()));
        output.socket(facts);
        return status;
    }
    ScopedAStatus sendBlobToMirel(int32_t tag, const Bytes& blob) override {
        return told<&I::sendBlobToMirel>(tag, blob);
    }

  private:
    template <auto Pointer>
    ScopedAStatus told(const auto&... args) {
        Json arguments = Json::array();
        (arguments.push_back(toJson(args)), ...);
        output.call(std::get<orvix::Method<Pointer>>(I::methods).name, arguments);
        return ScopedAStatus::ok();
    }

    Output& output;
    std::mutex mutex;
    std::shared_ptr<orvix::IRequest> callback;
};

// A request as it is typed.
struct Verb {
    const char* name;
    std::string signature;
    std::string example;
    // Sends it with the arguments that follow the first word.
    void (*send)(const Verb& verb, const std::vector<Word>& words, Service& service, Output& output);
};

template <typename Row>
void send(const Verb& verb, const std::vector<Word>& words, Service& service, Output& output) {
    typename Row::Arguments arguments;
    try {
        WordReader(words, 1).take(arguments);
    } catch (const BadInput& error) {
        throw BadInput(error.what() + ("; an example: " + verb.example));
    }
    const std::shared_ptr<orvix::IRequest> request = service.request();
    if (request == nullptr) throw BadInput("no callback is registered yet");
    const ScopedAStatus status =
        std::apply([&](const auto&... args) { return (request.get()->*Row::pointer)(args...); }, arguments);
    output.request(verb.name, toJson(arguments), status.isOk() ? "" : nameOfStatus(status.getStatus()));
}

std::vector<Verb> allVerbs() {
    std::vector<Verb> verbs;
    forEachMethod<orvix::IRequest>([&](const auto& row) {
        using Row = std::remove_cvref_t<decltype(row)>;
        const std::string words = typedWords(exampleOf<typename Row::Arguments>());
        verbs.push_back({row.name, typeName<typename Row::Arguments>(),
                         row.name + std::string(words.empty() ? "" : " ") + words, send<Row>});
        // Any numbers make a socket; these make one that can be used.
        if (std::string_view(row.name) == "getSocketFd") verbs.back().example = "getSocketFd 7 10123 2 2 2";
    });
    return verbs;
}

std::string helpOf(const std::vector<Verb>& verbs) {
    std::string text =
        "requests, an example of each (text in quotes, bytes as hex:00ff, a record as JSON or its members):\n";
    for (const Verb& verb : verbs) text += "  " + verb.example + std::string("   ") + verb.signature + '\n';
    return text + "  help\n  quit\n";
}

// False for quit.
bool obey(const std::string& line, const std::vector<Verb>& verbs, Service& service, Output& output) {
    std::string name;
    try {
        const std::vector<Word> words = splitWords(line);
        if (words.empty()) return true;
        const std::string& first = words[0].text;
        if (first == "quit") return false;
        if (first == "help") {
            output.help(helpOf(verbs));
            return true;
        }
        std::vector<std::string> names{"help", "quit"};
        for (const Verb& verb : verbs) {
            names.push_back(verb.name);
            if (first != verb.name) continue;
            name = verb.name + std::string(": ");
            verb.send(verb, words, service, output);
            return true;
        }
        throw BadInput("no request " + first + "; nearest: " + nearest(first, names) + "; help lists all");
    } catch (const BadInput& error) {
        output.complain(name + error.what());
    }
    return true;
}

// Null is good; else why not.
const char* registerAs(const char* instance, AIBinder* binder) {
    const ndk::SpAIBinder other(AServiceManager_checkService(instance));
    if (other.get() != nullptr && AIBinder_isAlive(other.get())) return "another process that lives serves it";
    switch (AServiceManager_addService(binder, instance)) {
        case EX_NONE: return nullptr;
        case EX_ILLEGAL_STATE:  // the stand-in's answer
            return "the folder of services (ORVIX_BINDER_DIR) must be yours alone, mode 0700, and writable";
        case EX_SECURITY: return "SELinux does not let this process add it";
        default: return "the service manager refuses it: the device's VINTF manifest must declare it";
    }
}

int run(int argc, char** argv) {
    // A descriptor that is received must not become the input or an output.
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) != fd) return 1;
    }
    CLI::App app("Registers as " + std::string(kInstance) + " and prints each call that it receives.", "orvix-service");
    bool json = false;
    app.add_flag("--json", json, "one JSON object a line: {\"call\":\"sendScreenState\",\"args\":[true]}");
    app.footer(helpOf(allVerbs()) + "At the end of its input it goes on serving until it gets SIGTERM.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        std::cerr << "orvix-service: " << error.what() << "; orvix-service --help shows how" << std::endl;
        return 2;
    }

    // At once, also while a request is on its way: the kernel closes what is open, and the other side sees a death.
    for (const int number : {SIGTERM, SIGINT}) std::signal(number, [](int) { _exit(0); });
    Output output(json);
    const auto service = ndk::SharedRefBase::make<Service>(output);
    const ndk::SpAIBinder binder = service->asBinder();
    ABinderProcess_startThreadPool();
    if (const char* const reason = registerAs(kInstance, binder.get())) {
        output.complain(std::string("cannot register ") + kInstance + ": " + reason);
        return 1;
    }
    output.ready(kInstance);
    const std::vector<Verb> verbs = allVerbs();
    for (std::string line; std::getline(std::cin, line);) {
        if (!obey(line, verbs, *service, output)) std::exit(0);
    }
    for (;;) pause();
}

}  // namespace
}  // namespace sim

// Out of memory there is nothing to do but end.
int main(int argc, char** argv) { return sim::run(argc, argv); }  // NOLINT(bugprone-exception-escape)
