// SPDX-License-Identifier: MIT
#include "tests/osmap/mapping.h"

#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

class logdrive : public mapping {
protected:
    std::string encode(const char *device, const char *file, int flags)
    {
        uint8_t untouched = 0;
        ovra_epath_t path = &untouched;
        int len = -7;
        if (encode_path_logdrive(hdl, device, file, flags, &path, &len) != 0) {
            EXPECT_EQ(path, &untouched);
            EXPECT_EQ(len, -7);
            return "-1";
        }
        EXPECT_TRUE(memlist_holds(hdl, path));
        const std::string text = to_hex(path, static_cast<size_t>(len)) + " ";
        memlist_free(hdl, path);
        return text;
    }
    std::string errors(const char *device, const char *file, int flags)
    {
        return errors_of([&] { EXPECT_EQ(encode(device, file, flags), "-1"); });
    }
};

const std::string second_disk_nodes =
    std::string(root_bridge) + sata_function + "03 12 0a 00 01 00 00 80 00 00 ";

TEST_F(logdrive, the_short_form_is_two_nodes)
{
    EXPECT_EQ(encode("c0t0d0s0", nullptr, 0), std::string(slice_node) + end_entire);
    EXPECT_EQ(encode("/dev/dsk/c0t0d0s0", nullptr, 0), std::string(slice_node) + end_entire);
    EXPECT_EQ(encode("/dev/rdsk/c0t1d0p1", nullptr, 0), std::string(partition_node) + end_entire);
    // Only bit 0 has a meaning.
    EXPECT_EQ(encode("c0t0d0s0", nullptr, ~1), std::string(slice_node) + end_entire);
}

TEST_F(logdrive, the_full_form_has_the_hardware_in_front)
{
    EXPECT_EQ(encode("/dev/dsk/c0t1d0p1", nullptr, 1), second_disk_nodes + partition_node + end_entire);
    EXPECT_EQ(encode("c0t0d0s0", nullptr, -1), disk_nodes + slice_node + end_entire);
    // A name below another folder is read through that folder's link.
    fakes::put_link("/dev/rdsk/c0t0d0s0", "../../devices/pci@0,0/pci1000,30@5/sd@3,1:a,raw");
    EXPECT_EQ(encode("/dev/rdsk/c0t0d0s0", nullptr, 1), std::string(root_bridge) + scsi_function +
                                                            "03 02 08 00 03 00 01 00 " + slice_node +
                                                            end_entire);
}

TEST_F(logdrive, a_file_stands_behind_the_disk)
{
    EXPECT_EQ(encode("c0t0d0s0", "\\", 0), slice_node + file_node + end_entire);
    EXPECT_EQ(encode("c0t0d0s0", "\\", 1), disk_nodes + slice_node + file_node + end_entire);
    EXPECT_EQ(encode("c0t0d0s0", "", 0), std::string(slice_node) + "04 04 06 00 00 00 " + end_entire);
}

TEST_F(logdrive, kept_an_ide_level_repeats_the_node_before_it)
{
    fakes::put_link("/dev/dsk/c0t0d0s0", "../../devices/pci@0,0/pci-ide@1f,1/ide@1/hdrv@0,0:a");
    EXPECT_EQ(encode("c0t0d0s0", nullptr, 1), std::string(root_bridge) + ide_function + ide_function +
                                                  "03 01 08 00 01 00 00 00 " + slice_node + end_entire);
}

TEST_F(logdrive, either_output_may_be_null)
{
    int len = 0;
    EXPECT_EQ(encode_path_logdrive(hdl, "c0t0d0s0", nullptr, 0, nullptr, &len), 0);
    EXPECT_EQ(len, 46);
    ovra_epath_t path = nullptr;
    EXPECT_EQ(encode_path_logdrive(hdl, "c0t0d0s0", nullptr, 0, &path, nullptr), 0);
    EXPECT_TRUE(memlist_holds(hdl, path));
    EXPECT_EQ(encode_path_logdrive(hdl, "c0t0d0s0", nullptr, 0, nullptr, nullptr), 0);
}

TEST_F(logdrive, a_name_of_neither_form)
{
    EXPECT_EQ(errors("c0t0d0", nullptr, 0),
              "unrecognized format c0t0d0\nunable to create hd media device path\n");
    EXPECT_EQ(errors("", nullptr, 0), "unrecognized format \nunable to create hd media device path\n");
}

TEST_F(logdrive, no_hardware_path)
{
    EXPECT_EQ(errors("c9t0d0s0", nullptr, 1),
              "unable to read link from /dev/dsk/c9t0d0s0\nunable to construct full path\n");
    // What was found until then is released.
    fakes::put_link("/dev/dsk/c0t0d0s0", "/devices/pci@0,0/pci-ide@1f,1/ide@1/hdrv@7,0");
    EXPECT_EQ(errors("c0t0d0s0", nullptr, 1),
              "no match found for component hdrv@7,0\nunable to construct full path\n");
}

TEST_F(logdrive, a_file_name_that_cannot_be_encoded)
{
    EXPECT_THAT(errors("c0t0d0s0", "\xff", 1), ::testing::EndsWith("unable to create file device path\n"));
}

TEST_F(logdrive, each_refused_allocation_is_said)
{
    std::string all;
    for_each_refused_allocation(
        [](ovra_hdl_t handle) {
            ovra_epath_t path = nullptr;
            int len = 0;
            return encode_path_logdrive(handle, "c0t0d0s0", "\\", 1, &path, &len);
        },
        [&](const attempt &one) { all += one.messages; });
    for (const char *message : {"unable to construct full path\n", "unable to create hd media device path\n",
                                "unable to add dpath_node\n", "unable to create file device path\n",
                                "unable to create end device path\n", "unable to pack device path\n"})
        EXPECT_THAT(all, ::testing::HasSubstr(message));
}

} // namespace
