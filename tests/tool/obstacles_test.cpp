// SPDX-License-Identifier: MIT
// What stands in the way of a change, and that a dry run finds it as the change itself does.
#include <fstream>
#include <sys/stat.h>

#include "tests/support/captured.h"
#include "tests/tool/obstacles.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST_F(writing_obstacles, are_missing_permissions)
{
    output({"time", "--wakeup", "--set", "2098-02-03T04:05:06Z"}); // an alarm to clear
    fs::remove(root / "var/lib/hwplat/lock");
    const auto around = as_user_without_rights();
    if (!around)
        GTEST_SKIP() << "the command lies where other users cannot run it";
    std::vector<words> all = writers;
    const auto expect_refusals = [&] {
        for (const words &arguments : all) {
            const std::string said = refusal(arguments, *around);
            EXPECT_THAT(said, HasSubstr("no permission")) << arguments[0];
            EXPECT_THAT(said, HasSubstr("\n  Run this as root, or as the owner of the folder.\n"))
                << arguments[0];
        }
    };
    expect_refusals(); // neither for the variables nor for the lock
    fs::permissions(variables, fs::perms(0777));
    expect_refusals(); // not for the lock
    fs::permissions(variables, fs::perms(0755));
    fs::permissions(root / "var/lib/hwplat", fs::perms(0777));
    all = writers_of_variables;
    all.push_back({"reset"});
    expect_refusals(); // not for the variables
    fs::permissions(variables, fs::perms(0777));
    fs::remove_all(root / "var");
    expect_refusals();
    fs::permissions(root, fs::perms(0777));
    for (const words &arguments : writers_of_variables)
        EXPECT_EQ(run(arguments + words{"--dry-run"}, *around).status, 0) << arguments[0];
    EXPECT_FALSE(fs::exists(root / "var"));
}

TEST_F(writing_obstacles, are_immutable_files)
{
    with_marks(file("Boot0003"), FS_IMMUTABLE_FL, [&] {
        for (const words &arguments : {words{"set", "Boot0003", "--desc", "x"}, words{"remove", "Boot0003"}})
            EXPECT_THAT(refusal(arguments),
                        HasSubstr(" Boot0003: " + file("Boot0003").string() +
                                  " is immutable\n  'chattr -i -a' takes that mark away.\n"));
    });
    with_marks(file("BootOrder"), FS_IMMUTABLE_FL, [&] {
        for (const words &arguments :
             {writers[0], words{"remove", "Boot0003"}, words{"order", "set", "Boot0001"}})
            EXPECT_THAT(refusal(arguments), StartsWith("ovra: cannot write BootOrder: "));
    });
}

TEST_F(writing_obstacles, are_immutable_folders)
{
    with_marks(variables, FS_APPEND_FL, [&] {
        for (const words &arguments : writers_of_variables)
            EXPECT_THAT(refusal(arguments), HasSubstr(variables.string() + " is immutable\n"));
    });
}

TEST_F(writing_obstacles, are_folders_in_the_place_of_variables)
{
    fs::remove(file("Boot0003"));
    fs::create_directory(file("Boot0003"));
    const std::string in_its_place = " Boot0003: a folder is in its place\n  Remove the folder ";
    EXPECT_THAT(refusal({"remove", "Boot0003"}), HasSubstr(in_its_place));
    EXPECT_THAT(refusal({"create", "--desc", "x", "--path-hex", "7fff0400", "--number", "3", "--force"}),
                HasSubstr(in_its_place));
}

TEST_F(writing_obstacles, are_other_things_in_the_place_of_the_lock)
{
    output({"next", "Boot0007"});
    const fs::path lock = root / "var/lib/hwplat/lock";
    fs::remove(lock);
    fs::create_symlink("elsewhere", lock);
    for (const words &arguments : {words{"next", "Boot0001"}, words{"next", "Boot0001", "--dry-run"}})
        EXPECT_THAT(failure(arguments), HasSubstr("something else is in the place of its lock file"));
    fs::remove(lock);
    fs::create_directory(lock);
    EXPECT_NE(run({"next", "Boot0001", "--dry-run"}).status, 0);
}

