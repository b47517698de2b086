#include "sim/service/Words.h"

#include <cctype>
#include <cstdio>
#include <sstream>

namespace sim {
std::vector<Word> splitWords(const std::string& line) {
    try {
        (void)Json(line).dump();
    } catch (const Json::type_error&) {
        throw BadInput("not UTF-8");
    }
    std::vector<Word> words;
    std::istringstream input(line);
    for (int first; (first = (input >> std::ws).peek()) != EOF;) {
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
        const bool bare = json::isBytes(value);
        text += (text.empty() ? "" : " ");
        text += value.is_object() ? typedWords(value) : bare ? value.get<std::string>() : value.dump();
    }
    return text;
}

Json WordReader::valueOf(const std::string& text) {
    try {
        return parseJson(text);
    } catch (const BadInput&) {
        return text;
    }
}

}  // namespace sim
