// SPDX-License-Identifier: MIT
#include "tests/support/refused_new.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unordered_set>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

namespace ovra::test {

new_state operator_new;

int lowest_free_descriptor()
{
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

} // namespace ovra::test

using ovra::test::operator_new;

// While the table of blocks below grows or shrinks: what it takes for itself does not count.
static bool busy = false;

static bool refuses()
{
    if (busy || !operator_new.refusing ||
        (operator_new.before_refusal-- != 0 && (!operator_new.all_that_follow || operator_new.refused == 0)))
        return false;
    ++operator_new.refused;
    return true;
}

#ifndef __SANITIZE_ADDRESS__

// A platform library may have an operator new of its own, linked into it. What it calls malloc for, and
// nobody else, is counted and refused too.
extern "C" void *__libc_malloc(std::size_t size);
extern "C" void __libc_free(void *block);

static bool is_platform_library(const void *code)
{
    Dl_info found = {};
    if (dladdr(code, &found) == 0)
        return false;
    for (const char *name : {"/libdevns.so", "/libhwtree.so", "/libvolset.so", "/libkvlist.so"}) {
        if (std::strstr(found.dli_fname, name) != nullptr)
            return true;
    }
    return false;
}

// The blocks that are out.
static std::unordered_set<const void *> &blocks_of_libraries()
{
    static auto &only = *new std::unordered_set<const void *>;
    return only;
}

[[gnu::noinline]] void *malloc(std::size_t size)
{
    if (busy || !is_platform_library(__builtin_return_address(0)))
        return __libc_malloc(size);
    if (refuses()) {
        errno = ENOMEM;
        return nullptr;
    }
    void *block = __libc_malloc(size);
    if (block != nullptr) {
        busy = true;
        operator_new.live += blocks_of_libraries().insert(block).second;
        busy = false;
    }
    return block;
}

[[gnu::noinline]] void free(void *block)
{
    if (!busy && block != nullptr) {
        busy = true;
        operator_new.live -= static_cast<long>(blocks_of_libraries().erase(block));
        busy = false;
    }
    __libc_free(block);
}

#endif

// Not inlined: the compiler would see free() meet an operator new that it knows nothing of.
[[gnu::noinline]] void *operator new(std::size_t size)
{
    void *block = refuses() ? nullptr : std::malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    operator_new.live += !busy;
    return block;
}

[[gnu::noinline]] void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    void *block = refuses() ? nullptr : std::malloc(size);
    operator_new.live += block != nullptr && !busy;
    return block;
}

[[gnu::noinline]] void operator delete(void *block) noexcept
{
    operator_new.live -= block != nullptr && !busy;
    std::free(block);
}

void operator delete(void *block, std::size_t) noexcept
{
    operator delete(block);
}
