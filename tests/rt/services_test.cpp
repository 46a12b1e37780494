// SPDX-License-Identifier: MIT
// The ten runtime services: which driver is asked, and what the caller gets back.
#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "tests/rt/services.h"
#include "tests/support/bytes.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

class services : public open_handle {
protected:
    arguments a;
};

EFI_TIME some_time()
{
    return {2031, 12, 30, 23, 59, 58, 1, 123456789, -60, 3, 2};
}

// Results

TEST_F(services, get_variable_delivers_data_attributes_and_size)
{
    fakes::put_variable("Ab", {1, 2, 3}, 3);
    a.data_size = sizeof a.data;
    ASSERT_EQ(ovra_get_variable(hdl, a.name, &a.guid, &a.attributes, &a.data_size, a.data, &a.status), 0);
    EXPECT_EQ(a.status, EFI_SUCCESS);
    EXPECT_EQ(a.attributes, 3U);
    EXPECT_EQ(a.data_size, 3U);
    EXPECT_EQ(to_hex(a.data, 4), "01 02 03 00");
}

TEST_F(services, get_variable_of_a_short_buffer_delivers_the_size_needed)
{
    fakes::put_variable("Ab", {1, 2, 3});
    a.data_size = 2;
    ASSERT_EQ(ovra_get_variable(hdl, a.name, &a.guid, &a.attributes, &a.data_size, a.data, &a.status), 0);
    EXPECT_EQ(a.status, EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(a.data_size, 3U);
    EXPECT_EQ(to_hex(a.data, 3), "00 00 00");
}

TEST_F(services, status_of_the_firmware_is_not_a_failure_of_the_call)
{
    for (const service &one : all_services())
        for (const EFI_STATUS status : {EFI_INVALID_PARAMETER, EFI_NOT_FOUND, EFI_DEVICE_ERROR,
                                        EFI_SECURITY_VIOLATION, EFI_STATUS{1}}) {
            arguments fresh;
            fakes::answer_command(one.command, status, 0, 1);
            EXPECT_EQ(one.call(hdl, fresh), 0) << one.name;
            if (has_status(one)) {
                EXPECT_EQ(fresh.status, status) << one.name;
            }
        }
}

TEST_F(services, get_next_variable_name_steps_through_all)
{
    fakes::put_variable("Ab", {1});
    fakes::put_variable("Second", {1}, 7, fakes::other_guid);
    a.name[0] = 0;
    ASSERT_EQ(ovra_get_next_variable_name(hdl, &a.name_size, a.name, &a.guid, &a.status), 0);
    EXPECT_EQ(a.status, EFI_SUCCESS);
    EXPECT_EQ(to_hex(a.name, 6), "41 00 62 00 00 00");
    EXPECT_EQ(a.name_size, 6U);
    a.name_size = 4;
    ASSERT_EQ(ovra_get_next_variable_name(hdl, &a.name_size, a.name, &a.guid, &a.status), 0);
    EXPECT_EQ(a.status, EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(a.name_size, 14U);
    a.name_size = sizeof a.name;
    ASSERT_EQ(ovra_get_next_variable_name(hdl, &a.name_size, a.name, &a.guid, &a.status), 0);
    EXPECT_EQ(a.status, EFI_SUCCESS);
    EXPECT_EQ(memcmp(&a.guid, &fakes::other_guid, sizeof a.guid), 0);
    a.name_size = sizeof a.name;
    ASSERT_EQ(ovra_get_next_variable_name(hdl, &a.name_size, a.name, &a.guid, &a.status), 0);
    EXPECT_EQ(a.status, EFI_NOT_FOUND);
}

TEST_F(services, query_variable_info_delivers_three_sizes)
{
    fakes::set_storage_info({0x100000001, 0x200000002, 0x300000003});
    ASSERT_EQ(ovra_query_variable_info(hdl, 7, &a.max_storage, &a.remaining_storage, &a.max_size, &a.status),
              0);
    EXPECT_EQ(a.max_storage, 0x100000001U);
    EXPECT_EQ(a.remaining_storage, 0x200000002U);
    EXPECT_EQ(a.max_size, 0x300000003U);
}

TEST_F(services, clock_is_read_and_set)
{
    const EFI_TIME time = some_time();
    fakes::set_clock(time, {10, 20, 1});
    ASSERT_EQ(ovra_get_time(hdl, &a.time, &a.capabilities, &a.status), 0);
    EXPECT_EQ(memcmp(&a.time, &time, sizeof time), 0);
    EXPECT_EQ(to_hex(&a.time, sizeof a.time), hex("ef07 0c 1e 17 3b 3a 01  15cd5b07  c4ff 03 02"));
    EXPECT_EQ(a.capabilities.resolution, 10U);
    EXPECT_EQ(a.capabilities.accuracy, 20U);
    EXPECT_EQ(a.capabilities.sets_to_zero, 1U);
    a.time.year = 2032;
    ASSERT_EQ(ovra_set_time(hdl, &a.time, &a.status), 0);
    EXPECT_EQ(fakes::clock().year, 2032U);
}

TEST_F(services, alarm_is_read_and_set)
{
    a.time = some_time();
    ASSERT_EQ(ovra_set_wakeup_time(hdl, B_TRUE, &a.time, &a.status), 0);
    EXPECT_EQ(fakes::current_alarm().enabled, B_TRUE);
    fakes::set_alarm({B_TRUE, B_TRUE, a.time});
    arguments b;
    ASSERT_EQ(ovra_get_wakeup_time(hdl, &b.enabled, &b.pending, &b.time, &b.status), 0);
    EXPECT_EQ(b.enabled, B_TRUE);
    EXPECT_EQ(b.pending, B_TRUE);
    EXPECT_EQ(memcmp(&b.time, &a.time, sizeof a.time), 0);
    ASSERT_EQ(ovra_set_wakeup_time(hdl, B_FALSE, nullptr, &a.status), 0);
    EXPECT_EQ(fakes::current_alarm().enabled, B_FALSE);
}

TEST_F(services, monotonic_count_is_delivered)
{
    fakes::set_monotonic_count(0xfffffffe);
    ASSERT_EQ(ovra_get_next_high_monotonic_count(hdl, &a.high_count, &a.status), 0);
    EXPECT_EQ(a.high_count, 0xfffffffeU);
    EXPECT_EQ(a.status, EFI_SUCCESS);
}

// Which driver answers

TEST_F(services, handle_with_a_descriptor_opens_nothing_more)
{
    for (const service &one : all_services()) {
        arguments fresh;
        EXPECT_EQ(one.call(hdl, fresh), 0) << one.name;
    }
    EXPECT_EQ(fakes::openings().size(), 1U);
    EXPECT_EQ(fakes::closings(), 0U);
}

TEST_F(services, null_handle_opens_and_closes_the_driver_for_each_call)
{
    for (const service &one : all_services()) {
        arguments fresh;
        const size_t before = fakes::openings().size();
        const unsigned closed_before = fakes::closings();
        EXPECT_EQ(one.call(nullptr, fresh), 0) << one.name;
        ASSERT_EQ(fakes::openings().size(), before + 1) << one.name;
        EXPECT_EQ(fakes::openings().back().path, "/devices/pseudo/ovra@0:ovra");
        EXPECT_EQ(fakes::openings().back().flags, O_RDWR);
        EXPECT_EQ(fakes::closings(), closed_before + 1) << one.name;
        EXPECT_EQ(fakes::requests().back().command, one.command) << one.name;
        EXPECT_EQ(fakes::requests().back().fd, fakes::openings().back().fd) << one.name;
    }
}

TEST_F(services, test_file_mode_still_reaches_the_driver)
{
    const environment mode("OVRA_TEST_FILE", "1");
    const temporary_directory here;
    ovra_hdl_t second = nullptr;
    ASSERT_EQ(ovra_init(&second), 0);
    for (const service &one : all_services()) {
        arguments fresh;
        EXPECT_EQ(one.call(second, fresh), 0) << one.name;
        EXPECT_EQ(fakes::requests().back().command, one.command) << one.name;
        EXPECT_EQ(fakes::open_descriptors(), 1U) << one.name; // that of the fixture's handle
    }
    EXPECT_EQ(fakes::openings().size(), 1 + all_services().size());
    EXPECT_TRUE(std::filesystem::is_empty(here.path()));
    ovra_fini(second);
}

TEST_F(services, handle_keeps_its_driver_when_test_file_mode_comes_later)
{
    const environment mode("OVRA_TEST_FILE", "1");
    EXPECT_EQ(ovra_get_time(hdl, &a.time, nullptr, &a.status), 0);
    EXPECT_EQ(fakes::requests().back().fd, hdl->ovra_fd);
    EXPECT_EQ(fakes::openings().size(), 1U);
}

// Failure

TEST_F(services, absent_driver_fails_every_service_and_leaves_status_and_errno)
{
    const environment mode("OVRA_TEST_FILE", "1");
    ovra_hdl_t second = nullptr;
    ASSERT_EQ(ovra_init(&second), 0);
    const messages said;
    for (const int error : {ENOENT, EACCES}) {
        fakes::set_absent(error);
        for (const service &one : all_services())
            for (ovra_hdl_t without : {ovra_hdl_t{nullptr}, second}) {
                arguments fresh;
                errno = 0;
                EXPECT_EQ(one.call(without, fresh), -1) << one.name;
                EXPECT_EQ(errno, error) << one.name;
                EXPECT_EQ(fresh.status, untouched) << one.name;
            }
    }
    EXPECT_TRUE(fakes::requests().empty());
    EXPECT_EQ(said.text(), "");
    ovra_fini(second);
}

TEST_F(services, failed_ioctl_fails_every_service_and_leaves_status_and_errno)
{
    const messages said;
    for (const service &one : all_services())
        for (ovra_hdl_t with : {hdl, ovra_hdl_t{nullptr}}) {
            arguments fresh;
            fakes::fail_command(one.command, EIO, 0, 1);
            errno = 0;
            EXPECT_EQ(one.call(with, fresh), -1) << one.name;
            EXPECT_EQ(errno, EIO) << one.name;
            EXPECT_EQ(fresh.status, untouched) << one.name;
            EXPECT_EQ(fakes::open_descriptors(), 1U) << one.name;
        }
    EXPECT_EQ(said.text(), "");
}

TEST_F(services, errno_of_a_failed_ioctl_survives_the_close)
{
    fakes::set_errno_of_close(EBADF);
    fakes::fail_command(OVRA_GET_TIME, EINTR);
    errno = 0;
    EXPECT_EQ(ovra_get_time(nullptr, &a.time, nullptr, &a.status), -1);
    EXPECT_EQ(errno, EINTR);
}

TEST_F(services, failed_call_leaves_the_handle_usable)
{
    fakes::fail_call(0, EIO);
    EXPECT_EQ(ovra_get_time(hdl, &a.time, nullptr, &a.status), -1);
    EXPECT_EQ(ovra_get_time(hdl, &a.time, nullptr, &a.status), 0);
    EXPECT_EQ(a.status, EFI_SUCCESS);
}

TEST_F(services, unknown_command_is_passed_on_and_fails_as_the_driver_says)
{
    uint8_t record[64] = {};
    for (const int command : {0, 10, 11, 15, 17, -1}) {
        errno = 0;
        EXPECT_EQ(ovra_common(hdl, command, record), -1) << command;
        EXPECT_EQ(errno, ENOTTY) << command;
        EXPECT_EQ(fakes::requests().back().command, command);
    }
}

TEST_F(services, none_allocates)
{
    for (const service &one : all_services()) {
        arguments fresh;
        count_blocks();
        EXPECT_EQ(one.call(hdl, fresh), 0) << one.name;
        EXPECT_EQ(one.call(nullptr, fresh), 0) << one.name;
        EXPECT_EQ(allocations(), 0) << one.name;
        stop_counting();
    }
}

} // namespace
