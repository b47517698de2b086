// Arguments from the words of a typed line.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sim/json/Json.h"

namespace sim {

struct Word {
    std::string text;
    bool quoted = false;
};

// Splits at blanks. "Text with blanks" in quotes, with JSON's escapes, is one word; so is a JSON object or array. A
// word that begins with # ends the line. BadInput for JSON that is not well-formed and what is not UTF-8.
std::vector<Word> splitWords(const std::string& line);

// What splitWords would give for the arguments: a record as its members, one after the other.
std::string typedWords(const Json& arguments);

// NOLINTNEXTLINE(bugprone-exception-escape): that a move of JSON throws nothing is more than the check can see
struct Typed {
    std::shared_ptr<void> arguments;
    std::vector<std::optional<Bytes>> raw;  // of an argument that was typed as a record's bytes: these
    Json shown;
};
// Takes all arguments from the words after the first, strictly, as fromJson does. A record is one word, a JSON object,
// or a word a member; or its bytes, whatever they are: hex:0c000000. BadInput names the argument, its type and an
// example.
Typed readWords(const std::vector<Word>& words, const Type& arguments);

}  // namespace sim
