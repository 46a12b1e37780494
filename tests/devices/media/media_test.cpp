// SPDX-License-Identifier: MIT
// What is on a disk: tables of both kinds, and none.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sstream>

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"
#include "tests/support/gpt.h"

namespace {

using namespace devices_test;
using ovra::test::gpt_bytes;
using ovra::test::make_gpt;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A machine with one disk, c0t0d0.
class Media : public testing::Test {
protected:
    void make_disk(unsigned block_size = 512)
    {
        machine.disk("sda",
                     machine.ata(machine.function("pci0000:00/0000:00:1f.2", 0x010601), 1, 1, "0:0:0:0"),
                     65536, block_size);
    }
    // A table of which the disk has the image, of 32 MiB.
    void make_table(const std::string &script)
    {
        image = machine.image("sda");
        sample::partition(image, script);
    }

    // An MBR by hand: entries of (type, start, size).
    void make_mbr(const std::vector<std::array<uint32_t, 3>> &entries)
    {
        image = machine.image("sda");
        sample::patch(image, 0x1b8, "\xcd\xab\x34\x12");
        for (size_t i = 0; i < entries.size(); ++i) {
            std::string entry(16, '\0');
            entry[4] = static_cast<char>(entries[i][0]);
            for (size_t byte = 0; byte < 4; ++byte) {
                entry[8 + byte] = static_cast<char>(entries[i][1] >> (8 * byte) & 0xff);
                entry[12 + byte] = static_cast<char>(entries[i][2] >> (8 * byte) & 0xff);
            }
            sample::patch(image, 0x1be + 16 * i, entry);
        }
        sample::patch(image, 0x1fe, "\x55\xaa");
    }

    // A GPT by hand, with checksums that are right.
    void make_gpt_of(const std::vector<ovra::test::gpt_entry> &entries)
    {
        image = machine.image("sda");
        ovra::test::write_gpt(image, 65536, make_gpt(65536, entries));
    }

    std::string what_is_said(std::vector<std::string> *found)
    {
        return said([&] { *found = volumes(); });
    }

    // The drive is there, its medium is not, and a message says why. A medium that cannot be read is no
    // absent one.
    void expect_no_medium(const std::string &message, int error = ENOENT)
    {
        std::vector<std::string> found;
        const std::string messages = said([&] { found = volumes(); });
        EXPECT_THAT(found, IsEmpty());
        EXPECT_THAT(messages, HasSubstr("hwplat: " + message));
        EXPECT_EQ(drives().size(), 1U);
        EXPECT_EQ(all_of(VS_MEDIA)[0], 0U);
        EXPECT_EQ(link_of("/dev/dsk/c0t0d0s0"), "errno " + std::to_string(error));
        for (const auto &[kind, name] : {std::pair(VS_SLICE, "c0t0d0s0"), std::pair(VS_MEDIA, "c0t0d0")}) {
            int err = 0;
            EXPECT_EQ(vs_get_descriptor_by_name(kind, name, &err), 0U);
            EXPECT_EQ(err, error);
        }
    }

    sample machine;
    fs::path image;
};

TEST_F(Media, mbr_with_logical_partitions)
{
    make_disk();
    make_table(
        "label: dos\\nlabel-id: 0xcafe0001\\nstart=2048,size=2048,type=83\\n"
        "start=4096,size=20480,type=5\\nstart=6144,size=2048,type=83\\nstart=10240,size=4096,type=83\\n"
        "start=16384,size=2048,type=83\\n");
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0p0 0 65536", "c0t0d0p1 2048 2048", "c0t0d0p2 4096 20480",
                                       "c0t0d0p5 6144 2048", "c0t0d0p6 10240 4096", "c0t0d0p7 16384 2048"));
    const descriptors media = all_of(VS_MEDIA);
    EXPECT_EQ(attribute(attributes_of(media[0]).get(), "volserno"), 0xcafe0001);
    EXPECT_EQ(link_of("/dev/rdsk/c0t0d0p7"), "../../devices/pci@0,0/pci8086,1234@1f,2/disk@0,0:x");
}

TEST_F(Media, mbr_with_a_gap)
{
    make_disk();
    make_mbr({{0x83, 2048, 2048}, {0, 0, 0}, {0, 0, 0}, {0xef, 8192, 4096}});
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0p0 0 65536", "c0t0d0p1 2048 2048", "c0t0d0p4 8192 4096"));
}

