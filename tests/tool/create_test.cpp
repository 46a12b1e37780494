// SPDX-License-Identifier: MIT
#include <fstream>
#include <sys/stat.h>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace fs = std::filesystem;

class create_verb : public Machine {
protected:
    static words linux_option(const words &more = {})
    {
        return words{"create", "--desc", "Linux", "--path-hex", sample_path_hex} + more;
    }
};

const std::string sample_path = from_hex(sample_path_hex);

TEST_F(create_verb, writes_the_lowest_unused_option_and_appends_it_to_the_order)
{
    EXPECT_EQ(
        output(linux_option()),
        "Boot0008 is made: \"Linux\", 0x00000001 (active)\n"
        "wrote BootOrder: Boot0000 Boot0001 Boot0002 Boot0003 Boot0004 Boot0005 Boot0006\n      Boot0007 "
        "Boot0008\n");
    EXPECT_EQ(get("Boot0008"), load_option(1, "Linux", sample_path));
    EXPECT_THAT(order(), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8));
}

TEST_F(create_verb, fills_a_gap)
{
    std::filesystem::remove(file("Boot0002"));
    put_order({0, 1, 3, 4});
    output(linux_option());
    EXPECT_EQ(get("Boot0002"), load_option(1, "Linux", sample_path));
    EXPECT_THAT(order(), ElementsAre(0, 1, 3, 4, 2));
}

// They would boot the new option, or say that it was booted.
TEST_F(create_verb, takes_no_number_that_a_variable_still_names)
{
    for (const char *gone : {"Boot0001", "Boot0002", "Boot0003"})
        std::filesystem::remove(file(gone));
    put_order({0, 1});
    put("BootNext", std::string("\x02\0", 2));
    put("BootCurrent", std::string("\x03\0", 2), 6);
    const std::pair<const char *, const char *> cases[] = {
        {"1", "BootOrder"}, {"2", "BootNext"}, {"3", "BootCurrent"}};
    for (const auto &[number, by] : cases)
        EXPECT_THAT(failure(linux_option({"--number", number})),
                    StartsWith(std::string("ovra: Boot000") + number + " does not exist, but " + by +
                               " still names it\n"));
    EXPECT_THAT(output(linux_option()), StartsWith("Boot0008 is made: "));
    EXPECT_THAT(output(linux_option({"--number", "2", "--force"})),
                HasSubstr("BootNext names Boot0002: the machine boots it at the next start.\n"));
    EXPECT_EQ(parsed(linux_option({"--number", "3", "--force"}))["current"], "Boot0003");
    EXPECT_EQ(parsed(linux_option({"--number", "1", "--force"}))["ordered"], "Boot0001");
    EXPECT_THAT(order(), ElementsAre(0, 1, 8, 2, 3));
}

TEST_F(create_verb, after_a_removal_does_not_inherit_its_next_start)
{
    output({"next", "Boot0007"});
    output({"remove", "Boot0007"});
    output(linux_option());
    EXPECT_EQ(parsed({"next"})["next"], nullptr);
}

TEST_F(create_verb, makes_an_order_where_there_is_none)
{
    std::filesystem::remove(file("BootOrder"));
    EXPECT_EQ(run(linux_option({"--position", "5"})).err,
              "ovra: warning: BootOrder has no position 5: Boot0008 becomes the last\n");
    EXPECT_THAT(order(), ElementsAre(8));
}

