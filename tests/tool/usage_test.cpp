// SPDX-License-Identifier: MIT
#include <regex>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

const words wrong_command_lines[] = {
    {},
    {"nonsense"},
    {"list", "extra"},
    {"list", "--nonsense"},
    {"list", "list"},
    {"show"},
    {"show", "Boot0000", "Boot0001"},
    {"show", ""},
    {"show", "--path", ""},
    {"show", "Boot0000", "--path", "x"},
    {"create"},
    {"create", "--desc", "x"},
    {"create", "--path-hex", "7fff0400"},
    {"create", "--desc", "x", "--path-hex", "7fff040"},
    {"create", "--desc", "x", "--path-hex", "7fff04zz"},
    {"create", "--desc", "x", "--path-hex", "0x7fff0400"},
    {"create", "--desc", "x", "--path-hex", "7fff0400", "--position", "first"},
    {"create", "--desc", "x", "--path-hex", "7fff0400", "--position", "1x"},
    {"create", "--desc", "x", "--path-hex", "7fff0400", "--position", "99999999999"},
    {"create", "--desc", "x", "--path-hex", "7fff0400", "--position", "01"},
    {"create", "--desc", "x", "--path-hex", "7fff0400", "--number", "10000"},
    {"create", "--desc", "x", "--desc", "y", "--path-hex", "7fff0400"},
    {"create", "--desc", "x", "--path-hex", "7fff0400", "--optdata-text", "a", "--optdata-file", "b"},
    {"set"},
    {"set", "Boot0000"},
    {"set", "Boot0000", "--attr", ""},
    {"set", "Boot0000", "--attr", "-1"},
    {"set", "Boot0000", "--attr", "0x"},
    {"set", "Boot0000", "--attr", "0x100000000"},
    {"set", "Boot0000", "--attr", "1 "},
    {"set", "Boot0000", "--attr", "010"},
    {"set", "Boot0000", "--attr", "00"},
    {"set", "Boot0000", "--attr", "08"},
    {"set", "Boot0000", "--active", "--inactive"},
    {"set", "Boot0000", "--active", "--attr", "1"},
    {"set", "Boot0000", "--no-optdata", "--optdata-text", "a"},
    {"set", "Boot0000", "--no-optdata", "--optdata-file", "a"},
    {"remove"},
    {"order", "nonsense"},
    {"order", "insert"},
    {"order", "insert", "Boot0000", "x"},
    {"order", "insert", "Boot0000", "1", "2"},
    {"order", "insert", "Boot0000", "010"},
    {"order", "insert", "Boot0000", "-01"},
    {"order", "remove"},
    {"order", "remove", "Boot0000", "Boot0001"},
    {"order", "set"},
    {"order", "first"},
    {"order", "move", "Boot0000"},
    {"order", "clear", "Boot0000"},
    {"next", "Boot0000", "--clear"},
    {"next", "--path", "x", "--clear"},
    {"timeout", "x"},
    {"timeout", "05"},
    {"timeout", "65536"},
    {"timeout", "5", "--clear"},
    {"secureboot", "on"},
    {"time", "--set"},
    {"reset", "now"},
    {"--root"},
};

} // namespace

class command_usage : public Machine {};

TEST_F(command_usage, wrong_command_lines_end_with_status_2_and_change_nothing)
{
    const auto before = snapshot();
    for (const words &arguments : wrong_command_lines) {
        const outcome result = run(arguments);
        const std::string line = ::testing::PrintToString(arguments);
        EXPECT_EQ(result.status, 2) << line << result.out << result.err;
        EXPECT_EQ(result.out, "") << line;
        EXPECT_THAT(result.err, StartsWith("ovra: ")) << line;
        EXPECT_THAT(result.err,
                    HasSubstr("\n  'ovra --help' and 'ovra VERB --help' show what can be given.\n"))
            << line;
    }
    EXPECT_EQ(snapshot(), before);
}

TEST_F(command_usage, says_what_is_wrong)
{
    EXPECT_THAT(run({"set", "Boot0000"}).err, StartsWith("ovra: set: nothing to change is given\n"));
    const std::string octal = "ovra: \"010\" has a leading zero, which may mean octal: leave it out\n";
    for (const words &arguments :
         {words{"set", "Boot0000", "--attr", "010"},
          words{"create", "--desc", "x", "--path-hex", "7fff0400", "--position", "010"},
          words{"order", "insert", "Boot0000", "010"}})
        EXPECT_THAT(run(arguments).err, StartsWith(octal));
}

TEST_F(command_usage, help_names_every_verb)
{
    const outcome help = run_command({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
    for (const char *verb :
         {"list", "show", "create", "set", "remove", "order", "next", "current", "vars", "time", "reset"}) {
        EXPECT_THAT(help.out, HasSubstr(std::string("\n  ") + verb + ' '));
        const outcome verb_help = run_command({verb, "--help"});
        EXPECT_EQ(verb_help.status, 0) << verb;
        EXPECT_THAT(verb_help.out, HasSubstr("Usage: ovra " + std::string(verb)));
    }
}

TEST_F(command_usage, help_of_create_says_where_the_option_goes)
{
    const std::string help =
        std::regex_replace(run_command({"create", "--help"}).out, std::regex("\\s+"), " ");
    EXPECT_THAT(help,
                HasSubstr("place in BootOrder: 0 is first, -1 (which is also the default) last, -2 before "
                          "the last; counted before the option is taken out of its old place"));
}

TEST_F(command_usage, version_is_printed)
{
    const outcome version = run_command({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_THAT(version.out, StartsWith("ovra "));
}

TEST_F(command_usage, global_options_may_stand_before_and_behind_the_verb)
{
    EXPECT_EQ(run_command({"--root", root, "--json", "next"}).out,
              run_command({"next", "--json", "--root", root}).out);
    EXPECT_EQ(run_command({"--root=" + root.string(), "next", "--json"}).status, 0);
}

} // namespace tool_test