// Firmware takes such a table as it stands, and either partition can be the one that an option means.
TEST_F(Media, overlapping_partitions_are_kept)
{
    make_disk();
    make_mbr({{0x83, 2048, 8192}, {0x83, 4096, 8192}});
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0p0 0 65536", "c0t0d0p1 2048 8192", "c0t0d0p2 4096 8192"));
}

TEST_F(Media, partitions_beyond_the_disk_are_passed_over)
{
    make_disk();
    make_mbr({{0x83, 2048, 8192}, {0x83, 65536, 1}, {0x83, 65535, 2}, {0x83, 0xffffffff, 0xffffffff}});
    std::vector<std::string> found;
    const std::string messages = said([&] { found = volumes(); });
    EXPECT_THAT(found, ElementsAre("c0t0d0p0 0 65536", "c0t0d0p1 2048 8192"));
    for (const char *number : {"2", "3", "4"})
        EXPECT_THAT(messages,
                    HasSubstr(std::string("hwplat: sda: partition ") + number + " reaches beyond the disk"));
}

// The chain of an extended partition that leads to itself.
TEST_F(Media, logical_partitions_in_a_loop)
{
    make_disk();
    make_mbr({{0x05, 2048, 32768}});
    std::string record(512, '\0');
    record.replace(0x1be + 4, 1, "\x83");
    record.replace(0x1be + 8, 1, "\x10");
    record.replace(0x1be + 12, 1, "\x10");
    record.replace(0x1ce + 4, 1, "\x05");
    record.replace(0x1ce + 13, 1, "\x10");
    record.replace(510, 2, "\x55\xaa");
    sample::patch(image, 2048UL * 512, record);
    const std::vector<std::string> found = volumes();
    EXPECT_GE(found.size(), 2U);
    EXPECT_LE(found.size(), 256U);
    EXPECT_EQ(found[1], "c0t0d0p1 2048 32768");
}

TEST_F(Media, gpt_with_gaps)
{
    make_disk();
    make_table("label: gpt\\nsda3: start=4096,size=2048\\nsda128: start=2048,size=2048\\n"
               "sda17: start=8192,size=1024\\n");
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s2 4096 2048", "c0t0d0s16 8192 1024", "c0t0d0s127 2048 2048"));
    // Beyond the letters, a minor name is a number.
    EXPECT_EQ(link_of("/dev/dsk/c0t0d0s2"), "../../devices/pci@0,0/pci8086,1234@1f,2/disk@0,0:c");
    EXPECT_EQ(link_of("/dev/dsk/c0t0d0s16"), "../../devices/pci@0,0/pci8086,1234@1f,2/disk@0,0:s16");
}

TEST_F(Media, gpt_with_128_entries)
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

// The backup at the disk's end stands in for a header that is gone.
TEST_F(Media, gpt_whose_first_header_is_damaged)
{
    make_disk();
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    sample::patch(image, 512, std::string(92, '\0'));
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 2048 2048"));
}

// A table is read in the disk's blocks. sfdisk writes one in blocks of 512, which means nothing on this disk.
// More blocks than an MBR can tell of.
TEST_F(Media, mbr_of_a_disk_beyond_32_bits)
{
    constexpr uint64_t units = uint64_t{1} << 33;
    machine.disk("sda", machine.ata(machine.function("pci0000:00/0000:00:1f.2", 0x010601), 1, 1, "0:0:0:0"),
                 units);
    make_mbr({{0x83, 2048, 8192}});
    fs::resize_file(image, units * 512);
    std::vector<std::string> found;
    const std::string messages = what_is_said(&found);
    EXPECT_THAT(found, ElementsAre("c0t0d0p0 0 4294967295", "c0t0d0p1 2048 8192"));
    EXPECT_THAT(messages, HasSubstr("hwplat: sda: p0 is cut to 4294967295 blocks"));
}

TEST_F(Media, mbr_in_blocks_of_4096)
{
    make_disk(4096);
    make_mbr({{0x83, 256, 1024}, {0x83, 1280, 8192}});
    // 8192 blocks are the whole disk.
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0p0 0 8192", "c0t0d0p1 256 1024"));
    EXPECT_THAT(drives(), ElementsAre("c0t0d0 /pci@0,0/pci8086,1234@1f,2/disk@0,0 sda 4096 8192"));
}

