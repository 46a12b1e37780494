#include "tests/platform/failing_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <map>
#include <optional>

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

/* Counts the call; true when it shall fail, errno set. */
bool fails(wrapped call)
{
    ++counts[call];
    if (!active || active->call != call || active->error == 0)
        return false;
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

extern "C" {

ssize_t __real_write(int fd, const void *data, std::size_t size);
int __real_fsync(int fd);
int __real_renameat(int from_folder, const char *from, int to_folder, const char *to);
int __real_flock(int fd, int operation);
int __real_ioctl(int fd, unsigned long request, ...);
int __real_fstatfs(int fd, struct statfs *info);

ssize_t __wrap_write(int fd, const void *data, std::size_t size)
{
    if (fails(wrapped::write))
        return -1;
    bool shortened = active && active->call == wrapped::write;
    return __real_write(fd, data, shortened ? std::min(size, active->most) : size);
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
