// SPDX-License-Identifier: MIT
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// Standard output that does not take what is written.
class command_output : public Machine {};

TEST_F(command_output, to_a_full_disk_fails)
{
    surroundings around;
    around.out_file = "/dev/full";
    for (const words &arguments : {words{"list"}, words{"list", "--json"}, words{"vars"}, words{"--help"}}) {
        const outcome result = run(arguments, around);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "ovra: cannot write to standard output: No space left on device\n");
    }
}

// As in "ovra list | head -1": whoever closed the pipe has seen enough.
TEST_F(command_output, to_a_broken_pipe_ends_in_silence)
{
    surroundings around;
    around.broken_pipe = true;
    for (const words &arguments : {words{"list"}, words{"list", "--json"}, words{"vars"}}) {
        const outcome result = run(arguments, around);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "");
    }
}

TEST_F(command_output, to_a_broken_pipe_still_tells_of_changes)
{
    surroundings around;
    around.broken_pipe = true;
    const outcome result = run({"next", "Boot0007"}, around);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ovra: cannot write to standard output: Broken pipe\n  The changes were made.\n");
}

TEST_F(command_output, that_is_closed_fails)
{
    surroundings around;
    around.out_closed = true;
    const auto before = snapshot();
    const outcome result = run({"list"}, around);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ovra: cannot write to standard output: Bad file descriptor\n");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(command_output, that_fails_after_a_change_is_reported)
{
    surroundings around;
    around.out_file = "/dev/full";
    const outcome result = run({"next", "Boot0007"}, around);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("cannot write to standard output"));
    EXPECT_THAT(result.err, HasSubstr("The changes were made."));
    EXPECT_EQ(get("BootNext"), std::string("\x07\0", 2));
}

// Characters that reorder or hide the text around them, and control characters beyond ASCII.
TEST_F(command_output, escapes_characters_that_change_how_text_is_shown)
{
    std::filesystem::create_directory(root / "sys/devices");
    std::vector<int> characters = {0x80, 0x202e, 0xfeff};
    if (!has_sanitizers()) // which take five seconds for all of them
        characters = {0x80,   0x9b,   0x9f,   0x61c,  0x200e, 0x200f, 0x2028, 0x2029, 0x202a,
                      0x202b, 0x202c, 0x202d, 0x202e, 0x2066, 0x2067, 0x2068, 0x2069, 0xfeff};
    for (const int character : characters) {
        const std::string unit = {static_cast<char>(character), static_cast<char>(character >> 8)};
        char escaped[8];
        snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(character));
        std::string description = load_option(1, "ab", from_hex("7fff0400"));
        description.insert(8, unit);
        put("Boot0003", description);
        const std::string shown = "a" + std::string(escaped) + "b";
        EXPECT_THAT(output({"show", "Boot0003"}), HasSubstr("Description    " + shown + "\n"));
        EXPECT_THAT(output({"list"}), HasSubstr("  " + shown + "  "));
        const std::string document = output({"show", "Boot0003", "--json"});
        EXPECT_THAT(document, HasSubstr("\"description\": \"" + shown + "\""));
        EXPECT_EQ(json::parse(document)["description"], json::parse("\"" + shown + "\""));
        const std::string typed = json::parse("\"" + shown + "\"");
        EXPECT_THAT(output({"show", typed}), HasSubstr("Description    " + shown + "\n"));
        EXPECT_THAT(run({"show", typed + "c"}).err,
                    StartsWith("ovra: no option is named \"" + shown + "c\"\n"));
        EXPECT_EQ(parsed({"show", shown})["option"], "Boot0003");
        EXPECT_EQ(run({"find", typed}).err.find("ovra: no disk is named \"" + shown + "\"\n"), 0u);
        EXPECT_EQ(run({typed}).err.find("ovra: unknown verb '" + shown + "'\n"), 0u);
        EXPECT_THAT(run({"path", "encode", typed}).err,
                    HasSubstr("cannot be packed: \"" + shown + "\"\n  " + shown));
    }
    // Beyond 16 bits two escapes make a character: a tag, which shows nothing.
    put("Boot0003", load_option(1, "", from_hex("7fff0400")).insert(6, "\x40\xdb\x41\xdc", 4));
    EXPECT_THAT(output({"show", "Boot0003", "--json"}), HasSubstr("\"\\udb40\\udc41\""));
}

// The library's own messages.
class library_messages : public Machine {};

TEST_F(library_messages, appear_as_they_are_written_when_the_user_asked_for_them)
{
    surroundings around;
    around.environment = {{"OVRA_PATH_EPRINT", ""}};
    const outcome result = run({"path", "encode", "/Nope(1)"}, around);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err.find("Nope not found in encode table\n"), 0u);
}

TEST_F(library_messages, include_traces_when_the_user_asked_for_them)
{
    surroundings around;
    around.environment = {{"OVRA_PATH_DEBUG", "1"}};
    const outcome result = run({"path", "encode", "/Pci(0x1,0x2)"}, around);
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.err, "");
}

TEST_F(library_messages, are_not_shown_when_nothing_failed)
{
    std::filesystem::remove(file("BootOrder"));
    EXPECT_EQ(run({"remove", "Boot0003"}).err, "");
}

TEST_F(library_messages, do_not_stall_when_standard_error_is_closed)
{
    put("Boot0003", "1");
    const std::string shell =
        "exec '" OVRA_TOOL "' --root '" + root.string() + "' list 2>&- >" + (folder / "listing").string();
    EXPECT_EQ(system(shell.c_str()), 0);
    EXPECT_GT(std::filesystem::file_size(folder / "listing"), 100u);
}

} // namespace tool_test
