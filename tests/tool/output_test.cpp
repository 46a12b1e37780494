#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

// Standard output that does not take what is written.
class Output : public Machine {};

TEST_F(Output, to_a_full_disk_fails)
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
TEST_F(Output, to_a_broken_pipe_ends_in_silence)
{
    surroundings around;
    around.broken_pipe = true;
    for (const words &arguments : {words{"list"}, words{"list", "--json"}, words{"vars"}}) {
        const outcome result = run(arguments, around);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "");
    }
}

TEST_F(Output, to_a_broken_pipe_still_tells_of_changes)
{
    surroundings around;
    around.broken_pipe = true;
    const outcome result = run({"next", "Boot0007"}, around);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ovra: cannot write to standard output: Broken pipe\n  The changes were made.\n");
}

TEST_F(Output, that_is_closed_fails)
{
    surroundings around;
    around.out_closed = true;
    const auto before = snapshot();
    const outcome result = run({"list"}, around);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ovra: cannot write to standard output: Bad file descriptor\n");
    EXPECT_EQ(snapshot(), before);
}

TEST_F(Output, that_fails_after_a_change_is_reported)
{
    surroundings around;
    around.out_file = "/dev/full";
    const outcome result = run({"next", "Boot0007"}, around);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("cannot write to standard output"));
    EXPECT_THAT(result.err, HasSubstr("The changes were made."));
    EXPECT_EQ(get("BootNext"), std::string("\x07\0", 2));
}

// The library's own messages.
class LibraryMessages : public Machine {};

TEST_F(LibraryMessages, appear_as_they_are_written_when_the_user_asked_for_them)
{
    put("Boot0003", "1");
    surroundings around;
    around.environment = {{"OVRA_PATH_EPRINT", ""}};
    const outcome result = run({"show", "Boot0003"}, around);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(
        result.err.find("unable to read load option for Boot0003: 0\novra: cannot read Boot0003: damaged\n"),
        0u);
}

TEST_F(LibraryMessages, include_traces_when_the_user_asked_for_them)
{
    surroundings around;
    around.environment = {{"OVRA_PATH_DEBUG", "1"}};
    const outcome result = run({"path", "encode", "/Pci(0x1,0x2)"}, around);
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.err, "");
}

TEST_F(LibraryMessages, are_not_shown_when_nothing_failed)
{
    std::filesystem::remove(file("BootOrder"));
    EXPECT_EQ(run({"remove", "Boot0003"}).err, "");
}

TEST_F(LibraryMessages, do_not_stall_when_standard_error_is_closed)
{
    put("Boot0003", "1");
    const std::string shell =
        "exec '" OVRA_TOOL "' --root '" + root.string() + "' list 2>&- >" + (folder / "listing").string();
    EXPECT_EQ(system(shell.c_str()), 0);
    EXPECT_GT(std::filesystem::file_size(folder / "listing"), 100u);
}

} // namespace tool_test
