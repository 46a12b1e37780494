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

#include <gtest/gtest.h>

namespace {

struct new_state {
    bool refusing = false;
    bool all_that_follow = false; // the first refused one, and each behind it
    long before_refusal = 0;      // that many are given first
    long refused = 0;
    long live = 0; // blocks that are out
} operator_new;

// While the table of blocks below grows or shrinks: what it takes for itself does not count.
bool busy = false;

// More allocations than any call makes: a body that never comes to an end is one that does not stop asking.
constexpr long most_allocations = 20000;

bool refuses()
{
    if (busy || !operator_new.refusing ||
        (operator_new.before_refusal-- != 0 && (!operator_new.all_that_follow || operator_new.refused == 0)))
        return false;
    ++operator_new.refused;
    return true;
}

// The number that the next descriptor gets: the same again when none was kept.
int lowest_free_descriptor()
{
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

// Whether an allocation was refused.
bool try_once(const std::function<void()> &body, long n, bool all_that_follow)
{
    const int free_descriptor = lowest_free_descriptor();
    const new_state start = {true, all_that_follow, n, 0, operator_new.live};
    operator_new = start;
    body();
    operator_new.refusing = false;
    EXPECT_EQ(operator_new.live, start.live) << n;
    EXPECT_EQ(lowest_free_descriptor(), free_descriptor) << n;
    return operator_new.refused != 0;
}

} // namespace

void ovra::test::for_each_refused_new(const std::function<void()> &before_each,
                                      const std::function<void()> &body,
                                      const std::function<void(long n, bool refused)> &check)
{
    before_each();
    body(); // what a process allocates once
    for (const bool all_that_follow : {false, true}) {
        for (long n = 0;; ++n) {
            before_each();
            const bool refused = try_once(body, n, all_that_follow);
            check(n, refused);
            if (!refused) {
                EXPECT_GT(n, 0) << "nothing was ever refused";
                break;
            }
            ASSERT_LT(n, most_allocations);
        }
    }
}

#ifndef OVRA_SANITIZED

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
