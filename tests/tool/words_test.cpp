// SPDX-License-Identifier: MIT
#include <sstream>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// The words of the command line. The options are those that help shows, so that none is forgotten.
class words_of_people : public Machine {
protected:
    struct known_option {
        words verb;
        std::string name;
        bool takes_value = false;
    };

    static std::string help(const words &verb)
    {
        const outcome shown = run_command(verb + words{"--help"});
        EXPECT_EQ(shown.status, 0) << shown.err;
        return shown.out;
    }

    // The verbs below one, and those below them.
    static std::vector<words> verbs(const words &above = {})
    {
        std::vector<words> all;
        std::istringstream text(help(above));
        bool listed = false;
        for (std::string line; std::getline(text, line);) {
            if (line == "Subcommands:") {
                listed = true;
            } else if (line.empty()) {
                listed = false;
            } else if (listed && line.starts_with("  ") && line[2] != ' ') {
                words verb = above;
                verb.push_back(line.substr(2, line.find(' ', 2) - 2));
                all.push_back(verb);
                for (const words &below : verbs(verb))
                    all.push_back(below);
            }
        }
        return all;
    }

    static std::vector<known_option> options()
    {
        std::vector<known_option> all;
        for (const words &verb : verbs()) {
            std::istringstream text(help(verb));
            for (std::string line; std::getline(text, line);) {
                const size_t dashes = line.find("--");
                if (!line.starts_with("  -") || dashes > 6)
                    continue;
                std::istringstream cells(line.substr(dashes));
                known_option next;
                std::string type;
                cells >> next.name >> type;
                next.verb = verb;
                next.takes_value = type == "####" ||
                                   (!type.empty() && type.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") ==
                                                         std::string::npos);
                if (next.name != "--help")
                    all.push_back(next);
            }
        }
        std::vector<known_option> tried;
        for (size_t at = 0; at < all.size(); at += share())
            tried.push_back(all[at]);
        return tried;
    }

    // Of so many options one is tried: each takes several commands, which are slow with sanitizers.
    static size_t share() { return has_sanitizers() ? 12 : 1; }
};

TEST_F(words_of_people, an_empty_value_stays_that_of_its_option)
{
    put("Boot0003", load_option(1, "Old", from_hex("7fff0400"), "data"));
    const auto before = snapshot();
    size_t tried = 0;
    for (const known_option &option : options()) {
        if (!option.takes_value)
            continue;
        // Nothing that follows is taken for the value: --dry-run works, and an unknown word is still one.
        const words arguments = option.verb + words{option.name + '='};
        const outcome dry = run(arguments + words{"--dry-run"});
        EXPECT_EQ(dry.err.find("--dry-run"), std::string::npos) << option.name << dry.err;
        const outcome unknown = run(arguments + words{"--nonsense"});
        EXPECT_EQ(unknown.status, 2) << option.name;
        EXPECT_THAT(unknown.err,
                    ::testing::AnyOf(HasSubstr("--nonsense"), StartsWith("ovra: --"), HasSubstr("\"\" is no"),
                                     HasSubstr(" is empty"), HasSubstr(" is required")));
        ++tried;
    }
    EXPECT_GE(tried, 20u / share());
    EXPECT_EQ(snapshot(), before);
    for (const char *text : {"--optdata-text=", "--desc="}) {
        const std::string said = output({"set", "3", text, "--dry-run"});
        EXPECT_THAT(said, StartsWith("would write Boot0003: ")) << text;
    }
    EXPECT_EQ(snapshot(), before);
    EXPECT_THAT(run({"set", "3", "--file=", "--dry-run"}).err,
                HasSubstr("--file: the name of a file is needed"));
    output({"set", "3", "--optdata-text=", "--desc="});
    EXPECT_EQ(get("Boot0003"), load_option(1, "", from_hex("7fff0400"), std::string(2, '\0')));
}

