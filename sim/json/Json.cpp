#include "sim/json/Json.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <set>

namespace sim {

Json parseJson(std::string_view text) {
    std::vector<std::set<std::string>> names;  // of the objects that are open
    const auto watch = [&](int, Json::parse_event_t event, Json& parsed) {
        if (event == Json::parse_event_t::object_start) names.emplace_back();
        if (event == Json::parse_event_t::object_end) names.pop_back();
        if (event == Json::parse_event_t::key && !names.back().insert(parsed.get<std::string>()).second) {
            throw BadInput("the member " + parsed.get<std::string>() + " is there twice");
        }
        return true;
    };
    try {
        return Json::parse(text, watch);
    } catch (const Json::parse_error& error) {
        // The library's own text begins with its name and number.
        const std::string what = error.what();
        const size_t colon = what.find(": ");
        throw BadInput("not well-formed JSON at byte " + std::to_string(error.byte) +
                       (colon == std::string::npos ? "" : what.substr(colon)));
    }
}

std::string hexOf(const Bytes& bytes) {
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes) {
        hex += "0123456789abcdef"[byte >> 4];
        hex += "0123456789abcdef"[byte & 15];
    }
    return hex;
}

Bytes bytesOfHex(std::string_view hex) {
    const auto digit = [&](size_t at) {
        const char c = hex[at];
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        throw BadInput("not hex at character " + std::to_string(at + 1) + "; an example: 0c0000000700000001000000");
    };
    Bytes bytes(hex.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(digit(2 * i) << 4 | digit(2 * i + 1));
    if (hex.size() % 2 != 0) {
        digit(hex.size() - 1);
        throw BadInput("an odd number of hex digits: " + std::to_string(hex.size()));
    }
    return bytes;
}

namespace json {
namespace {

// Short enough for one line.
std::string show(const Json& json) {
    constexpr size_t kMost = 80;
    std::string text = json.dump(-1, ' ', true);
    if (text.size() > kMost) text = text.substr(0, kMost) + "...";
    return text;
}

}  // namespace

void refuse(const std::string& path, const std::string& type, const Json& example, const Json& got) {
    const bool missing = got.is_discarded();
    throw BadInput(path + (path.empty() ? "" : ": ") + (missing ? "is missing; " : "") + "must be " + type +
                   ", for example " + example.dump() + (missing ? "" : ", not " + show(got)));
}

void refuseOthers(const std::string& path, const std::string& type, const Json& object, const Json& known) {
    for (const auto& [name, value] : object.items()) {
        if (known.contains(name)) continue;
        std::string names;
        for (const auto& [right, example] : known.items()) {
            if (!names.empty()) names += ", ";
            names += right;
        }
        // NOLINTNEXTLINE(performance-inefficient-string-concatenation): thrown once
        throw BadInput(join(path, name.c_str()) + ": no such member; " + type + " has " + names + ", for example " +
                       known.dump());
    }
}

bool isBytes(const Json& json) {
    if (!json.is_string()) return false;
    const std::string& text = json.get_ref<const std::string&>();
    return text.starts_with("hex:") && text.size() % 2 == 0 &&
           text.find_first_not_of("0123456789abcdefABCDEF", 4) == std::string::npos;
}

bool isInteger(const Json& json, int64_t least, int64_t most) {
    if (json.is_number_unsigned()) return json.get<uint64_t>() <= static_cast<uint64_t>(most);
    return json.is_number_integer() && json.get<int64_t>() >= least && json.get<int64_t>() <= most;
}

Json describeDescriptor(int fd) {
    if (fd < 0) return -1;
    std::string path(4096, '\0');
    const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path.data(), path.size());
    path.resize(length < 0 ? 0 : static_cast<size_t>(length));
    // A path is any bytes; JSON is UTF-8.
    return parseJson(Json("fd of " + path).dump(-1, ' ', false, Json::error_handler_t::replace));
}

ndk::ScopedFileDescriptor openDescriptor(const std::string& path, const Json& json) {
    if (json.is_number_integer() && !json.is_number_unsigned()) return ndk::ScopedFileDescriptor(-1);
    const std::string text = json.is_string() ? json.get<std::string>() : "";
    if (!text.starts_with("fd of /")) {
        refuse(path, typeName<ndk::ScopedFileDescriptor>(), exampleOf<ndk::ScopedFileDescriptor>(), json);
    }
    // Without waiting: the path may be that of a pipe.
    const int fd = open(text.c_str() + std::strlen("fd of "), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) throw BadInput(path + ": " + text + ": " + std::strerror(errno));
    return ndk::ScopedFileDescriptor(fd);
}

}  // namespace json
}  // namespace sim
