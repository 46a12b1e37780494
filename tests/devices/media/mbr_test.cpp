// SPDX-License-Identifier: MIT
// Disks with an MBR.
#include "tests/devices/media/fixture.h"

namespace {

using namespace devices_test;
using ovra::test::gpt_bytes;
using ovra::test::make_gpt;
using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(disk_media, mbr_with_logical_partitions)
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

TEST_F(disk_media, mbr_with_a_gap)
{
    make_disk();
    make_mbr({{0x83, 2048, 2048}, {0, 0, 0}, {0, 0, 0}, {0xef, 8192, 4096}});
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0p0 0 65536", "c0t0d0p1 2048 2048", "c0t0d0p4 8192 4096"));
}

// Firmware takes such a table as it is, and an option may mean either partition.
TEST_F(disk_media, overlapping_partitions_are_kept)
{
    make_disk();
    make_mbr({{0x83, 2048, 8192}, {0x83, 4096, 8192}});
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0p0 0 65536", "c0t0d0p1 2048 8192", "c0t0d0p2 4096 8192"));
}

// One that begins on the disk is there, as the kernel has it.
TEST_F(disk_media, partitions_beyond_the_disk_are_passed_over)
{
    make_disk();
    make_mbr({{0x83, 2048, 8192}, {0x83, 65536, 1}, {0x83, 65535, 2}, {0x83, 0xffffffff, 0xffffffff}});
    std::vector<std::string> found;
    const std::string messages = said([&] { found = volumes(); });
    EXPECT_THAT(found, ElementsAre("c0t0d0p0 0 65536", "c0t0d0p1 2048 8192", "c0t0d0p3 65535 2"));
    for (const char *number : {"2", "4"})
        EXPECT_THAT(messages,
                    HasSubstr(std::string("hwplat: sda: partition ") + number + " reaches beyond the disk"));
}

// The chain of an extended partition leads to itself.
TEST_F(disk_media, logical_partitions_in_a_loop)
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

// More blocks than an MBR can count.
TEST_F(disk_media, mbr_of_a_disk_beyond_32_bits)
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

TEST_F(disk_media, mbr_in_blocks_of_4096)
{
    make_disk(4096);
    make_mbr({{0x83, 256, 1024}, {0x83, 1280, 8192}});
    // 8192 blocks are the whole disk.
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0p0 0 8192", "c0t0d0p1 256 1024", "c0t0d0p2 1280 8192"));
    EXPECT_THAT(drives(), ElementsAre("c0t0d0 /pci@0,0/pci8086,1234@1f,2/disk@0,0 sda 4096 8192"));
}

// The remains of a GPT on a disk that has an MBR now are ignored, whatever they claim.
TEST_F(disk_media, mbr_with_remains_of_a_gpt)
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

TEST_F(disk_media, mbr_without_a_signature)
{
    make_disk();
    make_mbr({{0x83, 2048, 8192}});
    sample::patch(image, 0x1b8, std::string(4, '\0'));
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0p0 0 65536", "c0t0d0p1 2048 8192"));
    EXPECT_EQ(attribute(attributes_of(all_of(VS_MEDIA)[0]).get(), "volserno"), 0U);
}

} // namespace
