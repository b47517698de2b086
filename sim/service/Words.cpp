#include "sim/service/Words.h"

namespace sim {
namespace {

constexpr std::string_view kBlanks = " \t\r";

// Behind the quote that closes the string that begins at `at`.
size_t endOfString(const std::string& line, size_t at) {
    for (size_t i = at + 1; i < line.size(); ++i) {
        if (line[i] == '\\')
            ++i;
        else if (line[i] == '"')
            return i + 1;
    }
    throw BadInput("a quote is left open: " + line.substr(at));
}

// Behind the bracket that closes the one at `at`.
size_t endOfBrackets(const std::string& line, size_t at) {
    int depth = 0;
    for (size_t i = at; i < line.size(); ++i) {
        if (line[i] == '"')
            i = endOfString(line, i) - 1;
        else if (line[i] == '{' || line[i] == '[')
            ++depth;
        else if ((line[i] == '}' || line[i] == ']') && --depth == 0)
            return i + 1;
    }
    throw BadInput("a bracket is left open: " + line.substr(at));
}

size_t endOfWord(const std::string& line, size_t at) {
    if (line[at] == '"') return endOfString(line, at);
    if (line[at] == '{' || line[at] == '[') return endOfBrackets(line, at);
    return std::min(line.find_first_of(kBlanks, at), line.size());
}

}  // namespace

std::vector<Word> splitWords(const std::string& line) {
    try {
        (void)Json(line).dump();
    } catch (const Json::type_error&) {
        throw BadInput("not UTF-8");
    }
    std::vector<Word> words;
    for (size_t at = 0; (at = line.find_first_not_of(kBlanks, at)) != std::string::npos;) {
        const size_t end = endOfWord(line, at);
        const std::string text = line.substr(at, end - at);
        if (end < line.size() && kBlanks.find(line[end]) == std::string_view::npos) {
            throw BadInput("a blank is missing after " + text);
        }
        const bool quoted = line[at] == '"';
        words.push_back({quoted ? parseJson(text).get<std::string>() : text, quoted});
        at = end;
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
