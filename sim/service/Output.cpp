#include "sim/service/Output.h"

#include <unistd.h>

#include <cerrno>

namespace sim {
namespace {

std::string callOf(const char* name, const Json& arguments) {
    std::string text;
    for (const Json& argument : arguments) text += (text.empty() ? "" : ", ") + argument.dump();
    return std::string(name) + '(' + text + ')';
}

}  // namespace

void Output::ready(const std::string& instance) {
    print({{"event", "ready"}}, "Service .. registered as " + instance + "; help lists the requests, quit ends");
}

void Output::call(const char* name, const Json& arguments) {
    print({{"call", name}, {"args", arguments}}, "Service <- " + callOf(name, arguments));
}

void Output::socket(const Json& facts) {
    std::string text;
    for (const auto& [name, value] : facts.items()) {
        text += (text.empty() ? "" : ", ") + name + ' ' + (value.is_string() ? value.get<std::string>() : value.dump());
    }
    print({{"socket", facts}}, "Service .. socket: " + text);
}

void Output::request(const char* name, const Json& arguments, const std::string& status) {
    const std::string people = callOf(name, arguments);
    if (status.empty()) return print({{"request", name}, {"args", arguments}}, "Service -> " + people);
    print({{"event", "failed"}, {"request", name}, {"args", arguments}, {"status", status}},
          "Service -> " + people + " failed: " + status);
}

void Output::help(const std::string& text) { put(json ? STDERR_FILENO : STDOUT_FILENO, text); }
void Output::complain(const std::string& text) { put(STDERR_FILENO, "orvix-service: " + text + '\n'); }

void Output::print(const Json& line, const std::string& people) {
    put(STDOUT_FILENO, (json ? line.dump() : people) + '\n');
}

void Output::put(int fd, const std::string& text) {
    const std::lock_guard lock(mutex);
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = write(fd, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;  // nobody to tell it to
        done += static_cast<size_t>(count);
    }
}

}  // namespace sim
