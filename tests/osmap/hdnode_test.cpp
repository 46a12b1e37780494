// SPDX-License-Identifier: MIT
#include "tests/osmap/mapping.h"

using ovra::owned;
using namespace ovra::test;

namespace {

using builder = int(const char *, uefi_device_path_t **);

class hdnode : public mapping {
protected:
    static std::string node_of(const char *name, builder *build = add_hd_path)
    {
        uefi_device_path_t *node = nullptr;
        const int result = build(name, &node);
        const owned<uefi_device_path_t> owner(node);
        if (result != 0) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(node, nullptr);
            return "-1";
        }
        return to_hex(node, node->len) + " ";
    }
    static unsigned number_of(const char *name)
    {
        uefi_device_path_t *node = nullptr;
        EXPECT_EQ(quietly([&] { return add_hd_path(name, &node); }), 0) << name;
        const owned<uefi_device_path_t> owner(node);
        return node ? reinterpret_cast<uefi_hard_drive_path_t *>(node)->part_number : 0xdead;
    }
    static std::string errors(const char *name, builder *build = add_hd_path)
    {
        return errors_of([&] { EXPECT_EQ(node_of(name, build), "-1"); });
    }

    fakes::medium &gpt() { return fakes::drives()[0].media[0]; }
    fakes::medium &mbr() { return fakes::drives()[1].media[0]; }
};

TEST_F(hdnode, a_slice_under_each_of_its_names)
{
    for (const char *name : {"c0t0d0s0", "/dev/dsk/c0t0d0s0", "/dev/rdsk/c0t0d0s0"}) {
        EXPECT_EQ(node_of(name), slice_node);
        EXPECT_EQ(number_of(name), 1U);
        EXPECT_EQ(errors_of([&] { node_of(name); }), "");
        EXPECT_EQ(traces_of([&] { node_of(name); }), "");
    }
    EXPECT_EQ(number_of("c0t0d0s1"), 2U);
}

TEST_F(hdnode, a_partition_under_each_of_its_names)
{
    for (const char *name : {"c0t1d0p1", "/dev/dsk/c0t1d0p1", "/dev/rdsk/c0t1d0p1"}) {
        EXPECT_EQ(node_of(name), partition_node);
        EXPECT_EQ(errors_of([&] { node_of(name); }), "");
        EXPECT_EQ(traces_of([&] { node_of(name); }), "VS_NSECTORS (number of sectors): 409600\n"
                                                     "VS_RELSECT (start sector): 2048\n");
    }
}

TEST_F(hdnode, kept_partitions_beyond_the_fourth_are_numbered_like_the_whole_disk)
{
    EXPECT_EQ(number_of("c0t1d0p0"), 0U);
    EXPECT_EQ(number_of("c0t1d0p4"), 4U);
    EXPECT_EQ(number_of("c0t1d0p5"), 0U);
    for (const char *number : {"5", "4294967295", "4294967299", "99999999999999999999"}) {
        const std::string name = std::string("c0t1d0p") + number;
        mbr().add_partition("/dev/rdsk/" + name, 1, 2);
        EXPECT_EQ(number_of(name.c_str()), name == "c0t1d0p4294967299" ? 3U : 0U);
    }
}

TEST_F(hdnode, kept_a_partition_without_a_number_is_the_whole_disk)
{
    mbr().add_partition("/dev/rdsk/c0t1d0p", 0, 5);
    EXPECT_EQ(number_of("c0t1d0p"), 0U);
}

TEST_F(hdnode, a_medium_may_have_partitions_and_slices)
{
    gpt().attributes["volserno"] = uint32_t{0x12345678};
    for (const auto &[name, number] :
         {std::pair{"c0t0d0p0", 0U}, {"c0t0d0p", 0U}, {"c0t0d0p4", 4U}, {"c0t0d0p5", 0U}}) {
        gpt().add_partition(std::string("/dev/rdsk/") + name, 1, 2);
        EXPECT_EQ(number_of(name), number);
    }
    EXPECT_EQ(number_of("c0t0d0s0"), 1U);
}

TEST_F(hdnode, slice_numbers_of_any_size)
{
    for (const auto &[number, expected] :
         {std::pair{"", 1U}, {"127", 128U}, {"4294967295", 0U}, {"99999999999999999999", 0U}}) {
        const std::string name = std::string("c0t0d0s") + number;
        gpt().add_slice("/dev/dsk/" + name, 1, 2, bytes(16, 1));
        EXPECT_EQ(number_of(name.c_str()), expected) << name;
    }
}

TEST_F(hdnode, what_follows_the_last_letter_must_be_digits)
{
    for (const char *name :
         {"c0t0d0s1a", "c0t0d0p1a", "c0t0d0s-1", "c0t0d0p 1", "c0t0p0s1,", "c0t1d0p1\xb2"}) {
        EXPECT_EQ(node_of(name), "-1");
        EXPECT_EQ(errors(name), "");
        EXPECT_EQ(traces_of([&] { node_of(name); }), "");
    }
}

