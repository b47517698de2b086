#include "Process.h"

#include <android/binder_process.h>
#include <pthread.h>
#include <signal.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace standin {
namespace {

constexpr size_t kMaxThreads = 16;

class Pool {
  public:
    static Pool& get() {
        static Pool* const pool = new Pool;  // never destroyed: its threads run on while the process ends
        return *pool;
    }

    void post(Work work) {
        const std::lock_guard lock(mLock);
        push(std::move(work));
    }

    void postInOrder(OnewayQueue& queue, Work work) {
        const std::lock_guard lock(mLock);
        // The next one goes to the end of the common queue: other binders' turns come first.
        Work inTurn = [this, &queue, work = std::move(work)] {
            work();
            const std::lock_guard relock(mLock);
            queue.busy = !queue.waiting.empty();
            if (!queue.busy) return;
            push(std::move(queue.waiting.front()));
            queue.waiting.pop_front();
        };
        if (queue.busy) {
            queue.waiting.push_back(std::move(inTurn));
        } else {
            queue.busy = true;
            push(std::move(inTurn));
        }
    }

    void start() {
        const std::lock_guard lock(mLock);
        if (mStarted) return;
        mStarted = true;
        pthread_sigmask(SIG_SETMASK, nullptr, &mSignals);
        grow();
    }

  private:
    void push(Work work) {
        mQueue.push_back(std::move(work));
        mWake.notify_one();
        if (mStarted) grow();
    }

    void grow() {
        if ((mThreads > 0 && mQueue.size() <= mIdle) || mThreads == kMaxThreads) return;
        ++mThreads;
        ++mIdle;
        std::thread([this] {
            pthread_setname_np(pthread_self(), "binder:pool");
            pthread_sigmask(SIG_SETMASK, &mSignals, nullptr);  // the reading thread, which has none, may have made this
            run();
        }).detach();
        grow();
    }

    // The thread counts as idle already.
    [[noreturn]] void run() {
        std::unique_lock lock(mLock);
        for (;;) {
            mWake.wait(lock, [this] { return !mQueue.empty(); });
            --mIdle;
            Work item = std::move(mQueue.front());
            mQueue.pop_front();
            lock.unlock();
            item();
            item = nullptr;  // foreign destructors may run here
            lock.lock();
            ++mIdle;
        }
    }

    std::mutex mLock;
    std::condition_variable mWake;
    std::deque<Work> mQueue;
    size_t mIdle = 0;
    size_t mThreads = 0;  // one comes with the start, the others on demand
    bool mStarted = false;
    sigset_t mSignals{};  // the program's mask when it started the pool
};

}  // namespace

void post(Work work) { Pool::get().post(std::move(work)); }
void postInOrder(OnewayQueue& queue, Work work) { Pool::get().postInOrder(queue, std::move(work)); }

}  // namespace standin

void ABinderProcess_startThreadPool() { standin::Pool::get().start(); }
