// SPDX-License-Identifier: MIT
#include "bench/allocations.h"

#include <atomic>
#include <cstddef>

// The C library's own entries, behind the names that are taken over here.
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
}

static std::atomic<std::size_t> count;

std::size_t bench::allocations()
{
    return count;
}

extern "C" void *malloc(std::size_t size)
{
    ++count;
    return __libc_malloc(size);
}

extern "C" void *calloc(std::size_t number, std::size_t size)
{
    ++count;
    return __libc_calloc(number, size);
}

extern "C" void *realloc(void *block, std::size_t size)
{
    ++count;
    return __libc_realloc(block, size);
}