TEST_F(writing_obstacles, are_volatile_variables)
{
    put("BootNext", std::string("\x01\0", 2), 6);
    put("Boot0003", load_option(1, "x", from_hex("7fff0400")), 6);
    for (const words &arguments :
         {words{"next", "Boot0003"}, words{"next", "--clear"}, words{"remove", "Boot0001"},
          words{"remove", "Boot0003"}, words{"set", "Boot0003", "--desc", "y"}}) {
        const std::string said = refusal(arguments);
        EXPECT_THAT(said, HasSubstr(": it is stored as boot-service, run-time\n")) << arguments[0];
        EXPECT_THAT(said, HasSubstr("A volatile variable belongs to the firmware until the next start.\n"))
            << arguments[0];
    }
}

TEST_F(writing_obstacles, are_full_stores)
{
    put_state("capacity", "4000 2000\n");
    std::ofstream(folder / "data", std::ios::binary) << std::string(1500, 'x');
    const std::string data = folder / "data";
    for (const words &arguments :
         {words{"create", "--desc", "x", "--path-hex", "7fff0400", "--optdata-file", data},
          words{"set", "Boot0003", "--optdata-file", data}}) {
        const std::string said = refusal(arguments);
        EXPECT_THAT(
            said,
            HasSubstr(": no room in the variable store\n  Remove options that are not needed; 'ovra vars' "
                      "shows what takes the room.\n"));
        EXPECT_THAT(said, HasSubstr(" bytes are left, 2000 for one variable.\n"));
    }
    std::ofstream(folder / "data", std::ios::binary) << std::string(2500, 'x');
    EXPECT_THAT(refusal({"set", "Boot0003", "--optdata-file", data}),
                HasSubstr(" bytes are too many for one variable\n  One holds at most 2000 bytes: shorten "));
}

TEST_F(writing_obstacles, are_damaged_capacities)
{
    const std::string capacity = root / "var/lib/hwplat/capacity";
    put_state("capacity", "lots\n");
    for (const words &arguments : {words{"create", "--desc", "x", "--path-hex", "7fff0400"},
                                   words{"order", "set", "Boot0001"}, words{"next", "Boot0001"}})
        EXPECT_THAT(
            refusal(arguments),
            HasSubstr(": " + capacity +
                      " is damaged\n  It holds the bytes of all variables and those of one, as 262144 "
                      "32768:\n  correct or remove it.\n"));
    output({"next", "--clear"}); // takes no room
}

TEST_F(writing_obstacles, are_attributes_that_no_variable_has)
{
    const struct {
        uint32_t attributes;
        const char *said;
    } cases[] = {{0, "without attributes"},
                 {1, "as non-volatile"},
                 {0x47, "as non-volatile, boot-service, run-time, 0x40"},
                 {0x80000007, "as non-volatile, boot-service, run-time, 0x80000000"}};
    for (const auto &[attributes, how] : cases) {
        put("Boot0003", load_option(1, "x", from_hex("7fff0400")), attributes);
        const std::string said = std::string(" Boot0003: it is stored ") + how +
                                 "\n  No variable can have these attributes: remove " +
                                 file("Boot0003").string() + ".\n";
        EXPECT_THAT(refusal({"set", "Boot0003", "--desc", "y"}), HasSubstr("cannot write" + said));
        EXPECT_THAT(refusal({"remove", "Boot0003"}), HasSubstr("cannot delete" + said));
    }
    put("Boot0003", load_option(1, "x", from_hex("7fff0400")), 0x27);
    for (const words &arguments : {words{"set", "Boot0003", "--desc", "y"}, words{"remove", "Boot0003"}})
        EXPECT_THAT(refusal(arguments),
                    HasSubstr("run-time, time-authenticated\n  Only the holder of its key"));
}

TEST_F(writing_obstacles, to_the_lock_are_named)
{
    const std::string lock = root / "var/lib/hwplat/lock";
    fs::rename(root / "var/lib", root / "elsewhere");
    fs::create_symlink("../elsewhere", root / "var/lib");
    EXPECT_EQ(refusal({"next", "Boot0001"}),
              "ovra: cannot lock the machine: something on the path to its lock file is not a "
              "folder\n  All above " +
                  lock + " are folders; links are not followed.\n");
}

