// The rules of a device are those that this preset says: locks have ends, and who uses one after its end is stopped.

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <thread>

namespace {

// Uses an object after its end, in storage that stays.
template <typename T>
void useAfterTheEnd(const auto& use) {
    alignas(T) static std::byte storage[sizeof(T)];
    T* const object = new (storage) T;
    object->~T();
    use(*object);
}

TEST(DeviceRules, WhoUsesALockAfterItsEndIsStopped) {
    const auto locks = [](auto& lock) { const std::lock_guard guard(lock); };
    EXPECT_DEATH(useAfterTheEnd<std::mutex>(locks), "device rule: pthread_mutex_lock called on a destroyed mutex");
    EXPECT_DEATH(useAfterTheEnd<std::shared_mutex>(locks), "device rule: pthread_mutex_lock");
    EXPECT_DEATH(useAfterTheEnd<std::condition_variable>([](auto& cv) { cv.notify_one(); }), "destroyed condition var");
}

}  // namespace
