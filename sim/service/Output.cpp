#include "sim/service/Output.h"

#include <unistd.h>

#include <cerrno>

namespace sim {
namespace {

std::string callOf(const std::string& name, const Json& arguments) {
    std::string text;
    for (const Json& argument : arguments) text += (text.empty() ? "" : ", ") + argument.dump();
    return name + '(' + text + ')';
}

}  // namespace

void Output::ready(const std::string& instance, const std::string& folder, int version) {
    print({{"event", "ready"}, {"name", instance}, {"folder", folder}, {"version", version}},
          "Service .. registered as " + instance + " in " + folder + ", version " + std::to_string(version) +
              "; help lists the requests, quit ends");
}

void Output::call(const std::string& name, const Json& arguments) {
    print({{"call", name}, {"args", arguments}}, "Service <- " + callOf(name, arguments));
}

void Output::unreadable(const std::string& name, const std::string& status) {
    print({{"event", "unreadable"}, {"call", name}, {"status", status}},
          "Service <- " + name + ": the arguments cannot be read: " + status);
}

void Output::callback(size_t number) {
    print({{"event", "callback"}, {"number", number}},
          "Service .. callback " + std::to_string(number) + " is asked from now on");
}

void Output::died(size_t number) {
    print({{"event", "died"}, {"number", number}},
          "Service .. callback " + std::to_string(number) + " is dead: its application has ended");
}

void Output::socket(const Json& facts) {
    std::string text;
    for (const auto& [name, value] : facts.items()) {
        text += (text.empty() ? "" : ", ") + name + ' ' + (value.is_string() ? value.get<std::string>() : value.dump());
    }
    print({{"socket", facts}}, "Service .. socket: " + text);
}

void Output::request(const std::string& name, const Json& arguments, size_t callback, const std::string& status) {
    Json line = {{"request", name}, {"args", arguments}, {"callback", callback}};
    const std::string people = "Service -> " + callOf(name, arguments) + " to callback " + std::to_string(callback);
    if (status.empty()) return print(line, people);
    line.update({{"event", "failed"}, {"status", status}});
    print(line, people + " failed: " + status);
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
