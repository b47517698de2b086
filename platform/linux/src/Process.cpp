#include "Process.h"

#include <android/binder_process.h>
#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace standin {
namespace {

thread_local bool onPoolThread = false;

class Pool {
  public:
    static Pool& get() {
        static Pool* const pool = new Pool;  // for ever: its threads outlive the destructors of the process
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
        // Runs before the destructors of everything that was loaded earlier: those then find nobody inside.
        std::atexit([] { get().stop(); });
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
        onPoolThread = true;
        std::unique_lock lock(mLock);
        for (;;) {
            mWake.wait(lock, [this] { return !mQueue.empty() && !mStopping; });
            --mIdle;
            ++mBusy;
            Work item = std::move(mQueue.front());
            mQueue.pop_front();
            lock.unlock();
            item();
            item = nullptr;  // foreign destructors may run here
            lock.lock();
            --mBusy;
            ++mIdle;
            if (mStopping) mQuiet.notify_all();
        }
    }

    void push(Work work) {
        mQueue.push_back(std::move(work));
        mWake.notify_one();
        if (mStarted) growIfNeeded();
    }

    void growIfNeeded() {
        for (; mQueue.size() > mIdle && mThreads < mMaxThreads && !mStopping; ++mThreads) spawn();
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

    // From here on nothing begins; what is under way gets a moment to end, so that it does not meet the destructors.
    void stop() {
        std::unique_lock lock(mLock);
        mStopping = true;
        const size_t self = onPoolThread ? 1 : 0;
        mQuiet.wait_for(lock, std::chrono::milliseconds(100), [&] { return mBusy <= self; });
    }

    std::mutex mLock;
    std::condition_variable mWake;
    std::condition_variable mQuiet;
    std::deque<Work> mQueue;
    size_t mIdle = 0;
    size_t mBusy = 0;
    size_t mThreads = 0;  // made on demand, beside the first
    size_t mMaxThreads = 15;
    bool mStarted = false;
    sigset_t mSignals{};  // the program's mask when it started the pool
    bool mStopping = false;
};

}  // namespace

void post(Work work) { Pool::get().post(std::move(work)); }
void postInOrder(OnewayQueue& queue, Work work) { Pool::get().postInOrder(queue, std::move(work)); }

}  // namespace standin

void ABinderProcess_startThreadPool() { standin::Pool::get().start(); }
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) { return standin::Pool::get().setMax(numThreads); }
bool ABinderProcess_isThreadPoolStarted() { return standin::Pool::get().started(); }
void ABinderProcess_joinThreadPool() { standin::Pool::get().join(); }
