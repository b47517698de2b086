// Text as transcripts hold it. Not by std::regex: its first use on two threads at once is a data race in the standard
// library's locale, and transcripts are written by every thread.
#pragma once

#include <string>
#include <string_view>

// Each newline as \n, so that a log text stays one line.
inline std::string oneLine(std::string text) {
    for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) text.replace(at, 1, "\\n");
    return text;
}

// The number behind each `lead`, which differs from run to run, as N.
inline std::string masked(std::string_view lead, std::string text) {
    for (size_t at = 0; (at = text.find(lead, at)) != std::string::npos;) {
        at += lead.size();
        const size_t end = text.find_first_not_of("0123456789", at);
        text.replace(at, (end == std::string::npos ? text.size() : end) - at, "N");
    }
    return text;
}
