// SPDX-License-Identifier: MIT
#include <csignal>
#include <string>

#include <sys/resource.h>
#include <sys/stat.h>

#include "tests/platform/variables/fixture.h"
#include "tests/support/child_process.h"

using ovra::test::become_nobody;
using ovra::test::status_in_child;
using platform_test::global_guid;
using platform_test::not_answered;
using platform_test::other_guid;
using platform_test::other_suffix;
using platform_test::ucs2;
using platform_test::value;
using platform_test::variables;
namespace fs = std::filesystem;

namespace {

using variable_write = variables;

TEST_F(variable_write, new_variable_is_attributes_and_data_in_a_file)
{
    EXPECT_EQ(set(u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(disk.get("A"), std::string("\7\0\0\0data", 8));
    EXPECT_EQ(set(u"A", 7, "another", other_guid), EFI_SUCCESS);
    EXPECT_EQ(disk.contents(disk.file("A", other_suffix)), std::string("\7\0\0\0another", 11));
}

TEST_F(variable_write, rewrite_replaces_the_data)
{
    EXPECT_EQ(set(u"A", 7, "a long value"), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 7, "short"), EFI_SUCCESS);
    EXPECT_EQ(get(u"A").data, "short");
    EXPECT_EQ(disk.names().size(), 1u);
}

TEST_F(variable_write, data_may_be_any_bytes)
{
    std::string all;
    for (int i = 0; i < 256; ++i)
        all.push_back(static_cast<char>(i));
    EXPECT_EQ(set(u"A", 7, all), EFI_SUCCESS);
    EXPECT_EQ(get(u"A").data, all);
}

TEST_F(variable_write, size_of_zero_or_no_attributes_deletes)
{
    ASSERT_EQ(set(u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 7, ""), EFI_SUCCESS);
    EXPECT_EQ(disk.names().size(), 0u);
    ASSERT_EQ(set(u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 0, "ignored"), EFI_SUCCESS);
    EXPECT_EQ(disk.names().size(), 0u);
    ASSERT_EQ(set(u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 0, ""), EFI_SUCCESS);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_write, deleting_asks_for_no_matching_attributes)
{
    disk.put("A", "data", 3);
    EXPECT_EQ(set(u"A", 7, ""), EFI_SUCCESS);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_write, deleting_nothing_is_not_found)
{
    disk.put("B", "data");
    EXPECT_EQ(set(u"A", 7, ""), EFI_NOT_FOUND);
    EXPECT_EQ(set(u"A", 0, ""), EFI_NOT_FOUND);
    EXPECT_EQ(set(u"B", 7, "", other_guid), EFI_NOT_FOUND);
    EXPECT_EQ(disk.names().size(), 1u);
}

TEST_F(variable_write, deleted_variable_can_be_made_with_other_attributes)
{
    disk.put("A", "data", 3);
    ASSERT_EQ(set(u"A", 3, ""), EFI_SUCCESS);
    EXPECT_EQ(set(u"A", 7, "data"), EFI_SUCCESS);
}

// OVMF answers a running system the same way: EINVAL and EROFS of its efivarfs.
TEST_F(variable_write, new_variable_must_stay_and_be_seen_by_the_system)
{
    for (UINT32 attributes : {2u, 3u, 6u, 0x42u, 0x46u})
        EXPECT_EQ(set(u"Boot0001", attributes, "data"), EFI_INVALID_PARAMETER) << attributes;
    EXPECT_EQ(set(u"A", 6, "data", other_guid), EFI_INVALID_PARAMETER);
    EXPECT_EQ(disk.names().size(), 0u);
    EXPECT_EQ(set(u"Boot0001", 0x47, "data"), EFI_SUCCESS);
}

TEST_F(variable_write, volatile_variable_is_the_firmwares_own)
{
    disk.put("BootCurrent", "12", 6);
    disk.put("SetupMode", "1", 6);
    std::string before = whole_store();
    EXPECT_EQ(set(u"BootCurrent", 6, "34"), EFI_WRITE_PROTECTED);
    EXPECT_EQ(set(u"BootCurrent", 7, "34"), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set(u"BootCurrent", 0x46, "34"), EFI_WRITE_PROTECTED);
    EXPECT_EQ(set(u"BootCurrent", 6, ""), EFI_WRITE_PROTECTED);
    EXPECT_EQ(set(u"SetupMode", 0, ""), EFI_WRITE_PROTECTED);
    EXPECT_EQ(whole_store(), before);
    fs::remove(disk.file("BootCurrent"));
    EXPECT_EQ(set(u"BootCurrent", 6, "34"), EFI_WRITE_PROTECTED);
    EXPECT_EQ(set(u"BootCurrent", 7, ""), EFI_NOT_FOUND);
    EXPECT_EQ(set(u"BootCurrent", 6, "34", other_guid), EFI_INVALID_PARAMETER);
}

TEST_F(variable_write, stored_variable_that_stays_keeps_its_attributes)
{
    disk.put("A", "data", 3);
    EXPECT_EQ(set(u"A", 3, "other"), EFI_SUCCESS);
    EXPECT_EQ(disk.get("A"), std::string("\3\0\0\0other", 9));
}

// The kernel would write a variable of another name.
TEST_F(variable_write, new_name_that_an_efivarfs_cannot_say_is_refused)
{
    for (std::u16string_view name : {u"\u00e9t\u00e9", u"a/b", u"/", u"\u0080", u"\u20ac", u"\U0001f600"}) {
        EXPECT_EQ(set(name, 7, "data"), EFI_UNSUPPORTED);
        EXPECT_EQ(set(name, 0x47, "data"), EFI_UNSUPPORTED);
        EXPECT_EQ(set(name, 7, ""), EFI_NOT_FOUND);
    }
    EXPECT_EQ(disk.names().size(), 0u);
    disk.put("\xc3\xa9t\xc3\xa9", "data");
    disk.put("a!b", "data");
    EXPECT_EQ(set(u"\u00e9t\u00e9", 7, "other"), EFI_SUCCESS);
    EXPECT_EQ(get(u"a/b").data, "data");
    EXPECT_EQ(set(u"a/b", 0x47, "+"), EFI_SUCCESS);
    EXPECT_EQ(get(u"a/b").data, "data+");
    EXPECT_EQ(set(u"a/b", 7, ""), EFI_SUCCESS);
}

TEST_F(variable_write, umask_leaves_no_variable_that_nobody_reads)
{
    mode_t before = umask(0777);
    EXPECT_EQ(set(u"A", 7, "data"), EFI_SUCCESS);
    umask(before);
    EXPECT_EQ(fs::status(disk.file("A")).permissions(), fs::perms{0644});
}

TEST_F(variable_write, limit_on_the_size_of_files_is_a_status_and_no_signal)
{
    disk.put("A", "data");
    std::string before = whole_store();
    EXPECT_EQ(status_in_child([&] {
                  rlimit limit = {100, 100};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  bool refused = set(u"A", 7, std::string(5000, 'x')) == EFI_VOLUME_FULL;
                  sigset_t pending = {};
                  sigpending(&pending);
                  sigset_t blocked = {};
                  sigprocmask(SIG_BLOCK, nullptr, &blocked);
                  return refused && sigismember(&pending, SIGXFSZ) == 0 &&
                         sigismember(&blocked, SIGXFSZ) == 0;
              }),
              0);
    EXPECT_EQ(whole_store(), before);
}

TEST_F(variable_write, other_attributes_than_the_stored_ones_are_refused_on_a_rewrite)
{
    disk.put("A", "data", 7);
    std::string before = whole_store();
    for (UINT32 attributes : {2u, 3u, 6u})
        EXPECT_EQ(set(u"A", attributes, "other"), EFI_INVALID_PARAMETER) << attributes;
    EXPECT_EQ(whole_store(), before);
}

TEST_F(variable_write, access_at_run_time_needs_access_for_boot_services)
{
    for (UINT32 attributes : {1u, 4u, 5u, 0x40u, 0x41u, 0x44u})
        EXPECT_EQ(set(u"A", attributes, "data"), EFI_INVALID_PARAMETER) << attributes;
}

TEST_F(variable_write, unknown_attribute_bits_are_refused)
{
    for (UINT32 bit : {0x08u, 0x80u, 0x100u, 0x80000000u}) {
        EXPECT_EQ(set(u"A", 7 | bit, "data"), EFI_INVALID_PARAMETER) << bit;
        EXPECT_EQ(set(u"A", 7 | bit, ""), EFI_INVALID_PARAMETER) << bit;
    }
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_write, authenticated_writes_are_unsupported)
{
    for (UINT32 bit : {0x10u, 0x20u, 0x30u})
        EXPECT_EQ(set(u"A", 7 | bit, "data"), EFI_UNSUPPORTED) << bit;
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_write, null_data_with_a_size_is_refused)
{
    disk.put("A", "data");
    std::vector<CHAR16> name = ucs2(u"A");
    EFI_GUID guid = global_guid;
    for (UINT32 attributes : {0u, 7u, 0x47u}) {
        UINTN size = 1;
        EFI_STATUS status = not_answered;
        ovra_variable_args_t args = {name.data(), &guid, &attributes, &size, nullptr, &status, 4};
        ASSERT_EQ(devns_ioctl(opened.fd(), OVRA_SET_VARIABLE, &args), 0);
        EXPECT_EQ(status, EFI_INVALID_PARAMETER);
    }
    EXPECT_EQ(get(u"A").data, "data");
}

TEST_F(variable_write, impossible_name_is_an_invalid_parameter)
{
    for (const std::u16string &name : {std::u16string(), std::u16string(1, 0xd800), std::u16string(1, 0xdfff),
                                       std::u16string(219, u'a'), std::u16string(1000, u'a')})
        EXPECT_EQ(set(name, 7, "data"), EFI_INVALID_PARAMETER);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_write, hostile_names_stay_in_the_folder)
{
    for (std::u16string_view name :
         {u"../../../escaped", u"/etc/x", u"..", u".", u"a\nb", u"-", u"%s%n", u"\U0001f600"}) {
        bool can_be_new = name.find(u'/') == name.npos && name.front() < 0x80;
        EXPECT_EQ(set(name, 7, "data"), can_be_new ? EFI_SUCCESS : EFI_UNSUPPORTED);
        EXPECT_EQ(get(name).data, can_be_new ? "data" : "");
    }
    for (const char *name : {"..!..!..!escaped", "!etc!x", "\xf0\x9f\x98\x80"})
        disk.put(name, "old");
    for (std::u16string_view name : {u"../../../escaped", u"/etc/x", u"\U0001f600"}) {
        EXPECT_EQ(set(name, 7, "data"), EFI_SUCCESS);
        EXPECT_EQ(get(name).data, "data");
    }
    EXPECT_EQ(disk.names().size(), 8u);
    std::size_t entries = 0;
    for (const auto &entry : fs::recursive_directory_iterator(disk.root()))
        entries += entry.is_regular_file() ? 1 : 0;
    EXPECT_EQ(entries, 8u + 1u); // and the lock
}

TEST_F(variable_write, damaged_variable_is_repaired_by_a_write_and_removed_by_a_deletion)
{
    disk.put_file(disk.file("A"), "12");
    EXPECT_EQ(set(u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(get(u"A").data, "data");
    disk.put_file(disk.file("A"), "12");
    EXPECT_EQ(set(u"A", 7, ""), EFI_SUCCESS);
    EXPECT_EQ(disk.names().size(), 0u);
}

TEST_F(variable_write, folder_in_a_variables_place_is_a_device_error)
{
    fs::create_directory(disk.file("A"));
    EXPECT_EQ(set(u"A", 7, "data"), EFI_DEVICE_ERROR);
    EXPECT_EQ(set(u"A", 7, ""), EFI_DEVICE_ERROR);
    EXPECT_EQ(disk.names().size(), 1u);
}

TEST_F(variable_write, file_without_data_is_replaced_but_cannot_be_deleted)
{
    disk.put("A", "", 3);
    EXPECT_EQ(set(u"A", 7, ""), EFI_NOT_FOUND);
    EXPECT_EQ(set(u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(get(u"A").data, "data");
}

TEST_F(variable_write, link_in_a_variables_place_is_replaced_and_not_followed)
{
    disk.put_file(disk.root() / "outside", "untouched");
    fs::create_symlink(disk.root() / "outside", disk.file("A"));
    EXPECT_EQ(set(u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(disk.contents(disk.root() / "outside"), "untouched");
    EXPECT_FALSE(fs::is_symlink(disk.file("A")));
}

TEST_F(variable_write, what_a_stopped_writer_left_is_no_variable_and_goes_away)
{
    disk.put_file(disk.store() / ".hwplat-999999-0.tmp", "half a value");
    EXPECT_EQ(platform_test::walk_all(opened.fd()).size(), 0u);
    EXPECT_EQ(set(u"A", 7, "data"), EFI_SUCCESS);
    EXPECT_EQ(disk.names().size(), 1u);
}

TEST_F(variable_write, user_without_permission_is_denied)
{
    disk.put("A", "data");
    fs::permissions(disk.root(), fs::perms{0755});
    fs::permissions(disk.store(), fs::perms{0555});
    EXPECT_EQ(status_in_child([&] {
                  return become_nobody() && set(u"A", 7, "other") == EFI_ACCESS_DENIED &&
                         set(u"A", 7, "") == EFI_ACCESS_DENIED &&
                         set(u"B", 7, "other") == EFI_ACCESS_DENIED && get(u"A").data == "data";
              }),
              0);
    fs::permissions(disk.store(), fs::perms{0755});
    EXPECT_EQ(disk.names().size(), 1u);
}

} // namespace