TEST_F(Media, gpt_of_other_blocks_is_no_table)
{
    make_disk(4096);
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    expect_no_medium("dev/sda: no partition table");
}

TEST_F(Media, header_that_claims_too_many_entries)
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

// What a GPT has left behind on a disk that has an MBR now: nobody reads it, whatever it claims.
TEST_F(Media, mbr_with_remains_of_a_gpt)
{
    make_disk();
    for (const uint32_t count : {uint32_t{128}, UINT32_MAX}) {
        make_mbr({{0x83, 2048, 8192}});
        gpt_bytes remains = make_gpt(65536, {{1, 4096, 8191}});
        ovra::test::put_number(&remains.head, 512 + 80, count, 4);
        ovra::test::put_number(&remains.tail, remains.tail.size() - 512 + 80, count, 4);
        sample::patch(image, 512, remains.head.substr(512));
        sample::patch(image, 65536 * 512 - remains.tail.size(), remains.tail);
        EXPECT_THAT(volumes(), ElementsAre("c0t0d0p0 0 65536", "c0t0d0p1 2048 8192")) << count;
    }
}

// An MBR that some tools write beside a GPT, with partitions of its own: it is the GPT that counts.
TEST_F(Media, gpt_with_a_hybrid_mbr)
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

TEST_F(Media, mbr_without_a_signature)
{
    make_disk();
    make_mbr({{0x83, 2048, 8192}});
    sample::patch(image, 0x1b8, std::string(4, '\0'));
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0p0 0 65536", "c0t0d0p1 2048 8192"));
    EXPECT_EQ(attribute(attributes_of(all_of(VS_MEDIA)[0]).get(), "volserno"), 0U);
}

// A disk of 65,536 entries, the last of them used; as another program writes it.
TEST_F(Media, gpt_with_as_many_entries_as_there_are_names)
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

TEST_F(Media, gpt_with_every_entry_in_use)
{
#ifdef __SANITIZE_ADDRESS__
    constexpr double seconds_for_all = 60; // each of libblkid's many blocks is checked on the way
#else
    constexpr double seconds_for_all = 2;
#endif
    constexpr unsigned count = 65536;
    constexpr uint64_t units = 262144;
    std::vector<ovra::test::gpt_entry> entries;
    for (unsigned i = 1; i <= count; ++i)
        entries.push_back({i, 32768 + i, 32768 + i});
    machine.disk("sda", machine.ata(machine.function("pci0000:00/0000:00:1f.2", 0x010601), 1, 1, "0:0:0:0"),
                 units);
    image = machine.image("sda", units);
    ovra::test::write_gpt(image, units, make_gpt(units, entries, count));
    const double start = processor_seconds();
    const std::vector<std::string> found = volumes();
    const double seconds = processor_seconds() - start;
    ASSERT_EQ(found.size(), count);
    EXPECT_EQ(found.front(), "c0t0d0s0 32769 1");
    EXPECT_EQ(found.back(), "c0t0d0s65535 98304 1");
    EXPECT_LT(seconds, seconds_for_all);
    RecordProperty("milliseconds", static_cast<int>(seconds * 1000));
}

TEST_F(Media, gpt_entries_that_overlap_are_kept)
{
    make_disk();
    make_gpt_of({{1, 2048, 10239}, {2, 4096, 8191}, {5, 4096, 8191}});
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 2048 8192", "c0t0d0s1 4096 4096", "c0t0d0s4 4096 4096"));
}

// What reaches over the last usable block (65502 here) or lies before the first libblkid passes over itself.
TEST_F(Media, gpt_entries_out_of_range_are_passed_over)
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

TEST_F(Media, gpt_entries_that_end_before_they_start_are_passed_over)
{
    make_disk();
    make_gpt_of({{1, 2048, 4095}, {2, 8192, 8191}, {3, 8192, 8190}, {4, 8192, 2048}});
    std::vector<std::string> found;
    const std::string messages = what_is_said(&found);
    EXPECT_THAT(found, ElementsAre("c0t0d0s0 2048 2048"));
    EXPECT_THAT(messages, HasSubstr("hwplat: sda: a partition entry makes no sense"));
}

// A header may say that blocks are usable which the disk does not have.
TEST_F(Media, gpt_of_a_larger_disk)
{
    make_disk();
    image = machine.image("sda");
    ovra::test::write_gpt(image, 65536, make_gpt(131072, {{1, 2048, 4095}, {2, 65000, 70000}}));
    std::vector<std::string> found;
    what_is_said(&found);
    EXPECT_THAT(found, IsEmpty());
}

