/* SPDX-License-Identifier: MIT */
/*
 * What becomes of a machine that cannot be read, and how a face of the model is left. What is there and
 * cannot be read is never taken for what is not there: names would move on to other disks.
 */
#ifndef HWPLAT_MACHINE_FAILURE_H
#define HWPLAT_MACHINE_FAILURE_H

#include <cerrno>
#include <new>

#include <pthread.h>

namespace machine {

/* Thrown by what reads sysfs and media. */
struct read_failure {
    int error; /* errno value */
};

/* Whether an errno value says that there is no such name, or that its device went while it was read. */
constexpr bool means_absent(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ENODEV || error == ENXIO;
}

/* Whether it is the process or the system that is short of something: that says nothing of what was read. */
constexpr bool is_shortage(int error)
{
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

/*
 * While it lives, the thread is not cancelled: the unwinding of a cancellation would be stopped by whatever
 * may not throw, which ends the process.
 */
class cancellation_off {
public:
    cancellation_off() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    cancellation_off(const cancellation_off &) = delete;
    cancellation_off &operator=(const cancellation_off &) = delete;
    ~cancellation_off() { pthread_setcancelstate(before, nullptr); }

private:
    int before = PTHREAD_CANCEL_ENABLE;
};

/* Does what a C function is called for: 0, or the errno value of what failed. No exception leaves it. */
template <typename body>
int outcome_of(body call) noexcept
{
    const cancellation_off undisturbed;
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

} // namespace machine

#endif
