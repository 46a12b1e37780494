// SPDX-License-Identifier: MIT
// This program has its own open, ioctl, close and readlink, like a preloaded stand-in for the driver. The
// library must call these, and use its own services only if they do not know the name.
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"

namespace {

constexpr int driver_fd = 1'000'000; // never given out by the system

struct driver {
    bool present = false;
    int open_error = ENOENT;
    int open_flags = 0;
    std::vector<int> commands;
    std::vector<int> closed;
};
driver stand_in;

bool is_driver(const char *path)
{
    return path != nullptr && std::strcmp(path, DEVNS_RUNTIME_SERVICES) == 0;
}

} // namespace

extern "C" {

int open(const char *path, int flags, ...)
{
    if (is_driver(path)) {
        stand_in.open_flags = flags;
        errno = stand_in.open_error;
        return stand_in.present ? driver_fd : -1;
    }
    std::va_list arguments;
    va_start(arguments, flags);
    mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    std::va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (fd != driver_fd)
        return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    stand_in.commands.push_back(static_cast<int>(request));
    *static_cast<ovra_set_time_args_t *>(argument)->ret = EFI_WRITE_PROTECTED;
    return 5;
}

int close(int fd)
{
    if (fd != driver_fd)
        return static_cast<int>(syscall(SYS_close, fd));
    stand_in.closed.push_back(fd);
    return 0;
}

ssize_t readlink(const char *path, char *buffer, size_t size) noexcept
{
    if (std::strcmp(path, "/dev/dsk/stand-in") != 0)
        return syscall(SYS_readlinkat, AT_FDCWD, path, buffer, size);
    std::memcpy(buffer, "target", 6);
    return 6;
}

} // extern "C"

namespace {

class plain_calls : public testing::Test {
protected:
    platform_test::machine_folder disk;
    void SetUp() override { stand_in = {}; }
};

TEST_F(plain_calls, driver_that_the_system_has_goes_before_the_machine)
{
    stand_in.present = true;
    int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    ASSERT_EQ(fd, driver_fd);
    EXPECT_EQ(stand_in.open_flags, O_RDWR);
    EFI_TIME time = {};
    EFI_STATUS status = platform_test::not_answered;
    ovra_set_time_args_t args = {&time, &status};
    EXPECT_EQ(devns_ioctl(fd, OVRA_SET_TIME, &args), 5);
    EXPECT_EQ(status, EFI_WRITE_PROTECTED);
    EXPECT_EQ(stand_in.commands, std::vector<int>{OVRA_SET_TIME});
    EXPECT_EQ(devns_close(fd), 0);
    EXPECT_EQ(stand_in.closed, std::vector<int>{driver_fd});
}

TEST_F(plain_calls, driver_that_refuses_is_not_replaced_by_the_machine)
{
    for (int error : {EACCES, EBUSY, ENXIO, EMFILE}) {
        stand_in.open_error = error;
        EXPECT_EQ(devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR), -1);
        EXPECT_EQ(errno, error);
    }
}

TEST_F(plain_calls, machine_serves_where_the_system_has_no_such_name)
{
    for (int error : {ENOENT, ENOTDIR}) {
        stand_in.open_error = error;
        platform_test::device opened;
        ASSERT_GE(opened.fd(), 0);
        EXPECT_NE(opened.fd(), driver_fd);
        EXPECT_EQ(platform_test::set_variable(opened.fd(), u"A", 7, "data"), EFI_SUCCESS);
    }
    EXPECT_EQ(stand_in.commands.size(), 0u);
    EXPECT_EQ(stand_in.closed.size(), 0u);
}

TEST_F(plain_calls, links_are_read_by_readlink)
{
    char target[16] = {};
    EXPECT_EQ(devns_readlink("/dev/dsk/stand-in", target, sizeof target), 6);
    EXPECT_STREQ(target, "target");
}

} // namespace
