// SPDX-License-Identifier: MIT
// Variables of the boot manager by name, from the driver or from files.
#include <cerrno>
#include <cstring>

#include "platform/include/devns.h"
#include "src/rt/rt.h"
#include "tests/rt/open_handle.h"
#include "tests/support/bytes.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

class globalvar : public open_handle {};

class globalvar_files : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakes::reset();
        fakes::set_absent(ENOENT);
        ASSERT_EQ(ovra_init(&hdl), 0);
    }
    void TearDown() override
    {
        ovra_fini(hdl);
        EXPECT_TRUE(fakes::openings().empty()); // the driver is never asked
    }

    temporary_directory here;
    environment mode{"OVRA_TEST_FILE", ""};
    ovra_hdl_t hdl = nullptr;
};

uint8_t four_bytes[] = {1, 2, 3, 4};

TEST_F(globalvar, set_uses_the_global_guid_attributes_7_and_the_name_in_ucs2)
{
    EXPECT_EQ(set_variable(hdl, "Boot0003", 4, four_bytes), EFI_SUCCESS);
    ASSERT_EQ(fakes::requests().size(), 1U);
    const fakes::request &seen = fakes::requests()[0];
    EXPECT_EQ(seen.command, OVRA_SET_VARIABLE);
    EXPECT_EQ(to_hex(seen.name_bytes), hex("4200 6f00 6f00 7400 3000 3000 3000 3300 0000"));
    EXPECT_EQ(seen.variable_name_size, 18U);
    EXPECT_EQ(to_hex(&*seen.guid, sizeof(EFI_GUID)), hex("61DFE48B CA93 D211 AA0D 00E098032B8C"));
    EXPECT_EQ(seen.attributes, 7U);
    EXPECT_EQ(seen.data_size, 4U);
    EXPECT_EQ(seen.data_address, four_bytes);
    EXPECT_EQ(seen.fd, hdl->ovra_fd);
    EXPECT_EQ(fakes::variable("Boot0003"), (bytes{1, 2, 3, 4}));
}

TEST_F(globalvar, set_of_size_0_deletes)
{
    fakes::put_variable("BootNext", {1, 0});
    EXPECT_EQ(set_variable(hdl, "BootNext", 0, nullptr), EFI_SUCCESS);
    EXPECT_EQ(fakes::variable("BootNext"), std::nullopt);
}

TEST_F(globalvar, get_uses_the_global_guid_and_never_asks_for_attributes)
{
    fakes::put_variable("Boot0003", {9, 8, 7});
    fakes::put_variable("Boot0003", {1}, 7, fakes::other_guid);
    uint8_t data[8] = {};
    UINTN size = sizeof data;
    EXPECT_EQ(get_variable(hdl, "Boot0003", &size, data), EFI_SUCCESS);
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(to_hex(data, 4), "09 08 07 00");
    ASSERT_EQ(fakes::requests().size(), 1U);
    const fakes::request &seen = fakes::requests()[0];
    EXPECT_EQ(seen.command, OVRA_GET_VARIABLE);
    EXPECT_EQ(to_hex(seen.name_bytes), hex("4200 6f00 6f00 7400 3000 3000 3000 3300 0000"));
    EXPECT_EQ(to_hex(&*seen.guid, sizeof(EFI_GUID)), hex("61DFE48B CA93 D211 AA0D 00E098032B8C"));
    EXPECT_EQ(seen.attributes, std::nullopt);
    EXPECT_EQ(seen.data_size, 8U);
    EXPECT_EQ(seen.data_address, data);
}

TEST_F(globalvar, get_with_too_little_room_gives_the_size_needed)
{
    fakes::put_variable("Boot0003", {9, 8, 7});
    uint8_t data[2] = {};
    for (const UINTN room : {0U, 2U}) {
        UINTN size = room;
        EXPECT_EQ(get_variable(hdl, "Boot0003", &size, room == 0 ? nullptr : data), EFI_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 3U);
    }
}

TEST_F(globalvar, names_beyond_ascii_are_converted)
{
    EXPECT_EQ(set_variable(hdl, "\xc3\xa9\xe4\xb8\xad", 4, four_bytes), EFI_SUCCESS);
    EXPECT_NE(fakes::variable(u"\u00e9\u4e2d"), std::nullopt);
    uint8_t data[4] = {};
    UINTN size = sizeof data;
    EXPECT_EQ(get_variable(hdl, "\xc3\xa9\xe4\xb8\xad", &size, data), EFI_SUCCESS);
}