// The order's room is looked at together with the option's.
TEST_F(writing_obstacles, are_stores_with_room_for_the_option_alone)
{
    const uint64_t roomy = 100000;
    put_state("capacity", std::to_string(roomy) + " 2000\n");
    fs::remove(file("BootOrder"));
    std::ofstream(folder / "data", std::ios::binary) << std::string(2500, 'x');
    const std::string said = run({"set", "Boot0003", "--optdata-file", folder / "data"}).err;
    ASSERT_THAT(said, HasSubstr("too many for one variable"));
    // What is taken, by the difference of a store with a known size and what the message of a full one says.
    const auto left_in = [&](uint64_t capacity) {
        put_state("capacity", std::to_string(capacity) + " 100000\n");
        std::ofstream(folder / "data", std::ios::binary) << std::string(90000, 'x');
        const std::string full =
            run({"create", "--desc", "x", "--path-hex", "7fff0400", "--optdata-file", folder / "data"}).err;
        const size_t at = full.find(" bytes are left");
        if (at == std::string::npos)
            return uint64_t{0};
        const size_t line = full.rfind('\n', at) + 1;
        return static_cast<uint64_t>(std::stoull(full.substr(line, at - line)));
    };
    const uint64_t taken = 50000 - left_in(50000);
    ASSERT_LT(taken, 50000u);
    // An option of 14 bytes with its name takes 36; BootOrder of one entry takes 26 more.
    put_state("capacity", std::to_string(taken + 36 + 20) + " 2000\n");
    const words create = {"create", "--desc", "x", "--path-hex", "7fff0400"};
    EXPECT_THAT(failure(create + words{"--dry-run"}),
                StartsWith("ovra: cannot write BootOrder: no room in the variable store\n"));
    const auto before = snapshot();
    const outcome done = run(create);
    EXPECT_EQ(done.status, 1);
    EXPECT_THAT(done.err, StartsWith("ovra: cannot write BootOrder: no room in the variable store\n"));
    EXPECT_EQ(done.out, "");
    EXPECT_TRUE(snapshot() == before);
    put_state("capacity", std::to_string(taken + 36 + 26) + " 2000\n");
    output(create);
}

TEST_F(writing_obstacles, are_not_seen_where_there_are_none)
{
    for (const words &arguments : writers)
        EXPECT_EQ(run(arguments + words{"--dry-run"}).status, 0) << arguments[0];
}

// An option that other users may not read.
TEST_F(writing_obstacles, to_reading_one_option_leave_the_others)
{
    const auto around = as_user_without_rights();
    if (!around)
        GTEST_SKIP() << "the command lies where other users cannot run it";
    fs::permissions(file("Boot0003"), fs::perms(0));
    const outcome list = run({"list"}, *around);
    EXPECT_EQ(list.status, 0) << list.err;
    EXPECT_THAT(list.out, HasSubstr("3         Boot0003  ?       (no permission)\n"));
    EXPECT_THAT(
        list.out,
        HasSubstr("7         Boot0007  *       EFI Internal Shell           next  firmware volume\n"));
    EXPECT_EQ(list.err, "ovra: warning: cannot read Boot0003: no permission\n"
                        "  Run this as root, or as the owner of the folder.\n");
    const outcome programs = run({"list", "--json"}, *around);
    EXPECT_EQ(json::parse(programs.out)["options"][3]["error"], "no permission");
    const outcome order = run({"order"}, *around);
    EXPECT_EQ(order.status, 0);
    EXPECT_THAT(order.out, HasSubstr("3  Boot0003  (no permission)\n4  Boot0004  UEFI Misc Device\n"));
    EXPECT_THAT(order.err, HasSubstr("cannot read Boot0003: no permission\n"));
    EXPECT_EQ(run({"show", "Boot0003"}, *around).err, "ovra: cannot read Boot0003: no permission\n"
                                                      "  Run this as root, or as the owner of the folder.\n");
}

