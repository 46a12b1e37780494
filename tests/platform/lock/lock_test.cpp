// SPDX-License-Identifier: MIT
// Who may change a machine, and when: threads and processes that take its lock.
#include <cerrno>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "tests/platform/lock/fixture.h"

using platform_test::child_process;
using platform_test::device;
using platform_test::get_variable;
using platform_test::hold_and_say;
using platform_test::machine_lock;
using platform_test::set_variable;
using platform_test::signal_line;

namespace {

TEST_F(machine_lock, counts_within_a_thread)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_FALSE(is_free());
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_TRUE(is_free());
    errno = 0;
    EXPECT_EQ(devns_unlock(), -1);
    EXPECT_EQ(errno, EPERM);
}

TEST_F(machine_lock, services_find_it_taken_by_their_own_thread)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    device opened;
    EXPECT_EQ(set_variable(opened.fd(), u"A", 7, "data"), EFI_SUCCESS);
    EFI_TIME time = {2030, 1, 2, 3, 4, 5, 0, 0, 0, 0, 0};
    EFI_STATUS status = platform_test::not_answered;
    ovra_set_time_args_t clock = {&time, &status};
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_SET_TIME, &clock), 0);
    EXPECT_EQ(status, EFI_SUCCESS);
    ovra_set_wakeup_time_args_t alarm = {&time, &status, B_TRUE};
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_SET_WAKEUP_TIME, &alarm), 0);
    EXPECT_EQ(status, EFI_SUCCESS);
    UINT32 number = 0;
    ovra_get_next_high_monotonic_count_args_t count = {&number, &status};
    EXPECT_EQ(devns_ioctl(opened.fd(), OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, &count), 0);
    EXPECT_EQ(status, EFI_SUCCESS);
    EXPECT_EQ(platform_test::reset(opened.fd(), EFI_RESET_COLD), 0);
    EXPECT_FALSE(is_free());
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_TRUE(is_free());
}

TEST_F(machine_lock, other_thread_waits_and_is_told_who_has_it)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    std::thread([] {
        pid_t holder = -1;
        errno = 0;
        EXPECT_EQ(devns_lock(0, &holder), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
        EXPECT_EQ(holder, getpid());
        EXPECT_EQ(devns_unlock(), -1);
        EXPECT_EQ(errno, EPERM);
    }).join();
    std::atomic<bool> taken = false;
    std::thread waiter([&] {
        EXPECT_EQ(devns_lock(30, nullptr), 0);
        taken = true;
    });
    usleep(20'000);
    EXPECT_FALSE(taken);
    EXPECT_EQ(devns_unlock(), 0);
    waiter.join();
    EXPECT_TRUE(taken);
    EXPECT_TRUE(is_free()); // the thread has ended without giving it back
}

TEST_F(machine_lock, other_process_is_named_and_its_death_frees_the_lock)
{
    signal_line taken;
    child_process holder([&] { return hold_and_say(taken); });
    EXPECT_EQ(taken.wait(), holder.id());
    pid_t found = -1;
    EXPECT_EQ(devns_lock(1, &found), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(found, holder.id());
    holder.end();
    EXPECT_EQ(devns_lock(0, nullptr), 0);
    EXPECT_EQ(devns_unlock(), 0);
}

TEST_F(machine_lock, reading_needs_none)
{
    disk.put("A", "data");
    signal_line taken;
    child_process holder([&] { return hold_and_say(taken); });
    EXPECT_EQ(taken.wait(), holder.id());
    device opened;
    EXPECT_EQ(get_variable(opened.fd(), u"A").data, "data");
    EXPECT_EQ(platform_test::walk_all(opened.fd()).size(), 1u);
}

TEST_F(machine_lock, child_does_not_have_it_and_does_not_keep_it)
{
    signal_line ready;
    child_process parent([&] {
        if (devns_lock(0, nullptr) != 0)
            return 1;
        child_process([&] {
            if (devns_unlock() != -1 || errno != EPERM || devns_lock(0, nullptr) != -1)
                return 1;
            ready.send();
            for (;;)
                pause();
        }).result();
        return 0;
    });
    pid_t grandchild = ready.wait();
    EXPECT_FALSE(is_free());
    parent.end();
    EXPECT_TRUE(is_free());
    EXPECT_EQ(kill(grandchild, SIGKILL), 0); // it lived until now
}

TEST_F(machine_lock, nor_does_a_child_made_while_another_thread_has_it)
{
    ASSERT_EQ(devns_lock(0, nullptr), 0);
    signal_line ready;
    pid_t child = -1;
    std::thread([&] {
        child = fork();
        if (child == 0) {
            ready.send();
            for (;;)
                pause();
        }
    }).join();
    EXPECT_EQ(ready.wait(), child);
    EXPECT_FALSE(is_free());
    EXPECT_EQ(devns_unlock(), 0);
    EXPECT_TRUE(is_free());
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(machine_lock, what_eight_processes_read_change_and_write_is_all_there)
{
    constexpr int processes = 8;
    constexpr int times = 60;
    disk.put("A", "0");
    std::vector<std::unique_ptr<child_process>> children;
    for (int i = 0; i < processes; ++i) {
        children.push_back(std::make_unique<child_process>([] {
            device opened;
            for (int time = 0; time < times; ++time) {
                if (devns_lock(30, nullptr) != 0)
                    return 1;
                int number = std::stoi(get_variable(opened.fd(), u"A").data) + 1;
                if (set_variable(opened.fd(), u"A", 7, std::to_string(number)) != EFI_SUCCESS ||
                    devns_unlock() != 0)
                    return 2;
            }
            return 0;
        }));
    }
    // Others are killed meanwhile, with or without the lock.
    for (int i = 0; i < 20; ++i) {
        child_process killed([] {
            for (;;) {
                if (devns_lock(30, nullptr) == 0)
                    devns_unlock();
            }
            return 0;
        });
        usleep(3'000);
    }
    for (auto &child : children)
        EXPECT_EQ(child->result(), 0);
    EXPECT_EQ(disk.get("A").substr(4), std::to_string(processes * times));
}

TEST_F(machine_lock, threads_keep_each_other_out)
{
    disk.put("A", "0");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            device opened;
            for (int time = 0; time < 50; ++time) {
                EXPECT_EQ(devns_lock(30, nullptr), 0);
                int number = std::stoi(get_variable(opened.fd(), u"A").data) + 1;
                EXPECT_EQ(set_variable(opened.fd(), u"A", 7, std::to_string(number)), EFI_SUCCESS);
                EXPECT_EQ(devns_unlock(), 0);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(disk.get("A").substr(4), "200");
}

} // namespace
