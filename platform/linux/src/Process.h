// The thread pool: the only threads that run foreign code for what comes from outside. As on the device they run until
// the process is gone, also while its static destructors run.
#pragma once

#include <deque>
#include <functional>

namespace standin {

using Work = std::function<void()>;

// What waits for one binder: its one-way calls run in order, one at a time. The pool's own lock guards it.
struct OnewayQueue {
    std::deque<Work> waiting;
    bool busy = false;
};

// Runs the work on a thread of the pool, as soon as there is one.
void post(Work work);
// After all that was posted to the same queue before. The work must keep the queue alive.
void postInOrder(OnewayQueue& queue, Work work);

}  // namespace standin
