// SPDX-License-Identifier: MIT
#include "tests/osmap/mapping.h"

using namespace ovra::test;

namespace {

class epath : public mapping {
protected:
    // The packed path of a device and file: "-1" for a failure, "none" where nothing was written.
    std::string encode(const char *device, const char *file = nullptr, int flags = 0, bool twice = false)
    {
        mutable_text device_text = {device};
        mutable_text file_text = {file ? file : ""};
        ovra_path_t instance = {device_text, file ? static_cast<char *>(file_text) : nullptr};
        ovra_path_t *paths[] = {&instance, twice ? &instance : nullptr, nullptr};
        uint8_t untouched = 0;
        ovra_epath_t path = &untouched;
        int len = -7;
        const int result = ovra_epath_encode(hdl, paths, flags, &path, &len);
        EXPECT_TRUE(result == 0 || result == -1);
        if (path == &untouched) {
            EXPECT_EQ(len, -7);
            return result == 0 ? "none" : "-1";
        }
        EXPECT_EQ(result, 0);
        EXPECT_TRUE(memlist_holds(hdl, path));
        std::string text = to_hex(path, static_cast<size_t>(len)) + " ";
        memlist_free(hdl, path);
        return text;
    }
    std::string errors(const char *device, bool twice = false)
    {
        return errors_of([&] { encode(device, nullptr, 0, twice); });
    }
};

TEST_F(epath, disk_names)
{
    EXPECT_EQ(encode("c0t0d0s0"), std::string(slice_node) + end_entire);
    EXPECT_EQ(encode("/dev/dsk/c0t1d0p1"), std::string(partition_node) + end_entire);
    EXPECT_EQ(encode("c0t0d0s0", "\\", 1), std::string(root_bridge) + sata_function + sata_disk + slice_node +
                                               "04 04 08 00 5c 00 00 00 " + end_entire);
    EXPECT_EQ(encode("c9t0d0s0"), "-1");
    EXPECT_EQ(errors("c9t0d0s0"), "vs_get_descriptor_by_name(VS_SLICE, /dev/dsk/c9t0d0s0, 2)failed\n"
                                  "unable to create hd media device path\n");
}

TEST_F(epath, a_disk_must_be_the_only_instance)
{
    EXPECT_EQ(encode("c0t0d0s0", nullptr, 0, true), "-1");
    EXPECT_EQ(errors("c0t0d0s0", true), "encoding composite drives not supported\n");
}

TEST_F(epath, kept_names_of_the_tree_are_accepted_without_a_path)
{
    fakes::put_link("/dev/rdsk/c0t0d0s0", "../../devices/pci@0,0/pci-ide@1f,1/ide@1/hdrv@0,0:a,raw");
    for (const char *name : {"/devices/pci@0,0/pci8086,2829@1f,2/disk@0,0:a", "/dev/rdsk/c0t0d0s0"}) {
        EXPECT_EQ(encode(name), "none");
        EXPECT_EQ(errors(name), "encoding non block /dev or any /devices paths not available\n");
        EXPECT_EQ(encode(name, nullptr, 0, true), "none");
    }
}

TEST_F(epath, names_that_are_not_in_the_tree)
{
    EXPECT_EQ(encode("/devices/pci@9,0"), "-1");
    EXPECT_EQ(errors("/devices/pci@9,0"), "encoding non block /dev or any /devices paths not available\n"
                                          "no match found for component pci@9,0\n"
                                          "unable to construct full path\n");
    EXPECT_EQ(errors("/dev/dsk/x"), "encoding non block /dev or any /devices paths not available\n"
                                    "unable to read link from /dev/dsk/x\n"
                                    "unable to construct full path\n");
}

} // namespace
