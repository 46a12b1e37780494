// SPDX-License-Identifier: MIT
// Variables as plain files.
#include <cerrno>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "src/rt/rt.h"
#include "src/rt/testfile.h"
#include "tests/fakes/driver.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

class testfile : public ::testing::Test {
protected:
    temporary_directory here;
};

TEST_F(testfile, mode_is_the_presence_of_the_variable_whatever_its_value)
{
    environment mode("OVRA_TEST_FILE", nullptr);
    EXPECT_FALSE(ovra::test_file_mode());
    for (const char *value : {"", "0", "no", "/x"}) {
        mode.set(value);
        EXPECT_TRUE(ovra::test_file_mode()) << value;
    }
    mode.set(nullptr);
    EXPECT_FALSE(ovra::test_file_mode());
}

TEST_F(testfile, set_writes_the_bytes_and_nothing_else)
{
    bytes data;
    for (int i = 0; i < 300; ++i)
        data.push_back(static_cast<uint8_t>(i));
    EXPECT_EQ(set_variable_to_file("Boot0003", data.size(), data.data()), EFI_SUCCESS);
    EXPECT_EQ(here.read("Boot0003"), data);
}

TEST_F(testfile, set_truncates_what_was_there)
{
    here.write("Boot0003", {1, 2, 3, 4, 5});
    const uint8_t data[] = {9, 8};
    EXPECT_EQ(set_variable_to_file("Boot0003", sizeof data, data), EFI_SUCCESS);
    EXPECT_EQ(here.read("Boot0003"), (bytes{9, 8}));
}

TEST_F(testfile, kept_set_of_size_0_leaves_an_empty_file)
{
    here.write("Boot0003", {1, 2, 3});
    EXPECT_EQ(set_variable_to_file("Boot0003", 0, nullptr), EFI_SUCCESS);
    EXPECT_EQ(here.read("Boot0003"), bytes());
    EXPECT_EQ(set_variable_to_file("Boot0004", 0, nullptr), EFI_SUCCESS);
    EXPECT_EQ(here.read("Boot0004"), bytes());
}

TEST_F(testfile, kept_errors_of_writing_are_not_looked_at)
{
    const bytes data(100000, 1);
    const messages said;
    ASSERT_EQ(access("/dev/full", W_OK), 0);
    EXPECT_EQ(set_variable_to_file("/dev/full", data.size(), data.data()), EFI_SUCCESS);
    EXPECT_EQ(said.text(), "");
}

TEST_F(testfile, set_of_a_path_that_cannot_be_opened_is_a_device_error_with_a_message)
{
    const uint8_t data[] = {1};
    messages said(1, 0);
    EXPECT_EQ(set_variable_to_file("no/such/folder", 1, data), EFI_DEVICE_ERROR);
    EXPECT_EQ(said.take(), std::string("can't open file no/such/folder: ") + strerror(ENOENT) + "\n");
    EXPECT_EQ(set_variable_to_file(".", 1, data), EFI_DEVICE_ERROR);
    EXPECT_EQ(said.take(), std::string("can't open file .: ") + strerror(EISDIR) + "\n");
    EXPECT_EQ(set_variable_to_file("", 1, data), EFI_DEVICE_ERROR);
    EXPECT_EQ(said.take(), std::string("can't open file : ") + strerror(ENOENT) + "\n");
}

TEST_F(testfile, message_is_silent_while_the_switch_is_off)
{
    const uint8_t data[] = {1};
    const messages said(0, 1);
    EXPECT_EQ(set_variable_to_file("no/such/folder", 1, data), EFI_DEVICE_ERROR);
    EXPECT_EQ(said.text(), "");
}

TEST_F(testfile, path_is_taken_as_it_is)
{
    std::filesystem::create_directory("folder");
    const uint8_t data[] = {7};
    EXPECT_EQ(set_variable_to_file("folder/name with blanks %s", 1, data), EFI_SUCCESS);
    EXPECT_EQ(here.read("folder/name with blanks %s"), (bytes{7}));
}

