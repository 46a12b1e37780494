// SPDX-License-Identifier: MIT
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

class next_verb : public Machine {};

TEST_F(next_verb, says_when_it_is_not_set)
{
    EXPECT_EQ(output({"next"}), "BootNext is not set: the machine boots by BootOrder\n");
    EXPECT_EQ(parsed({"next"}), json({{"next", nullptr}}));
}

TEST_F(next_verb, is_set_and_shown)
{
    EXPECT_EQ(output({"next", "Boot0007"}), "wrote BootNext: Boot0007\n");
    EXPECT_EQ(get("BootNext"), std::string("\x07\0", 2));
    EXPECT_EQ(output({"next"}), "Boot0007  EFI Internal Shell\n");
    EXPECT_EQ(parsed({"next"}), json({{"next", "Boot0007"}}));
}

TEST_F(next_verb, is_cleared)
{
    const auto before = snapshot();
    output({"next", "Boot0007"});
    EXPECT_EQ(output({"next", "--clear"}), "deleted BootNext\n");
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(output({"next", "--clear"}), "nothing to change\n");
}

TEST_F(next_verb, refuses_an_option_that_does_not_exist_unless_forced)
{
    EXPECT_THAT(failure({"next", "Boot001F"}), HasSubstr("ovra: no such option: Boot001F\n"));
    output({"next", "Boot001F", "--force"});
    EXPECT_EQ(output({"next"}), "Boot001F  (no such option)\n");
}

TEST_F(next_verb, refuses_a_damaged_option_unless_forced)
{
    put("Boot001F", "1");
    EXPECT_THAT(failure({"next", "Boot001F"}), HasSubstr("ovra: cannot read Boot001F: damaged\n"));
    EXPECT_THAT(failure({"order", "insert", "Boot001F", "0"}), HasSubstr("--force names it all the same."));
    EXPECT_THAT(failure({"order", "set", "Boot001F"}), HasSubstr("cannot read Boot001F: damaged\n"));
    std::filesystem::remove(file("Boot001F"));
    std::filesystem::create_directory(file("Boot001F"));
    for (const char *verb : {"next", "show"})
        EXPECT_THAT(failure({verb, "Boot001F"}), HasSubstr("  A folder is in its place: remove "));
    EXPECT_EQ(output({"next"}), "BootNext is not set: the machine boots by BootOrder\n");
    output({"next", "Boot001F", "--force"});
    EXPECT_EQ(get("BootNext"), std::string("\x1f\0", 2));
}

TEST_F(next_verb, dry_run_changes_nothing)
{
    auto before = snapshot();
    EXPECT_EQ(output({"next", "Boot0007", "--dry-run"}), "would write BootNext: Boot0007\n    0700\n");
    EXPECT_EQ(
        parsed({"next", "Boot0007", "--dry-run"})["changes"][0],
        json({{"action", "write"}, {"variable", "BootNext"}, {"data", "0700"}, {"option", "Boot0007"}}));
    EXPECT_EQ(snapshot(), before);
    put("BootNext", std::string("\x01\0", 2));
    before = snapshot();
    EXPECT_EQ(output({"next", "--clear", "--dry-run"}), "would delete BootNext\n");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(next_verb, says_that_the_variable_is_damaged)
{
    put("BootNext", "123");
    EXPECT_EQ(failure({"next"}), "ovra: BootNext is damaged: it has 3 bytes instead of 2\n");
    put("BootNext", "1");
    EXPECT_EQ(failure({"next"}), "ovra: BootNext is damaged: it has 1 bytes instead of 2\n");
    output({"next", "--clear"});
    EXPECT_EQ(get("BootNext"), "(none)");
}

class current_verb : public Machine {};

TEST_F(current_verb, says_when_it_is_not_set)
{
    EXPECT_EQ(output({"current"}), "BootCurrent is not set: the firmware does not say what it booted\n");
    EXPECT_EQ(parsed({"current"}), json({{"current", nullptr}}));
}

TEST_F(current_verb, is_shown)
{
    put("BootCurrent", std::string("\x05\0", 2), 6);
    EXPECT_EQ(output({"current"}), "Boot0005  UEFI QEMU HARDDISK QM00001 \n");
    EXPECT_EQ(parsed({"current"}), json({{"current", "Boot0005"}}));
}

TEST_F(current_verb, is_shown_when_its_option_is_damaged)
{
    put("BootCurrent", std::string("\x05\0", 2), 6);
    put("Boot0005", "1");
    EXPECT_EQ(output({"current"}), "Boot0005  (damaged)\n");
}

} // namespace tool_test
