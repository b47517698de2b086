#include "Process.h"

#include <android/binder_process.h>
#include <pthread.h>
#include <signal.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace standin {
namespace {

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
        spawn();
        growIfNeeded();
    }

    bool setMax(uint32_t threads) {
        const std::lock_guard lock(mLock);
        if (mStarted && threads < mMaxThreads) return false;
        mMaxThreads = threads;
        return true;
    }

    bool started() {
        const std::lock_guard lock(mLock);
        return mStarted;
    }

    [[noreturn]] void join() {
        {
            const std::lock_guard lock(mLock);
            ++mIdle;
        }
        work();
    }

  private:
    // The thread counts as idle already.
    [[noreturn]] void work() {
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

    void push(Work work) {
        mQueue.push_back(std::move(work));
        mWake.notify_one();
        if (mStarted) growIfNeeded();
    }

    void growIfNeeded() {
        for (; mQueue.size() > mIdle && mThreads < mMaxThreads; ++mThreads) spawn();
    }

    void spawn() {
        ++mIdle;
        std::thread thread([this] {
            pthread_setname_np(pthread_self(), "binder:pool");
            pthread_sigmask(SIG_SETMASK, &mSignals, nullptr);  // the reading thread, which has none, may have made this
            work();
        });
        thread.detach();
    }

    std::mutex mLock;
    std::condition_variable mWake;
    std::deque<Work> mQueue;
    size_t mIdle = 0;
    size_t mThreads = 0;  // made on demand, beside the first
    size_t mMaxThreads = 15;
    bool mStarted = false;
    sigset_t mSignals{};  // the program's mask when it started the pool
};

}  // namespace

void post(Work work) { Pool::get().post(std::move(work)); }
void postInOrder(OnewayQueue& queue, Work work) { Pool::get().postInOrder(queue, std::move(work)); }

}  // namespace standin

void ABinderProcess_startThreadPool() { standin::Pool::get().start(); }
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) { return standin::Pool::get().setMax(numThreads); }
bool ABinderProcess_isThreadPoolStarted() { return standin::Pool::get().started(); }
void ABinderProcess_joinThreadPool() { standin::Pool::get().join(); }
