// SPDX-License-Identifier: MIT
// Descriptions that the library refuses: read whole, shown, and typed again.
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

struct shown_case {
    const char *name;
    std::string units;
    std::string shown; // as it may be typed
};

namespace {

const std::string beer = "\x3c\xd8\x7a\xdf"; // U+1F37A as two surrogates
const std::string half("\x00\xd8", 2);
const std::string escape_character("\x1b\0", 2);

std::string option_with(const std::string &units, uint32_t attributes = 1)
{
    std::string option = load_option(attributes, "", from_hex(sample_path_hex), "data");
    return option.insert(6, units);
}

const shown_case shown_cases[] = {
    {"letters_beyond_16_bits_stand_as_they_are", ucs2("Beer ") + beer, "Beer \U0001f37a"},
    {"length_does_not_matter", ucs2(std::string(300, 'x')), std::string(300, 'x')},
    {"control_characters_are_escaped", ucs2("a") + escape_character + ucs2("[m"), "a\\u001b[m"},
    {"invisible_characters_beyond_16_bits_have_eight_digits", ucs2("a") + "\x40\xdb" + "\x01\xdc" + ucs2("b"),
     "a\\U000e0001b"},
    {"halves_of_characters_are_escaped", ucs2("a") + half + ucs2("z"), "a\\ud800z"},
    {"backslashes_stand_as_they_are", ucs2("\\EFI\\ubuntu \\\\server"), "\\EFI\\ubuntu \\\\server"},
    {"backslashes_beside_escapes_are_doubled", ucs2("\\a\\") + escape_character, "\\\\a\\\\\\u001b"},
    {"what_looks_escaped_is_doubled", ucs2("\\u0041 \\x"), "\\\\u0041 \\\\x"},
    {"what_looks_escaped_and_doubled_is_doubled", ucs2("\\\\U0001f37a"), "\\\\\\\\U0001f37a"},
};

} // namespace

class descriptions : public Machine, public ::testing::WithParamInterface<shown_case> {};

TEST_P(descriptions, are_shown_and_read_back)
{
    const auto &[name, units, shown] = GetParam();
    put("Boot0010", option_with(units));
    put_order({0x10});
    EXPECT_THAT(output({"list"}), HasSubstr("Boot0010  *       " + shown));
    EXPECT_THAT(output({"show", "Boot0010"}), HasSubstr("Description    " + shown));
    output({"next", shown});
    EXPECT_EQ(get("BootNext"), std::string("\x10\0", 2));
    if (units.find(half) != std::string::npos)
        return;
    run({"set", "Boot0003", "--desc", shown, "--optdata-ascii", "data"});
    EXPECT_THAT(get("Boot0003"), HasSubstr(units + std::string(2, '\0')));
}

INSTANTIATE_TEST_SUITE_P(, descriptions, ::testing::ValuesIn(shown_cases),
                         [](const auto &each) { return std::string(each.param.name); });

class odd_descriptions : public Machine {
protected:
    odd_descriptions()
    {
        put("Boot0010", option_with(ucs2("a") + half + ucs2("z")));
        put("Boot0011", option_with(ucs2(std::string(200, 'x'))));
    }
};

TEST_F(odd_descriptions, that_are_damaged_are_marked)
{
    EXPECT_THAT(output({"list"}), HasSubstr("Boot0010  *       a\\ud800z"));
    EXPECT_THAT(output({"list"}), HasSubstr("damaged text"));
    EXPECT_THAT(output({"show", "Boot0010"}), HasSubstr("Description    a\\ud800z (damaged text)\n"));
    const json shown = parsed({"show", "Boot0010"});
    EXPECT_EQ(shown["description"], "a\ufffdz");
    EXPECT_EQ(shown["damaged_description"], "a\\ud800z");
    EXPECT_FALSE(parsed({"show", "Boot0011"}).contains("damaged_description"));
    EXPECT_THAT(run({"check"}).out,
                HasSubstr("Boot0010: its description has characters that are not whole: \"a\\ud800z\""));
}

TEST_F(odd_descriptions, stay_whole_when_something_else_changes)
{
    output({"set", "Boot0010", "--inactive"});
    EXPECT_EQ(get("Boot0010"), option_with(ucs2("a") + half + ucs2("z"), 0));
    output({"set", "Boot0011", "--inactive"});
    EXPECT_EQ(get("Boot0011"), option_with(ucs2(std::string(200, 'x')), 0));
    output({"rename", "Boot0010", "whole"});
    EXPECT_EQ(get("Boot0010"), option_with(ucs2("whole"), 0));
}

TEST_F(odd_descriptions, are_copied_with_a_warning)
{
    const outcome copied = run({"copy", "Boot0011", "--number", "20"});
    EXPECT_EQ(copied.status, 0);
    EXPECT_THAT(whole(copied.err), HasSubstr("the description has more than 127 characters"));
    EXPECT_EQ(get("Boot0020"), get("Boot0011"));
}

TEST_F(odd_descriptions, are_written_with_a_warning_but_not_made)
{
    const std::string text = "Beer \U0001f37a";
    const outcome renamed = run({"--json", "rename", "Boot0003", text});
    EXPECT_EQ(renamed.status, 0);
    const json document = json::parse(renamed.out);
    EXPECT_EQ(
        document["warnings"][0]["text"],
        "the description has characters beyond U+FFFF: programs that use the library cannot read the option");
    EXPECT_EQ(parsed({"show", "Boot0003"})["description"], text);
    EXPECT_EQ(run({"create", "--desc", text, "--devpath", "\\EFI\\a.efi"}).status, 2);
    EXPECT_EQ(run({"rename", "Boot0003", "a\\ud800z"}).status, 2);
    EXPECT_EQ(run({"rename", "Boot0003", "a\\u0000z"}).status, 2);
}

TEST_F(odd_descriptions, go_through_an_exported_text)
{
    const auto before = snapshot();
    const std::string text = (folder / "boot.txt").string();
    output({"export", text});
    EXPECT_EQ(output({"import", text}), "nothing to change\n");
    EXPECT_EQ(snapshot(), before);
}

} // namespace tool_test
