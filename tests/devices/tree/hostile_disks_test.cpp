// SPDX-License-Identifier: MIT
// A machine's folder that somebody filled to do harm: disks whose files make no sense, and impossible names.
#include <cerrno>

#include "tests/devices/tree/hostile.h"

namespace {

using namespace devices_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST_F(hostile_machine, sizes_of_a_disk)
{
    const std::string disk = port + "/block/sda";
    for (const char *file : {"size", "queue/logical_block_size"}) {
        const fs::path path = machine.root() / disk / file;
        const std::string good = machine.contents(path);
        for (const std::string &contents : nonsense()) {
            machine.put_file(path, contents);
            EXPECT_EQ(drives().size(), 1U);
            EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 2048 2048")) << contents.substr(0, 30);
        }
        fs::remove(path);
        EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 2048 2048")) << "without " << file;
        machine.put_file(path, good);
    }
    for (const char *size : {"0", "1", "511", "513", "768", "131072", "4294967296"}) {
        machine.text(disk + "/queue/logical_block_size", size);
        std::vector<std::string> found;
        const std::string messages = said([&] { found = drives(); });
        EXPECT_THAT(found, ElementsAre(std::string("c0t0d0 ") + controller + "/disk@0,0 sda 512 65536"))
            << size;
        EXPECT_THAT(messages,
                    HasSubstr("/queue/logical_block_size: not the size of a block, 512 bytes are taken"));
    }
}

TEST_F(hostile_machine, disk_without_a_size)
{
    fs::remove(machine.root() / port / "block/sda/size");
    std::vector<std::string> found;
    const std::string messages = said([&] { found = drives(); });
    EXPECT_THAT(found, ElementsAre(std::string("c0t0d0 ") + controller + "/disk@0,0 sda 512 0"));
    EXPECT_THAT(messages, HasSubstr("/block/sda/size: no size, 0 is taken"));
}

// A file that is not a number neither hides a disk nor changes its kind.
TEST_F(hostile_machine, kinds_of_disks)
{
    for (const std::string &file : {port + "/type", port + "/block/sda/hidden"}) {
        for (const std::string &contents : nonsense()) {
            machine.put_file(machine.root() / file, contents);
            EXPECT_THAT(drives(),
                        ElementsAre(std::string("c0t0d0 ") + controller + "/disk@0,0 sda 512 65536"))
                << file << ": " << contents.substr(0, 30);
        }
        fs::remove(machine.root() / file);
    }
}

TEST_F(hostile_machine, links_of_port_multipliers)
{
    const fs::path path = machine.root() / function / "ata1/ata_port/ata1/nr_pmp_links";
    for (const std::string &contents : nonsense()) {
        machine.put_file(path, contents);
        EXPECT_THAT(drives(), ElementsAre(std::string("c0t0d0 ") + controller + "/disk@0,0 sda 512 65536"))
            << contents.substr(0, 30);
    }
    fs::remove(path);
    EXPECT_THAT(drives(), ElementsAre(std::string("c0t0d0 ") + controller + "/disk@0,0 sda 512 65536"));
}

TEST_F(hostile_machine, files_that_are_too_long)
{
    machine.put_file(machine.root() / function / "vendor", std::string(4097, '1'));
    const std::string messages = said([] { EXPECT_THAT(tree_paths(), Not(testing::Contains(controller))); });
    EXPECT_THAT(messages, HasSubstr("hwplat: " + function + "/vendor: longer than a sysfs file can be\n"));
    // The longest file that is read. The line end is not part of the number.
    machine.put_file(machine.root() / function / "vendor", std::string(4089, '0') + "32902\n");
    EXPECT_EQ(drives().size(), 1U);
}

TEST_F(hostile_machine, port_numbers)
{
    const fs::path path = machine.root() / function / "ata1/ata_port/ata1/port_no";
    const auto expect_no_place = [&](const std::string &message) {
        std::vector<std::string> found;
        const std::string messages = said([&] { found = drives(); });
        EXPECT_THAT(found,
                    ElementsAre(std::string("c0t65536d0 ") + controller + "/blkdev@0,0 sda 512 65536"));
        EXPECT_THAT(messages, HasSubstr("hwplat: " + function + "/ata1/ata_port/ata1: " + message));
    };
    for (const std::string &contents : nonsense()) {
        machine.put_file(path, contents);
        expect_no_place("no port number, its disk has no path");
    }
    machine.text(function + "/ata1/ata_port/ata1/port_no", "0");
    expect_no_place("no port number, its disk has no path");
    fs::remove(path);
    expect_no_place("no port number, its disk has no path");
    for (const char *number : {"33", "4294967297"}) {
        machine.text(function + "/ata1/ata_port/ata1/port_no", number);
        expect_no_place("beyond port 32, its disk has no path");
    }
    machine.text(function + "/ata1/ata_port/ata1/port_no", "32");
    EXPECT_THAT(drives(), ElementsAre(std::string("c0t31d0 ") + controller + "/disk@1f,0 sda 512 65536"));
}

TEST_F(hostile_machine, links_of_disks)
{
    const fs::path blocks = machine.root() / "sys/block";
    fs::create_symlink("loop", blocks / "loop");
    fs::create_symlink("/etc", blocks / "absolute");
    fs::create_symlink("../../../../../../../../etc", blocks / "above");
    fs::create_symlink("..", blocks / "up");
    fs::create_symlink("../devices/pci0000:00", blocks / "bridge");
    fs::create_symlink("../devices/pci0000:00/0000:00:1f.2", blocks / "function");
    fs::create_symlink(std::string(4000, 'x'), blocks / "long");
    machine.put_file(blocks / "file", "text");
    fs::create_directories(blocks / "folder");
    std::vector<std::string> found;
    const std::string messages = said([&] { found = drives(); });
    EXPECT_THAT(found, ElementsAre(std::string("c0t0d0 ") + controller + "/disk@0,0 sda 512 65536"));
    for (const char *name : {"absolute", "above", "file", "folder"})
        EXPECT_THAT(messages, HasSubstr(std::string("hwplat: sys/block/") + name + ": no link to a device"));
    // The others lead to a place without a function above ("loop" to itself): like virtual disks, they are on
    // no function.
    for (const char *name : {"loop", "up", "bridge", "function", "long", "sda"})
        EXPECT_THAT(messages, Not(HasSubstr(std::string("sys/block/") + name + ":")));
    for (const char *name : {"loop", "up", "bridge", "function", "long"})
        fs::remove(blocks / name);
    EXPECT_EQ(drives(), found);
}

TEST_F(hostile_machine, scsi_addresses)
{
    const std::string raid = machine.function("pci0000:00/0000:00:03.0", 0x010400);
    unsigned number = 0;
    for (const char *address : {"0:0:65536:0", "0:0:0:65536", "0:0:0", "0:0:0:0:0", "a:b:c:d", "0:0:-1:0",
                                "0:0:99999999999999999999:0", ":::", "x"})
        machine.disk("sdx" + std::to_string(number++), raid + "/host/" + address);
    for (const std::string &row : drives())
        EXPECT_THAT(row, testing::AnyOf(HasSubstr("/pci8086,1234@3/blkdev@"), HasSubstr("/disk@0,0"))) << row;
    EXPECT_EQ(drives().size(), 10U);
}

TEST_F(hostile_machine, names_asked_for)
{
    for (const char *name : {"",
                             "c0t0d0",
                             "c0t0d0s",
                             "c0t0d0p",
                             "c0t0d0s1",
                             "c0t0d0p0",
                             "c0t0d0s00",
                             "c0t0d0s+0",
                             "c0t0d0s0 ",
                             "c0t0d0s65536",
                             "c0t0d0s99999999999999999999",
                             "c0t0d0s-1",
                             "C0t0d0s0",
                             "c00t0d0s0",
                             "/c0t0d0s0",
                             "../dsk/c0t0d0s0",
                             "s0",
                             "p0",
                             "s",
                             "\xff"}) {
        EXPECT_EQ(link_of(std::string("/dev/dsk/") + name), "errno " + std::to_string(ENOENT)) << name;
        int err = 0;
        for (const vs_kind_t kind : {VS_SLICE, VS_PARTITION}) {
            EXPECT_EQ(vs_get_descriptor_by_name(kind, name, &err), 0U) << name;
            EXPECT_EQ(err, ENOENT) << name;
        }
    }
    EXPECT_NE(link_of("/dev/dsk/c0t0d0s0"), "errno " + std::to_string(ENOENT));
    EXPECT_THAT(said([] { link_of("/dev/dsk/c0t0d0s65536"); }),
                HasSubstr("hwplat: c0t0d0s65536: no volume has a number beyond 65535"));
}

TEST(machines, without_anything_or_not_there)
{
    const sample machine;
    EXPECT_THAT(tree_paths(), ElementsAre("/"));
    EXPECT_THAT(drives(), IsEmpty());
    EXPECT_THAT(volumes(), IsEmpty());
    const environment gone("HWPLAT_ROOT", "/nonexistent");
    errno = 0;
    EXPECT_EQ(ht_init("/", HT_SUBTREE), nullptr);
    EXPECT_EQ(errno, ENOENT);
    int err = 0;
    EXPECT_EQ(vs_get_descriptors(VS_DRIVE, nullptr, &err), nullptr);
    EXPECT_EQ(err, ENOENT);
    EXPECT_EQ(vs_get_descriptor_by_name(VS_SLICE, "/dev/dsk/c0t0d0s0", &err), 0U);
    EXPECT_EQ(err, ENOENT);
    EXPECT_EQ(link_of("/dev/dsk/c0t0d0s0"), "errno " + std::to_string(ENOENT));
}

// Two machines at once: descriptors of one stay valid when another becomes the machine.
TEST(machines, each_by_its_folder)
{
    const sample pc("pc");
    const descriptors of_pc = all_of(VS_DRIVE);
    {
        const sample q35("q35");
        EXPECT_EQ(drives().size(), 7U);
        EXPECT_EQ(name_of(of_pc[0]), "c1t3d0");
        const descriptors media = associated(of_pc[0], VS_MEDIA);
        EXPECT_EQ(name_of(associated(media[0], VS_SLICE)[0]), "/dev/dsk/c1t3d0s0");
    }
    EXPECT_EQ(drives().size(), 3U);
}

} // namespace
