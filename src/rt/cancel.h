/* SPDX-License-Identifier: MIT */
/* Calls that may wait: for the firmware, a file, a terminal. */
#ifndef SRC_RT_CANCEL_H
#define SRC_RT_CANCEL_H

#include <pthread.h>

namespace ovra {

/*
 * While it lives, pthread_cancel waits. Nothing in the library or in the libraries that it calls is prepared
 * for a thread that ends in the middle: memory and descriptors would be lost, locks kept.
 */
class uncancelled {
public:
    uncancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    uncancelled(const uncancelled &) = delete;
    uncancelled &operator=(const uncancelled &) = delete;
    ~uncancelled() { pthread_setcancelstate(before, nullptr); }

private:
    int before = PTHREAD_CANCEL_ENABLE;
};

} // namespace ovra

#endif
