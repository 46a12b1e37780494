// SPDX-License-Identifier: MIT
// System calls that fail below the command, and what it then says and leaves behind.
#include <cerrno>
#include <csignal>
#include <fstream>
#include <unistd.h>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class failing_writes : public Machine {
protected:
    // Runs with calls that fail: "call:part of the name:errno:first:last".
    outcome run_with(const words &arguments, const std::string &fail, const std::string &statvfs = {}) const
    {
        surroundings around;
        around.environment = {{"LD_PRELOAD", OVRA_FAILING_CALLS}, {"FAIL", fail}, {"STATVFS", statvfs}};
        return run(arguments, around);
    }

    static std::string rule(const char *call, const std::string &part, int error, int from = 1, int to = 1000)
    {
        return std::string(call) + ':' + part + ':' + std::to_string(error) + ':' + std::to_string(from) +
               ':' + std::to_string(to) + ' ';
    }

    const words create = {"create", "--desc", "x", "--path-hex", "7fff0400"};
};

TEST_F(failing_writes, to_read_the_order_are_not_called_damage)
{
    for (const int error : {EIO, EMFILE, ENFILE}) {
        const char *call = error == EIO ? "read" : "open";
        for (const words &arguments :
             {words{"list"}, words{"order"}, words{"order", "insert", "Boot0001"},
              words{"remove", "Boot0001"}, create, words{"order", "remove", "Boot0001"}}) {
            const auto before = snapshot();
            const outcome result = run_with(arguments, rule(call, "BootOrder", error));
            EXPECT_EQ(result.status, 1) << arguments[0] << result.out;
            EXPECT_THAT(result.err, StartsWith("ovra: cannot read BootOrder: ")) << arguments[0];
            EXPECT_THAT(result.err, HasSubstr(strerror(error))) << arguments[0];
            EXPECT_THAT(result.err, Not(HasSubstr("order set"))) << arguments[0];
            EXPECT_EQ(snapshot(), before);
        }
    }
}

TEST_F(failing_writes, to_read_one_option_leave_the_others)
{
    const std::string fail = rule("read", "Boot0003", EIO);
    const outcome list = run_with({"list"}, fail);
    EXPECT_EQ(list.status, 0);
    EXPECT_THAT(list.out, HasSubstr("3         Boot0003  ?       (Input/output error)\n"));
    EXPECT_THAT(list.out,
                HasSubstr("7         Boot0007  *       EFI Internal Shell           firmware volume\n"));
    EXPECT_THAT(list.err, HasSubstr("cannot read Boot0003: Input/output error\n"));
    const outcome order = run_with({"order"}, fail);
    EXPECT_EQ(order.status, 0);
    EXPECT_THAT(order.out, HasSubstr("3  Boot0003  (Input/output error)\n4  Boot0004  UEFI Misc Device\n"));
    EXPECT_THAT(order.err, HasSubstr("cannot read Boot0003: Input/output error\n"));
}

// Another program removes an option between the listing and the reading.
TEST_F(failing_writes, to_read_an_option_that_is_gone_by_then_say_nothing)
{
    put_order({0, 4});
    const std::string option = "Boot0003";
    const outcome gone = run_with({"list"}, rule("read", option, ENOENT));
    EXPECT_EQ(gone.err, "");
    EXPECT_THAT(gone.out, Not(HasSubstr(option)));
    const outcome other = run_with({"list"}, rule("read", option, EIO));
    EXPECT_THAT(other.err, HasSubstr("cannot read Boot0003: Input/output error\n"));
}

// On an efivarfs a read is a call of the firmware, and rationed.
TEST_F(failing_writes, of_a_second_read_never_happen_in_lists)
{
    put("Boot0008", load_option(1, std::string(100, 'n'), from_hex(sample_path_hex), std::string(3000, 'o')));
    std::string fail;
    for (const char *variable : {"Boot0003", "Boot0008", "BootOrder", "BootCurrent"})
        fail += rule("read", variable, EIO, 2);
    for (const words &arguments :
         {words{"list"}, words{"list", "-v"}, words{"list", "--json"}, words{"find", "/dev/sda1"}}) {
        const outcome once = run_with(arguments, fail);
        const outcome plain = run(arguments);
        EXPECT_EQ(once.status, plain.status);
        EXPECT_EQ(once.out, plain.out);
        EXPECT_EQ(once.err, plain.err);
    }
    // The count begins with each command, and the calls are there to fail.
    EXPECT_THAT(run_with({"list"}, rule("read", "Boot0008", EIO)).err, HasSubstr("cannot read Boot0008"));
}

