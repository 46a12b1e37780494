// SPDX-License-Identifier: MIT
#include "platform/include/devns.h"

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"

using platform_test::device;
using platform_test::environment;
using platform_test::get_variable;
using platform_test::machine_folder;
using platform_test::set_variable;
using platform_test::walk_all;
namespace fs = std::filesystem;

namespace {

TEST(DevnsOpen, real_file_is_opened_as_open_does)
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

TEST(DevnsOpen, other_missing_name_is_the_systems_error)
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

TEST(DevnsOpen, null_path_is_efault)
{
    EXPECT_EQ(devns_open(nullptr, O_RDWR), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST(DevnsOpen, machine_without_firmware_variables_is_enoent)
{
    machine_folder disk;
    fs::remove(disk.store());
    errno = 0;
    EXPECT_EQ(devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(DevnsOpen, served_number_is_a_real_descriptor)
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

TEST(DevnsOpen, each_opening_is_of_the_machine_that_the_environment_names_then)
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

TEST(DevnsOpen, flags_do_not_create_anything_in_the_machine)
{
    machine_folder disk;
    int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR | O_EXCL | O_TRUNC);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(devns_close(fd), 0);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST(DevnsOpen, no_descriptor_left_is_emfile)
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

TEST(DevnsOpen, takes_no_number_by_which_a_closed_service_is_known)
{
    machine_folder one;
    int old = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    ASSERT_GE(old, 0);
    close(old); // the program closes what it does not know
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

TEST(DevnsOpen, takes_no_number_of_a_standard_stream)
{
    machine_folder disk;
    int result = 0;
    std::thread([&] { // with a table of descriptors of its own
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

TEST(DevnsClose, forgets_a_served_descriptor)
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

TEST(DevnsClose, leaves_no_descriptor_behind)
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

TEST(DevnsClose, number_that_was_closed_behind_the_librarys_back_is_not_served_again)
{
    auto take_number = [] { return open("/dev/null", O_RDONLY | O_CLOEXEC); };
    int low[2] = {take_number(), take_number()};
    machine_folder disk;
    int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    ASSERT_GE(fd, 0);
    std::vector<int> below;
    while (below.empty() || below.back() < fd)
        below.push_back(take_number());
    // Opening takes three numbers and serves the last of them: these are the free ones now.
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

TEST(DevnsIoctl, unknown_command_is_enotty)
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

TEST(DevnsIoctl, served_descriptor_never_reaches_the_kernel)
{
    machine_folder disk;
    device opened;
    // The kernel itself would answer this for any open file.
    int number = 4711;
    EXPECT_EQ(devns_ioctl(opened.fd(), FIOCLEX, &number), -1);
    EXPECT_EQ(errno, ENOTTY);
    // And write 4 bytes into the record for this one, whose number is GetNextVariableName's.
    static_assert(_IOC_NR(FIGETBSZ) == OVRA_GET_NEXT_VARIABLE_NAME);
    EXPECT_EQ(walk_all(opened.fd()).size(), 0u);
}

TEST(DevnsIoctl, other_descriptor_is_the_kernels)
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

TEST(DevnsReadlink, is_readlink)
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

// The numbers above 2 that are open.
std::vector<int> open_numbers()
{
    std::vector<int> found;
    for (int fd = 3; fd < 200; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0)
            found.push_back(fd);
    }
    return found;
}

// Runs `body` in a child; the child must return 0.
template <typename function>
void in_a_child(function body)
{
    pid_t child = fork();
    if (child == 0)
        _exit(body());
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

// A program that becomes a daemon closes what it does not know.
TEST(DevnsDescriptor, that_is_the_programs_own_file_by_now_is_left_alone)
{
    machine_folder disk;
    fs::create_directory(disk.root() / "own");
    device opened;
    in_a_child([&] {
        close_range(3, ~0u, 0);
        // Folders of its own, with all the numbers that the library had.
        for (int i = 0; i < 20; ++i) {
            if (open((disk.root() / "own").c_str(), O_RDONLY | O_DIRECTORY) < 0)
                return 1;
        }
        auto before = open_numbers();
        std::vector<CHAR16> name = platform_test::ucs2(u"BootNext");
        EFI_GUID guid = platform_test::global_guid;
        UINT32 attributes = 7;
        UINTN size = 2;
        EFI_STATUS status = platform_test::not_answered;
        char data[2] = {1, 0};
        ovra_variable_args_t args = {
            name.data(), &guid, &attributes, &size, data, &status, name.size() * sizeof(CHAR16)};
        errno = 0;
        if (devns_ioctl(opened.fd(), OVRA_SET_VARIABLE, &args) != -1 || errno != EBADF)
            return 2;
        if (status != platform_test::not_answered || !fs::is_empty(disk.root() / "own"))
            return 3;
        errno = 0;
        if (devns_close(opened.fd()) != -1 || errno != EBADF)
            return 4;
        if (open_numbers() != before)
            return 5;
        // From then on the number is the program's alone.
        return devns_close(opened.fd()) == 0 && fcntl(opened.fd(), F_GETFD) < 0 ? 0 : 6;
    });
    EXPECT_TRUE(fs::is_empty(disk.store()));
}

TEST(DevnsDescriptor, that_was_closed_is_a_bad_one)
{
    machine_folder disk;
    device opened;
    in_a_child([&] {
        close_range(3, ~0u, 0);
        errno = 0;
        if (set_variable(opened.fd(), u"A", 7, "data") != platform_test::not_answered || errno != EBADF)
            return 1;
        device again;
        if (set_variable(again.fd(), u"A", 7, "data") != EFI_SUCCESS)
            return 2;
        return get_variable(again.fd(), u"A").data == "data" ? 0 : 3;
    });
}

TEST(DevnsDescriptor, number_that_is_given_anew_is_no_service)
{
    machine_folder disk;
    disk.put_file(disk.root() / "file", "text");
    in_a_child([&] {
        device opened;
        close_range(3, ~0u, 0);
        int fd = -1;
        while (fd < opened.fd())
            fd = devns_open((disk.root() / "file").c_str(), O_RDONLY);
        return fd == opened.fd() && devns_close(fd) == 0 && fcntl(fd, F_GETFD) < 0 ? 0 : 1;
    });
}

// A cancelled thread ends at its next cancellation point, but not within a call: nothing is left half done.
TEST(DevnsThreads, cancelled_inside_a_call_finish_it)
{
    machine_folder disk;
    disk.put("A", "data");
    for (int round = 0; round < 30; ++round) {
        std::atomic<bool> started = false;
        std::thread thread([&] {
            device opened;
            for (;;) {
                if (set_variable(opened.fd(), u"A", 7, std::string(1000, 'x')) != EFI_SUCCESS)
                    ADD_FAILURE();
                walk_all(opened.fd());
                devns_close(devns_open("/dev/null", O_RDONLY));
                started = true;
                pthread_testcancel();
            }
        });
        while (!started)
            std::this_thread::yield();
        usleep(static_cast<unsigned>(round) * 37);
        EXPECT_EQ(pthread_cancel(thread.native_handle()), 0);
        thread.join();
        EXPECT_EQ(devns_lock(30, nullptr), 0);
        EXPECT_EQ(devns_unlock(), 0);
    }
    EXPECT_EQ(disk.names().size(), 1u);
}

TEST(DevnsThreads, child_made_meanwhile_does_not_hang)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer's allocator does not give back its own mutexes in a child";
#endif
    machine_folder disk;
    for (char letter = 'A'; letter < 'Z'; ++letter)
        disk.put(std::string(1, letter), "data");
    device shared;
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            while (!done) {
                device own;
                walk_all(own.fd());
                walk_all(shared.fd());
                EXPECT_EQ(set_variable(own.fd(), u"A", 7, "data"), EFI_SUCCESS);
            }
        });
    }
    for (int round = 0; round < 60; ++round) {
        in_a_child([&] {
            alarm(60); // a child that hangs is killed
            device own;
            if (walk_all(own.fd()).size() != 25 || walk_all(shared.fd()).size() != 25)
                return 1;
            return set_variable(own.fd(), u"B", 7, "data") == EFI_SUCCESS ? 0 : 2;
        });
    }
    done = true;
    for (std::thread &thread : threads)
        thread.join();
}

} // namespace
