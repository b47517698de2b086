// From the types of the C++ side to those that are data. Whoever needs no more than these includes Type.h.
#pragma once

#include <string>
#include <tuple>
#include <utility>

#include "aidl/IOrvixService.h"
#include "aidl/IRequest.h"
#include "sim/json/Type.h"

namespace sim {

namespace orvix = aidl::vendor::nuvel::data::orvixservice;

template <typename T, template <typename...> class Template>
inline constexpr bool kIs = false;
template <template <typename...> class Template, typename... Args>
inline constexpr bool kIs<Template<Args...>, Template> = true;

template <typename T>
concept RecordList = kIs<T, std::vector> && !std::is_same_v<T, Bytes>;

// What follows the last dot of a descriptor.
inline std::string shortName(const std::string& descriptor) { return descriptor.substr(descriptor.rfind('.') + 1); }

template <typename I>
void forEachMethod(auto&& visit) {
    std::apply([&](const auto&... rows) { (visit(rows), ...); }, I::methods);
}
template <typename Row>
using ArgumentsOf = typename std::remove_cvref_t<Row>::Arguments;

namespace types {

template <typename T>
std::pair<Type::Kind, const char*> plain() {
    using enum Type::Kind;
    if constexpr (std::is_same_v<T, orvix::RatType>)
        return {kInt, "RatType"};
    else if constexpr (std::is_same_v<T, orvix::TechType>)
        return {kInt, "TechType"};
    else if constexpr (std::is_same_v<T, orvix::ThermalState>)
        return {kInt, "ThermalState"};
    else if constexpr (std::is_same_v<T, orvix::SlotId>)
        return {kInt, "SlotId"};
    else if constexpr (std::is_same_v<T, bool>)
        return {kBool, "boolean"};
    else if constexpr (std::is_same_v<T, int32_t>)
        return {kInt, "int"};
    else if constexpr (std::is_same_v<T, int64_t>)
        return {kLong, "long"};
    else if constexpr (std::is_same_v<T, std::string>)
        return {kText, "String"};
    else if constexpr (std::is_same_v<T, std::optional<std::string>>)
        return {kNullableText, "@nullable String"};
    else if constexpr (std::is_same_v<T, ndk::ScopedFileDescriptor>)
        return {kDescriptor, "ParcelFileDescriptor"};
    else if constexpr (std::is_same_v<T, std::shared_ptr<orvix::IRequest>>)
        return {kCallback, "IRequest"};
    else {
        static_assert(std::is_same_v<T, Bytes>, "a type that is new to the interface needs a name here");
        return {kBytes, "byte[]"};
    }
}

template <typename R, size_t... I>
std::vector<Member> membersOf(std::index_sequence<I...>) {
    return {Member{std::get<I>(R::members).name,
                   typeOf<std::remove_cvref_t<decltype(std::declval<R&>().*std::get<I>(R::members).member)>>(),
                   [](void* whole) -> void* { return &(static_cast<R*>(whole)->*std::get<I>(R::members).member); }}...};
}
template <typename Tuple, size_t... I>
std::vector<Member> argumentsOf(std::index_sequence<I...>) {
    return {Member{"argument " + std::to_string(I + 1), typeOf<std::tuple_element_t<I, Tuple>>(),
                   [](void* whole) -> void* { return &std::get<I>(*static_cast<Tuple*>(whole)); }}...};
}

template <typename T>
binder_status_t read(const AParcel* parcel, void* value) {
    T& target = *static_cast<T*>(value);
    if constexpr (orvix::Record<T>)
        return target.readFromParcel(parcel);
    else if constexpr (kIs<T, std::tuple>)
        return orvix::readArguments(parcel, target);
    else
        return orvix::readValue(parcel, target);
}
template <typename T>
binder_status_t write(AParcel* parcel, const void* value) {
    const T& source = *static_cast<const T*>(value);
    if constexpr (orvix::Record<T>)
        return source.writeToParcel(parcel);
    else if constexpr (kIs<T, std::tuple>)
        return std::apply([&](const auto&... args) { return orvix::writeArguments(parcel, args...); }, source);
    else
        return orvix::writeValue(parcel, source);
}

template <typename T>
Type make() {
    const auto of = [](Type::Kind kind, std::string name) {
        const auto makeValue = []() -> std::shared_ptr<void> { return std::make_shared<T>(); };
        return Type{kind, std::move(name), makeValue, read<T>, write<T>};
    };
    if constexpr (orvix::Record<T>) {
        Type type = of(Type::Kind::kRecord, shortName(T::descriptor));
        type.members = membersOf<T>(std::make_index_sequence<orvix::record::kMembers<T>>());
        return type;
    } else if constexpr (kIs<T, std::tuple>) {
        Type type = of(Type::Kind::kArguments, "");
        type.members = argumentsOf<T>(std::make_index_sequence<std::tuple_size_v<T>>());
        for (const Member& member : type.members) type.name += (type.name.empty() ? "" : ", ") + member.type.name;
        type.name = '(' + type.name + ')';
        return type;
    } else if constexpr (RecordList<T>) {
        const Type& element = typeOf<typename T::value_type>();
        Type type = of(Type::Kind::kList, element.name + "[]");
        type.element = &element;
        type.size = [](const void* list) { return static_cast<const T*>(list)->size(); };
        type.resize = [](void* list, size_t size) { static_cast<T*>(list)->resize(size); };
        type.at = [](const void* list, size_t i) -> const void* { return &static_cast<const T*>(list)->at(i); };
        return type;
    } else {
        const auto [kind, name] = plain<T>();
        return of(kind, name);
    }
}

}  // namespace types

template <typename T>
const Type& typeOf() {
    // Here as in Types.cpp never destroyed: threads that end with the process may read it until then.
    static const Type& type = *new Type(types::make<T>());
    return type;
}

}  // namespace sim
