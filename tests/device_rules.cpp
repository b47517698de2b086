// The C library's rule on a device, linked before all others: who uses a mutex or a condition variable that was
// destroyed ends the process. What is destroyed while it is locked stays as it was; a waiter of a destroyed condition
// variable sleeps on.

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

// glibc's own mark, made by its pthread_mutex_destroy.
bool isDestroyed(const pthread_mutex_t* mutex) { return mutex->__data.__kind == -1; }

// glibc's pthread_cond_destroy waits for the waiters, so it is not called. The mark stands where only signallers look;
// its two lowest bits are a lock.
constexpr unsigned kDestroyedCond = 0xdeadc04c;
bool isDestroyed(const pthread_cond_t* cond) { return (cond->__data.__g1_orig_size & ~3u) == kDestroyedCond; }

template <typename T>
void check(const T* object, const char* function, const char* kind) {
    if (!isDestroyed(object)) return;
    char text[128];
    const int length = std::snprintf(text, sizeof text, "device rule: %s called on a destroyed %s\n", function, kind);
    if (write(STDERR_FILENO, text, static_cast<size_t>(length)) < 0) _exit(1);
    std::abort();
}
void check(const pthread_mutex_t* mutex, const char* function) { check(mutex, function, "mutex"); }
void check(const pthread_cond_t* cond, const char* function) { check(cond, function, "condition variable"); }

// Calls the C library's own function. Without a guarded static: guards lock mutexes.
template <typename... Args>
int pass(int (*&real)(Args...), const char* function, Args... args) {
    if (real == nullptr) real = reinterpret_cast<int (*)(Args...)>(dlsym(RTLD_NEXT, function));
    return real(args...);
}

}  // namespace

#define ORVIX_CHECKED(function, type)                \
    extern "C" int function(type* object) noexcept { \
        check(object, #function);                    \
        static int (*real)(type*);                   \
        return pass(real, #function, object);        \
    }
ORVIX_CHECKED(pthread_mutex_lock, pthread_mutex_t)
ORVIX_CHECKED(pthread_mutex_trylock, pthread_mutex_t)
ORVIX_CHECKED(pthread_mutex_unlock, pthread_mutex_t)
ORVIX_CHECKED(pthread_mutex_destroy, pthread_mutex_t)
ORVIX_CHECKED(pthread_cond_signal, pthread_cond_t)
ORVIX_CHECKED(pthread_cond_broadcast, pthread_cond_t)

extern "C" int pthread_cond_wait(pthread_cond_t* cond, pthread_mutex_t* mutex) {
    check(cond, "pthread_cond_wait");
    check(mutex, "pthread_cond_wait");
    static int (*real)(pthread_cond_t*, pthread_mutex_t*);
    return pass(real, "pthread_cond_wait", cond, mutex);
}
extern "C" int pthread_cond_destroy(pthread_cond_t* cond) noexcept {
    check(cond, "pthread_cond_destroy");
    cond->__data.__g1_orig_size = kDestroyedCond;
    return 0;
}
