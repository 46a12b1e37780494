// SPDX-License-Identifier: MIT
#include "tests/support/refused_new.h"

#include <cstdlib>
#include <new>

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

static bool refuses()
{
    if (!operator_new.refusing ||
        (operator_new.before_refusal-- != 0 && (!operator_new.all_that_follow || operator_new.refused == 0)))
        return false;
    ++operator_new.refused;
    return true;
}

// Not inlined: the compiler would see free() meet an operator new that it knows nothing of.
[[gnu::noinline]] void *operator new(std::size_t size)
{
    void *block = refuses() ? nullptr : std::malloc(size);
    if (block == nullptr)
        throw std::bad_alloc();
    ++operator_new.live;
    return block;
}

[[gnu::noinline]] void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    void *block = refuses() ? nullptr : std::malloc(size);
    operator_new.live += block != nullptr;
    return block;
}

[[gnu::noinline]] void operator delete(void *block) noexcept
{
    operator_new.live -= block != nullptr;
    std::free(block);
}

void operator delete(void *block, std::size_t) noexcept
{
    operator delete(block);
}