TEST_F(hdnode, the_later_letter_says_which_form_it_is)
{
    EXPECT_EQ(errors("p0s1"), "vs_get_descriptor_by_name(VS_SLICE, /dev/dsk/p0s1, 2)failed\n");
    EXPECT_EQ(errors("s0p1"), "vs_get_descriptor_by_name(VS_PARTITION, /dev/rdsk/s0p1, 2) failed\n");
}

TEST_F(hdnode, a_name_of_neither_form)
{
    EXPECT_EQ(errors("c0t0d0"), "unrecognized format c0t0d0\n");
    EXPECT_EQ(errors("/dev/dsk/c0t0d0"), "unrecognized format c0t0d0\n");
    EXPECT_EQ(errors("/dev/rdsk/"), "unrecognized format \n");
    EXPECT_EQ(errors(""), "unrecognized format \n");
}

TEST_F(hdnode, kept_a_folder_inside_the_name_cuts_its_start)
{
    EXPECT_EQ(errors("X/dev/dsk/c0t0d0s0"),
              "vs_get_descriptor_by_name(VS_SLICE, /dev/dsk//c0t0d0s0, 2)failed\n");
    EXPECT_EQ(errors("XY/dev/rdsk/c0t1d0p1"),
              "vs_get_descriptor_by_name(VS_PARTITION, /dev/rdsk/k/c0t1d0p1, 2) failed\n");
}

TEST_F(hdnode, a_disk_that_is_not_there)
{
    EXPECT_EQ(errors("c9t0d0s0"), "vs_get_descriptor_by_name(VS_SLICE, /dev/dsk/c9t0d0s0, 2)failed\n");
    EXPECT_EQ(errors("c9t0d0p1"), "vs_get_descriptor_by_name(VS_PARTITION, /dev/rdsk/c9t0d0p1, 2) failed\n");
}

TEST_F(hdnode, a_name_that_does_not_fit_is_not_looked_up)
{
    const std::string slice = "s" + std::string(1023 - 10, '0');
    gpt().add_slice("/dev/dsk/" + slice, 1, 2, bytes(16, 1));
    EXPECT_EQ(number_of(slice.c_str()), 1U);
    EXPECT_EQ(errors((slice + "0").c_str()),
              "vs_get_descriptor_by_name(VS_SLICE, /dev/dsk/" + slice + ", 36)failed\n");
    const std::string partition = "p" + std::string(1023 - 11, '0');
    mbr().add_partition("/dev/rdsk/" + partition, 1, 2);
    EXPECT_EQ(number_of(partition.c_str()), 0U);
    EXPECT_EQ(errors((partition + "0").c_str()),
              "vs_get_descriptor_by_name(VS_PARTITION, /dev/rdsk/" + partition + ", 36) failed\n");
}

TEST_F(hdnode, kept_wording_of_missing_slice_values)
{
    gpt().slices[0].attributes.erase("size");
    EXPECT_EQ(errors("c0t0d0s0"), "unable to extract VS_SIZE (number of sectors)for /dev/dsk/c0t0d0s0\n");
    gpt().slices[0].attributes["size"] = uint32_t{5}; // not of the type
    EXPECT_EQ(errors("c0t0d0s0"), "unable to extract VS_SIZE (number of sectors)for /dev/dsk/c0t0d0s0\n");
    gpt().slices[1].attributes.erase("start");
    EXPECT_EQ(errors("c0t0d0s1"), "unable to extract VS_START (start sectorfor /dev/dsk/c0t0d0s1\n");
}

TEST_F(hdnode, a_slice_without_attributes)
{
    fakes::fail_platform_call(1, fakes::failing::error);
    EXPECT_EQ(errors("c0t0d0s0"), "no VS_SLICE attributes found for /dev/dsk/c0t0d0s0\n");
}

TEST_F(hdnode, a_name_without_its_letter)
{
    gpt().add_slice("/dev/dsk/c0t0d0", 1, 2, bytes(16, 1));
    EXPECT_EQ(errors("c0t0d0", add_hd_path_slice), "drive has no slice number: c0t0d0\n");
    mbr().add_partition("/dev/rdsk/c0t1d0", 1, 2);
    EXPECT_EQ(errors("c0t1d0", add_hd_path_partition), "drive has no partition number: c0t1d0\n");
}

TEST_F(hdnode, the_two_forms_by_their_own_names)
{
    EXPECT_EQ(node_of("c0t0d0s0", add_hd_path_slice), slice_node);
    EXPECT_EQ(node_of("c0t1d0p1", add_hd_path_partition), partition_node);
}