// What cannot be read may be what is looked for, or stand in the way of it.
TEST_F(writing_obstacles, to_reading_one_option_are_named_by_find)
{
    const auto around = as_user_without_rights();
    if (!around)
        GTEST_SKIP() << "the command lies where other users cannot run it";
    ovra::test::unpack_machine("q35", root);
    EXPECT_EQ(run({"create", "--desc", "x", "--disk", "c5t0d0s0"}).status, 0);
    EXPECT_EQ(run({"find", "c5t0d0s0"}, *around).err,
              "c5t0d0s0 is /dev/sda1, PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01.\n");
    fs::permissions(file("Boot0003"), fs::perms(0));
    const std::string remark = "ovra: warning: cannot read Boot0003: no permission\n"
                               "  Run this as root, or as the owner of the folder.\n";
    for (const words &more : {words{}, words{"--json"}}) {
        const outcome found = run(words{"find", "c5t0d0s0"} + more, *around);
        EXPECT_EQ(found.status, 0) << found.err;
        EXPECT_THAT(found.out, HasSubstr("Boot0008"));
        EXPECT_THAT(found.err, ::testing::EndsWith(remark));
    }
    const outcome disks = run({"disks"}, *around);
    EXPECT_EQ(disks.status, 0);
    EXPECT_EQ(disks.err, remark) << "it may be one of a disk";
    EXPECT_EQ(run({"show", "Boot0008"}, *around).err, "");
    // Nothing is said to boot from a disk that cannot be read; that is not to say that nothing does.
    fs::permissions(root / "dev/sda", fs::perms::none);
    const outcome refused = run({"find", "c5t0d0s0"}, *around);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "ovra: cannot read /dev/sda: Permission denied\n  Run this as root.\n");
    const outcome shown = run({"show", "Boot0008"}, *around);
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.err, "ovra: warning: cannot read /dev/sda: Permission denied\n"
                         "  The option may boot from it.\n");
}

// The firmware does not enumerate what is damaged.
TEST_F(writing_obstacles, of_damaged_options_do_not_hide_them_outside_the_order)
{
    put_order({0});
    for (const int size : {0, 1, 3, -1}) {
        fs::remove_all(file("Boot0003"));
        if (size == -1)
            fs::create_directory(file("Boot0003"));
        else
            std::ofstream(file("Boot0003")) << std::string(static_cast<size_t>(size), 'x');
        EXPECT_THAT(output({"list"}), HasSubstr("-         Boot0003  ?       (damaged)")) << size;
        const json options = parsed({"list"})["options"];
        EXPECT_EQ(options.size(), 8u);
        EXPECT_EQ(options[3]["error"], "damaged") << size;
    }
    // Attributes without data are no variable.
    fs::remove_all(file("Boot0003"));
    put("Boot0003", "");
    put("boot0003", "");
    std::ofstream(variables / "Boot0003-12345678-93ca-11d2-aa0d-00e098032b8c") << "x";
    EXPECT_EQ(parsed({"list"})["options"].size(), 7u);
}

// A folder or a file that is no variable is damage, whichever verb meets it.
TEST_F(writing_obstacles, of_damaged_options_are_called_so_by_every_verb)
{
    for (const int size : {0, 1, 3, -1}) {
        fs::remove_all(file("Boot0007"));
        if (size == -1)
            fs::create_directory(file("Boot0007"));
        else
            std::ofstream(file("Boot0007")) << std::string(static_cast<size_t>(size), 'x');
        EXPECT_THAT(output({"list"}), HasSubstr("7         Boot0007  ?       (damaged)")) << size;
        EXPECT_THAT(output({"order"}), HasSubstr("7  Boot0007  (damaged)\n")) << size;
        EXPECT_EQ(output({"next"}), "Boot0007  (damaged)\n") << size;
        EXPECT_THAT(run({"show", "Boot0007"}).err, StartsWith("ovra: cannot read Boot0007: damaged\n"))
            << size;
        EXPECT_THAT(run({"set", "Boot0007", "--active"}).err,
                    StartsWith("ovra: cannot read Boot0007: damaged\n"));
        EXPECT_THAT(failure({"create", "--desc", "x", "--path-hex", "7fff0400", "--number", "7"}),
                    StartsWith("ovra: Boot0007 exists\n"));
    }
}

} // namespace tool_test
