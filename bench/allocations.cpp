#include "bench/allocations.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <new>

extern "C" {
// The C library's own, behind the names that this program takes over.
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
// The program's own code lies between these.
extern const char __executable_start;
extern const char etext;
}

namespace allocations {
namespace {

thread_local bool tCounting = false;
thread_local Count tCount;

void note(size_t bytes, const void* caller) {
    if (!tCounting) return;
    ++tCount.allocations;
    tCount.bytes += bytes;
    const auto at = reinterpret_cast<uintptr_t>(caller);
    tCount.own += at >= reinterpret_cast<uintptr_t>(&__executable_start) && at < reinterpret_cast<uintptr_t>(&etext);
}

}  // namespace

void begin() {
    tCount = {};
    tCounting = true;
}
Count end() {
    tCounting = false;
    return tCount;
}

}  // namespace allocations

extern "C" {

void* malloc(size_t size) {
    allocations::note(size, __builtin_return_address(0));
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    allocations::note(count * size, __builtin_return_address(0));
    return __libc_calloc(count, size);
}
void* realloc(void* old, size_t size) {
    allocations::note(size, __builtin_return_address(0));
    return __libc_realloc(old, size);
}

}  // extern "C"

void* operator new(size_t size) {
    allocations::note(size, __builtin_return_address(0));
    void* const memory = __libc_malloc(size);
    if (memory == nullptr) std::abort();
    return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
