// SPDX-License-Identifier: MIT
#include <string>

#include "tests/platform/variables/fixture.h"

using platform_test::global_guid;
using platform_test::not_answered;
using platform_test::other_guid;
using platform_test::ucs2;
using platform_test::value;
using platform_test::variables;
namespace fs = std::filesystem;

namespace {

using variable_read = variables;

TEST_F(variable_read, gives_attributes_and_data)
{
    disk.put("BootOrder", std::string("\1\0\2\0", 4), 3);
    value found = get(u"BootOrder");
    EXPECT_EQ(found.status, EFI_SUCCESS);
    EXPECT_EQ(found.attributes, 3u);
    EXPECT_EQ(found.data, std::string("\1\0\2\0", 4));
}

TEST_F(variable_read, unknown_name_or_vendor_is_not_found)
{
    disk.put("A", "data");
    EXPECT_EQ(get(u"B").status, EFI_NOT_FOUND);
    EXPECT_EQ(get(u"a").status, EFI_NOT_FOUND);
    EXPECT_EQ(get(u"A", other_guid).status, EFI_NOT_FOUND);
}

TEST_F(variable_read, short_buffer_gets_the_needed_size_and_the_attributes)
{
    disk.put("A", "1234567", 3);
    std::vector<CHAR16> name = ucs2(u"A");
    EFI_GUID guid = global_guid;
    for (UINTN room : {UINTN{0}, UINTN{1}, UINTN{6}}) {
        std::string data(8, 'x');
        UINT32 attributes = 0;
        UINTN size = room;
        EFI_STATUS status = not_answered;
        ovra_variable_args_t args = {name.data(), &guid, &attributes, &size, data.data(), &status, 4};
        ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_GET_VARIABLE, &args), 0);
        EXPECT_EQ(status, EFI_BUFFER_TOO_SMALL);
        EXPECT_EQ(size, 7u);
        EXPECT_EQ(attributes, 3u);
        EXPECT_EQ(data, "xxxxxxxx");
    }
}

TEST_F(variable_read, buffer_may_be_null_where_it_is_too_small_only)
{
    disk.put("A", "1234567");
    std::vector<CHAR16> name = ucs2(u"A");
    EFI_GUID guid = global_guid;
    UINTN size = 0;
    EFI_STATUS status = not_answered;
    ovra_variable_args_t args = {name.data(), &guid, nullptr, &size, nullptr, &status, 4};
    ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_GET_VARIABLE, &args), 0);
    EXPECT_EQ(status, EFI_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 7u);
    ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_GET_VARIABLE, &args), 0);
    EXPECT_EQ(status, EFI_INVALID_PARAMETER);
    args.data_size = nullptr;
    ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_GET_VARIABLE, &args), 0);
    EXPECT_EQ(status, EFI_INVALID_PARAMETER);
}

TEST_F(variable_read, exact_and_larger_buffers_are_filled_with_the_data_alone)
{
    disk.put("A", "1234567");
    std::vector<CHAR16> name = ucs2(u"A");
    EFI_GUID guid = global_guid;
    for (UINTN room : {UINTN{7}, UINTN{9}}) {
        std::string data(10, 'x');
        UINTN size = room;
        EFI_STATUS status = not_answered;
        ovra_variable_args_t args = {name.data(), &guid, nullptr, &size, data.data(), &status, 4};
        ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_GET_VARIABLE, &args), 0);
        EXPECT_EQ(status, EFI_SUCCESS);
        EXPECT_EQ(size, 7u);
        EXPECT_EQ(data, "1234567xxx");
    }
}

TEST_F(variable_read, damaged_file_is_a_device_error)
{
    for (const char *contents : {"", "1", "12", "123"}) {
        disk.put_file(disk.file("A"), contents);
        EXPECT_EQ(get(u"A").status, EFI_DEVICE_ERROR);
    }
    fs::create_directory(disk.file("Folder"));
    EXPECT_EQ(get(u"Folder").status, EFI_DEVICE_ERROR);
    ASSERT_EQ(mkfifo(disk.file("Fifo").c_str(), 0600), 0);
    EXPECT_EQ(get(u"Fifo").status, EFI_DEVICE_ERROR);
    fs::create_symlink("/etc/passwd", disk.file("Link"));
    EXPECT_EQ(get(u"Link").status, EFI_DEVICE_ERROR);
}

TEST_F(variable_read, file_without_data_is_no_variable)
{
    disk.put("A", "");
    EXPECT_EQ(get(u"A").status, EFI_NOT_FOUND);
}

TEST_F(variable_read, impossible_name_is_an_invalid_parameter)
{
    EXPECT_EQ(get(u"").status, EFI_INVALID_PARAMETER);
    EXPECT_EQ(get(std::u16string(1, 0xd800)).status, EFI_INVALID_PARAMETER);
    EXPECT_EQ(get(std::u16string(219, u'a')).status, EFI_INVALID_PARAMETER);
    EXPECT_EQ(get(std::u16string(218, u'a')).status, EFI_NOT_FOUND);
}

} // namespace
