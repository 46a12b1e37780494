// SPDX-License-Identifier: MIT
#include <array>
#include <cerrno>

#include <gtest/gtest.h>

#include "platform/machine/clock.h"
#include "platform/machine/reset.h"
#include "platform/machine/services.h"
#include "platform/machine/state.h"
#include "platform/machine/variables.h"
#include "tests/platform/failing_calls.h"
#include "tests/platform/machine_folder.h"

using platform_test::environment;
using platform_test::machine_folder;
namespace fs = std::filesystem;

namespace {

class state_files : public testing::Test {
protected:
    machine_folder disk;
    std::unique_ptr<machine::runtime_services> services = machine::open_services();
    std::array<std::int64_t, 2> numbers = {};

    EFI_STATUS write(std::int64_t one, std::int64_t other)
    {
        return machine::write_state(*services, "test", std::array{one, other});
    }
    EFI_STATUS read() { return machine::read_state(*services, "test", numbers, &found); }
    bool found = true;
};

TEST_F(state_files, folder_is_made_when_something_is_kept_and_not_before)
{
    EXPECT_EQ(read(), EFI_SUCCESS);
    EXPECT_FALSE(found);
    EXPECT_FALSE(fs::exists(disk.root() / "var"));
    EXPECT_EQ(write(1, 2), EFI_SUCCESS);
    EXPECT_TRUE(fs::is_directory(disk.root() / "var/lib/hwplat"));
}

TEST_F(state_files, numbers_come_back)
{
    ASSERT_EQ(write(INT64_MIN, INT64_MAX), EFI_SUCCESS);
    EXPECT_EQ(disk.contents(disk.state("test")), "-9223372036854775808 9223372036854775807\n");
    ASSERT_EQ(read(), EFI_SUCCESS);
    EXPECT_TRUE(found);
    EXPECT_EQ(numbers, (std::array<std::int64_t, 2>{INT64_MIN, INT64_MAX}));
}

TEST_F(state_files, anything_else_is_not_taken_as_absent)
{
    for (const std::string &text :
         {std::string(), std::string("1 2"), std::string("1 2\n\n"), std::string("1 2 3\n"),
          std::string("1\n"), std::string("1  2\n"), std::string(" 1 2\n"), std::string("1 x\n"),
          std::string("0x1 2\n"), std::string("+1 2\n"), std::string("1 9223372036854775808\n"),
          std::string("1.5 2\n"), std::string("1 2\n\0", 5), std::string(300, '1'), std::string("\n"),
          std::string(" \n")}) {
        disk.put_file(disk.state("test"), text);
        EXPECT_EQ(read(), EFI_DEVICE_ERROR) << testing::PrintToString(text);
    }
}

TEST_F(state_files, file_that_is_a_folder_or_a_link_is_not_taken_as_absent)
{
    fs::create_directories(disk.state("test"));
    EXPECT_EQ(read(), EFI_DEVICE_ERROR);
    fs::remove(disk.state("test"));
    disk.put_file(disk.root() / "outside", "1 2\n");
    fs::create_symlink(disk.root() / "outside", disk.state("test"));
    EXPECT_EQ(read(), EFI_DEVICE_ERROR);
}

TEST_F(state_files, says_what_it_cannot_go_by_when_asked_to)
{
    environment debug("HWPLAT_DEBUG", "1");
    testing::internal::CaptureStderr();
    EXPECT_EQ(read(), EFI_SUCCESS);
    disk.put_file(disk.state("test"), "nonsense");
    EXPECT_EQ(read(), EFI_DEVICE_ERROR);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "hwplat: cannot go by var/lib/hwplat/test: it does not say what it should\n");
}

TEST_F(state_files, folder_behind_a_link_is_not_the_machines)
{
    fs::create_directories(disk.root() / "elsewhere/lib/hwplat");
    fs::create_directory_symlink(disk.root() / "elsewhere", disk.root() / "var");
    EXPECT_EQ(write(1, 2), EFI_DEVICE_ERROR);
    EXPECT_TRUE(fs::is_empty(disk.root() / "elsewhere/lib/hwplat"));
}

TEST_F(state_files, file_that_cannot_be_opened_or_read_is_not_absent)
{
    ASSERT_EQ(write(1, 2), EFI_SUCCESS);
    for (auto [error, status] : {std::pair(EMFILE, EFI_DEVICE_ERROR), std::pair(EACCES, EFI_ACCESS_DENIED),
                                 std::pair(EIO, EFI_DEVICE_ERROR), std::pair(ENOMEM, EFI_OUT_OF_RESOURCES)}) {
        for (auto call : {platform_test::wrapped::openat, platform_test::wrapped::read}) {
            const platform_test::failing_call failing(call, error);
            found = true;
            EXPECT_EQ(read(), status);
            EXPECT_TRUE(found);
        }
    }
}

