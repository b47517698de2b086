#include "sim/json/Json.h"

#include <android/binder_auto_utils.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

namespace sim {
namespace {

using Kind = Type::Kind;

template <typename T>
T& as(void* value) {
    return *static_cast<T*>(value);
}
template <typename T>
const T& as(const void* value) {
    return *static_cast<const T*>(value);
}
// It may be an enumeration.
int32_t intOf(const void* value) {
    int32_t number = 0;
    std::memcpy(&number, value, sizeof(number));
    return number;
}

int digitOf(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Short enough for one line.
std::string show(const Json& json) {
    constexpr size_t kMost = 80;
    std::string text = json.dump(-1, ' ', true);
    if (text.size() > kMost) text = text.substr(0, kMost) + "...";
    return text;
}

// `got` is null where there is nothing.
[[noreturn]] void refuse(const std::string& path, const Type& type, const std::string& wanted, const Json* got) {
    throw BadInput(path + (path.empty() ? "" : ": ") + (got ? "" : "is missing; ") + "must be " + wanted +
                   ", for example " + exampleOf(type).dump() + (got ? ", not " + show(*got) : ""));
}

// Refuses members that the record does not have.
void refuseOthers(const std::string& path, const Type& record, const Json& object) {
    std::string names;
    for (const Member& member : record.members) names += (names.empty() ? "" : ", ") + member.name;
    for (const auto& [name, value] : object.items()) {
        if (exampleOf(record).contains(name)) continue;
        // NOLINTNEXTLINE(performance-inefficient-string-concatenation): thrown once
        throw BadInput(joined(path, name) + ": no such member; " + record.name + " has " + names + ", for example " +
                       exampleOf(record).dump());
    }
}

Json describeDescriptor(int fd) {
    if (fd < 0) return -1;
    std::string path(4096, '\0');
    const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path.data(), path.size());
    path.resize(length < 0 ? 0 : static_cast<size_t>(length));
    // A path is any bytes; JSON is UTF-8.
    return parseJson(Json("fd of " + path).dump(-1, ' ', false, Json::error_handler_t::replace));
}

// Opens what describeDescriptor names.
void openDescriptor(const std::string& path, const std::string& text, ndk::ScopedFileDescriptor& descriptor) {
    // Without waiting: the path may be that of a pipe.
    descriptor.set(open(text.c_str() + std::strlen("fd of "), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (descriptor.get() < 0) throw BadInput(path + ": " + text + ": " + std::strerror(errno));
}

}  // namespace

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
    const auto isBlank = [&](size_t at) { return std::string_view(" \t\r\n,").find(hex[at]) != hex.npos; };
    Bytes bytes;
    size_t digits = 0;
    for (size_t at = 0; at < hex.size(); ++at) {
        if (isBlank(at)) continue;
        if ((at == 0 || isBlank(at - 1)) && (hex.substr(at, 2) == "0x" || hex.substr(at, 2) == "0X")) {
            ++at;
            continue;
        }
        const int digit = digitOf(hex[at]);
        if (digit < 0) {
            throw BadInput("not hex at character " + std::to_string(at + 1) + "; an example: 0c0000000700000001000000");
        }
        if (digits++ % 2 == 0) bytes.push_back(0);
        bytes.back() = static_cast<uint8_t>(bytes.back() << 4 | digit);
    }
    if (digits % 2 != 0) throw BadInput("an odd number of hex digits: " + std::to_string(digits));
    return bytes;
}

bool isHex(const Json& json) {
    if (!json.is_string()) return false;
    const std::string& text = json.get_ref<const std::string&>();
    return text.starts_with("hex:") && text.size() % 2 == 0 &&
           std::all_of(text.begin() + 4, text.end(), [](char c) { return digitOf(c) >= 0; });
}

Json exampleOf(const Type& type) {
    Json example;
    switch (type.kind) {
        case Kind::kBool: return true;
        case Kind::kInt: return 5;
        case Kind::kLong: return 5000;
        case Kind::kText:
        case Kind::kNullableText: return "some text";
        case Kind::kBytes: return "hex:00ff";
        case Kind::kCallback: return "local binder";
        case Kind::kDescriptor: return "fd of /dev/null";
        case Kind::kList: return Json::array({exampleOf(*type.element)});
        case Kind::kRecord:
            for (const Member& member : type.members) example[member.name] = exampleOf(member.type);
            return example;
        case Kind::kArguments: break;
    }
    example = Json::array();
    for (const Member& member : type.members) example.push_back(exampleOf(member.type));
    return example;
}

Json toJson(const Type& type, const void* value) {
    Json whole;
    switch (type.kind) {
        case Kind::kBool: return as<bool>(value);
        case Kind::kInt: return intOf(value);
        case Kind::kLong: return as<int64_t>(value);
        case Kind::kText: return as<std::string>(value);
        case Kind::kNullableText: {
            const auto& text = as<std::optional<std::string>>(value);
            return text ? Json(*text) : Json();
        }
        case Kind::kBytes: return "hex:" + hexOf(as<Bytes>(value));
        case Kind::kCallback: {
            const char* const name = nameOfCallback(value);
            return name == nullptr ? Json() : Json(name);
        }
        case Kind::kDescriptor: return describeDescriptor(as<ndk::ScopedFileDescriptor>(value).get());
        case Kind::kList:
            whole = Json::array();
            for (size_t i = 0; i < type.size(value); ++i) whole.push_back(toJson(*type.element, type.at(value, i)));
            return whole;
        case Kind::kRecord:
            for (const Member& member : type.members) whole[member.name] = toJson(member.type, member.in(value));
            return whole;
        case Kind::kArguments: break;
    }
    whole = Json::array();
    for (const Member& member : type.members) whole.push_back(toJson(member.type, member.in(value)));
    return whole;
}

void fromJson(const Json& json, const Type& type, void* value, const std::string& path) {
    const auto demand = [&](bool good) {
        if (!good) refuse(path, type, type.name, &json);
    };
    const auto number = [&](int64_t least, int64_t most) {
        const bool fits = json.is_number_unsigned()
                              ? json.get<uint64_t>() <= static_cast<uint64_t>(most)
                              : json.is_number_integer() && json.get<int64_t>() >= least && json.get<int64_t>() <= most;
        const std::string range = " (" + std::to_string(least) + " to " + std::to_string(most) + ")";
        if (!fits) refuse(path, type, type.name + range, &json);
        return json.get<int64_t>();
    };
    switch (type.kind) {
        case Kind::kBool:
            demand(json.is_boolean());
            as<bool>(value) = json.get<bool>();
            break;
        case Kind::kInt: {
            const auto word = static_cast<int32_t>(number(INT32_MIN, INT32_MAX));
            std::memcpy(value, &word, sizeof(word));
            break;
        }
        case Kind::kLong: as<int64_t>(value) = number(INT64_MIN, INT64_MAX); break;
        case Kind::kText:
            demand(json.is_string());
            as<std::string>(value) = json.get<std::string>();
            break;
        case Kind::kNullableText:
            demand(json.is_null() || json.is_string());
            as<std::optional<std::string>>(value).reset();
            if (json.is_string()) as<std::optional<std::string>>(value) = json.get<std::string>();
            break;
        case Kind::kBytes:
            demand(isHex(json));
            as<Bytes>(value) = bytesOfHex(json.get_ref<const std::string&>().substr(4));
            break;
        case Kind::kCallback:
            demand(json.is_null() || json == "local binder");
            if (json.is_string()) setLocalCallback(value);
            break;
        case Kind::kDescriptor:
            if (json.is_number_integer() && !json.is_number_unsigned()) {
                as<ndk::ScopedFileDescriptor>(value).set(-1);
                break;
            }
            demand(json.is_string() && json.get_ref<const std::string&>().starts_with("fd of /"));
            openDescriptor(path, json.get<std::string>(), as<ndk::ScopedFileDescriptor>(value));
            break;
        case Kind::kList:
            demand(json.is_array());
            type.resize(value, json.size());
            for (size_t i = 0; i < json.size(); ++i) {
                fromJson(json[i], *type.element, const_cast<void*>(type.at(value, i)),
                         path + '[' + std::to_string(i) + ']');
            }
            break;
        case Kind::kRecord:
            demand(json.is_object());
            refuseOthers(path, type, json);
            for (const Member& member : type.members) {
                const std::string place = joined(path, member.name);
                const auto found = json.find(member.name);
                if (found != json.end())
                    fromJson(*found, member.type, member.in(value), place);
                else if (member.type.kind == Kind::kNullableText)
                    as<std::optional<std::string>>(member.in(value)).reset();
                else
                    refuseMissing(member.type, place);
            }
            break;
        case Kind::kArguments:
            demand(json.is_array() && json.size() == type.members.size());
            for (size_t i = 0; i < json.size(); ++i) {
                const Member& member = type.members[i];
                fromJson(json[i], member.type, member.in(value), joined(path, member.name));
            }
            break;
    }
}

void refuseMissing(const Type& type, const std::string& path) { refuse(path, type, type.name, nullptr); }

}  // namespace sim
