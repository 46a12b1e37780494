// SPDX-License-Identifier: MIT
// The variables in U-Boot's file.
#include "tests/platform/images/fixture.h"

using platform_test::added;
using platform_test::entry;
using platform_test::in_uboot_file;
using platform_test::number;
using platform_test::other_guid;
using platform_test::uboot_file;

namespace {

using uboot_image = platform_test::image_file;

TEST_F(uboot_image, checksum_is_the_known_one)
{
    EXPECT_EQ(platform_test::checksum("123456789"), 0xcbf43926u);
}

TEST_F(uboot_image, variables_are_listed_and_read)
{
    put(uboot_file(in_uboot_file({"PlatformLang", "en-US"}) + in_uboot_file({"db", "key", 0x27}) +
                   in_uboot_file({"PlatformLang", "de", 3, added, other_guid})));
    EXPECT_EQ(names(), (std::vector<std::u16string>{u"PlatformLang", u"PlatformLang", u"db"}));
    EXPECT_EQ(get(u"PlatformLang", other_guid).data, "de");
    EXPECT_EQ(get(u"PlatformLang", other_guid).attributes, 3u);
    EXPECT_EQ(get(u"db").attributes, 0x27u);
}

TEST_F(uboot_image, changes_leave_the_other_entries_as_they_are)
{
    const std::string lang = in_uboot_file({"PlatformLang", "en-US"});
    const std::string key = in_uboot_file({"db", "key", 0x27});
    put(uboot_file(lang + in_uboot_file({"BootNext", "\1"}) + key));
    EXPECT_EQ(set(u"Boot0001", 7, "option"), EFI_SUCCESS);
    EXPECT_EQ(set(u"BootNext", 7, ""), EFI_SUCCESS);
    EXPECT_EQ(contents(), uboot_file(lang + key + in_uboot_file({"Boot0001", "option"})));
    EXPECT_EQ(set(u"PlatformLang", 7, "de"), EFI_SUCCESS);
    EXPECT_EQ(set(u"Boot0001", 0x47, "s"), EFI_SUCCESS);
    EXPECT_EQ(contents(), uboot_file(key + in_uboot_file({"PlatformLang", "de"}) +
                                     in_uboot_file({"Boot0001", "options"})));
    EXPECT_EQ(set(u"db", 0, ""), EFI_SECURITY_VIOLATION);
    EXPECT_EQ(left_behind(), 0u);
}

TEST_F(uboot_image, file_without_variables_takes_one)
{
    put(uboot_file(""));
    EXPECT_EQ(names().size(), 0u);
    EXPECT_EQ(set(u"Boot0001", 7, "option"), EFI_SUCCESS);
    EXPECT_EQ(contents(), uboot_file(in_uboot_file({"Boot0001", "option"})));
    EXPECT_EQ(set(u"Boot0001", 7, ""), EFI_SUCCESS);
    EXPECT_EQ(contents(), uboot_file(""));
}

TEST_F(uboot_image, last_entry_may_lack_its_padding)
{
    std::string last = in_uboot_file({"A", "1"});
    while (last.back() == '\0')
        last.pop_back();
    put(uboot_file(last));
    EXPECT_EQ(get(u"A").data, "1");
    EXPECT_EQ(set(u"B", 7, "2"), EFI_SUCCESS);
    EXPECT_EQ(contents(), uboot_file(in_uboot_file({"A", "1"}) + in_uboot_file({"B", "2"})));
}

TEST_F(uboot_image, what_uboot_could_not_read_is_not_written)
{
    put(uboot_file(""));
    EXPECT_EQ(set(u"A", 7, std::string(32769, 'a')), EFI_INVALID_PARAMETER);
    EXPECT_EQ(set(u"A", 7, std::string(32768, 'a')), EFI_SUCCESS);
    EXPECT_EQ(set(u"B", 7, std::string(32000, 'b')), EFI_SUCCESS);
    const std::string before = contents();
    EXPECT_EQ(set(u"C", 7, std::string(700, 'c')), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(set(u"C", 7, std::string(600, 'c')), EFI_SUCCESS);
    EXPECT_LE(contents().size(), 65536u);
}

// A U-Boot that was built for more has written it.
TEST_F(uboot_image, larger_file_stays_as_large)
{
    std::string many;
    for (const char *name : {"A", "B", "C"})
        many += in_uboot_file({name, std::string(30000, 'x')});
    put(uboot_file(many));
    const std::string before = contents();
    EXPECT_EQ(set(u"D", 7, "d"), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(contents(), before);
    EXPECT_EQ(set(u"A", 7, "a"), EFI_SUCCESS);
    EXPECT_EQ(set(u"D", 7, "d"), EFI_SUCCESS);
}

TEST_F(uboot_image, damaged_files_are_refused)
{
    const std::string good = uboot_file(in_uboot_file({"A", "data"}));
    const auto expect = [&](std::string file, int error, const char *what) {
        put(file);
        EXPECT_EQ(open_error(), error) << what;
        EXPECT_EQ(contents(), file) << what;
    };
    expect(good, 0, "sound");
    expect(good + "tail", 0, "a tail");
    std::string bad = good;
    bad[60] ^= 1;
    expect(bad, EBADMSG, "checksum");
    bad = good;
    bad[0] = 1;
    expect(bad, EBADMSG, "reserved field");
    expect(good.substr(0, good.size() - 1), ERANGE, "cut off");
    bad = good;
    bad.replace(16, 4, number(23, 4));
    expect(bad, EBADMSG, "shorter than its header");
    std::string no_end = in_uboot_file({"A", ""}).substr(0, 34);
    expect(uboot_file(no_end), EBADMSG, "name without an end");
    std::string large = in_uboot_file({"A", "data"});
    large.replace(0, 4, number(0xffffffff, 4));
    expect(uboot_file(large), EBADMSG, "data beyond the end");
    expect(uboot_file("\1\2\3"), EBADMSG, "half a header");
}

} // namespace
