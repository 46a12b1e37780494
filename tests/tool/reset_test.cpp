// SPDX-License-Identifier: MIT
#include <filesystem>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

class reset_verb : public Machine {
protected:
    // Runs without --root, as on a live machine; the platform libraries still take the machine in the folder.
    // Nothing is run if they should not.
    outcome run_as_live(const words &arguments, surroundings around = {})
    {
        around.environment["HWPLAT_ROOT"] = root;
        put("OnlyInThisTest", "x");
        const outcome proof = run_command({"vars", "OnlyInThisTest"}, around);
        if (proof.status != 0) {
            ADD_FAILURE() << "the machine in the folder is not used: " << proof.err;
            return {};
        }
        return run_command(arguments, around);
    }
};

TEST_F(reset_verb, boots_by_the_order)
{
    put_order({5, 0});
    EXPECT_EQ(output({"reset"}), "reset the machine (cold)\nbooted Boot0005  UEFI QEMU HARDDISK QM00001 \n");
    EXPECT_EQ(parsed({"current"})["current"], "Boot0005");
}

TEST_F(reset_verb, boots_the_next_option_once)
{
    output({"next", "Boot0007"});
    const json document = parsed({"reset", "--warm"});
    EXPECT_EQ(document["dry_run"], false);
    EXPECT_EQ(document["changes"], json::array({{{"action", "reset"}, {"type", "warm"}}}));
    EXPECT_EQ(document["booted"], "Boot0007");
    EXPECT_EQ(parsed({"next"})["next"], nullptr);
    EXPECT_EQ(parsed({"reset", "--cold"})["booted"], "Boot0000");
}

TEST_F(reset_verb, dry_run_changes_nothing_and_does_not_ask)
{
    const auto before = snapshot();
    EXPECT_EQ(output({"reset", "--dry-run"}), "would reset the machine (cold)\n");
    EXPECT_EQ(parsed({"reset", "--shutdown", "--dry-run"})["changes"][0]["type"], "shutdown");
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(run_as_live({"reset", "--dry-run"}).status, 0);
}

TEST_F(reset_verb, of_the_live_machine_needs_a_terminal_or_yes)
{
    const auto refused = run_as_live({"reset"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err, "ovra: not reset: there is no terminal to ask for confirmation\n"
                           "  --yes resets without asking.\n");
    EXPECT_EQ(parsed({"current"})["current"], nullptr);
    EXPECT_EQ(run_as_live({"reset", "--yes"}).status, 0);
    EXPECT_EQ(parsed({"current"})["current"], "Boot0000");
}

TEST_F(reset_verb, of_the_live_machine_asks)
{
    surroundings around;
    for (const char *answer : {"n\n", "\n", "yess\n", "\x04"}) {
        around.terminal_in = answer;
        const outcome refused = run_as_live({"reset", "--warm"}, around);
        EXPECT_EQ(refused.status, 1);
        EXPECT_THAT(refused.err, HasSubstr("Reset this machine now (warm)? [y/N] "));
        EXPECT_THAT(refused.err, HasSubstr("ovra: not reset\n"));
        EXPECT_EQ(parsed({"current"})["current"], nullptr);
    }
    around.terminal_in = "y\n";
    const outcome done = run_as_live({"reset", "--warm"}, around);
    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_EQ(parsed({"current"})["current"], "Boot0000");
}

TEST_F(reset_verb, that_cannot_says_how_else)
{
    if (std::filesystem::exists("/sys/firmware/efi/efivars"))
        GTEST_SKIP() << "this machine has firmware variables";
    for (const auto &[type, advice] :
         {std::pair("--cold", "  'systemctl reboot' or 'shutdown -r now' restarts the machine.\n"),
          std::pair("--shutdown", "  'systemctl poweroff' or 'shutdown -h now' turns the machine off.\n")}) {
        const outcome refused = run_command({"reset", type, "--dry-run"}, {});
        EXPECT_EQ(refused.status, 1);
        EXPECT_THAT(refused.err, HasSubstr(advice));
    }
    // Of another machine that would be the wrong advice.
    std::filesystem::remove_all(root / "sys/firmware");
    EXPECT_EQ(failure({"reset", "--dry-run"}).find("systemctl"), std::string::npos);
}

TEST_F(reset_verb, types_exclude_each_other)
{
    EXPECT_EQ(run({"reset", "--cold", "--warm"}).status, 2);
    EXPECT_EQ(run({"reset", "--shutdown", "--warm"}).status, 2);
    EXPECT_EQ(parsed({"current"})["current"], nullptr);
}

} // namespace tool_test
