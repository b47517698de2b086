#pragma once

#include <android/log.h>

namespace orvix {

// Of every line that the library logs.
inline constexpr const char* kLogTag = "orvixJni";

}  // namespace orvix
