// SPDX-License-Identifier: MIT
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class remove_verb : public Machine {};

TEST_F(remove_verb, deletes_the_option_and_its_place_in_the_order)
{
    EXPECT_EQ(output({"remove", "Boot0003"}),
              "deleted Boot0003\n"
              "wrote BootOrder: Boot0000 Boot0001 Boot0002 Boot0004 Boot0005 Boot0006 Boot0007\n");
    EXPECT_EQ(get("Boot0003"), "(none)");
    EXPECT_THAT(order(), ElementsAre(0, 1, 2, 4, 5, 6, 7));
}

TEST_F(remove_verb, takes_several_options)
{
    put_order({7, 6, 7, 0});
    output({"remove", "Boot0007", "boot6", "Boot0007"});
    EXPECT_EQ(get("Boot0006"), "(none)");
    EXPECT_EQ(get("Boot0007"), "(none)");
    EXPECT_THAT(order(), ElementsAre(0));
}

TEST_F(remove_verb, of_the_last_ordered_option_deletes_the_order)
{
    put_order({3});
    EXPECT_EQ(output({"remove", "Boot0003"}), "deleted Boot0003\ndeleted BootOrder\n");
    EXPECT_EQ(get("BootOrder"), "(none)");
}

TEST_F(remove_verb, leaves_an_order_alone_that_does_not_name_the_option)
{
    put_order({1});
    EXPECT_EQ(output({"remove", "Boot0003"}), "deleted Boot0003\n");
    EXPECT_THAT(order(), ElementsAre(1));
}

TEST_F(remove_verb, works_on_a_damaged_option)
{
    put("Boot0003", "1");
    output({"remove", "Boot0003"});
    EXPECT_EQ(get("Boot0003"), "(none)");
}

TEST_F(remove_verb, works_without_an_order)
{
    std::filesystem::remove(file("BootOrder"));
    output({"remove", "Boot0003"});
    EXPECT_EQ(get("BootOrder"), "(none)");
}

TEST_F(remove_verb, removes_nothing_when_one_of_the_options_does_not_exist)
{
    EXPECT_EQ(failure({"remove", "Boot0003", "Boot001F"}),
              "ovra: no such option: Boot001F\n"
              "  Nothing is removed. 'ovra list' shows the options.\n");
}

TEST_F(remove_verb, deletes_a_boot_next_that_names_the_option)
{
    put("BootNext", std::string("\x03\0", 2));
    EXPECT_THAT(output({"remove", "Boot0003", "--dry-run"}), HasSubstr("would delete BootNext\n"));
    EXPECT_NE(get("BootNext"), "(none)");
    EXPECT_THAT(output({"remove", "Boot0003"}),
                HasSubstr("deleted BootNext\nBootNext named Boot0003: the machine boots by BootOrder.\n"));
    EXPECT_EQ(get("BootNext"), "(none)");
    put("BootNext", std::string("\x05\0", 2));
    const json document = parsed({"remove", "Boot0004", "Boot0005"});
    EXPECT_EQ(document["next"], "Boot0005");
    EXPECT_EQ(document["changes"].back(), json({{"action", "delete"}, {"variable", "BootNext"}}));
    EXPECT_EQ(get("BootNext"), "(none)");
}

TEST_F(remove_verb, leaves_a_boot_next_alone_that_names_another_option)
{
    put("BootNext", std::string("\x01\0", 2));
    EXPECT_THAT(output({"remove", "Boot0003"}), Not(HasSubstr("BootNext")));
    EXPECT_EQ(get("BootNext"), std::string("\x01\0", 2));
}

TEST_F(remove_verb, keeps_the_attributes_of_the_order)
{
    put("BootOrder", std::string("\x03\0\x01\0", 4), 3);
    output({"remove", "Boot0003"});
    EXPECT_EQ(get("Boot0003"), "(none)");
    EXPECT_THAT(order(), ElementsAre(1));
    EXPECT_EQ(parsed({"vars", "BootOrder"})["variables"][0]["attributes"],
              json({"non-volatile", "boot-service"}));
}

TEST_F(remove_verb, removes_nothing_when_the_order_cannot_be_written)
{
    put("BootOrder", std::string("\x03\0\x01\0", 4), 0x27); // of somebody who signs it
    for (const words &arguments : {words{"remove", "Boot0003"}, words{"remove", "Boot0003", "--dry-run"}})
        EXPECT_THAT(failure(arguments),
                    StartsWith("ovra: cannot write BootOrder: it is stored as non-volatile, boot-service, "
                               "run-time, time-authenticated\n"
                               "  Only the holder of its key can change an authenticated variable.\n"
                               "  Nothing is removed.\n"));
}

TEST_F(remove_verb, removes_nothing_when_one_of_the_options_cannot_be_removed)
{
    std::filesystem::remove(file("Boot0002"));
    std::filesystem::create_directory(file("Boot0002"));
    for (const words &more : {words{}, words{"--dry-run"}}) {
        const std::string said = failure(words{"remove", "Boot0001", "Boot0002", "Boot0003"} + more);
        EXPECT_THAT(said, StartsWith("ovra: cannot delete Boot0002: a folder is in its place\n"));
        EXPECT_THAT(said, HasSubstr("\n  Nothing is removed.\n"));
    }
}

TEST_F(remove_verb, duplicates_are_options_like_one_before_them)
{
    const std::string path = from_hex(sample_path_hex);
    put("Boot0010", load_option(1, "a", path, "x"));
    put("Boot0011", load_option(1, "b", path, "x"));
    put("Boot0012", load_option(1, "other data", path, "y"));
    put("Boot0013", load_option(0, "inactive", path, "x"));
    put("Boot0014", load_option(1, "c", path, "x"));
    put("Boot0015", load_option(1, "next", path, "x"));
    put("BootNext", std::string("\x15\0", 2));
    put_order({0x14, 0x10});
    EXPECT_EQ(output({"remove", "--duplicates", "--dry-run"}),
              "would delete Boot0010\nwould delete Boot0011\nwould write BootOrder: Boot0014\n    1400\n");
    EXPECT_EQ(output({"remove", "--duplicates", "Boot0012"}),
              "deleted Boot0012\ndeleted Boot0010\ndeleted Boot0011\nwrote BootOrder: Boot0014\n");
}

TEST_F(remove_verb, dry_run_changes_nothing)
{
    const auto before = snapshot();
    EXPECT_EQ(output({"remove", "Boot0003", "Boot0002", "--dry-run"}),
              "would delete Boot0003\n"
              "would delete Boot0002\n"
              "would write BootOrder: Boot0000 Boot0001 Boot0004 Boot0005 Boot0006 Boot0007\n"
              "    000001000400050006000700\n");
    EXPECT_EQ(parsed({"remove", "Boot0003", "--dry-run"})["changes"][0],
              json({{"action", "delete"}, {"variable", "Boot0003"}}));
    EXPECT_EQ(snapshot(), before);
}

} // namespace tool_test
