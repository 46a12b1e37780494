// SPDX-License-Identifier: MIT
// Boot variables in an editor, which is a command that changes the text.
#include <csignal>
#include <fstream>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace fs = std::filesystem;

class edit : public Machine {
protected:
    edit() { fs::create_directory(temporary); }

    outcome edited(const std::string &editor, const words &more = {}, const char *variable = "VISUAL") const
    {
        surroundings around;
        around.environment = {{"TMPDIR", temporary}, {variable, editor}};
        return run(words{"edit"} + more, around);
    }
    size_t files_left() const
    {
        return static_cast<size_t>(std::distance(fs::directory_iterator(temporary), {}));
    }

    const fs::path temporary = folder / "tmp";
    const std::string rename_setup = "sed -i s/\\\"UiApp\\\"/\\\"Setup\\\"/";
};

TEST_F(edit, writes_what_was_changed)
{
    const outcome result = edited(rename_setup);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, StartsWith("[Boot0000]\n- description = \"UiApp\"\n+ description = \"Setup\"\n\n"
                                       "wrote Boot0000: \"Setup\", "));
    EXPECT_THAT(get("Boot0000"), HasSubstr(ucs2("Setup")));
    EXPECT_EQ(files_left(), 0u);
}

TEST_F(edit, writes_nothing_when_nothing_was_changed_or_the_editor_fails)
{
    const auto before = snapshot();
    EXPECT_EQ(edited("true").out, "nothing to change\n");
    EXPECT_EQ(edited("true", {}, "EDITOR").out, "nothing to change\n");
    const outcome failed = edited("false");
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.out, "");
    EXPECT_THAT(failed.err, StartsWith("ovra: the editor failed: \"false\" ended with status 1\n"));
    EXPECT_EQ(edited("kill $$; true").status, 1);
    EXPECT_EQ(edited("rm").status, 1);
    EXPECT_EQ(files_left(), 0u);
    EXPECT_EQ(snapshot(), before);
}

TEST_F(edit, keeps_a_text_with_an_error_and_one_that_comes_too_late)
{
    const auto before = snapshot();
    const outcome wrong = edited("sed -i s/^active/activ/");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_THAT(wrong.err, HasSubstr("the edited text, line "));
    EXPECT_THAT(whole(wrong.err),
                HasSubstr("Your text is kept: 'ovra import " + temporary.string() + "/ovra."));
    EXPECT_EQ(files_left(), 1u);
    EXPECT_EQ(fs::status(fs::directory_iterator(temporary)->path()).permissions(), fs::perms(0600));
    EXPECT_EQ(snapshot(), before);

    const std::string meanwhile = "rm " + file("Boot0003").string() + "; " + rename_setup;
    const outcome late = edited(meanwhile);
    EXPECT_EQ(late.status, 1);
    EXPECT_THAT(late.err, StartsWith("ovra: the boot variables changed while they were edited\n"));
    EXPECT_EQ(files_left(), 2u);
    EXPECT_THAT(get("Boot0000"), HasSubstr(ucs2("UiApp")));
}

TEST_F(edit, dry_run_shows_what_would_be_written_and_keeps_the_text)
{
    const auto before = snapshot();
    const outcome result = edited(rename_setup, {"--dry-run"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("would write Boot0000: \"Setup\""));
    EXPECT_THAT(result.err, StartsWith("Your text is kept: "));
    EXPECT_EQ(files_left(), 1u);
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(json::parse(edited(rename_setup, {"--json"}).out)["changes"].size(), 1u);
}

} // namespace tool_test
