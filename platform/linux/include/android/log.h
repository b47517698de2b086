// The system log.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/cdefs.h>

// C programs read this too. NOLINTBEGIN(modernize-use-using)
__BEGIN_DECLS

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

typedef enum log_id {
    LOG_ID_MAIN = 0,
    LOG_ID_RADIO = 1,
    LOG_ID_EVENTS = 2,
    LOG_ID_SYSTEM = 3,
    LOG_ID_CRASH = 4,
    LOG_ID_STATS = 5,
    LOG_ID_SECURITY = 6,
    LOG_ID_KERNEL = 7,
    LOG_ID_MAX,
    LOG_ID_DEFAULT = 0x7fffffff,
} log_id_t;

struct __android_log_message {
    size_t struct_size;
    int32_t buffer_id;
    int32_t priority;
    const char* tag;
    const char* file;
    uint32_t line;
    const char* message;
};

// Gets every message of the process, on the thread that logs; the message lives for the call.
typedef void (*__android_logger_function)(const struct __android_log_message* log_message);

// 1 if the message went out, negative if not. Formatted messages are cut at 1023 bytes.
int __android_log_print(int prio, const char* tag, const char* fmt, ...) __attribute__((__format__(printf, 3, 4)));

void __android_log_set_logger(__android_logger_function logger);
void __android_log_stderr_logger(const struct __android_log_message* log_message);

__END_DECLS
// NOLINTEND(modernize-use-using)
