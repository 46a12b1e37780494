// SPDX-License-Identifier: MIT
#include <fstream>
#include <sstream>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class vars_verb : public Machine {};

TEST_F(vars_verb, shows_every_variable_by_name)
{
    const std::string text = output({"vars"});
    EXPECT_THAT(text,
                StartsWith("Name               GUID                                  Size  Attributes\n"
                           "Boot0000           8be4df61-93ca-11d2-aa0d-00e098032b8c  62    NV BS RT\n"));
    EXPECT_THAT(text,
                HasSubstr("\nMTC                eb704011-1402-11d3-8e77-00a0c969723b  4     NV BS RT\n"));
    EXPECT_THAT(text, HasSubstr("  BS RT AT\n"));
    const size_t variables_in_folder = static_cast<size_t>(
        std::distance(std::filesystem::directory_iterator(variables), std::filesystem::directory_iterator()));
    EXPECT_EQ(parsed({"vars"})["variables"].size(), variables_in_folder);
}

TEST_F(vars_verb, takes_a_name_or_a_pattern)
{
    EXPECT_EQ(parsed({"vars", "BootOrder"}),
              json({{"variables",
                     {{{"name", "BootOrder"},
                       {"guid", "8be4df61-93ca-11d2-aa0d-00e098032b8c"},
                       {"attributes", {"non-volatile", "boot-service", "run-time"}},
                       {"size", 16},
                       {"data", "00000100020003000400050006000700"}}}}}));
    EXPECT_EQ(parsed({"vars", "Boot000?"})["variables"].size(), 8u);
    EXPECT_EQ(parsed({"vars", "Con*"})["variables"].size(), 4u);
}

TEST_F(vars_verb, verbose_dumps_the_data)
{
    put("Boot0000", "0123456789abcdefX\n");
    EXPECT_THAT(output({"vars", "-v", "Boot0000"}),
                HasSubstr("\n    0000  30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  0123456789abcdef\n"
                          "    0010  58 0a                                             X.\n"));
}

TEST_F(vars_verb, refuses_a_name_that_no_variable_has)
{
    EXPECT_EQ(failure({"vars", "NoSuch"}), "ovra: no variable is named \"NoSuch\"\n"
                                           "  'ovra vars' shows all.\n");
}

TEST_F(vars_verb, shows_unknown_attributes_as_a_number)
{
    put("Strange", "x", 0x80000007);
    EXPECT_EQ(parsed({"vars", "Strange"})["variables"][0]["attributes"],
              json({"non-volatile", "boot-service", "run-time", "0x80000000"}));
}

TEST_F(vars_verb, stays_within_80_columns)
{
    put(std::string(200, 'N'), "x");
    put("TwentyCharacters____", "x");
    put("NineteenCharacters_", std::string(10000000, 'x'));
    put("Strange", "x", 0xffffffff);
    const std::string text = output({"vars"});
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line == std::string(200, 'N'))
            continue; // it has its line alone
        EXPECT_LE(line.size(), 80u) << line;
    }
    EXPECT_THAT(text, HasSubstr("\nTwentyCharacters____\n  "));
    EXPECT_THAT(output({"vars", "-v", "Strange"}), HasSubstr("0000  78 "));
}

TEST_F(vars_verb, passes_over_files_that_are_no_variables)
{
    const size_t before = parsed({"vars"})["variables"].size();
    std::ofstream(variables / "notes.txt") << "not a variable";
    std::ofstream(file("Tiny")) << "123";
    std::ofstream(variables / ".hidden-8be4df61-93ca-11d2-aa0d-00e098032b8") << "12345";
    EXPECT_EQ(parsed({"vars"})["variables"].size(), before);
}

TEST_F(vars_verb, shows_no_control_characters_of_a_name)
{
    put("a\x1b[31m", "x");
    EXPECT_THAT(output({"vars", "a*"}), HasSubstr("a\\u001b[31m"));
    EXPECT_THAT(output({"vars", "a*"}), Not(HasSubstr("\x1b")));
}

TEST_F(vars_verb, says_when_there_are_none)
{
    std::filesystem::remove_all(variables);
    std::filesystem::create_directory(variables);
    EXPECT_EQ(output({"vars"}), "Name  GUID  Size  Attributes\n");
    EXPECT_EQ(parsed({"vars"}), json({{"variables", json::array()}}));
}

} // namespace tool_test
