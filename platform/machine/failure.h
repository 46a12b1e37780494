/* SPDX-License-Identifier: MIT */
/*
 * Failures to read a machine, and how they leave the model through a C function. What cannot be read is never
 * taken for absent: the names of disks would move on to others.
 */
#ifndef HWPLAT_MACHINE_FAILURE_H
#define HWPLAT_MACHINE_FAILURE_H

#include <cerrno>
#include <new>

#include "src/base/cancel.h"

namespace machine {

/* Thrown by what reads sysfs and media. */
struct read_failure {
    int error; /* errno value */
};

/* Whether an errno value says that a name is absent, or that its device went away during the reading. */
constexpr bool means_absent(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ENODEV || error == ENXIO;
}

/*
 * Whether the process or the system lacks something that reading takes, which says nothing about what was
 * read. ELIBACC: libblkid.
 */
constexpr bool is_shortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == ELIBACC;
}

/*
 * The exception barrier of a C function: runs `call` and returns 0 or the errno value of what failed. The
 * thread is not cancelled meanwhile.
 */
template <typename body>
int outcome_of(body call) noexcept
{
    const ovra::uncancelled undisturbed;
    try {
        call();
        return 0;
    } catch (const read_failure &failure) {
        return failure.error;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    } catch (...) {
        return EIO;
    }
}

/* The same for a call that gives a value: that value, or `failed` with errno. */
template <typename value, typename body>
value value_or(value failed, body call) noexcept
{
    value given = failed;
    if (const int error = outcome_of([&] { given = call(); }); error != 0) {
        errno = error;
        return failed;
    }
    return given;
}

} // namespace machine

#endif
