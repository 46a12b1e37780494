// SPDX-License-Identifier: MIT
#include <thread>

#include "tests/osmap/mapping.h"

using namespace ovra::test;

namespace {

class threads : public mapping {};

// Encodes and decodes the path of one disk again and again, on a handle of its own, by its device and its
// name.
void use(const char *path, const char *disk, const std::string &nodes, const std::string &device,
         int *failures)
{
    ovra_hdl_t hdl = nullptr;
    if (ovra_init(&hdl) != 0) {
        ++*failures;
        return;
    }
    for (int i = 0; i < 300; ++i) {
        uefi_device_path_t **list = nullptr;
        if (add_hardware_paths(path, &list) != 0 || bytes_of(list) != nodes)
            ++*failures;
        free_device_path(list);
        list = nullptr;
        if (add_hardware_paths(disk, &list) != 0 || bytes_of(list) != nodes)
            ++*failures;
        free_device_path(list);
        ovra_epath_t full = nullptr;
        int size = 0;
        if (encode_path_logdrive(hdl, disk, nullptr, 1, &full, &size) != 0 ||
            (to_hex(full, static_cast<size_t>(size)) + " ").rfind(nodes, 0) != 0)
            ++*failures;
        bytes packed = from_hex(nodes + end_entire);
        ovra_path_t **paths = nullptr;
        if (ovra_epath_decode_to_devices(hdl, packed.data(), static_cast<int>(packed.size()), &paths) != 0 ||
            device != paths[0]->device_path)
            ++*failures;
        free_dpath(hdl, paths);
    }
    ovra_fini(hdl);
}

TEST_F(threads, do_not_disturb_each_other)
{
    const environment in_files("OVRA_TEST_FILE", "1"); // the driver in memory is for one thread
    const messages silent(0, 0);
    int failures[2] = {};
    fakes::add_gpt_drive("c2t3d1").add_slice("/dev/dsk/c2t3d1s0", 0x800, 0x100000, bytes(16, 0x44));
    fakes::put_link("/dev/dsk/c2t3d1s0", "../../devices/pci@0,0/pci1000,30@5/sd@3,1:a");
    std::thread other(use, "/devices/pci@0,0/pci1000,30@5/sd@3,1:a", "c2t3d1s0",
                      std::string(root_bridge) + scsi_function + "03 02 08 00 03 00 01 00 ",
                      "/pci@0,0/pci1000,30@5/sd@3,1", &failures[1]);
    use("/devices/pci@0,0/pci8086,2829@1f,2/disk@0,0:a", "c0t0d0s0",
        std::string(root_bridge) + sata_function + sata_disk, sata_path, &failures[0]);
    other.join();
    EXPECT_EQ(failures[0], 0);
    EXPECT_EQ(failures[1], 0);
}

} // namespace