TEST_F(globalvar, status_of_the_firmware_is_the_result)
{
    UINTN size = 4;
    for (const EFI_STATUS status :
         {EFI_NOT_FOUND, EFI_WRITE_PROTECTED, EFI_SECURITY_VIOLATION, EFI_STATUS{5}}) {
        fakes::answer_call(0, status);
        EXPECT_EQ(set_variable(hdl, "x", 4, four_bytes), status);
        fakes::answer_call(0, status);
        EXPECT_EQ(get_variable(hdl, "x", &size, four_bytes), status);
    }
    EXPECT_EQ(get_variable(hdl, "x", &size, four_bytes), EFI_NOT_FOUND);
}

TEST_F(globalvar, name_that_cannot_be_converted_is_an_invalid_parameter)
{
    messages said(1, 0);
    UINTN size = 4;
    EXPECT_EQ(set_variable(hdl, "\xff", 4, four_bytes), EFI_INVALID_PARAMETER);
    EXPECT_EQ(said.take(), "iconv(\xff) failed");
    EXPECT_EQ(get_variable(hdl, "\xff", &size, four_bytes), EFI_INVALID_PARAMETER);
    EXPECT_EQ(said.take(), "iconv(\xff) failed");
    EXPECT_EQ(size, 4U);
    EXPECT_TRUE(fakes::requests().empty());
}

TEST_F(globalvar, failed_ioctl_is_access_denied_and_never_success)
{
    const messages said;
    UINTN size = 4;
    for (const int error : {EIO, EPERM, ENOTTY, EINTR}) {
        fakes::fail_call(0, error);
        EXPECT_EQ(set_variable(hdl, "x", 4, four_bytes), EFI_ACCESS_DENIED);
        fakes::fail_call(0, error);
        EXPECT_EQ(get_variable(hdl, "x", &size, four_bytes), EFI_ACCESS_DENIED);
    }
    EXPECT_EQ(said.text(), "");
}

TEST_F(globalvar, absent_driver_is_access_denied)
{
    const messages said;
    fakes::set_absent(ENOENT);
    UINTN size = 4;
    EXPECT_EQ(set_variable(nullptr, "x", 4, four_bytes), EFI_ACCESS_DENIED);
    EXPECT_EQ(get_variable(nullptr, "x", &size, four_bytes), EFI_ACCESS_DENIED);
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(said.text(), "");
}

TEST_F(globalvar, null_handle_opens_the_driver_for_the_call)
{
    EXPECT_EQ(set_variable(nullptr, "x", 4, four_bytes), EFI_SUCCESS);
    uint8_t data[4] = {};
    UINTN size = sizeof data;
    EXPECT_EQ(get_variable(nullptr, "x", &size, data), EFI_SUCCESS);
    EXPECT_EQ(to_hex(data, 4), "01 02 03 04");
    EXPECT_EQ(fakes::openings().size(), 3U);
    EXPECT_EQ(fakes::open_descriptors(), 1U);
}

