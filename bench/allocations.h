// Counts what the heap is asked for, over the whole program and every library in it.
#pragma once

#include <cstddef>

namespace allocations {

struct Count {
    size_t allocations = 0;
    size_t bytes = 0;
    size_t own = 0;  // of the allocations: those made by code of the program itself, not of a shared library
};

// Calls run() and tells what it has allocated on the calling thread.
template <typename Run>
Count of(const Run& run);

void begin();
Count end();

template <typename Run>
Count of(const Run& run) {
    begin();
    run();
    return end();
}

}  // namespace allocations