TEST_F(testfile, get_of_a_missing_file_is_not_found_without_a_message)
{
    UINTN size = 10;
    uint8_t data[10] = {};
    const messages said;
    EXPECT_EQ(get_variable_from_file("Boot0003", &size, data), EFI_NOT_FOUND);
    EXPECT_EQ(size, 10U);
    EXPECT_EQ(said.text(), "");
}

TEST_F(testfile, get_of_six_bytes_with_room_for_four_gives_the_size_only)
{
    here.write("x", {1, 2, 3, 4, 5, 6});
    uint8_t data[8] = {};
    UINTN size = 4;
    EXPECT_EQ(get_variable_from_file("x", &size, data), EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 6U);
    EXPECT_EQ(to_hex(data, 8), "00 00 00 00 00 00 00 00");
}

TEST_F(testfile, get_of_six_bytes_with_room_for_six_or_more_gives_the_bytes)
{
    here.write("x", {1, 2, 3, 4, 5, 6});
    for (const UINTN room : {6U, 7U, 8U}) {
        uint8_t data[8] = {};
        UINTN size = room;
        EXPECT_EQ(get_variable_from_file("x", &size, data), EFI_SUCCESS);
        EXPECT_EQ(size, 6U);
        EXPECT_EQ(to_hex(data, 8), "01 02 03 04 05 06 00 00");
    }
}

TEST_F(testfile, get_with_size_0_only_measures)
{
    here.write("x", {1, 2, 3, 4, 5, 6});
    UINTN size = 0;
    EXPECT_EQ(get_variable_from_file("x", &size, nullptr), EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 6U);
}

TEST_F(testfile, kept_empty_file_with_size_0_is_too_small_too)
{
    here.write("x", {});
    UINTN size = 0;
    EXPECT_EQ(get_variable_from_file("x", &size, nullptr), EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 0U);
}

TEST_F(testfile, get_of_an_empty_file_with_room_succeeds_with_size_0)
{
    here.write("x", {});
    uint8_t data[1] = {7};
    UINTN size = 1;
    EXPECT_EQ(get_variable_from_file("x", &size, data), EFI_SUCCESS);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(data[0], 7);
}

TEST_F(testfile, get_returns_what_set_wrote)
{
    for (const size_t length : {1U, 2U, 255U, 4096U, 70000U}) {
        bytes data(length);
        for (size_t i = 0; i < length; ++i)
            data[i] = static_cast<uint8_t>(i * 7);
        ASSERT_EQ(set_variable_to_file("x", length, data.data()), EFI_SUCCESS);
        bytes read(length);
        UINTN size = length;
        ASSERT_EQ(get_variable_from_file("x", &size, read.data()), EFI_SUCCESS);
        EXPECT_EQ(size, length);
        EXPECT_EQ(read, data);
    }
}

TEST_F(testfile, get_of_what_is_no_file_never_overruns_the_buffer)
{
    // A folder can be opened but not read; a device without an end has no length.
    for (const char *path : {".", "/dev/zero"}) {
        uint8_t data[4] = {1, 2, 3, 4};
        UINTN size = sizeof data;
        const EFI_STATUS status = get_variable_from_file(path, &size, data);
        EXPECT_TRUE(status != EFI_SUCCESS || size <= sizeof data) << path << " " << status;
    }
}

TEST_F(testfile, get_closes_the_file_on_every_way_out)
{
    here.write("x", {1, 2, 3});
    const int before = dup(0);
    close(before);
    uint8_t data[4];
    for (const UINTN room : {0U, 2U, 4U}) {
        UINTN size = room;
        static_cast<void>(get_variable_from_file("x", &size, data));
    }
    UINTN size = 4;
    static_cast<void>(get_variable_from_file("y", &size, data));
    static_cast<void>(set_variable_to_file("x", 2, data));
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before); // the lowest free descriptor
}

TEST_F(testfile, neither_allocates)
{
    here.write("x", {1, 2, 3});
    count_blocks();
    uint8_t data[4];
    UINTN size = sizeof data;
    EXPECT_EQ(get_variable_from_file("x", &size, data), EFI_SUCCESS);
    EXPECT_EQ(set_variable_to_file("x", 2, data), EFI_SUCCESS);
    EXPECT_EQ(allocations(), 0);
    stop_counting();
}

} // namespace