TEST_F(globalvar, converted_name_is_freed_on_every_way_out)
{
    count_blocks();
    uint8_t data[4];
    UINTN size = sizeof data;
    const messages said(0, 0);
    EXPECT_EQ(set_variable(hdl, "x", 4, four_bytes), EFI_SUCCESS);
    EXPECT_EQ(get_variable(hdl, "x", &size, data), EFI_SUCCESS);
    EXPECT_EQ(get_variable(hdl, "y", &size, data), EFI_NOT_FOUND);
    fakes::fail_command(OVRA_SET_VARIABLE, EIO);
    fakes::fail_command(OVRA_GET_VARIABLE, EIO);
    EXPECT_EQ(set_variable(hdl, "x", 4, four_bytes), EFI_ACCESS_DENIED);
    EXPECT_EQ(get_variable(hdl, "x", &size, data), EFI_ACCESS_DENIED);
    EXPECT_GT(allocations(), 0);
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST_F(globalvar, without_memory_the_name_is_an_invalid_parameter_and_nothing_is_asked)
{
    fakes::put_variable("x", {1, 2, 3, 4});
    for_each_refused_allocation_any_result(
        [](ovra_hdl_t fresh) {
            fakes::forget_requests();
            return set_variable(fresh, "x", 4, four_bytes) == EFI_INVALID_PARAMETER ? -1 : 0;
        },
        [](const attempt &one) {
            EXPECT_EQ(one.result, one.refused == 0 ? 0 : -1);
            EXPECT_EQ(fakes::requests().size(), one.refused == 0 ? 1U : 0U);
            EXPECT_EQ(one.messages, "");
        });
    for_each_refused_allocation(
        [](ovra_hdl_t fresh) {
            uint8_t data[4];
            UINTN size = sizeof data;
            const EFI_STATUS status = get_variable(fresh, "x", &size, data);
            EXPECT_TRUE(status == EFI_SUCCESS || status == EFI_INVALID_PARAMETER) << status;
            return status == EFI_INVALID_PARAMETER ? -1 : 0;
        },
        [](const attempt &one) { EXPECT_EQ(one.messages, ""); });
}

TEST_F(globalvar, mode_is_looked_up_at_each_call)
{
    const temporary_directory here;
    ASSERT_EQ(set_variable(hdl, "x", 4, four_bytes), EFI_SUCCESS);
    {
        const environment mode("OVRA_TEST_FILE", "1");
        ASSERT_EQ(set_variable(hdl, "y", 4, four_bytes), EFI_SUCCESS);
    }
    EXPECT_NE(fakes::variable("x"), std::nullopt);
    EXPECT_EQ(fakes::variable("y"), std::nullopt);
    EXPECT_EQ(here.read("x"), std::nullopt);
    EXPECT_EQ(here.read("y"), (bytes{1, 2, 3, 4}));
}

TEST_F(globalvar_files, set_creates_the_file_of_that_name_in_the_working_directory)
{
    EXPECT_EQ(set_variable(hdl, "Boot0003", 4, four_bytes), EFI_SUCCESS);
    EXPECT_EQ(here.read("Boot0003"), (bytes{1, 2, 3, 4}));
}

TEST_F(globalvar_files, set_truncates_the_file)
{
    here.write("Boot0003", {9, 9, 9, 9, 9, 9});
    EXPECT_EQ(set_variable(hdl, "Boot0003", 4, four_bytes), EFI_SUCCESS);
    EXPECT_EQ(here.read("Boot0003"), (bytes{1, 2, 3, 4}));
}

TEST_F(globalvar_files, get_without_a_file_is_not_found)
{
    uint8_t data[4];
    UINTN size = sizeof data;
    EXPECT_EQ(get_variable(hdl, "Boot0003", &size, data), EFI_NOT_FOUND);
}

TEST_F(globalvar_files, get_reads_the_file)
{
    here.write("BootOrder", {1, 0, 2, 0});
    uint8_t data[8] = {};
    UINTN size = sizeof data;
    EXPECT_EQ(get_variable(hdl, "BootOrder", &size, data), EFI_SUCCESS);
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(to_hex(data, 5), "01 00 02 00 00");
    size = 2;
    EXPECT_EQ(get_variable(hdl, "BootOrder", &size, data), EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 4U);
}

TEST_F(globalvar_files, unopenable_file_is_a_device_error)
{
    messages said(1, 0);
    EXPECT_EQ(set_variable(hdl, "no/such", 4, four_bytes), EFI_DEVICE_ERROR);
    EXPECT_EQ(said.text(), std::string("can't open file no/such: ") + strerror(ENOENT) + "\n");
}

TEST_F(globalvar_files, name_is_not_converted)
{
    EXPECT_EQ(set_variable(hdl, "\xff", 4, four_bytes), EFI_SUCCESS);
    EXPECT_EQ(here.read("\xff"), (bytes{1, 2, 3, 4}));
}

TEST_F(globalvar_files, null_handle_serves_too)
{
    EXPECT_EQ(set_variable(nullptr, "x", 4, four_bytes), EFI_SUCCESS);
    uint8_t data[4];
    UINTN size = sizeof data;
    EXPECT_EQ(get_variable(nullptr, "x", &size, data), EFI_SUCCESS);
}

} // namespace
