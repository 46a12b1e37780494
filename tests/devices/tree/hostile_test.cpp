// SPDX-License-Identifier: MIT
// A machine's folder that somebody filled to do harm: what makes no sense is left out, and nothing outside is
// looked at.
#include <cerrno>
#include <cstdio>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/devices/sample.h"

namespace {

using namespace devices_test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char *controller = "/pci@0,0/pci8086,1234@1f,2";

// What a file of sysfs might hold instead of its text.
const std::vector<std::string> &nonsense()
{
    static const std::vector<std::string> contents = {"",
                                                      "\n",
                                                      "\n\n",
                                                      std::string(100000, '1'),
                                                      std::string(4097, '1'),
                                                      std::string("1\0", 2),
                                                      "\xff\xfe\x80",
                                                      "none",
                                                      "-1",
                                                      "+1",
                                                      " 1",
                                                      "0x",
                                                      "0xfg",
                                                      "1e3",
                                                      "99999999999999999999999999",
                                                      "0xffffffffffffffffffffffff"};
    return contents;
}

class Hostile : public testing::Test {
protected:
    Hostile()
        : function(machine.function("pci0000:00/0000:00:1f.2", 0x010601)),
          port(machine.ata(function, 1, 1, "0:0:0:0"))
    {
        machine.disk("sda", port);
        sample::partition(machine.image("sda"), "label: gpt\\nstart=2048,size=2048\\n");
    }