TEST_F(create_verb, takes_a_number_and_a_position)
{
    output(linux_option({"--number", "00fF", "--position", "0"}));
    EXPECT_EQ(get("Boot00FF"), load_option(1, "Linux", sample_path));
    EXPECT_THAT(order(), ElementsAre(0xff, 0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(create_verb, counts_negative_positions_from_the_end)
{
    put_order({1, 2});
    output(linux_option({"--position", "-2"}));
    EXPECT_THAT(order(), ElementsAre(1, 8, 2));
    EXPECT_EQ(run(linux_option({"--position=-100"})).err,
              "ovra: warning: BootOrder has no position -100: Boot0009 becomes the first\n");
    EXPECT_THAT(order(), ElementsAre(9, 1, 8, 2));
}

TEST_F(create_verb, stores_text_as_terminated_ucs2)
{
    output(linux_option({"--optdata-text", "root=/dev/sda1 \u00e9\u7acb"}));
    const std::string text = ucs2("root=/dev/sda1 ") + std::string("\xe9\0\xcb\x7a\0\0", 6);
    EXPECT_EQ(get("Boot0008"), load_option(1, "Linux", sample_path, text));
}

TEST_F(create_verb, stores_empty_text_as_a_terminator)
{
    output(linux_option({"--optdata-text", ""}));
    EXPECT_EQ(get("Boot0008"), load_option(1, "Linux", sample_path, std::string(2, '\0')));
}

TEST_F(create_verb, stores_a_file_byte_for_byte)
{
    const std::string data("\0\xff\n\x80 text", 9);
    std::ofstream(folder / "data", std::ios::binary) << data;
    output(linux_option({"--optdata-file", folder / "data"}));
    EXPECT_EQ(get("Boot0008"), load_option(1, "Linux", sample_path, data));
}

TEST_F(create_verb, stores_a_description_of_utf8)
{
    output({"create", "--desc", "D\u00e9bian \u7acb", "--path-hex", sample_path_hex});
    EXPECT_EQ(get("Boot0008").substr(6, 18),
              ucs2("D") + std::string("\xe9\0", 2) + ucs2("bian ") + std::string("\xcb\x7a\0\0", 4));
    EXPECT_EQ(parsed({"show", "Boot0008"})["description"], "D\u00e9bian \u7acb");
}

TEST_F(create_verb, takes_descriptions_as_they_are)
{
    for (const char *description : {"", "{}", "[a,b]", "%%", "a 'b' \"c\"", "\\EFI\\x", "list"}) {
        output({"create", "--desc", description, "--path-hex", sample_path_hex, "--number", "9", "--force"});
        EXPECT_EQ(parsed({"show", "Boot0009"})["description"], description);
    }
    output({"create", "--desc=--active", "--path-hex", sample_path_hex, "--number", "9", "--force"});
    EXPECT_EQ(parsed({"show", "Boot0009"})["description"], "--active");
}

TEST_F(create_verb, takes_digits_in_groups)
{
    output({"create", "--desc", "x", "--path-hex", " 7F:ff 04\n00 "});
    EXPECT_EQ(get("Boot0008"), load_option(1, "x", from_hex("7fff0400")));
}

TEST_F(create_verb, never_overwrites_an_option_unless_forced)
{
    EXPECT_EQ(failure(linux_option({"--number", "0003"})),
              "ovra: Boot0003 exists\n"
              "  Without --number the lowest free number is taken; --force overwrites it.\n");
    output(linux_option({"--number", "0003", "--force"}));
    EXPECT_EQ(get("Boot0003"), load_option(1, "Linux", sample_path));
    EXPECT_THAT(order(), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7)) << "it keeps its place";
    output(linux_option({"--number", "0003", "--force", "--position", "-1"}));
    EXPECT_THAT(order(), ElementsAre(0, 1, 2, 4, 5, 6, 7, 3));
}

TEST_F(create_verb, never_overwrites_a_damaged_option_unless_forced)
{
    put("Boot0009", "1");
    EXPECT_THAT(failure(linux_option({"--number", "9"})), HasSubstr("Boot0009 exists"));
}

TEST_F(create_verb, refuses_a_path_that_is_not_well_formed_unless_forced)
{
    const struct {
        const char *digits;
        const char *why;
    } cases[] = {
        {"", "it does not end in an END node (7fff0400)"},
        {"04012a00", "the node at byte 0 gives its length as 42, 4 bytes are left"},
        {"7fff0300", "the node at byte 0 gives its length as 3, 4 bytes are left"},
        {"7fff040004", "at byte 4 less than a node header is left"},
        {"0101060000027fff0400010106000002", "it does not end in an END node (7fff0400)"},
        {"7f010400", "it does not end in an END node (7fff0400)"},
    };
    for (const auto &[digits, why] : cases) {
        EXPECT_EQ(failure({"create", "--desc", "x", "--path-hex", digits}),
                  std::string("ovra: --path-hex is not a packed device path: ") + why +
                      "\n  --force stores it all the same.\n");
    }
    output({"create", "--desc", "x", "--path-hex", "04012a00", "--force"});
    EXPECT_EQ(get("Boot0008"), load_option(1, "x", from_hex("04012a00")));
}

TEST_F(create_verb, takes_a_list_of_two_paths)
{
    output({"create", "--desc", "x", "--path-hex", "0101060000027fff04007fff0400"});
    EXPECT_EQ(get("Boot0008"), load_option(1, "x", from_hex("0101060000027fff04007fff0400")));
}

TEST_F(create_verb, refuses_a_path_behind_which_optional_data_would_be_lost)
{
    std::string digits;
    for (int node = 0; node < 2184; ++node)
        digits += "01041e00" + std::string(52, '0');
    EXPECT_THAT(
        failure({"create", "--desc", "many", "--path-hex", digits + "01040a00000000000000" + "7fff0400"}),
        HasSubstr("Where optional data begins must fit in 16 bits."));
}

TEST_F(create_verb, refuses_a_file_that_cannot_be_read)
{
    EXPECT_EQ(failure(linux_option({"--optdata-file", "/nowhere/x"})),
              "ovra: cannot read /nowhere/x: No such file or directory\n");
    EXPECT_EQ(failure(linux_option({"--optdata-file", "/"})), "ovra: cannot read /: Is a directory\n");
    std::ofstream(folder / "data", std::ios::binary) << std::string((1 << 20) + 1, 'x');
    EXPECT_EQ(failure(linux_option({"--optdata-file", folder / "data"})),
              "ovra: cannot read " + (folder / "data").string() +
                  ": it is larger than any firmware variable\n");
}

// A FIFO that nobody writes to would be waited for without end, and a device may have no end.
TEST_F(create_verb, takes_optional_data_from_regular_files_only)
{
    const std::string fifo = folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string &file : {fifo, std::string("/dev/zero"), std::string("/dev/null")}) {
        const std::string said = "ovra: cannot read " + file + ": it is not a regular file\n";
        EXPECT_EQ(failure(linux_option({"--optdata-file", file})), said);
        EXPECT_EQ(failure({"set", "Boot0000", "--optdata-file", file}), said);
    }
    fs::create_symlink("data", folder / "link");
    std::ofstream(folder / "data") << "abc";
    output(linux_option({"--optdata-file", folder / "link"}));
}

TEST_F(create_verb, says_that_an_option_is_too_large)
{
    std::ofstream(folder / "data", std::ios::binary) << std::string(40000, 'x');
    for (const words &more : {words{}, words{"--dry-run"}}) {
        const std::string said = failure(linux_option({"--optdata-file", folder / "data"}) + more);
        EXPECT_THAT(said,
                    StartsWith("ovra: cannot write Boot0008: 40078 bytes are too many for one variable\n"));
        EXPECT_THAT(said, Not(HasSubstr("Remove options")));
    }
}

TEST_F(create_verb, makes_no_option_when_the_order_cannot_be_written)
{
    put("BootOrder", std::string("\x01\0", 2), 0x27); // of somebody who signs it
    for (const words &more : {words{}, words{"--dry-run"}, words{"--number", "3", "--force"}})
        EXPECT_THAT(failure(linux_option(more)),
                    StartsWith("ovra: cannot write BootOrder: it is stored as non-volatile, boot-service, "
                               "run-time, time-authenticated\n"
                               "  Only the holder of its key can change an authenticated variable.\n"));
}

TEST_F(create_verb, keeps_the_attributes_of_the_order)
{
    put("BootOrder", std::string("\x01\0", 2), 3);
    output(linux_option());
    EXPECT_THAT(order(), ElementsAre(1, 8));
    EXPECT_EQ(parsed({"vars", "BootOrder"})["variables"][0]["attributes"],
              json({"non-volatile", "boot-service"}));
}

TEST_F(create_verb, refuses_an_order_that_it_cannot_read)
{
    std::ofstream(file("BootOrder"), std::ios::trunc) << "12";
    EXPECT_THAT(failure(linux_option()),
                HasSubstr("ovra: BootOrder is damaged\n  'ovra order set' writes a new one.\n"));
}

TEST_F(create_verb, dry_run_changes_nothing_and_says_what_it_would_write)
{
    const auto before = snapshot();
    const words arguments = {"create",         "--desc", "x",          "--path-hex", "7fff0400",
                             "--optdata-text", "q",      "--position", "1",          "--dry-run"};
    put_order({6, 7});
    const auto changed = snapshot();
    EXPECT_NE(before, changed);
    EXPECT_EQ(output(arguments), "Boot0008 would be made: \"x\", 0x00000001 (active), optional data \"q\"\n"
                                 "    010000000400780000007fff040071000000\n"
                                 "would write BootOrder: Boot0006 Boot0008 Boot0007\n"
                                 "    060008000700\n");
    const json document = parsed(arguments);
    EXPECT_EQ(document["dry_run"], true);
    ASSERT_EQ(document["changes"].size(), 2u);
    EXPECT_EQ(document["changes"][0], json({{"action", "write"},
                                            {"variable", "Boot0008"},
                                            {"data", "010000000400780000007fff040071000000"},
                                            {"description", "x"},
                                            {"active", true},
                                            {"attributes", 1},
                                            {"path", "7fff0400"},
                                            {"optional_data", "71000000"},
                                            {"optional_data_text", "q"}}));
    EXPECT_EQ(document["changes"][1], json({{"action", "write"},
                                            {"variable", "BootOrder"},
                                            {"data", "060008000700"},
                                            {"order", {"Boot0006", "Boot0008", "Boot0007"}}}));
    EXPECT_EQ(snapshot(), changed);
}

TEST_F(create_verb, dry_run_tells_the_bytes_that_are_then_written)
{
    const json planned = parsed(linux_option({"--optdata-text", "\u00e9", "--position", "2", "--dry-run"}));
    const json done = parsed(linux_option({"--optdata-text", "\u00e9", "--position", "2"}));
    EXPECT_EQ(done["dry_run"], false);
    EXPECT_EQ(planned["changes"], done["changes"]);
    EXPECT_EQ(from_hex(planned["changes"][0]["data"].get<std::string>()), get("Boot0008"));
    EXPECT_EQ(from_hex(planned["changes"][1]["data"].get<std::string>()), get("BootOrder"));
}

TEST_F(create_verb, then_remove_leaves_the_machine_as_it_was)
{
    const auto before = snapshot();
    output(linux_option({"--optdata-text", "quiet"}));
    EXPECT_THAT(output({"list"}), HasSubstr("8         Boot0008  *       Linux\n"));
    EXPECT_THAT(output({"show", "Boot0008"}), HasSubstr("Optional data  \"quiet\"\n"));
    output({"set", "Boot0008", "--desc", "Debian", "--inactive"});
    EXPECT_THAT(output({"list"}), HasSubstr("8         Boot0008          Debian\n"));
    EXPECT_NE(snapshot(), before);
    output({"remove", "Boot0008"});
    EXPECT_EQ(snapshot(), before);
}

} // namespace tool_test
