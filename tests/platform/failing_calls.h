/* SPDX-License-Identifier: MIT */
/*
 * System calls of the machine model that a test lets fail, or stands in for. The test program is linked with
 * --wrap for each of them; without a failing_call they are the C library's.
 */
#ifndef TESTS_PLATFORM_FAILING_CALLS_H
#define TESTS_PLATFORM_FAILING_CALLS_H

#include <cstddef>
#include <functional>

#include <sys/vfs.h>

namespace platform_test {

enum class wrapped { write, read, openat, fstatat, fsync, renameat, flock };

/* How often a call was made so far. */
int calls_of(wrapped call);

/*
 * While it lives the call fails with `error`; for fsync, `most` calls succeed before. With error 0, for write
 * alone: no more than `most` bytes are written at once.
 */
class failing_call {
public:
    failing_call(wrapped call, int error, std::size_t most = 0);
    failing_call(const failing_call &) = delete;
    failing_call &operator=(const failing_call &) = delete;
    ~failing_call();
    /* For write: runs on the file before the call fails. */
    static void before_failing(std::function<void(int fd)> action);
};

/* While it lives, ioctl is this function: 0, or an errno value; -1 passes the call on to the system. */
using ioctl_stand_in = std::function<int(int fd, unsigned long request, void *argument)>;
class replaced_ioctl {
public:
    explicit replaced_ioctl(ioctl_stand_in stand_in);
    replaced_ioctl(const replaced_ioctl &) = delete;
    replaced_ioctl &operator=(const replaced_ioctl &) = delete;
    ~replaced_ioctl();
};

/* While it lives, sleeping takes no time: the clock jumps instead. */
class skipped_sleep {
public:
    skipped_sleep();
    skipped_sleep(const skipped_sleep &) = delete;
    skipped_sleep &operator=(const skipped_sleep &) = delete;
    ~skipped_sleep();
    /* Seconds that were slept. */
    [[nodiscard]] static double slept();
};

/* While it lives, fstatfs is this function: 0, or an errno value. */
using fstatfs_stand_in = std::function<int(int fd, struct statfs *info)>;
class replaced_fstatfs {
public:
    explicit replaced_fstatfs(fstatfs_stand_in stand_in);
    replaced_fstatfs(const replaced_fstatfs &) = delete;
    replaced_fstatfs &operator=(const replaced_fstatfs &) = delete;
    ~replaced_fstatfs();
};

} // namespace platform_test

#endif
