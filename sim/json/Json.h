// Every value of the interface as JSON and back.
//
// Enumerations are ints, an absent optional is null, bytes are "hex:00ff", a descriptor is "fd of /path" (-1 without
// one), a binder is null, "local binder" or "remote binder". The arguments of a call are an array.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "sim/json/BadInput.h"
#include "sim/json/Type.h"

namespace sim {

using Json = nlohmann::ordered_json;

// BadInput if the text is not one well-formed value in UTF-8, or an object names a member twice.
Json parseJson(std::string_view text);

// Two small digits a byte.
std::string hexOf(const Bytes& bytes);
// Passes over blanks, line breaks, commas and the 0x before a number; capitals are welcome. BadInput for anything else.
Bytes bytesOfHex(std::string_view hex);
// "hex:00ff", strictly.
bool isHex(const Json& json);

// A value of the type, to type.
Json exampleOf(const Type& type);

Json toJson(const Type& type, const void* value);
// Strict: BadInput names the place (by `path` and from there), its type and an example when a member is unknown or
// missing (a missing optional is absent), a value has another type or does not fit. The target is then half filled.
void fromJson(const Json& json, const Type& type, void* value, const std::string& path = {});

// Of a place that lacks a value.
[[noreturn]] void refuseMissing(const Type& type, const std::string& path);

}  // namespace sim
