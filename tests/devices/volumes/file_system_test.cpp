// SPDX-License-Identifier: MIT
// The file systems in partitions and slices, and the names in the entries of a GPT.
#include <cerrno>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"
#include "tests/support/filesystems.h"

namespace {

using namespace devices_test;
using ovra::test::make_ext2;
using ovra::test::make_fat;

constexpr uint64_t block = 512;

class file_systems : public testing::Test {
protected:
    file_systems()
    {
        const std::string sata = machine.function("pci0000:00/0000:00:1f.2", 0x010601);
        machine.disk("sda", machine.ata(sata, 1, 1, "0:0:0:0"));
        image = machine.image("sda");
        ovra::test::write_gpt(
            image, 65536, ovra::test::make_gpt(65536, {{1, 2048, 4095}, {2, 4096, 6143}, {3, 6144, 8191}}));
    }

    // "type uuid label", with "-" for what is not in the list; "errno N" on failure.
    static std::string found_in(vs_kind_t kind, const char *name)
    {
        int err = -1;
        const vs_descriptor_t of = vs_get_descriptor_by_name(kind, name, &err);
        EXPECT_EQ(err, 0) << name;
        const attributes list(vs_get_file_system(of, &err));
        vs_free_descriptor(of);
        EXPECT_EQ(list == nullptr, err != 0);
        if (err != 0)
            return "errno " + std::to_string(err);
        return text(list.get(), "type") + ' ' + text(list.get(), "uuid") + ' ' + text(list.get(), "label");
    }

    static std::string text(kvlist_t *list, const char *name)
    {
        uint8_t *bytes = nullptr;
        unsigned count = 0;
        if (kvlist_lookup_uint8_array(list, name, &bytes, &count) != 0)
            return "-";
        EXPECT_EQ(bytes[count - 1], 0);
        return {bytes, bytes + count - 1};
    }

    sample machine;
    fs::path image;
};

TEST_F(file_systems, have_a_type_and_what_identifies_them)
{
    sample::patch(image, 2048 * block, make_fat(0x1a2b3c4d, "EFI SYSTEM"));
    sample::patch(image, 4096 * block, make_ext2("0123456789abcdef", "a/b c"));
    EXPECT_EQ(found_in(VS_SLICE, "c0t0d0s0"), "vfat 1A2B-3C4D EFI SYSTEM");
    EXPECT_EQ(found_in(VS_SLICE, "c0t0d0s1"), "ext2 30313233-3435-3637-3839-616263646566 a/b c");
    EXPECT_EQ(found_in(VS_SLICE, "c0t0d0s2"), "- - -") << "no file system";
}

TEST_F(file_systems, without_a_label_have_none)
{
    sample::patch(image, 2048 * block, make_fat(1, ""));
    EXPECT_EQ(found_in(VS_SLICE, "c0t0d0s0"), "vfat 0000-0001 -");
}

// The identity is that of the whole, which has members beside this one.
TEST_F(file_systems, are_not_seen_in_a_member_of_a_raid)
{
    sample::patch(image, 4096 * block, ovra::test::make_raid_member());
    EXPECT_EQ(found_in(VS_SLICE, "c0t0d0s1"), "- - -");
}

TEST_F(file_systems, are_read_anew_at_each_call)
{
    sample::patch(image, 2048 * block, make_fat(1, "ONE"));
    EXPECT_EQ(found_in(VS_SLICE, "c0t0d0s0"), "vfat 0000-0001 ONE");
    sample::patch(image, 2048 * block, make_fat(2, "TWO"));
    EXPECT_EQ(found_in(VS_SLICE, "c0t0d0s0"), "vfat 0000-0002 TWO");
}

TEST_F(file_systems, of_a_partition_and_with_large_blocks)
{
    const std::string sata = "sys/devices/pci0000:00/0000:00:1f.2";
    machine.disk("sdb", machine.ata(sata, 2, 2, "1:0:0:0"));
    const fs::path mbr = machine.image("sdb");
    sample::partition(mbr, "label: dos\\nlabel-id: 0xcafe0001\\nstart=2048,size=4096,type=ef\\n");
    sample::patch(mbr, 2048 * block, make_fat(7, "BOOT"));
    EXPECT_EQ(found_in(VS_PARTITION, "c0t1d0p1"), "vfat 0000-0007 BOOT");
    EXPECT_EQ(found_in(VS_PARTITION, "c0t1d0p0"), "- - -");
}

TEST_F(file_systems, are_asked_for_of_partitions_and_slices_alone)
{
    EXPECT_EQ(found_in(VS_DRIVE, "c0t0d0"), "errno " + std::to_string(EINVAL));
    EXPECT_EQ(found_in(VS_MEDIA, "c0t0d0"), "errno " + std::to_string(EINVAL));
}

TEST_F(file_systems, of_a_disk_that_went_away)
{
    int err = -1;
    const vs_descriptor_t slice = vs_get_descriptor_by_name(VS_SLICE, "c0t0d0s0", &err);
    ASSERT_EQ(err, 0);
    fs::remove(image);
    EXPECT_EQ(vs_get_file_system(slice, &err), nullptr);
    EXPECT_EQ(err, ENOENT);
    vs_free_descriptor(slice);
}

// Every byte of these blocks is somebody else's.
TEST_F(file_systems, made_of_noise_are_no_harm)
{
    uint64_t state = 12345;
    for (int round = 0; round < 50; ++round) {
        std::string noise = round % 2 == 0 ? make_fat(3, "X") : make_ext2("0123456789abcdef", "X");
        for (int i = 0; i < 20; ++i) {
            state = state * 6364136223846793005U + 1442695040888963407U;
            noise[(state >> 33) % noise.size()] = static_cast<char>(state >> 56);
        }
        sample::patch(image, 2048 * block, noise);
        EXPECT_THAT(found_in(VS_SLICE, "c0t0d0s0"),
                    testing::AnyOf(testing::HasSubstr(" "), testing::StartsWith("errno")));
    }
}

TEST_F(file_systems, stand_in_slices_that_have_names_of_their_own)
{
    const std::string script =
        "label: gpt\\nstart=2048,size=2048,name=\"EFI  system ü\"\\nstart=4096,size=2048\\n";
    sample::partition(image, script);
    const descriptors slices = all_of(VS_SLICE);
    EXPECT_EQ(text(attributes_of(slices[0]).get(), "partlabel"), "EFI  system ü");
    EXPECT_EQ(text(attributes_of(slices[1]).get(), "partlabel"), "-");
}

} // namespace
