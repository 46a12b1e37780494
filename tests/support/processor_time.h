/* SPDX-License-Identifier: MIT */
/* What work costs, whatever else the machine does. */
#ifndef TESTS_SUPPORT_PROCESSOR_TIME_H
#define TESTS_SUPPORT_PROCESSOR_TIME_H

#include <ctime>
#include <functional>

namespace ovra::test {

/* What this process, with all its threads, has used of the processor so far. */
inline double processor_seconds()
{
    struct timespec used = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

/* What `work` uses of it; waiting for others does not count. */
inline double seconds_of(const std::function<void()> &work)
{
    const double start = processor_seconds();
    work();
    return processor_seconds() - start;
}

} // namespace ovra::test

#endif
