#include "client/EventSemaphore.h"

#include <unistd.h>

#include <cstdlib>

namespace orvix {

void EventSemaphore::release() {
    const std::lock_guard lock(mutex);
    if (closing) return;
    if (binary) {
        count = 1;
    } else if (__builtin_add_overflow(count, uint64_t{1}, &count)) {
        std::abort();
    }
    cv.notify_one();
}

void EventSemaphore::acquire() {
    {
        const std::lock_guard lock(mutex);
        while (count == 0 && !closing) {
            ++waiters;
            cv.wait(mutex);
            if (--waiters == 0 && closing) cv.notify_all();
        }
        if (!closing) {
            --count;
            return;
        }
    }
    for (;;) pause();
}

EventSemaphore::~EventSemaphore() {
    const std::lock_guard lock(mutex);
    closing = true;
    cv.notify_all();
    while (waiters != 0) cv.wait(mutex);
}

}  // namespace orvix
