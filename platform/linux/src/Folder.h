// The folder in which processes meet, as the environment names it. For tools, too.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace standin {

inline std::string binderFolder() {
    const auto variable = [](const char* name) {
        const char* const value = std::getenv(name);
        return std::string(value == nullptr ? "" : value);
    };
    std::string own = variable("ORVIX_BINDER_DIR");
    const std::string runtime = variable("XDG_RUNTIME_DIR");
    if (!own.empty()) return own;
    return runtime.empty() ? "/tmp/orvix-binder-" + std::to_string(geteuid()) : runtime + "/orvix-binder";
}

}  // namespace standin
