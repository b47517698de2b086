#pragma once

#include <android/log.h>

namespace orvix {

inline constexpr const char* kLogTag = "orvixJni";

}  // namespace orvix
