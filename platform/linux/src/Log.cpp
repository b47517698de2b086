// Lines as `logcat -v threadtime` prints them, on standard error.
#include <android/log.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>

#include "Trace.h"

namespace {

constexpr size_t kMaxMessage = 1024;  // with its terminator, as on the device

std::atomic<__android_logger_function> logger{__android_log_stderr_logger};

std::string prefixOf(int32_t priority, const char* tag) {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char time[16] = {};
    std::strftime(time, sizeof(time), "%m-%d %H:%M:%S", &local);
    const bool known = priority >= ANDROID_LOG_VERBOSE && priority <= ANDROID_LOG_FATAL;
    char text[128];
    // Traced, with microseconds, as `logcat -v threadtime -v usec`.
    std::snprintf(text, sizeof(text), "%s.%0*ld %5d %5ld %c %-8s: ", time, standin::traced() ? 6 : 3,
                  now.tv_usec / (standin::traced() ? 1 : 1000), getpid(), syscall(SYS_gettid),
                  known ? "VDIWEF"[priority - ANDROID_LOG_VERBOSE] : '?', tag == nullptr ? "" : tag);
    return text;
}

}  // namespace

void __android_log_stderr_logger(const struct __android_log_message* log_message) {
    const std::string prefix = prefixOf(log_message->priority, log_message->tag);
    std::string_view rest = log_message->message == nullptr ? "" : log_message->message;
    if (rest.ends_with('\n')) rest.remove_suffix(1);
    std::string lines;
    for (;;) {
        const size_t end = rest.find('\n');
        lines.append(prefix).append(rest.substr(0, end)).push_back('\n');
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    // One write, so that the lines of threads and processes do not mix.
    if (write(STDERR_FILENO, lines.data(), lines.size()) < 0) return;
}

void __android_log_set_logger(__android_logger_function function) { logger = function; }

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[kMaxMessage];
    va_list arguments;
    va_start(arguments, fmt);
    std::vsnprintf(text, sizeof(text), fmt, arguments);
    va_end(arguments);
    const __android_log_message message{sizeof(message), LOG_ID_DEFAULT, prio, tag, nullptr, 0, text};
    if (const __android_logger_function function = logger) function(&message);
    return 1;
}
