// What is on a disk: tables of both kinds, and none.
#include <array>
#include <cerrno>

#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;
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

    // The drive is there, its medium is not, and a message says why.
    void expect_no_medium(const std::string &message)
    {
        std::vector<std::string> found;
        const std::string messages = said([&] { found = volumes(); });
        EXPECT_THAT(found, IsEmpty());
        EXPECT_THAT(messages, HasSubstr("hwplat: " + message));
        EXPECT_EQ(drives().size(), 1U);
        EXPECT_EQ(all_of(VS_MEDIA)[0], 0U);
        EXPECT_EQ(link_of("/dev/dsk/c0t0d0s0"), "errno " + std::to_string(ENOENT));
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
    EXPECT_THAT(all_of(VS_SLICE)[0], 0U);
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
    expect_no_medium("dev/sda: no disk or image that can be read");
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
        for (size_t at = 0; at < 1200; at += at >= 440 && at < 700 ? 1 : 16) {
            const std::string byte(1, static_cast<char>(~good[at]));
            sample::patch(image, at, byte);
            for (const std::string &row : volumes())
                EXPECT_TRUE(row.starts_with("c0t0d0")) << at;
            sample::patch(image, at, good.substr(at, 1));
        }
        EXPECT_FALSE(volumes().empty());
    }
}

} // namespace
