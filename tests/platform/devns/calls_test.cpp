// SPDX-License-Identifier: MIT
#include "platform/include/devns.h"

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"

using platform_test::device;
using platform_test::machine_folder;
using platform_test::set_variable;
using platform_test::walk_all;
namespace fs = std::filesystem;

namespace {

TEST(devns_close, forgets_a_served_descriptor)
{
    machine_folder disk;
    int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(devns_close(fd), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(devns_close(fd), -1);
    EXPECT_EQ(errno, EBADF);
    UINT32 count = 0;
    EFI_STATUS status = platform_test::not_answered;
    ovra_get_next_high_monotonic_count_args_t args = {&count, &status};
    EXPECT_EQ(devns_ioctl(fd, OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &args), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(status, platform_test::not_answered);
}

TEST(devns_close, leaves_no_descriptor_behind)
{
    machine_folder disk;
    int first = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    EXPECT_EQ(devns_close(first), 0);
    for (int i = 0; i < 3000; ++i) {
        int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
        ASSERT_EQ(fd, first);
        ASSERT_EQ(devns_close(fd), 0);
    }
}

TEST(devns_close, number_that_was_closed_behind_the_librarys_back_is_not_served_again)
{
    auto take_number = [] { return open("/dev/null", O_RDONLY | O_CLOEXEC); };
    int low[2] = {take_number(), take_number()};
    machine_folder disk;
    int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    ASSERT_GE(fd, 0);
    std::vector<int> below;
    while (below.empty() || below.back() < fd)
        below.push_back(take_number());
    // Opening takes three numbers and serves the last. Closing has freed them.
    for (int number : {low[0], low[1], fd})
        close(number);
    machine_folder other;
    int again = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    ASSERT_GT(again, fd);
    EXPECT_EQ(set_variable(again, u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_NE(other.get("A"), "(none)");
    EXPECT_EQ(devns_close(again), 0);
    EXPECT_EQ(fcntl(again, F_GETFD), -1);
    for (int number : below)
        close(number);
}

TEST(devns_ioctl, unknown_command_is_enotty)
{
    machine_folder disk;
    device opened;
    std::string record(64, '\0');
    for (int command : {0, -1, 10, 11, 12, 13, 14, 15, 17, 1 << 30}) {
        errno = 0;
        EXPECT_EQ(devns_ioctl(opened.fd(), command, record.data()), -1) << command;
        EXPECT_EQ(errno, ENOTTY) << command;
    }
}

TEST(devns_ioctl, served_descriptor_never_reaches_the_kernel)
{
    machine_folder disk;
    device opened;
    // The kernel would answer this for any open file.
    int number = 4711;
    EXPECT_EQ(devns_ioctl(opened.fd(), FIOCLEX, &number), -1);
    EXPECT_EQ(errno, ENOTTY);
    // It would write 4 bytes into this record: the number is also that of GetNextVariableName.
    static_assert(_IOC_NR(FIGETBSZ) == OVRA_GET_NEXT_VARIABLE_NAME);
    EXPECT_EQ(walk_all(opened.fd()).size(), 0u);
}

TEST(devns_ioctl, other_descriptor_is_the_kernels)
{
    machine_folder disk;
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "abc", 3), 3);
    int waiting = 0;
    EXPECT_EQ(devns_ioctl(ends[0], FIONREAD, &waiting), 0);
    EXPECT_EQ(waiting, 3);
    EXPECT_EQ(devns_close(ends[0]), 0);
    EXPECT_EQ(devns_close(ends[1]), 0);
    EXPECT_EQ(devns_ioctl(-1, FIONREAD, &waiting), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(devns_readlink, is_readlink)
{
    machine_folder disk;
    fs::create_symlink("some/where", disk.root() / "link");
    std::string path = (disk.root() / "link").string();
    char text[32] = {};
    EXPECT_EQ(devns_readlink(path.c_str(), text, sizeof text), 10);
    EXPECT_STREQ(text, "some/where");
    char cut[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(devns_readlink(path.c_str(), cut, 3), 3);
    EXPECT_EQ(std::string(cut, 4), "somx");
    EXPECT_EQ(devns_readlink("/no/such/link", text, sizeof text), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(devns_readlink("/", text, sizeof text), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(devns_readlink(nullptr, text, sizeof text), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(devns_readlink(path.c_str(), nullptr, 4), -1);
    EXPECT_EQ(errno, EFAULT);
}

} // namespace
