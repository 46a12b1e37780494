// SPDX-License-Identifier: MIT
#include "tests/platform/failing_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <ctime>
#include <map>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform_test {

namespace {

struct failure {
    wrapped call;
    int error;
    std::size_t most;
};

std::optional<failure> active;
std::map<wrapped, int> counts;
ioctl_stand_in stand_in_for_ioctl;
fstatfs_stand_in stand_in_for_fstatfs;
std::function<void(int fd)> before_failed_write;
bool sleep_is_skipped = false;
long long slept_nanoseconds = 0;
constexpr long long nanoseconds_of_second = 1'000'000'000;

// Counts the call. True, with errno set, if it must fail.
bool fails(wrapped call)
{
    ++counts[call];
    if (!active || active->call != call || active->error == 0)
        return false;
    if (call == wrapped::fsync && active->most > 0) {
        --active->most;
        return false;
    }
    errno = active->error;
    return true;
}

} // namespace

int calls_of(wrapped call)
{
    return counts[call];
}

failing_call::failing_call(wrapped call, int error, std::size_t most)
{
    active = failure{call, error, most};
}

failing_call::~failing_call()
{
    active.reset();
    before_failed_write = nullptr;
}

void failing_call::before_failing(std::function<void(int fd)> action)
{
    before_failed_write = std::move(action);
}

replaced_ioctl::replaced_ioctl(ioctl_stand_in stand_in)
{
    stand_in_for_ioctl = std::move(stand_in);
}

replaced_ioctl::~replaced_ioctl()
{
    stand_in_for_ioctl = nullptr;
}

replaced_fstatfs::replaced_fstatfs(fstatfs_stand_in stand_in)
{
    stand_in_for_fstatfs = std::move(stand_in);
}

replaced_fstatfs::~replaced_fstatfs()
{
    stand_in_for_fstatfs = nullptr;
}

skipped_sleep::skipped_sleep()
{
    sleep_is_skipped = true;
    slept_nanoseconds = 0;
}

skipped_sleep::~skipped_sleep()
{
    sleep_is_skipped = false;
    slept_nanoseconds = 0;
}

double skipped_sleep::slept()
{
    return static_cast<double>(slept_nanoseconds) / static_cast<double>(nanoseconds_of_second);
}

extern "C" {

ssize_t __real_read(int fd, void *data, std::size_t size);
int __real_openat(int folder, const char *name, int flags, ...);
int __real_fstatat(int folder, const char *name, struct stat *info, int flags);
ssize_t __real_write(int fd, const void *data, std::size_t size);
int __real_fsync(int fd);
int __real_renameat(int from_folder, const char *from, int to_folder, const char *to);
int __real_flock(int fd, int operation);
int __real_ioctl(int fd, unsigned long request, ...);
int __real_fstatfs(int fd, struct statfs *info);

ssize_t __wrap_write(int fd, const void *data, std::size_t size)
{
    if (fails(wrapped::write)) {
        if (before_failed_write) {
            int error = errno;
            before_failed_write(fd);
            errno = error;
        }
        return -1;
    }
    bool shortened = active && active->call == wrapped::write;
    return __real_write(fd, data, shortened ? std::min(size, active->most) : size);
}

ssize_t __wrap_read(int fd, void *data, std::size_t size)
{
    return fails(wrapped::read) ? -1 : __real_read(fd, data, size);
}

int __wrap_openat(int folder, const char *name, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails(wrapped::openat) ? -1 : __real_openat(folder, name, flags, mode);
}

int __wrap_fstatat(int folder, const char *name, struct stat *info, int flags)
{
    return fails(wrapped::fstatat) ? -1 : __real_fstatat(folder, name, info, flags);
}

int __real_nanosleep(const struct timespec *time, struct timespec *left);
int __real_clock_gettime(clockid_t clock, struct timespec *time);

int __wrap_nanosleep(const struct timespec *time, struct timespec *left)
{
    if (!sleep_is_skipped)
        return __real_nanosleep(time, left);
    slept_nanoseconds += time->tv_sec * nanoseconds_of_second + time->tv_nsec;
    return 0;
}

int __wrap_clock_gettime(clockid_t clock, struct timespec *time)
{
    int result = __real_clock_gettime(clock, time);
    long long sum = time->tv_nsec + slept_nanoseconds;
    time->tv_sec += static_cast<time_t>(sum / nanoseconds_of_second);
    time->tv_nsec = static_cast<long>(sum % nanoseconds_of_second);
    return result;
}

int __wrap_fsync(int fd)
{
    return fails(wrapped::fsync) ? -1 : __real_fsync(fd);
}

int __wrap_renameat(int from_folder, const char *from, int to_folder, const char *to)
{
    return fails(wrapped::renameat) ? -1 : __real_renameat(from_folder, from, to_folder, to);
}

int __wrap_flock(int fd, int operation)
{
    return fails(wrapped::flock) ? -1 : __real_flock(fd, operation);
}

int __wrap_ioctl(int fd, unsigned long request, ...)
{
    std::va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    int answer = stand_in_for_ioctl ? stand_in_for_ioctl(fd, request, argument) : -1;
    if (answer < 0)
        return __real_ioctl(fd, request, argument);
    if (answer == 0)
        return 0;
    errno = answer;
    return -1;
}

int __wrap_fstatfs(int fd, struct statfs *info)
{
    if (!stand_in_for_fstatfs)
        return __real_fstatfs(fd, info);
    const int error = stand_in_for_fstatfs(fd, info);
    if (error == 0)
        return 0;
    errno = error;
    return -1;
}

} // extern "C"

} // namespace platform_test
