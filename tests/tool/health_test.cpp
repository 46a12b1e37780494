// SPDX-License-Identifier: MIT
// Options that lead nowhere, or where another one leads.
#include "tests/tool/disks.h"

namespace tool_test {

using ::testing::HasSubstr;

class health : public disks_verb {};

// A partition that is there, with other blocks; one that is not; one behind USB, which may be pulled out.
TEST_F(health, stale_are_options_of_partitions_that_are_gone)
{
    const auto disk = [](const char *blocks, const char *guid) {
        return from_hex(std::string("04012a0001000000") + blocks + guid + "0202" + "7fff0400");
    };
    const char *blocks = "00080000000000000060000000000000";
    const std::string gone = disk(blocks, "11223344556677889900aabbccddeeff");
    put("Boot0010", load_option(1, "gone", gone));
    put("Boot0011",
        load_option(1, "there",
                    disk("01000000000000000200000000000000", "370a9f5f448ad04a9c2e1d9e6f5b7cd1")));
    put("Boot0012", load_option(1, "stick", from_hex("030506000100") + gone));
    put("Boot0013", load_option(1, "booted", gone));
    put("BootCurrent", std::string("\x13\0", 2), 6);
    put_order({0x10, 0x11});
    EXPECT_EQ(output({"remove", "--stale"}), "deleted Boot0010\nwrote BootOrder: Boot0011\n");
    EXPECT_EQ(output({"remove", "--stale"}), "nothing to change\n");
    EXPECT_THAT(run_command({"--vars", file("Boot0011"), "remove", "--stale"}).status, 1);
}

// Each of what is looked for, and what of it --fix takes away.
TEST_F(health, check_finds_and_fixes)
{
    EXPECT_EQ(output({"check"}), "nothing found\n");
    EXPECT_EQ(parsed({"check"}), json({{"findings", json::array()}, {"not_known", nullptr}}));
    const std::string path = from_hex(sample_path_hex);
    put("Boot0010", load_option(1, "gone", path));
    put("Boot0011", get("Boot0001"));
    put("Boot0012", "1");
    put("Boot0013", load_option(1, "outside", from_hex("02010c00d041030a000000007fff0400")));
    put("Boot0014", load_option(0, "two",
                                from_hex("02010c00d041030a000000007fff0400"
                                         "02010c00d041030a000000007fff0400")));
    put("BootNext", std::string("\x14\0", 2));
    put_order({0, 1, 2, 3, 4, 5, 6, 7, 0x1f, 0x10, 3, 0x14});
    const std::string found = "Boot001F: BootOrder names it, but it does not exist\n"
                              "Boot0003: BootOrder names it more than once\n"
                              "Boot0014: BootNext names it, but it is inactive\n"
                              "Boot0010: no disk has its partition\n"
                              "Boot0014: it holds more than one path; firmware boots the first\n"
                              "Boot0011: it has the path, file and data of Boot0001\n"
                              "Boot0012: it cannot be read: damaged\n"
                              "Boot0013: it is active but not in BootOrder\n";
    const outcome checked = run({"check"});
    EXPECT_EQ(checked.status, 1);
    EXPECT_EQ(checked.err, "");
    EXPECT_EQ(checked.out, found);
    const auto before = snapshot();
    const outcome planned = run({"check", "--fix", "--dry-run"});
    EXPECT_EQ(snapshot(), before);
    EXPECT_THAT(planned.out, HasSubstr("would delete Boot0010\nwould delete Boot0011\n"));
    const outcome fixed = run({"check", "--fix", "--json"});
    EXPECT_EQ(fixed.status, planned.status);
    EXPECT_EQ(fixed.status, 1);
    EXPECT_EQ(json::parse(fixed.out)["findings"].size(), 8u);
    EXPECT_THAT(order(), ::testing::ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 0x14));
    EXPECT_EQ(get("Boot0010") + get("Boot0011"), "(none)(none)");
    EXPECT_EQ(run({"check"}).out, "Boot0014: BootNext names it, but it is inactive\n"
                                  "Boot0014: it holds more than one path; firmware boots the first\n"
                                  "Boot0012: it cannot be read: damaged\n"
                                  "Boot0013: it is active but not in BootOrder\n");
}

TEST_F(health, check_fixes_an_order_alone)
{
    put_order({7, 0x1f, 0, 1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(
        output({"check", "--fix"}),
        "Boot001F: BootOrder names it, but it does not exist\n"
        "Boot0007: BootOrder names it more than once\n"
        "wrote BootOrder: Boot0007 Boot0000 Boot0001 Boot0002 Boot0003 Boot0004 Boot0005\n      Boot0006\n");
    EXPECT_EQ(output({"check", "--fix"}), "nothing to change\n");
}

TEST_F(health, list_marks_duplicates_and_with_v_stale_ones)
{
    put("Boot0010", load_option(1, "gone", from_hex(sample_path_hex)));
    put("Boot0011", get("Boot0001"));
    put("BootNext", std::string("\x11\0", 2));
    EXPECT_THAT(output({"list"}),
                HasSubstr("UEFI QEMU QEMU HARDDISK                        next, duplicate of "
                          "Boot0001\n"));
    EXPECT_THAT(output({"list", "-v"}), ::testing::ContainsRegex("gone +stale\n"));
    const json options = parsed({"list", "-v"})["options"];
    EXPECT_FALSE(options[0].contains("duplicate_of"));
    EXPECT_EQ(options[8]["stale"], true);
    EXPECT_EQ(options[9]["duplicate_of"], "Boot0001");
    EXPECT_FALSE(options[9].contains("stale"));
}

// On a file system that is mounted: the names of FAT have no case.
TEST_F(health, check_misses_files_of_mounted_partitions_alone)
{
    output({"create", "--desc", "x", "--disk", "c0t0d0s0", "--file", "\\EFI\\x\\a.efi", "--json"});
    EXPECT_EQ(output({"check"}), "nothing found\n");
    put_text("proc/self/mountinfo", "36 25 8:49 / /boot/my\\040esp rw - vfat /dev/sdd1 rw");
    put_text("boot/my esp/efi/X/other.efi", "");
    const outcome checked = run({"check"});
    EXPECT_EQ(checked.status, 1);
    EXPECT_EQ(checked.out, "Boot0008: there is no file /boot/my esp/EFI/x/a.efi\n");
    put_text("boot/my esp/efi/X/A.EFI", "");
    EXPECT_EQ(output({"check"}), "nothing found\n");
}

} // namespace tool_test
