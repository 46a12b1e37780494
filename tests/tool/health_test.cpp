// SPDX-License-Identifier: MIT
// Options that lead nowhere, or where another one leads.
#include <sstream>

#include "tests/tool/disks.h"

namespace tool_test {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class health : public disks_verb {};

// The hardware in front of a disk that is always in the machine.
const std::string on_sata = from_hex("02010c00d041030a00000000"
                                     "01010600001f"
                                     "03120a000000ffff0000");

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

// Of an option with several instances, or paths, one that is there is enough.
TEST_F(health, an_option_is_stale_when_nothing_that_it_names_is_there)
{
    const auto node = [](const char *guid) {
        return from_hex(std::string("04012a000100000000080000000000000060000000000000") + guid + "0202");
    };
    const std::string gone = node("11223344556677889900aabbccddeeff");
    const std::string there = node("370a9f5f448ad04a9c2e1d9e6f5b7cd1");
    const std::string next = from_hex("7f010400");
    const std::string end = from_hex("7fff0400");
    put("Boot0010", load_option(1, "second", gone + next + there + end));
    put("Boot0011", load_option(1, "behind", gone + end + there + end));
    put("Boot0012",
        load_option(1, "network", gone + next + from_hex("030c1b00") + std::string(23, '\0') + end));
    put("Boot0013", load_option(1, "none", gone + next + gone + end));
    EXPECT_THAT(output({"remove", "--stale"}), StartsWith("deleted Boot0013\n"));
    EXPECT_EQ(get("Boot0010").size() + get("Boot0011").size(),
              2 * load_option(1, "second", gone + end + there + end).size());
}

// With the lines of a message joined.
std::string unbroken(const std::string &text)
{
    std::string all;
    std::istringstream lines(text);
    for (std::string word; lines >> word;)
        all += (all.empty() ? "" : " ") + word;
    return all;
}

// What is done to the disk of an option, and what is said then. The kernel has none of its partitions.
struct obstacle {
    const char *said;
    std::vector<std::pair<uint64_t, std::string>> written; // at an offset
    uint64_t size = 0;                                     // that the image is cut or extended to
};

std::vector<obstacle> table_obstacles()
{
    constexpr uint64_t first = 512;
    constexpr uint64_t last = 65535 * 512;
    const std::string zeros(512, '\0');
    // The entries as half as many of 256 bytes: the same bytes.
    const auto with_wide_entries = [](std::string header) {
        ovra::test::put_number(&header, 80, 64, 4);
        ovra::test::put_number(&header, 84, 256, 4);
        ovra::test::put_number(&header, 16, 0, 4);
        ovra::test::put_number(&header, 16, ovra::test::crc32(header.substr(0, 92)), 4);
        return header;
    };
    const ovra::test::gpt_bytes good = ovra::test::make_gpt(65536, {{1, 2048, 4095}});
    const ovra::test::gpt_bytes wide_blocks = ovra::test::make_gpt(8192, {{1, 256, 511}}, 128, 1, 4096);
    const std::string wide_first = with_wide_entries(good.head.substr(first, 512));
    const std::string wide_last = with_wide_entries(good.tail.substr(good.tail.size() - 512));
    std::string mbr = zeros;
    mbr.replace(446, 16, from_hex("00000000 8e000000 00080000 00080000"));
    mbr.replace(510, 2, "\x55\xaa");
    return {
        {"GPT, both headers damaged", {{first + 16, "bad"}, {last + 16, "bad"}}},
        {"GPT, both headers damaged", {{first + 16, "bad"}, {last, zeros}}},
        {"GPT, damaged: protective MBR alone", {{first, zeros}, {last, zeros}}},
        {"GPT, damaged: entries damaged", {{1100, "bad"}, {last - 32 * 512, "bad"}}},
        {"its device or image ends before the disk does", {}, 32000UL * 512},
        {"its device or image ends before the disk does", {}, 2000UL * 512},
        {"its device or image ends before the disk does", {}, 512},
        {"GPT, which Linux does not use: no protective MBR", {{0, zeros}}},
        {"GPT, which Linux does not use: blocks of 4096 bytes",
         {{0, wide_blocks.head}, {last + 512 - wide_blocks.tail.size(), wide_blocks.tail}}},
        {"GPT, which Linux does not use: entries of 256 bytes", {{first, wide_first}, {last, wide_last}}},
    };
}

// What is on a disk is not known when its table is damaged: its options stay.
TEST_F(health, options_of_damaged_disks_are_not_stale)
{
    put_disk("sdx", "sys/devices/pci0000:00/0000:00:1f.2/ata6/host5/target5:0:0/5:0:0:0");
    put("Boot0010", load_option(1, "gone", from_hex(sample_path_hex)));
    for (const obstacle &each : table_obstacles()) {
        ovra::test::write_gpt(root / "dev/sdx", 65536, ovra::test::make_gpt(65536, {{1, 2048, 4095}}));
        std::fstream image(root / "dev/sdx", std::ios::in | std::ios::out | std::ios::binary);
        for (const auto &[at, bytes] : each.written)
            image.seekp(static_cast<std::streamoff>(at)) << bytes;
        image.close();
        if (each.size != 0)
            std::filesystem::resize_file(root / "dev/sdx", each.size);
        const outcome removed = run({"remove", "--stale"});
        EXPECT_EQ(removed.status, 1) << each.said;
        EXPECT_EQ(removed.out, "") << each.said;
        EXPECT_THAT(unbroken(removed.err),
                    HasSubstr(std::string("which options are stale is not known: /dev/sdx: ") + each.said));
        EXPECT_NE(get("Boot0010"), "(none)") << each.said;
    }
}

// A partition that the kernel still has, on a disk that is blank now, or at another place.
TEST_F(health, partitions_that_the_kernel_has_are_not_gone)
{
    const std::string place = "sys/devices/pci0000:00/0000:00:1f.2/ata6/host5/target5:0:0/5:0:0:0";
    put_disk("sdx", place);
    put_text(place + "/block/sdx/sdx1/partition", "1");
    put_text(place + "/block/sdx/sdx1/start", "4096");
    put_text(place + "/block/sdx/sdx1/size", "2048");
    put("Boot0010", load_option(1, "gone", from_hex(sample_path_hex)));
    const auto not_known = [this] { return unbroken(run({"check", "--fix"}).out); };
    std::ofstream(root / "dev/sdx").close();
    std::filesystem::resize_file(root / "dev/sdx", 65536UL * 512);
    EXPECT_THAT(not_known(), HasSubstr("/dev/sdx: the kernel has sdx1, which is not in its partition table"));
    const auto write_table = [this](uint64_t first) {
        ovra::test::write_gpt(root / "dev/sdx", 65536, ovra::test::make_gpt(65536, {{1, first, 8191}}));
    };
    write_table(2048);
    EXPECT_THAT(not_known(),
                HasSubstr("/dev/sdx: the kernel has sdx1 at another place than its partition table"));
    write_table(4096);
    EXPECT_THAT(output({"remove", "--stale", "--dry-run"}), HasSubstr("would delete Boot0010"));
}

// Each of what is looked for, and what of it --fix takes away.
TEST_F(health, check_finds_and_fixes)
{
    EXPECT_EQ(output({"check"}), "nothing found\n");
    EXPECT_EQ(parsed({"check"}), json({{"findings", json::array()}, {"not_known", nullptr}}));
    const std::string path = from_hex(sample_path_hex);
    put("Boot0010", load_option(1, "gone", on_sata + path));
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
    EXPECT_THAT(
        output({"list"}),
        ::testing::ContainsRegex("  UEFI QEMU QEMU HARDDISK\n +next, duplicate of Boot0001  SCSI device\n"));
    EXPECT_THAT(output({"list", "-v"}), ::testing::ContainsRegex("  gone +stale\n? +PARTUUID="));
    const json options = parsed({"list", "-v"})["options"];
    EXPECT_FALSE(options[0].contains("duplicate_of"));
    EXPECT_EQ(options[8]["stale"], true);
    EXPECT_EQ(options[9]["duplicate_of"], "Boot0001");
    EXPECT_FALSE(options[9].contains("stale"));
}

// Firmware boots whichever it finds.
TEST_F(health, each_instance_of_a_path_counts)
{
    const std::string gone = from_hex(sample_path_hex.substr(0, 84));
    const std::string there = from_hex("04012a0001000000"
                                       "01000000000000000200000000000000"
                                       "370a9f5f448ad04a9c2e1d9e6f5b7cd102027fff0400");
    const std::string next_instance = from_hex("7f010400");
    put("Boot0010", load_option(1, "second", on_sata + gone + next_instance + there));
    put("Boot0011", load_option(1, "none", on_sata + gone + next_instance + gone + from_hex("7fff0400")));
    EXPECT_EQ(output({"remove", "--stale"}), "deleted Boot0011\n");
    EXPECT_THAT(parsed({"find", "sdd1"})["options"], ::testing::Contains("Boot0010"));
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
