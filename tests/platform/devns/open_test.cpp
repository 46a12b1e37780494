// SPDX-License-Identifier: MIT
#include "platform/include/devns.h"

#include <cerrno>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"

using platform_test::device;
using platform_test::get_variable;
using platform_test::machine_folder;
using platform_test::set_variable;
namespace fs = std::filesystem;

namespace {

TEST(devns_open, real_file_is_opened_as_open_does)
{
    machine_folder disk;
    fs::path file = disk.root() / "real";
    disk.put_file(file, "text");
    int fd = devns_open(file.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    char text[5] = {};
    EXPECT_EQ(read(fd, text, 4), 4);
    EXPECT_STREQ(text, "text");
    EXPECT_EQ(devns_close(fd), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(devns_open, other_missing_name_is_the_systems_error)
{
    machine_folder disk;
    for (const std::string &name :
         {std::string("/devices/pseudo/ovra@0"), std::string("/devices/pseudo/ovra@0:ovra/"),
          std::string("devices/pseudo/ovra@0:ovra"), std::string("/dev/no-such-device"), std::string()}) {
        errno = 0;
        EXPECT_EQ(devns_open(name.c_str(), O_RDWR), -1) << name;
        EXPECT_EQ(errno, ENOENT) << name;
    }
    disk.put_file(disk.root() / "file", "");
    EXPECT_EQ(devns_open((disk.root() / "file/below").c_str(), O_RDWR), -1);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(devns_open, null_path_is_efault)
{
    EXPECT_EQ(devns_open(nullptr, O_RDWR), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST(devns_open, machine_without_firmware_variables_is_enoent)
{
    machine_folder disk;
    fs::remove(disk.store());
    errno = 0;
    EXPECT_EQ(devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(devns_open, served_number_is_a_real_descriptor)
{
    machine_folder disk;
    device opened;
    ASSERT_GE(opened.fd(), 0);
    EXPECT_EQ(fcntl(opened.fd(), F_GETFD), FD_CLOEXEC);
    device again;
    EXPECT_NE(again.fd(), opened.fd());
    int plain = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_NE(plain, opened.fd());
    close(plain);
}

TEST(devns_open, each_opening_is_of_the_machine_that_the_environment_names_then)
{
    machine_folder one;
    device of_one;
    machine_folder other;
    device of_other;
    EXPECT_EQ(set_variable(of_one.fd(), u"A", 7, "one"), EFI_SUCCESS);
    EXPECT_EQ(set_variable(of_other.fd(), u"B", 7, "other"), EFI_SUCCESS);
    EXPECT_NE(one.get("A"), "(none)");
    EXPECT_EQ(one.get("B"), "(none)");
    EXPECT_NE(other.get("B"), "(none)");
    EXPECT_EQ(other.get("A"), "(none)");
}

TEST(devns_open, flags_do_not_create_anything_in_the_machine)
{
    machine_folder disk;
    int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR | O_EXCL | O_TRUNC);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(devns_close(fd), 0);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST(devns_open, no_descriptor_left_is_emfile)
{
    machine_folder disk;
    int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(lowest);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    for (rlim_t free_numbers = 0; free_numbers < 2; ++free_numbers) {
        rlimit few = {static_cast<rlim_t>(lowest) + free_numbers, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
        int error = errno;
        setrlimit(RLIMIT_NOFILE, &before);
        EXPECT_EQ(fd, -1);
        EXPECT_EQ(error, EMFILE);
    }
    int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(next, lowest) << "a failed opening keeps a descriptor";
    close(next);
}

TEST(devns_open, takes_no_number_by_which_a_closed_service_is_known)
{
    machine_folder one;
    int old = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    ASSERT_GE(old, 0);
    close(old); // the program closes a descriptor it does not know
    machine_folder other;
    device opened;
    ASSERT_GE(opened.fd(), 0);
    EXPECT_NE(opened.fd(), old);
    EFI_STATUS status = platform_test::not_answered;
    UINT32 count = 0;
    ovra_get_next_high_monotonic_count_args_t args = {&count, &status};
    EXPECT_EQ(devns_ioctl(old, OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &args), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(devns_close(old), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "one"), EFI_SUCCESS);
    EXPECT_EQ(one.get("A"), "(none)");
    EXPECT_NE(other.get("A"), "(none)");
}

TEST(devns_ioctl, reading_from_a_folder_that_took_the_number_is_refused)
{
    machine_folder disk;
    device opened;
    disk.put("A", "data");
    disk.put("B", "data");
    machine_folder other;
    other.put("A", "other data");
    other.put("C", "other data");
    const int kept = dup(opened.fd());
    const int foreign = open(other.store().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    platform_test::walk steps;
    ASSERT_EQ(steps.next(opened.fd()), EFI_SUCCESS);
    // The program closes what it does not know, and opens a folder of its own.
    ASSERT_EQ(dup2(foreign, opened.fd()), opened.fd());
    errno = 0;
    EXPECT_EQ(steps.next(opened.fd()), platform_test::not_answered); // there is no B
    EXPECT_EQ(errno, EBADF);
    errno = 0;
    EXPECT_EQ(platform_test::walk().next(opened.fd()), platform_test::not_answered);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(get_variable(opened.fd(), u"A").status, platform_test::not_answered);
    ASSERT_EQ(dup2(kept, opened.fd()), opened.fd());
    EXPECT_EQ(steps.next(opened.fd()), EFI_SUCCESS);
    EXPECT_EQ(steps.text(), u"B");
    EXPECT_EQ(get_variable(opened.fd(), u"A").data, "data");
    close(kept);
    close(foreign);
}

// Between devns_begin and devns_end that is looked at once, for each of the services.
TEST(devns_ioctl, reading_from_a_folder_that_took_the_number_is_refused_in_a_picture)
{
    machine_folder disk;
    const device opened;
    const device second;
    disk.put("A", "data");
    machine_folder other;
    other.put("A", "other data");
    const int kept = dup(opened.fd());
    const int foreign = open(other.store().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    devns_begin();
    EXPECT_EQ(get_variable(opened.fd(), u"A").data, "data");
    ASSERT_EQ(dup2(foreign, second.fd()), second.fd());
    EXPECT_EQ(get_variable(second.fd(), u"A").status, platform_test::not_answered);
    devns_end();
    ASSERT_EQ(dup2(foreign, opened.fd()), opened.fd());
    EXPECT_EQ(get_variable(opened.fd(), u"A").status, platform_test::not_answered);
    devns_begin();
    EXPECT_EQ(get_variable(opened.fd(), u"A").status, platform_test::not_answered);
    for (const int fd : {opened.fd(), second.fd()})
        ASSERT_EQ(dup2(kept, fd), fd);
    EXPECT_EQ(get_variable(opened.fd(), u"A").data, "data");
    EXPECT_EQ(get_variable(second.fd(), u"A").data, "data");
    devns_end();
    close(kept);
    close(foreign);
}

TEST(devns_open, takes_no_number_of_a_standard_stream)
{
    machine_folder disk;
    int result = 0;
    std::thread([&] { // with its own table of file descriptors
        ASSERT_EQ(unshare(CLONE_FILES), 0);
        for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
            close(stream);
        int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
        result = fd;
        ASSERT_GT(fd, STDERR_FILENO);
        ASSERT_EQ(devns_lock(0, nullptr), 0);
        EXPECT_EQ(set_variable(fd, u"A", 7, "one"), EFI_SUCCESS);
        for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
            EXPECT_EQ(fcntl(stream, F_GETFD), -1) << stream;
        EXPECT_EQ(devns_unlock(), 0);
        EXPECT_EQ(devns_close(fd), 0);
    })
        .join();
    EXPECT_GT(result, STDERR_FILENO);
    EXPECT_NE(disk.get("A"), "(none)");
}

} // namespace