// Each service that needs a state file says that it cannot read it: no alarm is lost, no clock jumps, no
// count starts anew.
TEST_F(state_files, services_say_what_they_cannot_read)
{
    EFI_TIME time = {2031, 1, 2, 3, 4, 5, 0, 0, 0, 0, 0};
    ASSERT_EQ(machine::set_time(*services, time), EFI_SUCCESS);
    ASSERT_EQ(machine::set_wakeup_time(*services, true, &time), EFI_SUCCESS);
    UINT32 count = 0;
    ASSERT_EQ(machine::next_high_monotonic_count(*services, &count), EFI_SUCCESS);
    disk.put_file(disk.state("capacity"), "1000 100\n");
    const platform_test::failing_call failing(platform_test::wrapped::read, EIO);
    machine::wakeup alarm;
    machine::variable_space space;
    EXPECT_EQ(machine::get_time(*services, &time, nullptr), EFI_DEVICE_ERROR);
    EXPECT_EQ(machine::get_wakeup_time(*services, &alarm), EFI_DEVICE_ERROR);
    EXPECT_EQ(machine::set_wakeup_time(*services, false, nullptr), EFI_DEVICE_ERROR);
    EXPECT_EQ(machine::next_high_monotonic_count(*services, &count), EFI_DEVICE_ERROR);
    EXPECT_EQ(machine::query_variable_info(*services, 7, &space), EFI_DEVICE_ERROR);
}

// Its attributes are unknown, and the request may not match them.
TEST_F(state_files, variable_that_cannot_be_read_is_not_written_over)
{
    disk.put("A", "data", 3);
    const std::vector<CHAR16> name = {'A'};
    const platform_test::failing_call failing(platform_test::wrapped::read, EIO);
    for (UINT32 attributes : {7u, 0x47u}) {
        EXPECT_EQ(machine::set_variable(*services, name, platform_test::global_guid, attributes, 5, "other"),
                  EFI_DEVICE_ERROR);
    }
    EXPECT_EQ(machine::set_variable(*services, name, platform_test::global_guid, 0, 0, nullptr),
              EFI_DEVICE_ERROR);
    EXPECT_EQ(disk.get("A"), std::string("\3\0\0\0data", 8));
}

TEST_F(state_files, start_is_not_played_by_what_cannot_be_read)
{
    for (const char *option : {"Boot0001", "Boot0002"})
        disk.put(option, std::string("\1\0\0\0\4\0d\0\0\0\x7f\xff\4\0", 14));
    disk.put("BootOrder", std::string("\1\0", 2));
    disk.put("BootNext", std::string("\2\0", 2));
    {
        const platform_test::failing_call failing(platform_test::wrapped::read, EIO);
        EXPECT_EQ(machine::reset_system(*services, EFI_RESET_COLD), -1);
        EXPECT_EQ(errno, EIO);
    }
    EXPECT_EQ(disk.get("BootCurrent"), "(none)");
    EXPECT_NE(disk.get("BootNext"), "(none)");
}

// Waiting for the lock ends after half a minute.
TEST_F(state_files, services_wait_for_the_lock_and_not_for_ever)
{
    disk.put("BootNext", std::string("\2\0", 2));
    const platform_test::skipped_sleep clock;
    const platform_test::failing_call held(platform_test::wrapped::flock, EWOULDBLOCK);
    const std::vector<CHAR16> name = {'A'};
    EXPECT_EQ(machine::set_variable(*services, name, platform_test::global_guid, 7, 4, "data"), EFI_TIMEOUT);
    EXPECT_GE(clock.slept(), 29.9);
    EXPECT_LE(clock.slept(), 30.1);
    EXPECT_EQ(disk.names().size(), 1u);
    EFI_TIME time = {2031, 1, 2, 3, 4, 5, 0, 0, 0, 0, 0};
    UINT32 count = 7;
    EXPECT_EQ(machine::set_time(*services, time), EFI_TIMEOUT);
    EXPECT_EQ(machine::set_wakeup_time(*services, true, &time), EFI_TIMEOUT);
    EXPECT_EQ(machine::next_high_monotonic_count(*services, &count), EFI_TIMEOUT);
    EXPECT_EQ(machine::reset_system(*services, EFI_RESET_COLD), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_NE(disk.get("BootNext"), "(none)");
    EXPECT_EQ(count, 7u);
}

TEST_F(state_files, lock_that_fails_is_an_error)
{
    const platform_test::failing_call failing(platform_test::wrapped::flock, ENOLCK);
    const std::vector<CHAR16> name = {'A'};
    EXPECT_EQ(machine::set_variable(*services, name, platform_test::global_guid, 7, 4, "data"),
              EFI_DEVICE_ERROR);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(state_files, failed_write_leaves_the_old_numbers)
{
    ASSERT_EQ(write(1, 2), EFI_SUCCESS);
    {
        platform_test::failing_call failing(platform_test::wrapped::write, ENOSPC);
        EXPECT_EQ(write(3, 4), EFI_VOLUME_FULL);
    }
    ASSERT_EQ(read(), EFI_SUCCESS);
    EXPECT_TRUE(found);
    EXPECT_EQ(numbers, (std::array<std::int64_t, 2>{1, 2}));
}

TEST_F(state_files, what_stopped_writers_left_is_removed)
{
    disk.put_file(disk.state(".hwplat-1-1.tmp"), "half");
    ASSERT_EQ(write(1, 2), EFI_SUCCESS);
    EXPECT_FALSE(fs::exists(disk.state(".hwplat-1-1.tmp")));
}

} // namespace