TEST_F(hdnode, kept_a_slice_without_a_whole_guid_has_no_signature)
{
    const std::string node = "04 01 2a 00 01 00 00 00 00 08 00 00 00 00 00 00 00 00 10 00 00 00 00 00 "
                             "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 02 00 ";
    for (const fakes::attribute &value :
         {fakes::attribute(bytes()), fakes::attribute(bytes(15, 0x33)), fakes::attribute(uint64_t{5})}) {
        gpt().slices[0].attributes["uguid"] = value;
        EXPECT_EQ(node_of("c0t0d0s0"), node);
        EXPECT_EQ(errors_of([] { node_of("c0t0d0s0"); }),
                  "unable to extract UEFI UGUID --- for /dev/dsk/c0t0d0s0\n");
        EXPECT_EQ(traces_of([] { node_of("c0t0d0s0"); }), "");
    }
    gpt().slices[0].attributes.erase("uguid");
    EXPECT_EQ(node_of("c0t0d0s0"), node);
    bytes longer = from_hex(guid_of_slice);
    longer.push_back(0x99);
    gpt().slices[0].attributes["uguid"] = longer;
    EXPECT_EQ(node_of("c0t0d0s0"), slice_node);
}

TEST_F(hdnode, missing_partition_values)
{
    mbr().partitions[1].attributes.erase("nsectors");
    EXPECT_EQ(errors("c0t1d0p1"), "unable to find VS_NSECTORS for /dev/rdsk/c0t1d0p1\n");
    EXPECT_EQ(traces_of([] { node_of("c0t1d0p1"); }), "");
    mbr().partitions[2].attributes.erase("relsect");
    EXPECT_EQ(errors("c0t1d0p4"), "unable to find VS_RELSECT (start sector)for /dev/rdsk/c0t1d0p4\n");
    EXPECT_EQ(traces_of([] { node_of("c0t1d0p4"); }), "VS_NSECTORS (number of sectors): 100000\n");
    fakes::fail_platform_call(1, fakes::failing::error);
    EXPECT_EQ(errors("c0t1d0p0"), "no attributes for VS_PARTITION /dev/rdsk/c0t1d0p0 5\n");
}

TEST_F(hdnode, sectors_are_32_bits_wide)
{
    mbr().add_partition("/dev/rdsk/c0t1d0p2", 0xffffffff, 0xfffffffe);
    EXPECT_EQ(node_of("c0t1d0p2"), "04 01 2a 00 02 00 00 00 ff ff ff ff 00 00 00 00 fe ff ff ff 00 00 00 00 "
                                   "78 56 34 12 00 00 00 00 00 00 00 00 00 00 00 00 01 01 ");
    EXPECT_EQ(traces_of([] { node_of("c0t1d0p2"); }), "VS_NSECTORS (number of sectors): -2\n"
                                                      "VS_RELSECT (start sector): -1\n");
}

TEST_F(hdnode, a_medium_without_a_signature)
{
    mbr().attributes.clear();
    EXPECT_EQ(errors("c0t1d0p1"), "unable to extract VOLSERNO\n"
                                  "unable to obtain MBR sig: /dev/rdsk/c0t1d0p1\n");
}

TEST_F(hdnode, the_mbr_signature)
{
    int err = 0;
    const ovra::descriptor partition(vs_get_descriptor_by_name(VS_PARTITION, "/dev/rdsk/c0t1d0p1", &err));
    uint32_t signature = 0;
    EXPECT_EQ(get_mbr_sig(partition.get(), &signature), 0);
    EXPECT_EQ(signature, 0x12345678U);

    const auto said = [&](unsigned call, fakes::failing how) {
        signature = 1;
        return errors_of([&] {
            fakes::fail_platform_call(call, how);
            EXPECT_EQ(get_mbr_sig(partition.get(), &signature), -1);
            EXPECT_TRUE(fakes::stop_failing());
            EXPECT_EQ(signature, 1U);
        });
    };
    EXPECT_EQ(said(0, fakes::failing::error), "unexpected NULL media descriptor: err=5\n");
    EXPECT_EQ(said(0, fakes::failing::error_and_result), "unexpected NULL media descriptor: err=5\n");
    EXPECT_EQ(said(0, fakes::failing::nothing), "unexpected NULL media descriptor: err=0\n");
    EXPECT_EQ(said(0, fakes::failing::empty), "unexpected NULL media descriptor: err=0\n");
    EXPECT_EQ(said(1, fakes::failing::error), "vs_get_attributes media[0] err == 5 kvp = (nil)\n");
    EXPECT_THAT(said(1, fakes::failing::error_and_result),
                ::testing::MatchesRegex("vs_get_attributes media\\[0\\] err == 5 kvp = 0x[0-9a-f]+\n"));
    EXPECT_EQ(said(1, fakes::failing::nothing), "vs_get_attributes media[0] err == 0 kvp = (nil)\n");
    EXPECT_EQ(said(1, fakes::failing::empty), "unable to extract VOLSERNO\n");
    EXPECT_EQ(said(2, fakes::failing::error), "unable to extract VOLSERNO\n");
}

} // namespace