TEST_F(failing_writes, of_the_order_take_the_new_option_back)
{
    const auto before = snapshot();
    // The first file that is made is the option's, the second the order's, the third takes the option back.
    const outcome result = run_with(create, rule("create", ".hwplat", ENOSPC, 2, 2));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("ovra: cannot write BootOrder: the file system is full\n"));
    EXPECT_THAT(result.err, HasSubstr("  Boot0008 is taken back: no option was made.\n"));
    EXPECT_THAT(result.err, Not(HasSubstr("variable store")));
    EXPECT_EQ(snapshot(), before);
    const outcome over = run_with(
        {"create", "--desc", "x", "--path-hex", "7fff0400", "--number", "3", "--force", "--position", "0"},
        rule("create", ".hwplat", ENOSPC, 2, 2));
    EXPECT_THAT(over.err, HasSubstr("  Boot0003 is what it was before.\n"));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(failing_writes, to_take_the_new_option_back_are_said)
{
    const outcome result = run_with(
        {"create", "--desc", "x", "--path-hex", "7fff0400", "--number", "3", "--force", "--position", "0"},
        rule("create", ".hwplat", ENOSPC, 2));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(whole(result.err),
                HasSubstr("  Boot0003 stays: taking it back failed as well, cannot write Boot0003: the "
                          "file system is full.\n"));
    EXPECT_EQ(get("Boot0003"), load_option(1, "x", from_hex("7fff0400")));
    EXPECT_THAT(order(), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

TEST_F(failing_writes, are_told_of_in_words)
{
    // The size is asked for at first, and the library's own call reads the data.
    for (int call = 1; call < 6; ++call) {
        const outcome shown = run_with({"show", "Boot0003"}, rule("read", "Boot0003", EIO, call, call));
        EXPECT_THAT(shown.err, Not(HasSubstr("80000000000000")));
        EXPECT_TRUE(shown.status == 0 || shown.err.starts_with("ovra: cannot read Boot0003: "));
    }
}

// The folder's fsync comes after the file is in place.
TEST_F(failing_writes, to_confirm_a_change_say_what_stands)
{
    const std::string folders = rule("fsync", "efivars", EIO, 2, 2); // the second is the folder's
    const outcome set = run_with({"set", "Boot0003", "--desc", "New"}, folders);
    EXPECT_EQ(set.status, 1);
    EXPECT_EQ(set.out, "");
    EXPECT_THAT(
        set.err,
        StartsWith("ovra: cannot write Boot0003: EFI_DEVICE_ERROR: Input/output error\n"
                   "  Boot0003 is written all the same, but that may not outlive a power failure.\n"));
    EXPECT_EQ(parsed({"show", "Boot0003"})["description"], "New");

    const outcome remove = run_with({"remove", "Boot0003"}, rule("fsync", "efivars", EIO, 3, 3));
    EXPECT_EQ(remove.status, 1);
    EXPECT_THAT(remove.err,
                HasSubstr("  Boot0003 is gone all the same, but that may not outlive a power failure.\n"));
    EXPECT_EQ(get("Boot0003"), "(none)");
    EXPECT_THAT(order(), ElementsAre(0, 1, 2, 4, 5, 6, 7));

    const auto before = snapshot();
    const outcome option = run_with(create, folders);
    EXPECT_EQ(option.status, 1);
    EXPECT_THAT(option.err, HasSubstr("  Boot0003 is taken back: no option was made.\n"));
    EXPECT_EQ(snapshot(), before);
    const outcome ordered = run_with(create, rule("fsync", "efivars", EIO, 4, 4));
    EXPECT_EQ(ordered.status, 1);
    EXPECT_THAT(ordered.err, HasSubstr("  BootOrder is written all the same"));
    EXPECT_THAT(order(), ElementsAre(0, 1, 2, 4, 5, 6, 7, 3)) << "both stand";
    EXPECT_NE(get("Boot0003"), "(none)");
}

TEST_F(failing_writes, to_confirm_an_order_without_an_option_say_what_stands)
{
    const outcome remove = run_with({"remove", "Boot0003"}, rule("fsync", "efivars", EIO, 2, 2));
    EXPECT_EQ(remove.status, 1);
    EXPECT_THAT(remove.err, HasSubstr("  BootOrder is written all the same"));
    EXPECT_THAT(remove.err, HasSubstr("  The options themselves are still there: remove them again.\n"));
    EXPECT_THAT(order(), ElementsAre(0, 1, 2, 4, 5, 6, 7));
    EXPECT_NE(get("Boot0003"), "(none)");
}

// A person stops the command, or the system does, between two of its writes.
TEST_F(failing_writes, wait_for_the_signals_that_end_a_program)
{
    const words numbered = create + words{"--number", "8"};
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        const outcome made = run_with(numbered, rule("create", ".hwplat", -signal, 2, 2));
        EXPECT_EQ(made.status, -1) << "ended by the signal after all";
        EXPECT_NE(get("Boot0008"), "(none)");
        EXPECT_THAT(order(), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8));
        const outcome removed = run_with({"remove", "Boot0008"}, rule("unlink", "Boot0008", -signal));
        EXPECT_EQ(removed.status, -1);
        EXPECT_EQ(get("Boot0008"), "(none)");
        EXPECT_THAT(order(), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
    }
    const outcome looked = run_with({"list"}, rule("open", "BootOrder", -SIGTERM));
    EXPECT_EQ(looked.status, -1);
    EXPECT_EQ(looked.out, "") << "what only reads ends at once";
}

TEST_F(failing_writes, to_remove_one_option_leave_the_rest_in_the_order)
{
    put("BootNext", std::string("\x03\0", 2));
    const outcome result =
        run_with({"remove", "Boot0001", "Boot0002", "Boot0003"}, rule("unlink", "Boot0002", EIO));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "ovra: cannot delete Boot0002: EFI_DEVICE_ERROR: Input/output error\n"
                          "  Removed before that: Boot0001\n"
                          "  Not touched: Boot0002 Boot0003\n");
    EXPECT_EQ(get("Boot0001"), "(none)");
    EXPECT_NE(get("Boot0003"), "(none)");
    EXPECT_EQ(get("BootNext"), std::string("\x03\0", 2));
    EXPECT_THAT(order(), ElementsAre(0, 2, 3, 4, 5, 6, 7));
}

