// SPDX-License-Identifier: MIT
// Disks with a GPT.
#include "tests/devices/media/fixture.h"
#include "tests/support/processor_time.h"

namespace {

using namespace devices_test;
using ovra::test::make_gpt;
using ovra::test::seconds_of;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(disk_media, gpt_with_gaps)
{
    make_disk();
    make_table("label: gpt\\nsda3: start=4096,size=2048\\nsda128: start=2048,size=2048\\n"
               "sda17: start=8192,size=1024\\n");
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s2 4096 2048", "c0t0d0s16 8192 1024", "c0t0d0s127 2048 2048"));
    // Beyond the letters, a minor name is a number.
    EXPECT_EQ(link_of("/dev/dsk/c0t0d0s2"), "../../devices/pci@0,0/pci8086,1234@1f,2/disk@0,0:c");
    EXPECT_EQ(link_of("/dev/dsk/c0t0d0s16"), "../../devices/pci@0,0/pci8086,1234@1f,2/disk@0,0:s16");
}

TEST_F(disk_media, gpt_with_128_entries)
{
    make_disk();
    std::string script = "label: gpt\\n";
    for (unsigned i = 0; i < 128; ++i)
        script += "start=" + std::to_string(2048 + i * 128) + ",size=" + std::to_string(i + 1) + "\\n";
    make_table(script);
    const std::vector<std::string> found = volumes();
    ASSERT_EQ(found.size(), 128U);
    for (unsigned i = 0; i < 128; ++i)
        EXPECT_EQ(found[i], "c0t0d0s" + std::to_string(i) + ' ' + std::to_string(2048 + i * 128) + ' ' +
                                std::to_string(i + 1));
}

// The backup at the disk's end replaces a destroyed header.
TEST_F(disk_media, gpt_whose_first_header_is_damaged)
{
    make_disk();
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    sample::patch(image, 512, std::string(92, '\0'));
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 2048 2048"));
}

// A table is read in the disk's blocks. sfdisk writes one in blocks of 512, which is no table on this disk.
TEST_F(disk_media, gpt_of_other_blocks_is_no_table)
{
    make_disk(4096);
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    expect_no_medium("dev/sda: no partition table");
}

TEST_F(disk_media, header_that_claims_too_many_entries)
{
    make_disk();
    for (const uint64_t offset : {uint64_t{512}, uint64_t{65535 * 512}}) {
        for (const size_t field : {size_t{80}, size_t{84}}) {
            make_table("label: gpt\\nstart=2048,size=2048\\n");
            sample::patch(image, offset + field, "\xff\xff\xff\xff");
            expect_no_medium("dev/sda: its partition table claims too many entries");
        }
    }
}

// Some tools write an MBR with partitions of its own beside a GPT. The GPT counts.
TEST_F(disk_media, gpt_with_a_hybrid_mbr)
{
    make_disk();
    make_gpt_of({{1, 4096, 8191}});
    std::string entry(16, '\0');
    entry[4] = '\x83';
    ovra::test::put_number(&entry, 8, 4096, 4);
    ovra::test::put_number(&entry, 12, 4096, 4);
    sample::patch(image, 0x1be + 16, entry);
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 4096 4096"));
}

// A table of 65,536 entries, the last one used, as another program writes it.
TEST_F(disk_media, gpt_with_as_many_entries_as_there_are_names)
{
    constexpr uint64_t units = 8388608; // 4 GiB, sparse
    machine.disk("sda", machine.ata(machine.function("pci0000:00/0000:00:1f.2", 0x010601), 1, 1, "0:0:0:0"),
                 units);
    image = machine.image("sda", units);
    sample::partition(image, "label: gpt\\ntable-length: 65536\\nsda65536: start=1048576,size=2048\\n");
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s65535 1048576 2048"));
    EXPECT_EQ(link_of("/dev/dsk/c0t0d0s65535"), "../../devices/pci@0,0/pci8086,1234@1f,2/disk@0,0:s65535");
    // One more is refused, before it is read.
    for (const uint64_t header : {uint64_t{512}, (units - 1) * 512})
        sample::patch(image, header + 80, std::string("\x01\0\x01\0", 4));
    expect_no_medium("dev/sda: its partition table claims too many entries");
}

TEST_F(disk_media, gpt_with_every_entry_in_use)
{
#ifdef OVRA_SANITIZED
    constexpr double seconds_for_all = 20; // libblkid's blocks are watched, and there are many for each entry
    constexpr unsigned count = 16384;
#else
    constexpr double seconds_for_all = 2;
    constexpr unsigned count = 65536;
#endif
    constexpr uint64_t units = 262144;
    std::vector<ovra::test::gpt_entry> entries;
    for (unsigned i = 1; i <= count; ++i)
        entries.push_back({i, 32768 + i, 32768 + i});
    machine.disk("sda", machine.ata(machine.function("pci0000:00/0000:00:1f.2", 0x010601), 1, 1, "0:0:0:0"),
                 units);
    image = machine.image("sda", units);
    ovra::test::write_gpt(image, units, make_gpt(units, entries, count));
    std::vector<std::string> found;
    const double seconds = seconds_of([&] { found = volumes(); });
    ASSERT_EQ(found.size(), count);
    EXPECT_EQ(found.front(), "c0t0d0s0 32769 1");
    EXPECT_EQ(found.back(),
              "c0t0d0s" + std::to_string(count - 1) + ' ' + std::to_string(32768 + count) + " 1");
    EXPECT_LT(seconds, seconds_for_all);
    RecordProperty("milliseconds", static_cast<int>(seconds * 1000));
}

TEST_F(disk_media, gpt_entries_that_overlap_are_kept)
{
    make_disk();
    make_gpt_of({{1, 2048, 10239}, {2, 4096, 8191}, {5, 4096, 8191}});
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 2048 8192", "c0t0d0s1 4096 4096", "c0t0d0s4 4096 4096"));
}

// libblkid drops entries beyond the last usable block (65502 here) or before the first.
TEST_F(disk_media, gpt_entries_out_of_range_are_passed_over)
{
    make_disk();
    constexpr uint64_t far = uint64_t{1} << 63;
    make_gpt_of({{1, 2048, 4095},
                 {2, 65000, 65502},
                 {3, 65000, 65503},
                 {4, 65503, 65503},
                 {5, 65000, 65535},
                 {6, 65536, 65536},
                 {7, 1, 40},
                 {8, far, far + 2047},
                 {9, 2048, 2048 + UINT64_MAX - 1},
                 {10, 0, UINT64_MAX - 1},
                 {11, 2048, UINT64_MAX}});
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 2048 2048", "c0t0d0s1 65000 503"));
}

TEST_F(disk_media, gpt_entries_that_end_before_they_start_are_passed_over)
{
    make_disk();
    make_gpt_of({{1, 2048, 4095}, {2, 8192, 8191}, {3, 8192, 8190}, {4, 8192, 2048}});
    std::vector<std::string> found;
    const std::string messages = what_is_said(&found);
    EXPECT_THAT(found, ElementsAre("c0t0d0s0 2048 2048"));
    EXPECT_THAT(messages, HasSubstr("hwplat: sda: a partition entry makes no sense"));
}

// The header claims usable blocks that the disk does not have.
TEST_F(disk_media, gpt_of_a_larger_disk)
{
    make_disk();
    image = machine.image("sda");
    ovra::test::write_gpt(image, 65536, make_gpt(131072, {{1, 2048, 4095}, {2, 65000, 70000}}));
    std::vector<std::string> found;
    what_is_said(&found);
    EXPECT_THAT(found, IsEmpty());
}

} // namespace
