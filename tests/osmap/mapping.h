/* SPDX-License-Identifier: MIT */
/* A machine in memory, and what the tests of the mapping say about nodes and messages. */
#ifndef TESTS_OSMAP_MAPPING_H
#define TESTS_OSMAP_MAPPING_H

#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "src/dpath/list.h"
#include "src/osmap/osmap.h"
#include "src/osmap/platform.h"
#include "src/rt/owned.h"
#include "tests/fakes/disks.h"
#include "tests/fakes/platform.h"
#include "tests/fakes/tree.h"
#include "tests/rt/open_handle.h"
#include "tests/support/bytes.h"
#include "tests/support/messages.h"

namespace ovra::test {

/* Nodes of the machine's devices. */
inline constexpr char root_bridge[] = "02 01 0c 00 d0 41 03 0a 00 00 00 00 ";
inline constexpr char second_bridge[] = "02 01 0c 00 d0 41 08 0a 01 00 00 00 ";
inline constexpr char sata_function[] = "01 01 06 00 02 1f ";
inline constexpr char ide_function[] = "01 01 06 00 01 1f ";
inline constexpr char scsi_function[] = "01 01 06 00 00 05 ";
inline constexpr char sata_disk[] = "03 12 0a 00 00 00 00 80 00 00 ";
inline const std::string disk_nodes = std::string(root_bridge) + sata_function + sata_disk;
inline const std::string file_node = "04 04 08 00 5c 00 00 00 "; // "\\"
inline constexpr char end_entire[] = "7f ff 04 00 ";
inline constexpr char end_instance[] = "7f 01 04 00 ";

/* The first slice of c0t0d0, and the first partition of c0t1d0. */
inline constexpr char guid_of_slice[] = "37 0a 9f 5f 44 8a d0 4a 9c 2e 1d 9e 6f 5b 7c 01 ";
inline constexpr char slice_node[] =
    "04 01 2a 00 01 00 00 00 00 08 00 00 00 00 00 00 00 00 10 00 00 00 00 00 "
    "37 0a 9f 5f 44 8a d0 4a 9c 2e 1d 9e 6f 5b 7c 01 02 02 ";
inline constexpr char partition_node[] =
    "04 01 2a 00 01 00 00 00 00 08 00 00 00 00 00 00 00 40 06 00 00 00 00 00 "
    "78 56 34 12 00 00 00 00 00 00 00 00 00 00 00 00 01 01 ";

inline constexpr char sata_path[] = "/pci@0,0/pci8086,2829@1f,2/disk@0,0";

inline void make_tree()
{
    fakes::tree_node &bridge = fakes::tree().add_bridge("pci@0,0", "PNP0A03", "0");
    fakes::tree_node &ide = bridge.add_function("pci-ide@1f,1", 0x010180, 0x1f, 1);
    ide.add("ide@0").add("hdrv@1,0");
    ide.add("ide@1").add("hdrv@0,0");
    fakes::tree_node &sata = bridge.add_function("pci8086,2829@1f,2", 0x010601, 0x1f, 2);
    for (const char *disk : {"disk@0,0", "disk@1,0", "disk@120,0"})
        sata.add(disk);
    bridge.add_function("pci1000,30@5", 0x010000, 5, 0).add("sd@3,1");
    fakes::tree_node &second = fakes::tree().add_bridge("pci@1,0", "PNP0A08", "1");
    second.add_function("pci8086,a282@17", 0x010601, 0x17, 0).add("disk@2,0");
}

inline void make_drives()
{
    fakes::medium &gpt = fakes::add_gpt_drive("c0t0d0");
    gpt.add_slice("/dev/dsk/c0t0d0s0", 0x800, 0x100000, from_hex(guid_of_slice));
    gpt.add_slice("/dev/dsk/c0t0d0s1", 0x100800, 0x100000, bytes(16, 0x22));
    fakes::medium &mbr = fakes::add_mbr_drive("c0t1d0", 0x12345678);
    mbr.add_partition("/dev/rdsk/c0t1d0p0", 0, 1000000);
    mbr.add_partition("/dev/rdsk/c0t1d0p1", 2048, 409600);
    mbr.add_partition("/dev/rdsk/c0t1d0p4", 500000, 100000);
    mbr.add_partition("/dev/rdsk/c0t1d0p5", 600000, 100000);
    fakes::put_link("/dev/dsk/c0t0d0s0", "../../devices/pci@0,0/pci8086,2829@1f,2/disk@0,0:a");
    fakes::put_link("/dev/dsk/c0t0d0s1", "../../devices/pci@0,0/pci8086,2829@1f,2/disk@0,0:b");
    fakes::put_link("/dev/dsk/c0t1d0p1", "../../devices/pci@0,0/pci8086,2829@1f,2/disk@1,0:r");
}

/* An open handle on a machine with these trees and drives; at the end everything must be back. */
class mapping : public open_handle {
protected:
    void SetUp() override
    {
        open_handle::SetUp();
        fakes::reset_platform();
        make_tree();
        make_drives();
    }
    void TearDown() override
    {
        open_handle::TearDown();
        EXPECT_EQ(fakes::platform_objects(), 0U);
    }
};

/* The bytes of a list's nodes, one behind the other. */
inline std::string bytes_of(uefi_device_path_t **list)
{
    std::string all;
    for (uefi_device_path_t **node = list; node && *node; ++node)
        all += to_hex(*node, (*node)->len) + " ";
    return all;
}

/* What a body writes with the error switch alone on, respectively the trace switch. */
template <typename body>
std::string errors_of(const body &call)
{
    const messages said(1, 0);
    call();
    return said.text();
}

template <typename body>
std::string traces_of(const body &call)
{
    const messages said(0, 1);
    call();
    return said.text();
}

/* Silent calls, for results alone. */
template <typename body>
auto quietly(const body &call)
{
    const messages said(0, 0);
    return call();
}

inline std::vector<std::string> strings_of(char **array)
{
    std::vector<std::string> all;
    for (char **text = array; text && *text; ++text)
        all.emplace_back(*text);
    return all;
}

/* A text for the functions that take one that they do not change. */
struct mutable_text {
    std::string text;
    operator char *() { return text.data(); }
};

} // namespace ovra::test

#endif