    sample machine;
    std::string function;
    std::string port;
};

TEST_F(Hostile, the_machine_is_sound_without_harm)
{
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 2048 2048"));
}

TEST_F(Hostile, identifiers_of_a_function)
{
    for (const char *file : {"vendor", "device", "revision", "class"}) {
        const fs::path path = machine.root() / function / file;
        const std::string good = machine.contents(path);
        for (const std::string &contents : nonsense()) {
            machine.put_file(path, contents);
            std::vector<std::string> paths;
            const std::string messages = said([&] { paths = tree_paths(); });
            EXPECT_THAT(paths, ElementsAre("/", "/pci@0,0")) << file << ": " << contents.substr(0, 30);
            EXPECT_THAT(messages, HasSubstr("no PCI function, its identifiers cannot be read"));
            EXPECT_THAT(drives(), IsEmpty());
        }
        fs::remove(path);
        EXPECT_THAT(tree_paths(), ElementsAre("/", "/pci@0,0")) << file;
        machine.put_file(path, good);
    }
    EXPECT_THAT(drives().size(), 1U);
}

TEST_F(Hostile, sizes_of_a_disk)
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

TEST_F(Hostile, disk_without_a_size)
{
    fs::remove(machine.root() / port / "block/sda/size");
    std::vector<std::string> found;
    const std::string messages = said([&] { found = drives(); });
    EXPECT_THAT(found, ElementsAre(std::string("c0t0d0 ") + controller + "/disk@0,0 sda 512 0"));
    EXPECT_THAT(messages, HasSubstr("/block/sda/size: no size, 0 is taken"));
}

// What is no number does not hide a disk, nor make it one of another kind.
TEST_F(Hostile, kinds_of_disks)
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

TEST_F(Hostile, links_of_port_multipliers)
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

TEST_F(Hostile, files_that_are_too_long)
{
    machine.put_file(machine.root() / function / "vendor", std::string(4097, '1'));
    const std::string messages = said([] { EXPECT_THAT(drives(), IsEmpty()); });
    EXPECT_THAT(messages, HasSubstr("hwplat: " + function + "/vendor: longer than a sysfs file can be\n"));
    // The longest that is read: a line end is not part of the number.
    machine.put_file(machine.root() / function / "vendor", std::string(4089, '0') + "32902\n");
    EXPECT_EQ(drives().size(), 1U);
}

// What is there and cannot be read fails the snapshot, and is said: a machine without it would have other
// disks.
TEST_F(Hostile, folders_that_cannot_be_opened)
{
    struct rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = dup(0);
    ASSERT_GE(next, 0);
    close(next);
    const std::string messages = said([&] {
        // Room for the machine's folder, and one level below it.
        const struct rlimit tight = {static_cast<rlim_t>(next) + 2, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
        errno = 0;
        EXPECT_EQ(ht_init("/", HT_SUBTREE), nullptr);
        EXPECT_EQ(errno, EMFILE);
        int err = 0;
        EXPECT_EQ(vs_get_descriptors(VS_DRIVE, nullptr, &err), nullptr);
        EXPECT_EQ(err, EMFILE);
        EXPECT_EQ(vs_get_descriptor_by_name(VS_SLICE, "c0t0d0s0", &err), 0U);
        EXPECT_EQ(err, EMFILE);
        EXPECT_EQ(link_of("/dev/dsk/c0t0d0s0"), "errno " + std::to_string(EMFILE));
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    });
    EXPECT_THAT(messages, HasSubstr("hwplat: sys/devices: cannot be read: Too many open files"));
    EXPECT_EQ(drives().size(), 1U);
}

TEST_F(Hostile, port_numbers)
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

TEST_F(Hostile, links_of_disks)
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
    // The others lead somewhere, to itself in the case of "loop", where there is no function above: no disks
    // of a function, as virtual ones are.
    for (const char *name : {"loop", "up", "bridge", "function", "long", "sda"})
        EXPECT_THAT(messages, Not(HasSubstr(std::string("sys/block/") + name + ":")));
    for (const char *name : {"loop", "up", "bridge", "function", "long"})
        fs::remove(blocks / name);
    EXPECT_EQ(drives(), found);
}

// A file that is a link, a FIFO or a folder is not read.
TEST_F(Hostile, kinds_of_files)
{
    const fs::path path = machine.root() / function / "vendor";
    fs::rename(path, machine.root() / "vendor");
    // No kernel has a link there, and nothing says what it would lead to.
    fs::create_symlink(machine.root() / "vendor", path);
    errno = 0;
    EXPECT_EQ(ht_init("/", HT_SUBTREE), nullptr);
    EXPECT_EQ(errno, ELOOP);
    int err = 0;
    EXPECT_EQ(vs_get_descriptors(VS_DRIVE, nullptr, &err), nullptr);
    EXPECT_EQ(err, ELOOP);
    EXPECT_EQ(link_of("/dev/dsk/c0t0d0s0"), "errno " + std::to_string(ELOOP));
    fs::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_THAT(drives(), IsEmpty());
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_THAT(drives(), IsEmpty());
}

// Folders of another machine, linked into this one at each level.
TEST_F(Hostile, folders_that_are_links)
{
    for (const char *folder : {"sys", "sys/block", "sys/devices", "sys/devices/pci0000:00",
                               "sys/devices/pci0000:00/0000:00:1f.2", "dev"}) {
        const fs::path inside = machine.root() / folder;
        const fs::path outside = machine.root().string() + "-outside";
        fs::rename(inside, outside);
        fs::create_directory_symlink(outside, inside);
        EXPECT_THAT(volumes(), IsEmpty()) << folder;
        fs::remove(inside);
        fs::rename(outside, inside);
    }
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 2048 2048"));

    // Within a disk's own path.
    const fs::path inside = machine.root() / function / "ata1";
    const fs::path outside = machine.root().string() + "-outside";
    fs::rename(inside, outside);
    fs::create_directory_symlink(outside, inside);
    EXPECT_THAT(drives(), ElementsAre(std::string("c0t65536d0 ") + controller + "/blkdev@0,0 sda 512 0"));
    fs::remove_all(outside);
}

TEST_F(Hostile, firmware_nodes)
{
    const fs::path link = machine.root() / "sys/devices/pci0000:00/firmware_node";
    const auto identifier = [] {
        const snapshot tree(ht_init("/pci@0,0", HT_PROPS));
        char *text = nullptr;
        EXPECT_EQ(ht_prop_lookup_strings(HT_DEV_ANY, tree.get(), "acpi-hid", &text), 1);
        return std::string(text);
    };
    const auto other_identifier = [](const char *name) {
        const snapshot tree(ht_init("/pci@0,0", HT_PROPS));
        char *text = nullptr;
        const int count = ht_prop_lookup_strings(HT_DEV_ANY, tree.get(), name, &text);
        EXPECT_EQ(count, text != nullptr ? 1 : -1);
        return std::string(text != nullptr ? text : "(none)");
    };
    EXPECT_EQ(identifier(), "PNP0A03");
    EXPECT_EQ(other_identifier("acpi-uid"), "(none)");
    EXPECT_EQ(other_identifier("acpi-cid"), "(none)");
    machine.text("sys/devices/node/hid", "PNP0A08");
    for (const char *target : {"/etc", "../../../../../..", "firmware_node", "../nothing"}) {
        fs::create_symlink(target, link);
        EXPECT_EQ(identifier(), "PNP0A03") << target;
        fs::remove(link);
    }
    fs::create_symlink("../node", link);
    EXPECT_EQ(identifier(), "PNP0A08");
    EXPECT_EQ(other_identifier("acpi-uid"), "(none)");
    EXPECT_EQ(other_identifier("acpi-cid"), "(none)");
    for (const char *modalias : {"acpi:PNP0A08", "acpi:PNP0A08:", "acpi:", "", "PNP0A08:PNP0A03:",
                                 "pci:PNP0A08:PNP0A03:", "acpi:PNP0A03:PNP0A08:", "acpi:PNP0A080:PNP0A03:"}) {
        machine.text("sys/devices/node/modalias", modalias);
        EXPECT_EQ(other_identifier("acpi-cid"), "(none)") << modalias;
        EXPECT_EQ(identifier(), "PNP0A08") << modalias;
    }
    for (const char *modalias :
         {"acpi:PNP0A08:PNP0A03:", "acpi:PNP0A08:PNP0A03", "acpi:PNP0A08:PNP0A03:X:"}) {
        machine.text("sys/devices/node/modalias", modalias);
        EXPECT_EQ(other_identifier("acpi-cid"), "PNP0A03") << modalias;
        EXPECT_EQ(identifier(), "PNP0A03") << modalias;
    }
    machine.text("sys/devices/node/modalias", "acpi:PNP0A08:ABC0001:");
    EXPECT_EQ(identifier(), "PNP0A08");
    machine.text("sys/devices/node/hid", "ABC0001");
    machine.text("sys/devices/node/modalias", "acpi:ABC0001:PNP0A03:");
    EXPECT_EQ(identifier(), "ABC0001");
    machine.text("sys/devices/node/hid", "PNP0A08");
    machine.text("sys/devices/node/uid", "7");
    EXPECT_EQ(other_identifier("acpi-uid"), "7");
    // As the firmware says it: what the text means is for its reader.
    machine.text("sys/devices/node/uid", "no number");
    EXPECT_EQ(other_identifier("acpi-uid"), "no number");
    for (const std::string &unreadable : {std::string(5000, '7'), std::string("7\0", 2)}) {
        machine.put_file(machine.root() / "sys/devices/node/uid", unreadable);
        machine.put_file(machine.root() / "sys/devices/node/modalias", unreadable);
        EXPECT_EQ(other_identifier("acpi-uid"), "(none)");
        EXPECT_EQ(other_identifier("acpi-cid"), "(none)");
    }
    machine.put_file(machine.root() / "sys/devices/node/hid", std::string(5000, 'P'));
    EXPECT_EQ(identifier(), "PNP0A03");
}

TEST_F(Hostile, names_of_functions)
{
    for (const char *name :
         {"0000:00:20.0", "0000:00:1f.8", "0000:00:.0", "0000:00:1f.", "00:1f", "0000:00:-1.0", "1f.2", ":",
          ".", "0000:00:1g.0", "0000:00:ffffffffffffffffff.0"}) {
        if (std::string_view(name) != ".")
            machine.function(std::string("pci0000:00/") + name, 0x010601);
    }
    for (const char *name :
         {"pci", "pci0000", "pci0000:", "pci:00", "pcixyz:00", "pci0000:100", "pci100000000:00"})
        machine.function(std::string(name) + "/0000:00:1f.3", 0x010601);
    EXPECT_THAT(tree_paths(),
                ElementsAre("/", "/pci@0,0", controller, std::string(controller) + "/disk@0,0"));
}

TEST_F(Hostile, names_that_are_too_long)
{
    const std::string name = "0000:" + std::string(240, '0') + ":05.0";
    machine.function("pci0000:00/" + name, 0x010601);
    EXPECT_THAT(tree_paths(), Contains("/pci@0,0/pci8086,1234@5"));
    const std::string disk(255, 'd');
    machine.disk(disk, function + "/ata1/host0/target/0:0:0:0");
    EXPECT_THAT(drives(), Contains(HasSubstr(disk)));
    EXPECT_EQ(link_of("/dev/dsk/" + std::string(100000, 'c')), "errno " + std::to_string(ENAMETOOLONG));
    EXPECT_EQ(link_of("/dev/dsk/" + std::string(200, 'c') + "s0"), "errno " + std::to_string(ENOENT));
}

TEST_F(Hostile, bridges_nested_too_deep)
{
    std::string place = "pci0000:00";
    for (int depth = 0; depth < 40; ++depth) {
        place += "/0000:00:01.0";
        machine.function(place, 0x060400);
    }
    std::vector<std::string> paths;
    const std::string messages = said([&] { paths = tree_paths(); });
    EXPECT_THAT(messages, HasSubstr("nested too deep, what is below it is left out"));
    EXPECT_EQ(paths.size(), 2 + 32 + 2U);
    EXPECT_THAT(drives().size(), 1U);
}

TEST_F(Hostile, folders_with_thousands_of_entries)
{
    const fs::path blocks = machine.root() / "sys/block";
    for (int i = 0; i < 20000; ++i)
        fs::create_symlink("../devices/pci0000:00/0000:00:1f.2/x/block/y",
                           blocks / ("x" + std::to_string(i)));
    std::vector<std::string> found;
    const std::string messages = said([&] { found = drives(); });
    EXPECT_EQ(found.size(), 16384U);
    EXPECT_THAT(messages, HasSubstr("hwplat: sys/block: only the first 16384 disks are looked at"));
}

TEST_F(Hostile, folders_with_more_names_than_are_looked_at)
{
    const fs::path devices = machine.root() / "sys/devices";
    for (const char *file : {"x", "y"}) { // a file has 65,000 names at the most on some file systems
        machine.put_file(devices / file, "");
        for (int i = 0; i < 32768; ++i)
            fs::create_hard_link(devices / file, devices / (file + std::to_string(i)));
    }
    const std::string messages = said([] { tree_paths(); });
    EXPECT_THAT(messages, HasSubstr("hwplat: sys/devices: only the first 65536 names are looked at"));
}

TEST_F(Hostile, more_functions_than_any_machine_has)
{
    const fs::path model = machine.root() / function;
    const fs::path bridge = machine.root() / "sys/devices/pci0000:01";
    fs::create_directory(bridge);
    for (int i = 0; i < 16400; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "0000:%x:%02x.%d", i / 256, i / 8 % 32, i % 8);
        fs::create_directory(bridge / name);
        for (const char *file : {"vendor", "device", "revision", "class"})
            fs::create_hard_link(model / file, bridge / name / file);
    }
    std::vector<std::string> paths;
    const std::string messages = said([&] { paths = tree_paths(); });
    EXPECT_THAT(messages, HasSubstr("left out, there are too many functions"));
    EXPECT_EQ(paths.size(), 16384 + 1U); // with the disk
    EXPECT_EQ(drives().size(), 1U);
}

TEST_F(Hostile, scsi_addresses)
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

TEST_F(Hostile, names_asked_for)
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

TEST(Machines, without_anything_or_not_there)
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

// Two machines at once: what was found in one stays what it is when another becomes the machine.
TEST(Machines, each_by_its_folder)
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
