/* SPDX-License-Identifier: MIT */
/*
 * What the stand-ins of libhwtree, libvolset and libkvlist have in common: calls are counted over all three,
 * any of them can be made to fail, and what they hand out is watched. A null handle, one that was released,
 * or one released twice or by the wrong call ends the test program. The state is one for the process; calls
 * from several threads are allowed while nothing is being set up.
 */
#ifndef TESTS_FAKES_PLATFORM_H
#define TESTS_FAKES_PLATFORM_H

#include <cstddef>
#include <optional>

namespace fakes {

enum class failing {
    error,            /* as the contract says: null, 0, -1 or nonzero, with an error code */
    error_and_result, /* an error code, and yet a result; a count, and yet no values */
    nothing,          /* no result, and no error code */
    empty,            /* an array or list without an entry, a count of 0, an empty text */
};
inline constexpr failing all_failings[] = {failing::error, failing::error_and_result, failing::nothing,
                                           failing::empty};

/* An empty tree ("hwplat" alone), no drives, no call to fail, a count of 0. What is out stays watched. */
void reset_platform();

/* Calls that ask for something (releasing never fails and does not count), since reset_platform. */
unsigned platform_calls();

/* Call n from now on, counted from 0, fails; once. */
void fail_platform_call(unsigned n, failing how);
/* Ends that; whether the call was reached. */
bool stop_failing();

/* Snapshots, texts, descriptors, arrays and lists that were handed out and not released. */
size_t platform_objects();

/* For the stand-ins themselves. */
std::optional<failing> next_call();         /* how the call that begins here is to fail, if it is to */
void handed_out(const void *object);        /* watched from here on */
void taken_back(const void *object);        /* must be watched */
void must_be_out(const void *object);       /* the same for one that is used */
[[noreturn]] void misused(const char *how); /* ends the test program */

} // namespace fakes

#endif