TEST_F(Media, blank_disk)
{
    make_disk();
    image = machine.image("sda");
    expect_no_medium("dev/sda: no partition table");
}

TEST_F(Media, short_images)
{
    make_disk();
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    for (const uint64_t size : {0, 1, 511, 512, 513, 1023, 1024, 1500}) {
        fs::resize_file(image, size);
        std::vector<std::string> found;
        said([&] { found = volumes(); });
        for (const std::string &row : found)
            EXPECT_TRUE(row.starts_with("c0t0d0p")) << row;
        EXPECT_EQ(drives().size(), 1U);
    }
}

TEST_F(Media, disk_without_a_file)
{
    make_disk();
    expect_no_medium("dev/sda: no disk or image that can be read");
}

// Of a disk that cannot be opened whoever asks for its medium hears why; the others are listed without it.
TEST_F(Media, disk_that_cannot_be_opened)
{
    make_disk();
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    const descriptors drive = all_of(VS_DRIVE);
    fs::rename(image, machine.root() / "dev/sdb");
    fs::create_symlink("sdb", image);
    expect_no_medium("dev/sda: no disk or image that can be read: " + std::string(strerror(ELOOP)), ELOOP);
    int err = 0;
    EXPECT_EQ(vs_get_associated_descriptors(drive[0], VS_MEDIA, &err), nullptr);
    EXPECT_EQ(err, ELOOP);
    fs::remove(image);
    EXPECT_EQ(associated(all_of(VS_DRIVE)[0], VS_MEDIA)[0], 0U);
}

TEST_F(Media, what_is_no_image)
{
    make_disk();
    fs::create_directories(machine.root() / "dev/sda");
    expect_no_medium("dev/sda: no disk or image that can be read");
    fs::remove(machine.root() / "dev/sda");
    ASSERT_EQ(mkfifo((machine.root() / "dev/sda").c_str(), 0600), 0);
    expect_no_medium("dev/sda: no disk or image that can be read");
    fs::remove(machine.root() / "dev/sda");

    // A link, even to a disk of the machine.
    make_table("label: gpt\\nstart=2048,size=2048\\n");
    fs::rename(image, machine.root() / "dev/sdb");
    fs::create_symlink("sdb", image);
    expect_no_medium("dev/sda: no disk or image that can be read", ELOOP);
}

TEST_F(Media, table_of_another_kind)
{
    make_disk();
    make_table("label: sun\\nstart=16065,size=16065\\n");
    expect_no_medium("sda: a partition table of kind sun is not used");
}

// Every byte of a table's first sectors changed: whatever comes of it, the drive is there and nothing else is
// made up.
TEST_F(Media, damaged_tables)
{
    make_disk();
    for (const char *script :
         {"label: gpt\\nstart=2048,size=2048\\n", "label: dos\\nstart=2048,size=2048,type=83\\n"}) {
        make_table(script);
        const std::string good = machine.contents(image);
        const std::vector<std::string> undamaged = volumes();
        ASSERT_FALSE(undamaged.empty());
        for (size_t at = 0; at < 1200; at += at >= 440 && at < 700 ? 1 : 16) {
            const std::string byte(1, static_cast<char>(~good[at]));
            sample::patch(image, at, byte);
            // An MBR's entry that was damaged may be another partition of its number.
            const bool in_entries = at >= 446 && at < 510;
            const std::string damaged = "c0t0d0p" + std::to_string((at - 446) / 16 + 1) + ' ';
            for (const std::string &row : volumes()) {
                EXPECT_TRUE(std::ranges::count(undamaged, row) == 1 || row == "c0t0d0p0 0 65536" ||
                            (in_entries && row.starts_with(damaged)))
                    << at << ": " << row;
                std::istringstream fields(row);
                std::string name;
                uint64_t first = 0;
                uint64_t size = 0;
                EXPECT_TRUE(fields >> name >> first >> size) << row;
                EXPECT_TRUE(size > 0 && size <= 65536 && first <= 65536 - size) << at << ": " << row;
            }
            sample::patch(image, at, good.substr(at, 1));
        }
        EXPECT_EQ(volumes(), undamaged);
    }
}

} // namespace
