// Every line that the library logs.
#pragma once

#include <android/log.h>

namespace orvix {

inline constexpr const char* kLogTag = "orvixJni";

}  // namespace orvix

// Macros, so that the compiler holds the arguments against the format.
#define LOGD(...) __android_log_print(ANDROID_LOG_DEBUG, orvix::kLogTag, __VA_ARGS__)
#define LOGI(...) __android_log_print(ANDROID_LOG_INFO, orvix::kLogTag, __VA_ARGS__)
#define LOGE(...) __android_log_print(ANDROID_LOG_ERROR, orvix::kLogTag, __VA_ARGS__)
