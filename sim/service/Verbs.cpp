#include "sim/service/Verbs.h"

#include <thread>

#include "sim/json/Names.h"
#include "sim/json/Types.h"

namespace sim {
namespace {

// A line that can be typed.
struct Verb {
    const Method& method;  // of IRequest, or one of these tools
    std::string example;
};

const std::vector<Verb>& allVerbs() {
    static const Method transact{"", "transact", 0, typeOf<std::tuple<int32_t, Bytes>>()};
    static const Method waitForCallback{"", "waitForCallback", 0, typeOf<std::tuple<int32_t>>()};
    static const Method sleep{"", "sleep", 0, typeOf<std::tuple<int32_t>>()};
    static const Method help{"", "help", 0, typeOf<std::tuple<>>()}, quit{"", "quit", 0, typeOf<std::tuple<>>()};
    static const auto verbs = [] {
        std::vector<Verb> all;
        for (const Method& method : allMethods()) {
            if (method.interface != "IRequest") continue;
            const std::string words = typedWords(exampleOf(method.arguments));
            // Any numbers make a socket; these make one that can be used.
            all.push_back({method, method.name == "getSocketFd" ? "getSocketFd 7 10123 2 2 2"
                                                                : method.name + (words.empty() ? "" : " ") + words});
        }
        all.push_back({transact, "transact 4 hex:8813000000000000"});
        all.push_back({waitForCallback, "waitForCallback 5000"});
        all.push_back({sleep, "sleep 500"});
        all.push_back({help, "help"});
        all.push_back({quit, "quit"});
        return all;
    }();
    return verbs;
}

const Verb& find(const std::string& name) {
    std::vector<std::string> names;
    for (const Verb& verb : allVerbs()) {
        if (verb.method.name == name) return verb;
        names.push_back(verb.method.name);
    }
    throw BadInput("no request " + name + "; nearest: " + nearest(name, names) + "; help lists all");
}

}  // namespace

std::string Verbs::help() {
    std::string text =
        "requests, an example of each (text in quotes, bytes as hex:00ff, a record as JSON, its members or its bytes, "
        "whatever they are):\n";
    for (const Verb& verb : allVerbs()) text += "  " + verb.example + "   " + verb.method.arguments.name + '\n';
    return text + "transact sends any bytes as all the arguments of a request's code; # begins a comment.\n";
}

Verbs::Outcome Verbs::obey(const std::string& line) {
    try {
        const std::vector<Word> words = splitWords(line);
        if (!words.empty() && words[0].text == "quit") return Outcome::kQuit;
        if (!words.empty()) obey(words);
        return Outcome::kGood;
    } catch (const BadInput& error) {
        output.complain(error.what());
        return Outcome::kWrong;
    }
}

void Verbs::obey(const std::vector<Word>& words) {
    const Verb& verb = find(words[0].text);
    const std::string& name = verb.method.name;
    Typed typed;
    try {
        typed = readWords(words, verb.method.arguments);
    } catch (const BadInput& error) {
        throw BadInput(name + ": " + error.what() + "; an example: " + verb.example);
    }
    try {
        if (name == "help") return output.help(help());
        if (name == "transact") {
            const auto& [code, bytes] = *static_cast<std::tuple<int32_t, Bytes>*>(typed.arguments.get());
            return service.sendRaw(code, bytes, typed.shown);
        }
        if (!verb.method.interface.empty()) return service.send(verb.method, typed);
        const Service::Milliseconds time(typed.shown[0].get<int>());
        if (time.count() < 0) throw BadInput("a time must not be negative");
        if (name == "sleep") return std::this_thread::sleep_for(time);
        if (!service.waitForCallback(time)) throw BadInput("none within " + typed.shown[0].dump() + " ms");
    } catch (const BadInput& error) {
        throw BadInput(name + ": " + error.what());
    }
}

}  // namespace sim
