// Faults at the border of the platform, for tests: ORVIX_FAULTS="linkToDeath=-32,waitForService=null".
#pragma once

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

namespace standin {

// What the call of this name shall answer instead of doing its work; null counts as 0. Looked up at each use.
inline std::optional<int32_t> fault(std::string_view name) {
    const char* const faults = std::getenv("ORVIX_FAULTS");
    std::string_view rest = faults == nullptr ? "" : faults;
    while (!rest.empty()) {
        const std::string_view item = rest.substr(0, rest.find(','));
        rest.remove_prefix(item.size() == rest.size() ? item.size() : item.size() + 1);
        if (item.starts_with(name) && item.substr(name.size()).starts_with('=')) {
            return static_cast<int32_t>(std::strtol(item.data() + name.size() + 1, nullptr, 10));
        }
    }
    return std::nullopt;
}

}  // namespace standin