TEST_F(words_of_people, an_option_is_no_value_of_another)
{
    const auto before = snapshot();
    size_t tried = 0;
    for (const known_option &option : options()) {
        if (!option.takes_value)
            continue;
        for (const char *next : {"--dry-run", "--json", "--root=x", "-h", "--"}) {
            const outcome result = run(option.verb + words{option.name, next});
            EXPECT_EQ(result.status, 2) << option.name;
            EXPECT_THAT(result.err, StartsWith("ovra: " + option.name + ": a value is needed; \"" +
                                               option.name + '=' + next + "\" gives it this one\n"));
            ++tried;
        }
    }
    EXPECT_GE(tried, 100u / share());
    EXPECT_EQ(snapshot(), before);
    output({"set", "3", "--desc=--dry-run", "--no-optdata"});
    EXPECT_EQ(parsed({"show", "3"})["description"], "--dry-run");
}

TEST_F(words_of_people, a_flag_takes_no_value)
{
    const auto before = snapshot();
    size_t tried = 0;
    for (const known_option &option : options()) {
        if (option.takes_value)
            continue;
        for (const char *value : {"", "0", "false", "true"}) {
            words arguments = option.verb;
            arguments.push_back(option.name + '=' + value);
            const outcome result = run(arguments);
            EXPECT_EQ(result.status, 2) << option.name << value;
            EXPECT_THAT(result.err, StartsWith("ovra: " + option.name + " takes no value\n"));
            ++tried;
        }
    }
    EXPECT_GE(tried, 100u / share());
    EXPECT_EQ(snapshot(), before);
}

TEST_F(words_of_people, behind_two_dashes_are_no_options)
{
    EXPECT_THAT(run({"path", "encode", "--", "--file="}).err, HasSubstr("\"--file=\""));
}

TEST_F(words_of_people, a_verb_that_is_misspelt_is_named)
{
    const struct {
        words typed;
        const char *said;
    } cases[] = {{{"lsit"}, "unknown verb 'lsit'; did you mean 'list'?"},
                 {{"--json", "creat", "--desc", "x"}, "unknown verb 'creat'; did you mean 'create'?"},
                 {{"order", "isnert", "3"}, "unknown verb 'order isnert'; did you mean 'order insert'?"},
                 {{"path", "decoded"}, "unknown verb 'path decoded'; did you mean 'path decode'?"},
                 {{"nonsense"}, "unknown verb 'nonsense'"},
                 {{"\u202e"}, "unknown verb '\\u202e'"},
                 {{}, "a verb is required"}};
    for (const auto &[typed, said] : cases) {
        const outcome result = run_command(typed);
        EXPECT_EQ(result.status, 2);
        EXPECT_THAT(result.err, StartsWith("ovra: " + std::string(said) + "\n"));
    }
}

TEST_F(words_of_people, of_messages_fit_into_80_columns)
{
    put("BootOrder", std::string("\x01\0", 2), 0x27);
    EXPECT_EQ(run({"order", "set", "Boot0002"}).err,
              "ovra: cannot write BootOrder: it is stored as non-volatile, boot-service,\n"
              "      run-time, time-authenticated\n"
              "  Only the holder of its key can change an authenticated variable.\n");
    // What is to be copied stays in one piece.
    const std::string file = folder / "there is no such file as this one is, which is long";
    EXPECT_EQ(run({"set", "Boot0000", "--optdata-file", file}).err,
              "ovra: cannot read " + file + ": No such file or directory\n");
}

TEST_F(words_of_people, of_help_fit_into_80_columns_and_name_the_options_of_every_verb)
{
    std::vector<words> all = verbs();
    EXPECT_GE(all.size(), 20u);
    all.emplace_back();
    for (const words &verb : all) {
        const std::string text = help(verb);
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 80u) << line;
        for (const char *option : {"\n  --root DIR ", "\n  --json ", "\n  --dry-run "})
            EXPECT_THAT(text, HasSubstr(option));
    }
}

} // namespace tool_test
