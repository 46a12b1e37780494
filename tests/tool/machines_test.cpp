// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <fstream>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

// Machines on which the command cannot do its work.
class unfit_machines : public Machine {
protected:
    const std::vector<words> readers = {{"list"}, {"show", "Boot0000"}, {"order"},
                                        {"next"}, {"current"},          {"vars"}};
};

TEST_F(unfit_machines, without_firmware_variables_are_refused_by_every_verb)
{
    std::filesystem::remove_all(root);
    std::filesystem::create_directory(root);
    std::vector<words> all = readers;
    all.insert(all.end(), writers.begin(), writers.end());
    for (const words &arguments : all) {
        EXPECT_EQ(failure(arguments), "ovra: no firmware variables on " + root.string() +
                                          "\n  A machine's folder holds them in sys/firmware/efi/efivars.\n");
    }
}

TEST_F(unfit_machines, without_efivars_are_refused)
{
    std::filesystem::remove_all(variables);
    EXPECT_THAT(failure({"list"}), HasSubstr("ovra: no firmware variables on "));
}

TEST_F(unfit_machines, with_a_file_for_efivars_are_refused)
{
    std::filesystem::remove_all(variables);
    std::ofstream(variables) << "x";
    EXPECT_THAT(failure({"list"}), HasSubstr("ovra: no firmware variables on "));
}

TEST_F(unfit_machines, that_do_not_exist_are_refused)
{
    const outcome result = run_command({"--root", folder / "nowhere", "list"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ovra: --root: there is no folder \"" + (folder / "nowhere").string() + "\"\n");
    EXPECT_EQ(run_command({"--root", "/dev/null", "list"}).status, 1);
    EXPECT_EQ(run_command({"--root", "", "list"}).status, 1);
}

TEST_F(unfit_machines, may_be_named_by_a_relative_path)
{
    const std::string shell =
        "cd '" + folder.string() + "' && '" OVRA_TOOL "' --root machine next >/dev/null";
    EXPECT_EQ(system(shell.c_str()), 0);
}

TEST_F(unfit_machines, this_one_is_refused_when_it_has_no_firmware_variables)
{
    if (std::filesystem::exists("/sys/firmware/efi/efivars"))
        GTEST_SKIP() << "this machine has firmware variables";
    const outcome result = run_command({"list"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "ovra: no firmware variables on this machine\n"
                          "  It was not started by UEFI firmware.\n"
                          "  '--root DIR' works on a machine in a folder.\n");
}

TEST_F(unfit_machines, are_not_mixed_with_test_files)
{
    surroundings around;
    around.environment = {{"OVRA_TEST_FILE", ""}};
    const auto before = snapshot();
    const outcome result = run({"next", "Boot0007"}, around);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("ovra: OVRA_TEST_FILE is set\n"));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(unfit_machines, that_may_not_be_read_are_refused_with_what_to_do)
{
    const auto around = as_user_without_rights();
    if (!around)
        GTEST_SKIP() << "the command lies where other users cannot run it";
    std::filesystem::permissions(variables, std::filesystem::perms(0));
    for (const words &arguments : readers) {
        const outcome result = run(arguments, *around);
        EXPECT_EQ(result.status, 1) << arguments[0] << result.out;
        EXPECT_THAT(result.err, HasSubstr("no permission")) << arguments[0];
        EXPECT_THAT(result.err, HasSubstr("\n  Run this as root, or as the owner of the folder.\n"))
            << arguments[0];
    }
}

TEST_F(unfit_machines, that_may_not_be_written_are_refused_with_what_to_do)
{
    const auto around = as_user_without_rights();
    if (!around)
        GTEST_SKIP() << "the command lies where other users cannot run it";
    put("BootNext", std::string("\x01\0", 2));
    output({"time", "--wakeup", "--set", "2098-02-03T04:05:06Z"}); // an alarm to clear
    std::filesystem::permissions(variables, std::filesystem::perms(0555));
    const auto before = snapshot();
    for (const words &arguments : writers) {
        const outcome result = run(arguments, *around);
        EXPECT_EQ(result.status, 1) << arguments[0] << result.out;
        EXPECT_THAT(result.err, HasSubstr("no permission")) << arguments[0];
        EXPECT_THAT(result.err, HasSubstr("\n  Run this as root, or as the owner of the folder.\n"))
            << arguments[0];
    }
    EXPECT_EQ(run({"list"}, *around).status, 0);
    EXPECT_EQ(snapshot(), before);
}

TEST_F(unfit_machines, with_a_folder_for_a_variable_are_read)
{
    std::filesystem::remove(file("Boot0003"));
    std::filesystem::create_directory(file("Boot0003"));
    EXPECT_EQ(run({"list"}).status, 0);
}

TEST_F(unfit_machines, with_many_options_are_listed)
{
    std::vector<uint16_t> numbers;
    for (uint16_t number = 0x100; number < 0x900; ++number) {
        numbers.push_back(number);
        put("Boot0" + std::string(1, "0123456789"[number >> 8]) +
                std::string(1, "0123456789ABCDEF"[number >> 4 & 15]) +
                std::string(1, "0123456789ABCDEF"[number & 15]),
            load_option(1, "many", from_hex("7fff0400")));
    }
    put_order(numbers);
    EXPECT_EQ(parsed({"list"})["options"].size(), 0x800u + 8u);
}

TEST_F(unfit_machines, out_of_numbers_say_so)
{
    if (has_sanitizers())
        GTEST_SKIP() << "65,535 options take six seconds with sanitizers, and no other code than a few";
    put_order({});
    for (unsigned number = 0; number <= 0xfffe; ++number) {
        char name[16];
        snprintf(name, sizeof name, "Boot%04X", number);
        std::ofstream(file(name), std::ios::binary) << "\x07" << std::string(4, '\0');
    }
    EXPECT_THAT(failure({"create", "--desc", "x", "--path-hex", "7fff0400"}),
                HasSubstr("ovra: no option number is free\n"));
}

} // namespace tool_test
