// orvix-service: a service to try applications with. It prints every call that it receives, and sends the requests that
// are typed on its input to the callback that was registered last.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>

#include "platform/linux/src/Folder.h"
#include "sim/service/Verbs.h"

namespace sim {
namespace {

constexpr const char* kInstance = "vendor.nuvel.data.orvixservice.IOrvixService/default";

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
    bool json = false, serve = false;
    int version = kOwn, slow = 0;
    app.add_flag("--json", json, "one JSON object a line: {\"call\":\"sendScreenState\",\"args\":[true]}");
    app.add_flag("--serve", serve, "goes on at the end of its input, until it gets SIGTERM");
    app.add_option("--version", version, "6: its records lack their last member; 8: they have one more")
        ->check(CLI::Range(kOlder, kNewer));
    app.add_option("--slow", slow, "milliseconds that each call takes")->check(CLI::NonNegativeNumber);
    app.footer(Verbs::help() +
               "Ends with its input: exit 0, or 2 after a line that was wrong, unless a person typed it.");
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
    Service service(output, version, Service::Milliseconds(slow));
    ABinderProcess_startThreadPool();
    if (const char* const reason = registerAs(kInstance, service.binder())) {
        output.complain(std::string("cannot register ") + kInstance + " in " + standin::binderFolder() + ": " + reason);
        return 1;
    }
    output.ready(kInstance, standin::binderFolder(), version);
    Verbs verbs(service, output);
    bool good = true, quit = false;
    for (std::string line; !quit && std::getline(std::cin, line);) {
        const Verbs::Outcome outcome = verbs.obey(line);
        good = good && outcome != Verbs::Outcome::kWrong;
        quit = outcome == Verbs::Outcome::kQuit;
    }
    if (serve && !quit) {
        for (;;) pause();
    }
    // Binder threads still run: nothing that they use may be destroyed.
    std::exit(good || isatty(STDIN_FILENO) ? 0 : 2);
}

}  // namespace
}  // namespace sim

// Out of memory there is nothing to do but end.
int main(int argc, char** argv) { return sim::run(argc, argv); }  // NOLINT(bugprone-exception-escape)
