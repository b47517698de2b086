// Arguments from the words of a typed line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sim/json/Json.h"

namespace sim {

struct Word {
    std::string text;
    bool quoted = false;
};

// Splits at blanks. "Text with blanks" in quotes, with JSON's escapes, is one word; so is a JSON object or array.
// BadInput for JSON that is not well-formed and what is not UTF-8.
std::vector<Word> splitWords(const std::string& line);

// What splitWords would give for the arguments: a record as its members, one after the other.
std::string typedWords(const Json& arguments);

// Takes arguments from words, strictly, as fromJson does. A record is one word, a JSON object, or a word a member.
class WordReader {
  public:
    WordReader(const std::vector<Word>& all, size_t from) : words(all), next(from) {}

    // BadInput names the argument, its type and an example.
    template <typename... Args>
    void take(std::tuple<Args...>& arguments) {
        int number = 0;
        [[maybe_unused]] const auto argument = [&](auto& value) {
            takeValue(value, "argument " + std::to_string(++number));
        };
        std::apply([&](auto&... args) { (argument(args), ...); }, arguments);
        if (next < words.size()) throw BadInput("one word too many: " + words[next].text);
    }

  private:
    const std::vector<Word>& words;
    size_t next;

    bool startsWith(char first) const {
        return next < words.size() && !words[next].quoted && words[next].text.starts_with(first);
    }

    template <typename T>
    void takeValue(T& value, const std::string& path) {
        if constexpr (orvix::Record<T>) {
            if (!startsWith('{')) {
                const auto member = [&](const auto& field) {
                    takeValue(value.*field.member, json::join(path, field.name));
                };
                return forEachMember<T>(member);
            }
        }
        if (next == words.size()) json::refuse(path, typeName<T>(), exampleOf<T>(), Json::value_t::discarded);
        const Word& word = words[next++];
        constexpr bool kText = std::is_same_v<T, std::string> || std::is_same_v<T, Bytes>;
        fromJson(kText || word.quoted ? Json(word.text) : valueOf(word.text), value, path);
    }

    // Text that is no JSON is itself: fromJson then says what is wanted.
    static Json valueOf(const std::string& text);
};

}  // namespace sim
