// Every value of the interface as JSON and back, from the members of the records and the types of the arguments.
//
// Enumerations are ints, an absent optional is null, bytes are "hex:00ff", a descriptor is "fd of /path" (-1 without
// one), a binder is null, "local binder" or "remote binder". The arguments of a call are an array.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "sim/json/Types.h"

namespace sim {

// One line for people.
class BadInput : public std::runtime_error {
  public:
    using runtime_error::runtime_error;
};

// BadInput if the text is not one well-formed value in UTF-8, or an object names a member twice.
Json parseJson(std::string_view text);

// Two small digits a byte.
std::string hexOf(const Bytes& bytes);
// BadInput if it is something else; capitals are welcome.
Bytes bytesOfHex(std::string_view hex);

namespace json {

[[noreturn]] void refuse(const std::string& path, const std::string& type, const Json& example, const Json& got);
// Refuses members that are not among those that are known.
void refuseOthers(const std::string& path, const std::string& type, const Json& object, const Json& known);
bool isBytes(const Json& json);
// An integer from `least` to `most`.
bool isInteger(const Json& json, int64_t least, int64_t most);
Json describeDescriptor(int fd);
// Opens what describeDescriptor names; -1 for a negative number.
ndk::ScopedFileDescriptor openDescriptor(const std::string& path, const Json& json);
inline std::string join(const std::string& path, const char* member) {
    return path + (path.empty() ? "" : ".") + member;
}

// A VINTF-marked binder of this process that knows no method.
template <typename I>
std::shared_ptr<I> localObject() {
    // Not the interface's own class: a proxy then stands for the object, and nobody has to implement every method.
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        I::descriptor, [](void*) -> void* { return nullptr; }, [](void*) {},
        [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
            return STATUS_UNKNOWN_TRANSACTION;
        });
    const ndk::SpAIBinder binder(AIBinder_new(clazz, nullptr));
    AIBinder_markVintfStability(binder.get());
    return I::fromBinder(binder);
}

}  // namespace json

template <typename T>
Json toJson(const T& value) {
    if constexpr (orvix::Record<T>) {
        Json object = Json::object();
        forEachMember<T>([&](const auto& field) { object[field.name] = toJson(value.*field.member); });
        return object;
    } else if constexpr (RecordList<T>) {
        Json list = Json::array();
        for (const auto& element : value) list.push_back(toJson(element));
        return list;
    } else if constexpr (kIs<T, std::tuple>) {
        Json list = Json::array();
        std::apply([&](const auto&... args) { (list.push_back(toJson(args)), ...); }, value);
        return list;
    } else if constexpr (kIs<T, std::optional>) {
        return value ? Json(*value) : Json();
    } else if constexpr (Object<T>) {
        return value ? Json(value->isRemote() ? "remote binder" : "local binder") : Json();
    } else if constexpr (Descriptor<T>) {
        return json::describeDescriptor(value.get());
    } else if constexpr (std::is_same_v<T, Bytes>) {
        return "hex:" + hexOf(value);
    } else if constexpr (orvix::Enumeration<T>) {
        return static_cast<int32_t>(value);
    } else {
        return value;
    }
}

// Strict: BadInput names the place (by `path` and from there), its type and an example when a member is unknown or
// missing (a missing optional is absent), a value has another type or does not fit. The target is then half filled.
template <typename T>
void fromJson(const Json& json, T& value, const std::string& path = {}) {
    const auto demand = [&](bool good) {
        if (!good) json::refuse(path, typeName<T>(), exampleOf<T>(), json);
    };
    if constexpr (orvix::Record<T>) {
        demand(json.is_object());
        json::refuseOthers(path, typeName<T>(), json, exampleOf<T>());
        forEachMember<T>([&](const auto& field) {
            auto& member = value.*field.member;
            const auto found = json.find(field.name);
            if (found != json.end()) return fromJson(*found, member, json::join(path, field.name));
            using Member = std::remove_cvref_t<decltype(member)>;
            if constexpr (kIs<Member, std::optional>) return member.reset();
            json::refuse(json::join(path, field.name), typeName<Member>(), exampleOf<Member>(),
                         Json::value_t::discarded);
        });
    } else if constexpr (RecordList<T>) {
        demand(json.is_array());
        value.resize(json.size());
        for (size_t i = 0; i < json.size(); ++i) fromJson(json[i], value[i], path + '[' + std::to_string(i) + ']');
    } else if constexpr (kIs<T, std::tuple>) {
        demand(json.is_array() && json.size() == std::tuple_size_v<T>);
        size_t i = 0;
        const auto next = [&](auto& argument) {
            fromJson(json[i], argument, json::join(path, "argument ") + std::to_string(i + 1));
            ++i;
        };
        std::apply([&](auto&... args) { (next(args), ...); }, value);
    } else if constexpr (kIs<T, std::optional>) {
        demand(json.is_null() || json.is_string());
        value = json.is_null() ? T() : T(json.get<std::string>());
    } else if constexpr (Object<T>) {
        demand(json.is_null() || json == "local binder");
        value = json.is_null() ? nullptr : json::localObject<typename T::element_type>();
    } else if constexpr (Descriptor<T>) {
        value = json::openDescriptor(path, json);
    } else if constexpr (std::is_same_v<T, Bytes>) {
        demand(json::isBytes(json));
        value = bytesOfHex(json.get_ref<const std::string&>().substr(4));
    } else if constexpr (std::is_same_v<T, bool>) {
        demand(json.is_boolean());
        value = json.get<bool>();
    } else if constexpr (std::is_same_v<T, std::string>) {
        demand(json.is_string());
        value = json.get<std::string>();
    } else {
        using Number = std::conditional_t<std::is_same_v<T, int64_t>, int64_t, int32_t>;
        constexpr Number kLeast = std::numeric_limits<Number>::min(), kMost = std::numeric_limits<Number>::max();
        if (!json::isInteger(json, kLeast, kMost)) {
            const std::string range = " (" + std::to_string(kLeast) + " to " + std::to_string(kMost) + ")";
            json::refuse(path, typeName<T>() + range, exampleOf<T>(), json);
        }
        value = static_cast<T>(json.get<Number>());
    }
}

}  // namespace sim
