// SPDX-License-Identifier: MIT
// What a terminal gets that a file or a pipe does not.
#include <regex>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

class on_a_terminal : public Machine {
protected:
    // What is shown there, with line ends as a program writes them.
    std::string shown(const words &arguments, const std::map<std::string, std::string> &environment) const
    {
        surroundings around;
        around.terminal_out = true;
        around.environment = environment;
        return std::regex_replace(run(arguments, around).out, std::regex("\r\n"), "\n");
    }

    const std::map<std::string, std::string> usual = {{"TERM", "xterm"}, {"LC_ALL", "C.UTF-8"}};
};

TEST_F(on_a_terminal, rows_have_colours_unless_these_are_not_wanted)
{
    put("Boot0003", "1");
    put("BootCurrent", std::string("\x05\0", 2), 6);
    const std::string plain = output({"list"});
    EXPECT_THAT(plain, Not(HasSubstr("\033")));
    const std::string coloured = shown({"list"}, usual);
    EXPECT_THAT(coloured, HasSubstr("\033[31m3         Boot0003  ?       (damaged)\033[0m\n"));
    EXPECT_THAT(coloured, HasSubstr("\033[1m5         Boot0005"));
    EXPECT_EQ(std::regex_replace(coloured, std::regex("\033\\[[0-9]*m"), ""), plain);
    EXPECT_EQ(shown({"list"}, {{"TERM", "xterm"}, {"NO_COLOR", "1"}}), plain);
    EXPECT_EQ(shown({"list"}, {{"TERM", "dumb"}}), plain);
    EXPECT_EQ(shown({"list"}, {}), plain);
    EXPECT_EQ(shown({"list"}, {{"TERM", "xterm"}, {"NO_COLOR", ""}}), coloured);
}

TEST_F(on_a_terminal, characters_are_escaped_that_its_locale_does_not_have)
{
    put("Boot0003", std::string("\x01\0\0\0\x04\0\xe9\0\x3c\xd8\x7a\xdf\0\0\x7f\xff\x04\0", 18));
    const std::string whole_text = "\u00e9\U0001f37a";
    EXPECT_THAT(shown({"show", "Boot0003"}, usual), HasSubstr("Description    " + whole_text + "\n"));
    EXPECT_THAT(shown({"show", "Boot0003"}, {{"LC_ALL", "C"}}),
                HasSubstr("Description    \\u00e9\\U0001f37a\n"));
    EXPECT_THAT(output({"show", "\\u00e9\\U0001f37a"}), HasSubstr("Description    " + whole_text + "\n"));
}

TEST_F(on_a_terminal, a_long_description_does_not_move_what_stands_in_other_rows)
{
    put("Boot0004", load_option(1, std::string(120, 'x'), from_hex("7fff0400")));
    put("BootCurrent", std::string("\x05\0", 2), 6);
    EXPECT_THAT(output({"list"}), HasSubstr("  UEFI QEMU HARDDISK QM00001   current  SATA device\n"));
}

} // namespace tool_test
