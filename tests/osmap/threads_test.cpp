#include <thread>

#include "tests/osmap/mapping.h"

using namespace ovra::test;

namespace {

class threads : public mapping {};

// Encodes and decodes the path of one disk again and again, on a handle of its own.
void use(const char *path, const std::string &nodes, const std::string &device, int *failures)
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
        bytes packed = from_hex(nodes + end_entire);
        ovra_path_t **paths = nullptr;
        if (ovra_epath_decode_to_devices(hdl, packed.data(), static_cast<int>(packed.size()), &paths) != 0 ||
            device != paths[0]->device_path)
            ++*failures;
        free_dpath(hdl, paths);
    }
    ovra_fini(hdl);
}

} // namespace

TEST_F(threads, do_not_disturb_each_other)
{
    const environment in_files("OVRA_TEST_FILE", "1"); // the driver in memory is for one thread
    const messages silent(0, 0);
    int failures[2] = {};
    std::thread other(use, "/devices/pci@0,0/pci1000,30@5/sd@3,1:a",
                      std::string(root_bridge) + scsi_function + "03 02 08 00 03 00 01 00 ",
                      "/pci@0,0/pci1000,30@5/sd@3,1", &failures[1]);
    use("/devices/pci@0,0/pci8086,2829@1f,2/disk@0,0:a", std::string(root_bridge) + sata_function + sata_disk,
        sata_path, &failures[0]);
    other.join();
    EXPECT_EQ(failures[0], 0);
    EXPECT_EQ(failures[1], 0);
}
