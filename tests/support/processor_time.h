/* SPDX-License-Identifier: MIT */
/* What a test has cost, whatever else the machine does meanwhile. */
#ifndef TESTS_SUPPORT_PROCESSOR_TIME_H
#define TESTS_SUPPORT_PROCESSOR_TIME_H

#include <ctime>

namespace ovra::test {

/* Of the process so far. */
inline double processor_seconds()
{
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

template <typename body>
double seconds_of(const body &work)
{
    const double start = processor_seconds();
    work();
    return processor_seconds() - start;
}

} // namespace ovra::test

#endif
