#include "sim/service/Words.h"

#include <cctype>
#include <cstdio>
#include <sstream>

namespace sim {
namespace {

using Kind = Type::Kind;

struct Reader {
    const std::vector<Word>& words;
    size_t next = 1;

    bool startsWith(const char* begin) const {
        return next < words.size() && !words[next].quoted && words[next].text.starts_with(begin);
    }

    std::optional<Bytes> takeBytes(const Member& argument) {
        if (argument.type.kind != Kind::kRecord || !startsWith("hex:")) return std::nullopt;
        return bytesOfHex(words[next++].text.substr(4));
    }

    void take(const Type& type, void* value, const std::string& path) {
        if (type.kind == Kind::kRecord && !startsWith("{")) {
            for (const Member& member : type.members) take(member.type, member.in(value), joined(path, member.name));
            return;
        }
        if (next == words.size()) refuseMissing(type, path);
        const Word& word = words[next++];
        const bool isText = word.quoted || type.kind == Kind::kText || type.kind == Kind::kBytes;
        fromJson(isText ? Json(word.text) : valueOf(word.text), type, value, path);
    }

    // Text that is no JSON is itself: fromJson then says what is wanted.
    static Json valueOf(const std::string& text) {
        try {
            return parseJson(text);
        } catch (const BadInput&) {
            return text;
        }
    }
};

}  // namespace

std::vector<Word> splitWords(const std::string& line) {
    try {
        (void)Json(line).dump();
    } catch (const Json::type_error&) {
        throw BadInput("not UTF-8");
    }
    std::vector<Word> words;
    std::istringstream input(line);
    for (int first; (first = (input >> std::ws).peek()) != EOF;) {
        if (first == '#') break;
        const auto start = static_cast<size_t>(input.tellg());
        const bool quoted = first == '"';
        if (!quoted && first != '{' && first != '[') {
            input >> words.emplace_back().text;
            continue;
        }
        Json value;
        try {
            input >> value;
        } catch (const Json::parse_error&) {
            parseJson(line.substr(start));  // says what is wrong with it
        }
        const std::string text = line.substr(start, static_cast<size_t>(input.tellg()) - start);
        if (input.peek() != EOF && !std::isspace(input.peek())) throw BadInput("a blank is missing after " + text);
        words.push_back({quoted ? value.get<std::string>() : text, quoted});
    }
    return words;
}

std::string typedWords(const Json& arguments) {
    std::string text;
    for (const Json& value : arguments) {
        const bool bare = isHex(value);
        text += (text.empty() ? "" : " ");
        text += value.is_object() ? typedWords(value) : bare ? value.get<std::string>() : value.dump();
    }
    return text;
}

Typed readWords(const std::vector<Word>& words, const Type& arguments) {
    Typed typed{arguments.make(), {}, Json::array()};
    Reader reader{words};
    for (const Member& argument : arguments.members) {
        void* const value = argument.in(typed.arguments.get());
        typed.raw.push_back(reader.takeBytes(argument));
        if (typed.raw.back()) {
            typed.shown.push_back("hex:" + hexOf(*typed.raw.back()));
        } else {
            reader.take(argument.type, value, argument.name);
            typed.shown.push_back(toJson(argument.type, value));
        }
    }
    if (reader.next < words.size()) throw BadInput("one word too many: " + words[reader.next].text);
    return typed;
}

}  // namespace sim
