// Sections of work in the device's trace format ("B|pid|name" and "E|pid", nested on each thread), as lines of the tag
// "trace" in the log. Only where ORVIX_TRACE is set, once for the process: each costs two lines.
#pragma once

#include <android/log.h>
#include <unistd.h>

#include <cstdlib>

namespace standin {

inline bool traced() {
    static const bool on = std::getenv("ORVIX_TRACE") != nullptr;
    return on;
}

inline void beginSection(const char* name) {
    if (traced()) __android_log_print(ANDROID_LOG_VERBOSE, "trace", "B|%d|%s", getpid(), name);
}
inline void endSection() {
    if (traced()) __android_log_print(ANDROID_LOG_VERBOSE, "trace", "E|%d", getpid());
}

// As long as it lives. `nameOf` makes the name where one is needed.
class Section {
  public:
    explicit Section(auto nameOf) {
        if (traced()) beginSection(nameOf().c_str());
    }
    ~Section() { endSection(); }
    Section(const Section&) = delete;
    Section& operator=(const Section&) = delete;
};

}  // namespace standin
