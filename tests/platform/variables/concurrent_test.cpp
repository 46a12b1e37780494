// SPDX-License-Identifier: MIT
#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/platform/devns_calls.h"

using platform_test::device;
using platform_test::get_variable;
using platform_test::in_attributes;
using platform_test::machine_folder;
using platform_test::set_variable;
using platform_test::value;
using platform_test::walk_all;

namespace {

// Runs `body(0)` and `body(1)` in a process each; both must return true.
template <typename function>
void in_two_processes(function body)
{
    pid_t children[2] = {};
    for (int i = 0; i < 2; ++i) {
        children[i] = fork();
        if (children[i] == 0)
            _exit(body(i) ? 0 : 1);
    }
    for (pid_t child : children) {
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
}

TEST(concurrent, appends_of_two_processes_are_all_there)
{
    machine_folder disk;
    constexpr int times = 100;
    in_two_processes([](int which) {
        device opened;
        bool good = true;
        for (int i = 0; i < times; ++i)
            good = good && set_variable(opened.fd(), u"A", 0x47, which == 0 ? "a" : "b") == EFI_SUCCESS;
        return good;
    });
    std::string data = disk.get("A").substr(4);
    EXPECT_EQ(std::ranges::count(data, 'a'), times);
    EXPECT_EQ(std::ranges::count(data, 'b'), times);
    EXPECT_EQ(disk.names().size(), 1u);
}

TEST(concurrent, reader_sees_one_of_the_values_that_two_processes_write)
{
    machine_folder disk;
    device opened;
    ASSERT_EQ(set_variable(opened.fd(), u"A", 7, std::string(5000, 'a')), EFI_SUCCESS);
    std::atomic<bool> done = false;
    std::thread reader([&] {
        while (!done) {
            value found = get_variable(opened.fd(), u"A");
            EXPECT_EQ(found.status, EFI_SUCCESS);
            EXPECT_TRUE(found.data == std::string(5000, 'a') || found.data == std::string(30, 'b'));
        }
    });
    in_two_processes([](int which) {
        device own;
        bool good = true;
        for (int i = 0; i < 100; ++i) {
            std::string data = which == 0 ? std::string(5000, 'a') : std::string(30, 'b');
            good = good && set_variable(own.fd(), u"A", 7, data) == EFI_SUCCESS;
        }
        return good;
    });
    done = true;
    reader.join();
    EXPECT_EQ(disk.names().size(), 1u);
}

TEST(concurrent, two_processes_do_not_fill_the_store_beyond_its_capacity)
{
    machine_folder disk;
    disk.put_file(disk.state("capacity"), "1000 1000\n");
    in_two_processes([](int which) {
        device opened;
        for (int i = 0; i < 50; ++i) {
            std::u16string name = {static_cast<char16_t>(u'A' + which), static_cast<char16_t>(u'A' + i)};
            EFI_STATUS status = set_variable(opened.fd(), name, 7, "0123456789");
            if (status != EFI_SUCCESS && status != EFI_OUT_OF_RESOURCES)
                return false;
        }
        return true;
    });
    EXPECT_EQ(disk.names().size(), 1000u / (4 + 6 + 10));
}

TEST(concurrent, count_is_given_to_one_process_only)
{
    machine_folder disk;
    in_two_processes([](int) {
        device opened;
        UINT32 before = 0;
        for (int i = 0; i < 100; ++i) {
            UINT32 next = 0;
            EFI_STATUS status = EFI_SUCCESS;
            ovra_get_next_high_monotonic_count_args_t args = {&next, &status};
            if (devns_ioctl(opened.fd(), OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &args) != 0 ||
                status != EFI_SUCCESS || next <= before)
                return false;
            before = next;
        }
        return true;
    });
    EXPECT_EQ(disk.contents(disk.state("monotonic-count")), "200\n");
}

TEST(concurrent, threads_share_the_library)
{
    machine_folder disk;
    std::vector<std::thread> threads;
    std::atomic<int> failures = 0;
    for (int which = 0; which < 4; ++which) {
        threads.emplace_back([&failures, which] {
            std::u16string name = {static_cast<char16_t>(u'A' + which)};
            for (int i = 0; i < 50; ++i) {
                device opened;
                if (set_variable(opened.fd(), name, 7, std::to_string(i)) != EFI_SUCCESS ||
                    get_variable(opened.fd(), name).data != std::to_string(i) ||
                    walk_all(opened.fd()).empty())
                    ++failures;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(disk.names().size(), 4u);
}

TEST(concurrent, closing_does_not_disturb_a_command_under_way)
{
    machine_folder disk;
    disk.put("A", "data");
    for (int round = 0; round < 200; ++round) {
        int fd = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
        ASSERT_GE(fd, 0);
        std::thread user([fd] {
            for (;;) {
                value found = get_variable(fd, u"A");
                if (found.status == platform_test::not_answered)
                    break;
                EXPECT_EQ(found.data, "data");
            }
        });
        EXPECT_EQ(devns_close(fd), 0);
        user.join();
    }
}

} // namespace
