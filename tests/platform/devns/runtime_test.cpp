// SPDX-License-Identifier: MIT
// The records: the pointers that each command needs, and what it writes through them.
#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "tests/platform/devns_calls.h"

using platform_test::device;
using platform_test::global_guid;
using platform_test::machine_folder;
using platform_test::not_answered;
using platform_test::ucs2;

namespace {

class runtime_command : public testing::Test {
protected:
    machine_folder disk;
    device opened;
    EFI_STATUS status = not_answered;
    std::vector<CHAR16> name = ucs2(u"A");
    EFI_GUID guid = global_guid;
    UINT32 attributes = 7;
    UINTN size = 4;
    char data[16] = "data";
    UINTN name_size = 4;

    ovra_variable_args_t variable() { return {name.data(), &guid, &attributes, &size, data, &status, 4}; }

    int call(int command, void *record) const { return devns_ioctl(opened.fd(), command, record); }

    template <typename record>
    void expect_efault(int command, record args)
    {
        errno = 0;
        EXPECT_EQ(call(command, &args), -1);
        EXPECT_EQ(errno, EFAULT);
        EXPECT_EQ(status, not_answered);
    }

    // Calls with one pointer of the record null.
    template <typename record, typename pointer>
    void without(int command, record args, pointer record::*member)
    {
        args.*member = nullptr;
        expect_efault(command, args);
    }
};

TEST_F(runtime_command, null_record_is_efault)
{
    for (int command = 1; command <= 16; ++command) {
        errno = 0;
        EXPECT_EQ(call(command, nullptr), -1);
        EXPECT_EQ(errno, command < 10 || command == 16 ? EFAULT : ENOTTY) << command;
    }
}

TEST_F(runtime_command, get_variable_needs_name_guid_and_status)
{
    without(OVRA_GET_VARIABLE, variable(), &ovra_variable_args_t::variable_name);
    without(OVRA_GET_VARIABLE, variable(), &ovra_variable_args_t::vendor_guid);
    without(OVRA_GET_VARIABLE, variable(), &ovra_variable_args_t::ret);
}

TEST_F(runtime_command, set_variable_needs_all_but_the_data)
{
    without(OVRA_SET_VARIABLE, variable(), &ovra_variable_args_t::variable_name);
    without(OVRA_SET_VARIABLE, variable(), &ovra_variable_args_t::vendor_guid);
    without(OVRA_SET_VARIABLE, variable(), &ovra_variable_args_t::attributes);
    without(OVRA_SET_VARIABLE, variable(), &ovra_variable_args_t::data_size);
    without(OVRA_SET_VARIABLE, variable(), &ovra_variable_args_t::ret);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(runtime_command, next_variable_name_needs_all)
{
    using record = ovra_get_next_variable_name_args_t;
    record args = {&name_size, name.data(), &guid, &status};
    without(OVRA_GET_NEXT_VARIABLE_NAME, args, &record::variable_name_size);
    without(OVRA_GET_NEXT_VARIABLE_NAME, args, &record::variable_name);
    without(OVRA_GET_NEXT_VARIABLE_NAME, args, &record::vendor_guid);
    without(OVRA_GET_NEXT_VARIABLE_NAME, args, &record::ret);
}

TEST_F(runtime_command, query_variable_info_needs_all)
{
    using record = ovra_query_variable_info_args_t;
    UINT64 numbers[3] = {};
    record args = {7, &numbers[0], &numbers[1], &numbers[2], &status};
    without(OVRA_QUERY_VARIABLE_INFO, args, &record::max_var_storage_size);
    without(OVRA_QUERY_VARIABLE_INFO, args, &record::remaining_var_storage_size);
    without(OVRA_QUERY_VARIABLE_INFO, args, &record::max_var_size);
    without(OVRA_QUERY_VARIABLE_INFO, args, &record::ret);
}

TEST_F(runtime_command, clock_commands_need_their_pointers)
{
    EFI_TIME time = {};
    without(OVRA_GET_TIME, ovra_get_time_args_t{&time, nullptr, &status}, &ovra_get_time_args_t::time);
    without(OVRA_GET_TIME, ovra_get_time_args_t{&time, nullptr, &status}, &ovra_get_time_args_t::ret);
    without(OVRA_SET_TIME, ovra_set_time_args_t{&time, &status}, &ovra_set_time_args_t::time);
    without(OVRA_SET_TIME, ovra_set_time_args_t{&time, &status}, &ovra_set_time_args_t::ret);
    BOOLEAN enabled = B_FALSE;
    BOOLEAN pending = B_FALSE;
    using get = ovra_get_wakeup_time_args_t;
    get args = {&enabled, &pending, &time, &status};
    without(OVRA_GET_WAKEUP_TIME, args, &get::enabled);
    without(OVRA_GET_WAKEUP_TIME, args, &get::pending);
    without(OVRA_GET_WAKEUP_TIME, args, &get::time);
    without(OVRA_GET_WAKEUP_TIME, args, &get::ret);
    using set = ovra_set_wakeup_time_args_t;
    without(OVRA_SET_WAKEUP_TIME, set{&time, &status, B_TRUE}, &set::ret);
    UINT32 count = 0;
    using next = ovra_get_next_high_monotonic_count_args_t;
    without(OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, next{&count, &status}, &next::high_count);
    without(OVRA_GET_NEXT_HIGH_MONOTONIC_COUNT, next{&count, &status}, &next::ret);
    EXPECT_FALSE(std::filesystem::exists(disk.root() / "var"));
}

TEST_F(runtime_command, name_must_end_within_its_size)
{
    for (UINTN bytes : {UINTN{0}, UINTN{1}, UINTN{2}, UINTN{3}}) {
        ovra_variable_args_t args = variable();
        args.variable_name_size = bytes;
        EXPECT_EQ(call(OVRA_SET_VARIABLE, &args), 0);
        EXPECT_EQ(status, EFI_INVALID_PARAMETER);
        EXPECT_EQ(call(OVRA_GET_VARIABLE, &args), 0);
        EXPECT_EQ(status, EFI_INVALID_PARAMETER);
    }
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(runtime_command, commands_without_an_answer_leave_the_outputs)
{
    UINT64 numbers[3] = {1, 2, 3};
    ovra_query_variable_info_args_t args = {0, &numbers[0], &numbers[1], &numbers[2], &status};
    EXPECT_EQ(call(OVRA_QUERY_VARIABLE_INFO, &args), 0);
    EXPECT_EQ(status, EFI_INVALID_PARAMETER);
    EXPECT_EQ(numbers[0], 1u);
    EXPECT_EQ(numbers[1], 2u);
    EXPECT_EQ(numbers[2], 3u);
}

TEST_F(runtime_command, enumerations_in_a_record_may_hold_any_number)
{
    ovra_reset_system_args_t reset = {};
    for (int type : {3, -1, 0x7fffffff}) {
        std::memcpy(&reset.reset_type, &type, sizeof type);
        errno = 0;
        EXPECT_EQ(call(OVRA_RESET_SYSTEM, &reset), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EFI_TIME time = {};
    ovra_set_wakeup_time_args_t wakeup = {&time, &status, B_FALSE};
    int enable = 77;
    std::memcpy(&wakeup.enable, &enable, sizeof enable);
    EXPECT_EQ(call(OVRA_SET_WAKEUP_TIME, &wakeup), 0);
    EXPECT_EQ(status, EFI_INVALID_PARAMETER); // enabled, and the time is not valid
}

} // namespace
