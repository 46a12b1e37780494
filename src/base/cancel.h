/* SPDX-License-Identifier: MIT */
/* Calls that may wait: for the firmware, a file, a terminal. */
#ifndef SRC_BASE_CANCEL_H
#define SRC_BASE_CANCEL_H

#include <pthread.h>

namespace ovra {

/*
 * While it lives, pthread_cancel waits. No library here, and none that these call, is prepared for a thread
 * that ends in the middle of a call: memory and file descriptors would be lost and locks kept. An exception
 * barrier even ends the process, as the unwinding of a cancellation may not stop there.
 */
class uncancelled {
public:
    uncancelled() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    uncancelled(const uncancelled &) = delete;
    uncancelled &operator=(const uncancelled &) = delete;
    ~uncancelled() { pthread_setcancelstate(before, nullptr); }

private:
    int before = PTHREAD_CANCEL_ENABLE;
};

} // namespace ovra

#endif
