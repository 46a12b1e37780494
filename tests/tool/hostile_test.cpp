// SPDX-License-Identifier: MIT
// A dry run refuses what the run itself refuses, and nothing else, on machines that stand in the way.
#include "tests/support/rows.h"
#include "tests/tool/hostile_machine.h"

namespace tool_test {

namespace fs = std::filesystem;

namespace hostile {

namespace {

void refuses_a_dry_run_as_the_run_itself(hostile_machine &machine, const hostility &tested)
{
    surroundings around;
    if (tested.as_nobody) {
        const auto user = as_user_without_rights();
        if (!user || !user->as_nobody)
            GTEST_SKIP() << "the command cannot be run as another user here";
        around = *user;
    }
    std::vector<words> all = writers;
    all.push_back({"create", "--desc", "x", "--path-hex", "7fff0400", "--number", "0", "--force"});
    all.push_back({"set", "Boot0000", "--optdata-text", std::string(100, 'x')});
    all.push_back({"remove", "Boot0000", "Boot0001"});
    all.push_back({"remove", "Boot0007"});
    // With sanitizers a process takes a fifth of a second to start: each machine has some of the command
    // lines there, another machine others, and the release build has all of them.
    const size_t step = has_sanitizers() ? 6 : 1;
    bool fresh = false;
    for (size_t at = std::hash<std::string>()(tested.name) % step; at < all.size(); at += step) {
        const words &arguments = all[at];
        if (!fresh && !machine.make(tested))
            GTEST_SKIP() << "such a machine cannot be made here";
        const words dry = arguments + words{"--dry-run"};
        const auto before = machine.snapshot();
        const outcome planned = machine.run(dry, around);
        EXPECT_TRUE(machine.snapshot() == before) << ::testing::PrintToString(dry) << " changes something";
        const outcome done = machine.run(arguments, around);
        EXPECT_EQ(planned.status, done.status)
            << ::testing::PrintToString(arguments) << "\ndry run: " << planned.err << "\nrun: " << done.err;
        EXPECT_TRUE(done.status == 0 || done.status == 1);
        if (done.status != 0) {
            EXPECT_EQ(planned.err, done.err);
            EXPECT_TRUE(machine.snapshot() == before)
                << ::testing::PrintToString(arguments) << " fails half done";
        }
        fresh = done.status != 0;
    }
}

void make_fifo(const fs::path &path)
{
    EXPECT_EQ(mkfifo(path.c_str(), 0644), 0);
}

void make_folder(const fs::path &path)
{
    fs::create_directory(path);
}

void make_link(const fs::path &path)
{
    fs::create_symlink("elsewhere", path);
}

using h = hostile_machine;

auto attributes(uint32_t stored)
{
    return [stored](h &machine) { machine.put_attributes(stored); };
}

auto state(const char *name, const char *text)
{
    return [name, text](h &machine) { machine.put_state(name, text); };
}

auto contents(const char *variable, const std::string &data)
{
    return [variable, data](h &machine) { machine.put_file(variable, data); };
}

auto in_place(const char *variable, void (*make)(const fs::path &))
{
    return [variable, make](h &machine) { machine.put_in_place(variable, make); };
}

auto mode(const char *path, unsigned bits)
{
    return [path, bits](h &machine) {
        machine.give_away();
        fs::permissions(machine.root / path, fs::perms(bits));
    };
}

auto marked(const char *path, int marks)
{
    return [path, marks](h &machine) { machine.mark(machine.root / path, marks); };
}

auto marked_variable(const char *variable)
{
    return [variable](h &machine) { machine.mark(machine.file(variable), FS_IMMUTABLE_FL); };
}

auto unreadable(const char *variable)
{
    return [variable](h &machine) { machine.make_unreadable(machine.file(variable)); };
}

auto unreadable_state(const char *name, const char *text)
{
    return [name, text](h &machine) {
        machine.put_state(name, text);
        machine.make_unreadable(machine.root / "var/lib/hwplat" / name);
    };
}

constexpr const char *state_folder = "var/lib/hwplat";
constexpr const char *variables_folder = "sys/firmware/efi/efivars";
constexpr const char *small_file_system = "size=1m,mode=755";

const hostility hostilities[] = {
    {"nothing", [](h &) {}},
    {"of_the_user", [](h &machine) { machine.give_away(); }, true},
    {"of_another_user", [](h &) {}, true},

    {"capacity_damaged", state("capacity", "lots\n")},
    {"capacity_absurd", state("capacity", "0 -1\n")},
    {"capacity_small", state("capacity", "4000 2000\n")},
    {"capacity_tiny", state("capacity", "100 10\n")},
    {"capacity_a_folder", [](h &machine) { make_folder(machine.root / state_folder / "capacity"); }},
    {"capacity_unreadable", unreadable_state("capacity", "262144 32768\n"), true},
    {"alarm_damaged", state("wakeup", "tomorrow\n")},
    {"alarm_absent", [](h &machine) { fs::remove(machine.root / state_folder / "wakeup"); }},
    {"alarm_unreadable", unreadable_state("wakeup", "0 2098 1 1 0 0 0 0 0 0\n"), true},
    {"alarm_immutable", marked("var/lib/hwplat/wakeup", FS_IMMUTABLE_FL)},
    {"alarm_a_folder",
     [](h &machine) {
         fs::remove(machine.root / state_folder / "wakeup");
         make_folder(machine.root / state_folder / "wakeup");
     }},
    {"clock_damaged", state("time-offset", "now\n")},
    {"clock_a_folder", [](h &machine) { make_folder(machine.root / state_folder / "time-offset"); }},
    {"clock_a_link", [](h &machine) { make_link(machine.root / state_folder / "time-offset"); }},
    {"clock_unreadable", unreadable_state("time-offset", "0 0 0 0\n"), true},
    {"clock_immutable",
     [](h &machine) {
         machine.put_state("time-offset", "0 0 0 0\n");
         machine.mark(machine.root / state_folder / "time-offset", FS_IMMUTABLE_FL);
     }},

    {"attributes_none", attributes(0)},
    {"attributes_non_volatile_alone", attributes(1)},
    {"attributes_volatile", attributes(6)},
    {"attributes_not_at_run_time", attributes(3)},
    {"attributes_hardware_error", attributes(0xf)},
    {"attributes_authenticated", attributes(0x17)},
    {"attributes_time_authenticated", attributes(0x27)},
    {"attributes_appending", attributes(0x47)},
    {"attributes_unknown", attributes(0x80000047)},
    {"attributes_unknown_without_appending", attributes(0x80000007)},

    {"option_unreadable", unreadable("Boot0000"), true},
    {"order_unreadable", unreadable("BootOrder"), true},
    {"next_unreadable", unreadable("BootNext"), true},
    {"booted_option_unreadable", unreadable("Boot0007"), true},
    {"option_immutable", marked_variable("Boot0000")},
    {"order_immutable", marked_variable("BootOrder")},
    {"next_immutable", marked_variable("BootNext")},
    {"current_immutable",
     [](h &machine) {
         machine.put_file("BootCurrent", std::string("\6\0\0\0\0\0", 6));
         machine.mark(machine.file("BootCurrent"), FS_IMMUTABLE_FL);
     }},
    {"option_empty", contents("Boot0000", "")},
    {"option_short", contents("Boot0000", "abc")},
    {"option_without_data", contents("Boot0000", std::string("\7\0\0\0", 4))},
    {"option_of_one_byte", contents("Boot0000", std::string("\7\0\0\0a", 5))},
    {"order_empty", contents("BootOrder", "")},
    {"order_short", contents("BootOrder", "abc")},
    {"order_without_data", contents("BootOrder", std::string("\7\0\0\0", 4))},
    {"order_of_half_an_entry", contents("BootOrder", std::string("\7\0\0\0\0\0\1", 7))},
    {"next_empty", contents("BootNext", "")},
    {"next_long", contents("BootNext", std::string("\7\0\0\0\0\0\1", 7))},
    {"option_a_folder", in_place("Boot0000", make_folder)},
    {"order_a_folder", in_place("BootOrder", make_folder)},
    {"next_a_folder", in_place("BootNext", make_folder)},
    {"current_a_folder", in_place("BootCurrent", make_folder)},
    {"option_a_link", in_place("Boot0000", make_link)},
    {"order_a_fifo", in_place("BootOrder", make_fifo)},
    {"next_a_link", in_place("BootNext", make_link)},
    {"current_a_fifo", in_place("BootCurrent", make_fifo)},
    {"new_option_a_folder", in_place("Boot0008", make_folder)},

    {"variables_immutable", marked(variables_folder, FS_IMMUTABLE_FL)},
    {"variables_append_only", marked(variables_folder, FS_APPEND_FL)},
    {"variables_not_to_be_written", mode(variables_folder, 0555), true},
    {"variables_not_to_be_listed", mode(variables_folder, 0333), true},
    {"variables_with_a_sticky_folder",
     [](h &machine) {
         EXPECT_EQ(chown(machine.variables.c_str(), 0, 0), 0);
         fs::permissions(machine.variables, fs::perms(01777));
         fs::permissions(machine.root / state_folder, fs::perms(0777));
     },
     true},

    {"state_immutable", marked(state_folder, FS_IMMUTABLE_FL)},
    {"state_append_only", marked(state_folder, FS_APPEND_FL)},
    {"state_not_to_be_written", mode(state_folder, 0555), true},
    {"state_not_to_be_listed", mode(state_folder, 0333), true},
    {"state_not_to_be_entered", mode(state_folder, 0666), true},
    {"state_absent", [](h &machine) { fs::remove_all(machine.root / "var"); }},
    {"state_absent_and_not_to_be_made",
     [](h &machine) {
         fs::remove_all(machine.root / "var/lib");
         machine.mark(machine.root / "var", FS_IMMUTABLE_FL);
     }},
    {"state_behind_a_link", [](h &machine) { machine.put_link_for("var"); }},
    {"state_behind_a_second_link", [](h &machine) { machine.put_link_for("var/lib"); }},
    {"state_a_link", [](h &machine) { machine.put_link_for(state_folder); }},
    {"state_behind_a_file",
     [](h &machine) {
         fs::remove_all(machine.root / "var/lib");
         std::ofstream(machine.root / "var/lib") << "x";
     }},
    {"lock_a_link", [](h &machine) { make_link(machine.lock()); }},
    {"lock_a_folder", [](h &machine) { make_folder(machine.lock()); }},
    {"lock_a_fifo", [](h &machine) { make_fifo(machine.lock()); }},
    {"lock_unreadable",
     [](h &machine) {
         std::ofstream(machine.lock()) << "";
         machine.make_unreadable(machine.lock());
     },
     true},
    {"lock_immutable",
     [](h &machine) {
         std::ofstream(machine.lock()) << "";
         fs::permissions(machine.lock(), fs::perms(0600));
         machine.mark(machine.lock(), FS_IMMUTABLE_FL);
     }},

    {"file_system_read_only", [](h &machine) { machine.mount_anew(MS_RDONLY); }, false, small_file_system},
    {"file_system_full", [](h &machine) { machine.fill(0); }, false, small_file_system},
    {"file_system_of_one_block", [](h &machine) { machine.fill(4096); }, false, small_file_system},
    {"file_system_of_two_blocks", [](h &machine) { machine.fill(8192); }, false, small_file_system},
    {"file_system_without_files", [](h &machine) { machine.use_up_files(); }, false,
     "size=1m,mode=755,nr_inodes=150"},
    {"file_system_without_limits", [](h &) {}, false, "size=0,nr_inodes=0,mode=755"},
};

const bool hostilities_registered =
    ovra::test::register_rows("hostile_machine_refuses_a_dry_run_as_the_run_itself", hostilities,
                              refuses_a_dry_run_as_the_run_itself, __FILE__, __LINE__);

} // namespace

} // namespace hostile

} // namespace tool_test
