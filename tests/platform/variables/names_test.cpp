// SPDX-License-Identifier: MIT
#include "platform/machine/names.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "tests/platform/machine_folder.h"

using machine::file_name_of;
using machine::identity_of;
using machine::name_view;
using platform_test::global_guid;
using platform_test::global_suffix;

namespace {

std::optional<std::string> file_of(std::u16string_view name)
{
    std::vector<CHAR16> units(name.begin(), name.end());
    auto file = file_name_of(units, global_guid);
    if (!file)
        return std::nullopt;
    EXPECT_TRUE(file->ends_with(global_suffix)) << *file;
    return file->substr(0, file->size() - global_suffix.size());
}

std::optional<std::u16string> name_in(const std::string &file_name)
{
    auto identity = identity_of(file_name);
    return identity ? std::optional(std::u16string(identity->name.begin(), identity->name.end()))
                    : std::nullopt;
}

std::optional<std::u16string> name_before_guid(const std::string &name)
{
    return name_in(name + std::string(global_suffix));
}

TEST(variable_names, plain_name_is_kept)
{
    EXPECT_EQ(file_of(u"BootOrder"), "BootOrder");
    EXPECT_EQ(name_before_guid("BootOrder"), u"BootOrder");
}

TEST(variable_names, guid_is_written_in_lower_case_and_text_order)
{
    const CHAR16 name[] = {'A'};
    EXPECT_EQ(file_name_of(name, platform_test::other_guid), "A-00112233-4455-6677-8899-aabbccddeeff");
}

TEST(variable_names, guid_is_read_back)
{
    auto identity = identity_of("A-00112233-4455-6677-8899-aabbccddeeff");
    ASSERT_TRUE(identity);
    EXPECT_EQ(std::memcmp(&identity->guid, &platform_test::other_guid, sizeof(EFI_GUID)), 0);
}

TEST(variable_names, guid_in_upper_case_is_no_variable)
{
    EXPECT_FALSE(identity_of("A-00112233-4455-6677-8899-AABBCCDDEEFF"));
}

TEST(variable_names, name_may_hold_dashes_and_another_guid)
{
    std::u16string name = u"a-8be4df61-93ca-11d2-aa0d-00e098032b8c";
    EXPECT_EQ(file_of(name), "a-8be4df61-93ca-11d2-aa0d-00e098032b8c");
    EXPECT_EQ(name_before_guid("a-8be4df61-93ca-11d2-aa0d-00e098032b8c"), name);
    EXPECT_EQ(name_before_guid("-"), u"-");
}

TEST(variable_names, slash_is_an_exclamation_mark_in_the_file_name)
{
    EXPECT_EQ(file_of(u"a/b"), "a!b");
    EXPECT_EQ(name_before_guid("a!b"), u"a/b");
    EXPECT_EQ(file_of(u"a!b"), "a!b");
    EXPECT_EQ(file_of(u"\u00e4/b"), "\u00e4!b"); // also behind what is not ASCII
}

TEST(variable_names, no_name_leads_out_of_the_folder)
{
    for (std::u16string_view name : {u"../x", u"/etc/passwd", u"..", u".", u"/", u"../../../../etc/shadow"}) {
        auto file = file_of(name);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->find('/'), std::string::npos);
    }
}

TEST(variable_names, every_length_of_utf8_goes_both_ways)
{
    EXPECT_EQ(file_of(u"\u007f\u0080\u07ff\u0800\uffff"), "\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf");
    EXPECT_EQ(name_before_guid("\x7f\xc2\x80\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf"),
              u"\u007f\u0080\u07ff\u0800\uffff");
}

TEST(variable_names, pair_of_surrogates_is_one_character)
{
    EXPECT_EQ(file_of(u"\U00010000\U0010ffff"), "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf");
    EXPECT_EQ(name_before_guid("\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"), u"\U00010000\U0010ffff");
}

TEST(variable_names, unpaired_surrogate_is_refused)
{
    for (std::u16string name : {std::u16string(1, 0xd800), std::u16string(1, 0xdc00),
                                std::u16string{0xd800, u'a'}, std::u16string{0xdc00, 0xd800},
                                std::u16string{u'a', 0xdbff}, std::u16string{0xd800, 0xd800, 0xdc00}})
        EXPECT_FALSE(file_of(name));
}

TEST(variable_names, empty_name_is_refused)
{
    EXPECT_FALSE(file_of(u""));
    EXPECT_FALSE(identity_of(global_suffix));
}

TEST(variable_names, file_name_may_have_255_bytes_and_no_more)
{
    constexpr std::size_t longest = 255 - 37;
    EXPECT_TRUE(file_of(std::u16string(longest, u'a')));
    EXPECT_FALSE(file_of(std::u16string(longest + 1, u'a')));
    EXPECT_TRUE(file_of(std::u16string(longest / 3, u'\u20ac')));
    EXPECT_FALSE(file_of(std::u16string(longest / 3 + 1, u'\u20ac')));
    EXPECT_TRUE(name_before_guid(std::string(longest, 'a')));
    EXPECT_FALSE(name_before_guid(std::string(longest + 1, 'a')));
}

TEST(variable_names, what_is_no_shortest_utf8_is_no_variable)
{
    for (const char *bad :
         {"\x80", "\xc0\xaf", "\xc1\xbf", "\xe0\x80\xaf", "\xf0\x80\x80\xaf", "\xed\xa0\x80", "\xed\xbf\xbf",
          "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "\xff", "a\xc3", "a\xe2\x82", "\xc3(", "\xe2\x28\xa1"})
        EXPECT_FALSE(name_before_guid(bad)) << testing::PrintToString(std::string(bad));
}

TEST(variable_names, file_without_a_whole_guid_is_no_variable)
{
    for (const char *bad :
         {"", "a", "-", "BootOrder", "BootOrder-8be4df61-93ca-11d2-aa0d-00e098032b8",
          "BootOrder8be4df61-93ca-11d2-aa0d-00e098032b8c", "BootOrder-8be4df61-93ca-11d2-aa0d00e098032b8c0",
          "BootOrder-8be4df6193-ca-11d2-aa0d-00e098032b8c", "BootOrder-8be4df61-93ca-11d2-aa0d-00e098032b8g",
          "BootOrder-8be4df61-93ca-11d2-aa0d-00e098032b8c~", "8be4df61-93ca-11d2-aa0d-00e098032b8c"})
        EXPECT_FALSE(identity_of(bad)) << bad;
}

TEST(variable_names, terminator_is_looked_for_within_the_size_only)
{
    const CHAR16 name[] = {'a', 'b', 0, 'c', 0};
    EXPECT_EQ(machine::terminated_name(name, 10)->size(), 2u);
    EXPECT_EQ(machine::terminated_name(name, 6)->size(), 2u);
    EXPECT_FALSE(machine::terminated_name(name, 5));
    EXPECT_FALSE(machine::terminated_name(name, 4));
    EXPECT_FALSE(machine::terminated_name(name, 0));
}

TEST(variable_names, no_size_makes_a_name_be_read_beyond_the_longest_possible)
{
    std::vector<CHAR16> endless(256, u'a');
    EXPECT_FALSE(machine::terminated_name(endless.data(), ~UINTN{0}));
}

} // namespace
