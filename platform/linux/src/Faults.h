// Faults at the border of the platform, for tests: ORVIX_FAULTS="linkToDeath=-32,waitForService=null".
#pragma once

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

namespace standin {

// What the call of this name shall answer instead of doing its work; null counts as 0. Looked up at each use.
inline std::optional<int32_t> fault(const std::string& name) {
    const char* const faults = std::getenv("ORVIX_FAULTS");
    if (faults == nullptr) return std::nullopt;
    const std::string all = std::string(",") + faults;
    const size_t found = all.find("," + name + "=");
    if (found == std::string::npos) return std::nullopt;
    return static_cast<int32_t>(std::strtol(all.c_str() + found + name.size() + 2, nullptr, 10));
}

}  // namespace standin
