// What tools need to know of the interface's types: for each its name in .aidl and an example to type.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <tuple>

#include "aidl/IOrvixService.h"
#include "aidl/IRequest.h"

namespace sim {

namespace orvix = aidl::vendor::nuvel::data::orvixservice;
using Json = nlohmann::ordered_json;
using Bytes = std::vector<uint8_t>;

using orvix::Records;

template <typename T, template <typename...> class Template>
inline constexpr bool kIs = false;
template <template <typename...> class Template, typename... Args>
inline constexpr bool kIs<Template<Args...>, Template> = true;

template <typename T>
concept Descriptor = std::is_same_v<T, ndk::ScopedFileDescriptor>;
// A shared pointer to one of the two interfaces.
template <typename T>
concept Object = kIs<T, std::shared_ptr>;
template <typename T>
concept RecordList = kIs<T, std::vector> && !std::is_same_v<T, Bytes>;

// What follows the last dot of a descriptor.
inline std::string shortName(const std::string& descriptor) { return descriptor.substr(descriptor.rfind('.') + 1); }

template <typename I>
void forEachMethod(auto&& visit) {
    std::apply([&](const auto&... rows) { (visit(rows), ...); }, I::methods);
}
template <typename R>
void forEachMember(auto&& visit) {
    std::apply([&](const auto&... fields) { (visit(fields), ...); }, R::members);
}
template <typename Row>
using ArgumentsOf = typename std::remove_cvref_t<Row>::Arguments;

template <typename T>
std::string typeName();

template <typename... Args>
std::string typeNames(const std::tuple<Args...>*) {
    std::string names;
    ((names += (names.empty() ? "" : ", ") + typeName<Args>()), ...);
    return "(" + names + ")";
}

// As in .aidl; of a tuple of arguments: all of them, in brackets.
template <typename T>
std::string typeName() {
    if constexpr (orvix::Record<T>)
        return shortName(T::descriptor);
    else if constexpr (RecordList<T>)
        return typeName<typename T::value_type>() + "[]";
    else if constexpr (Object<T>)
        return shortName(T::element_type::descriptor);
    else if constexpr (Descriptor<T>)
        return "ParcelFileDescriptor";
    else if constexpr (kIs<T, std::tuple>)
        return typeNames(static_cast<const T*>(nullptr));
    else if constexpr (std::is_same_v<T, orvix::RatType>)
        return "RatType";
    else if constexpr (std::is_same_v<T, orvix::TechType>)
        return "TechType";
    else if constexpr (std::is_same_v<T, orvix::ThermalState>)
        return "ThermalState";
    else if constexpr (std::is_same_v<T, orvix::SlotId>)
        return "SlotId";
    else if constexpr (std::is_same_v<T, bool>)
        return "boolean";
    else if constexpr (std::is_same_v<T, int32_t>)
        return "int";
    else if constexpr (std::is_same_v<T, int64_t>)
        return "long";
    else if constexpr (std::is_same_v<T, std::string>)
        return "String";
    else if constexpr (std::is_same_v<T, std::optional<std::string>>)
        return "@nullable String";
    else {
        static_assert(std::is_same_v<T, Bytes>, "a type that is new to the interface needs a name here");
        return "byte[]";
    }
}

// A value of the type, as JSON.
template <typename T>
Json exampleOf() {
    if constexpr (orvix::Record<T>) {
        Json object = Json::object();
        forEachMember<T>([&](const auto& field) {
            object[field.name] = exampleOf<std::remove_cvref_t<decltype(std::declval<T&>().*field.member)>>();
        });
        return object;
    } else if constexpr (RecordList<T>)
        return Json::array({exampleOf<typename T::value_type>()});
    else if constexpr (kIs<T, std::tuple>)
        return []<typename... A>(const std::tuple<A...>*) {
            Json list = Json::array();
            (list.push_back(exampleOf<A>()), ...);
            return list;
        }(static_cast<const T*>(nullptr));
    else if constexpr (Object<T>)
        return "local binder";
    else if constexpr (Descriptor<T>)
        return "fd of /dev/null";
    else if constexpr (std::is_same_v<T, bool>)
        return true;
    else if constexpr (std::is_same_v<T, int64_t>)
        return 5000;
    else if constexpr (std::is_same_v<T, int32_t> || orvix::Enumeration<T>)
        return 5;
    else if constexpr (std::is_same_v<T, Bytes>)
        return "hex:00ff";
    else
        return "some text";
}

}  // namespace sim