TEST_F(failing_writes, of_a_file_system_are_seen_by_a_dry_run_too)
{
    const words changes[] = {create,
                             {"set", "Boot0003", "--desc", "longer than it was"},
                             {"order", "set", "Boot0001"},
                             {"next", "Boot0001"}};
    for (const words &arguments : changes) {
        const auto before = snapshot();
        const outcome real = run_with(arguments, rule("create", ".hwplat", ENOSPC), "full");
        const outcome dry = run_with(arguments + words{"--dry-run"}, "", "full");
        EXPECT_EQ(real.status, 1) << arguments[0];
        EXPECT_EQ(dry.status, 1) << arguments[0];
        EXPECT_THAT(dry.err, HasSubstr(": the file system is full\n")) << arguments[0];
        EXPECT_EQ(dry.err, real.err) << arguments[0];
        EXPECT_EQ(snapshot(), before);
    }
    for (const words &arguments : changes) {
        const outcome real = run_with(arguments, rule("create", ".hwplat", EROFS), "readonly");
        const outcome dry = run_with(arguments + words{"--dry-run"}, "", "readonly");
        EXPECT_EQ(dry.status, 1) << arguments[0];
        EXPECT_THAT(dry.err,
                    HasSubstr(": the variables are mounted read-only\n  'mount -o remount,rw' makes "));
        EXPECT_EQ(dry.err, real.err) << arguments[0];
    }
}

TEST_F(failing_writes, of_a_file_system_to_take_the_clock_and_the_next_start)
{
    put_order({0});
    const std::string state = (root / "var/lib/hwplat").string();
    const struct {
        words arguments;
        std::string said;
    } cases[] = {{{"time", "--set", "2031-02-03T04:05:06"},
                  "ovra: cannot set the clock: the file system is full\n  It is a file in " + state +
                      ": make room there.\n"},
                 {{"time", "--wakeup", "--set", "2099-02-03T04:05:06Z"},
                  "ovra: cannot set the wake-up alarm: the file system is full\n  It is a file in " + state +
                      ": make room there.\n"},
                 {{"reset"},
                  "ovra: cannot reset the machine: the file system is full\n  The variables are files in " +
                      variables.string() + ": make room there.\n"}};
    for (const auto &[arguments, said] : cases) {
        const auto before = snapshot();
        EXPECT_EQ(run_with(arguments + words{"--dry-run"}, "", "full").err, said);
        EXPECT_EQ(run_with(arguments, "", "full").err, said);
        // Also where that shows only when it is written.
        const std::string late = run_with(arguments, rule("create", ".hwplat", ENOSPC)).err;
        EXPECT_THAT(late, HasSubstr(": the file system is full\n"));
        EXPECT_THAT(late, HasSubstr(said.substr(said.find('\n'))));
        EXPECT_THAT(late, Not(HasSubstr("too far ahead")));
        EXPECT_THAT(late, Not(HasSubstr("variable store")));
        EXPECT_EQ(snapshot(), before);
    }
}

TEST_F(failing_writes, to_get_the_lock_name_its_holder)
{
    const std::string holder = std::to_string(getpid()) + " (tool_test)";
    const auto before = snapshot();
    for (const words &arguments : writers) {
        const outcome result = run_with(arguments, rule("lock", "machine", ETIMEDOUT));
        EXPECT_EQ(result.status, 1) << arguments[0];
        EXPECT_EQ(result.err, "ovra: another program has been changing the machine for 30 seconds\n"
                              "  It is process " +
                                  holder + ".\n");
    }
    EXPECT_EQ(run_with({"list"}, rule("lock", "machine", ETIMEDOUT)).status, 0);
    EXPECT_EQ(run_with({"order", "set", "1", "--dry-run"}, rule("lock", "machine", ETIMEDOUT)).status, 0);
    EXPECT_THAT(run_with(create, rule("lock", "machine", EROFS)).err,
                StartsWith("ovra: cannot lock the machine: its file system is mounted read-only\n"));
    EXPECT_EQ(snapshot(), before);
}

} // namespace tool_test
