// SPDX-License-Identifier: MIT
// A machine's folder that somebody filled to do harm: functions and folders that make no sense are left out,
// and nothing outside is read.
#include <cerrno>
#include <cstdio>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/devices/tree/hostile.h"

namespace {

using namespace devices_test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST_F(hostile_machine, the_machine_is_sound_without_harm)
{
    EXPECT_THAT(volumes(), ElementsAre("c0t0d0s0 2048 2048"));
}

// Without its function a disk is on a bus.
TEST_F(hostile_machine, identifiers_of_a_function)
{
    const auto without_function = ElementsAre("/", "/pci@0,0", "/ata@0,0", "/ata@0,0/sd@0,0");
    for (const char *file : {"vendor", "device", "class"}) {
        const fs::path path = machine.root() / function / file;
        const std::string good = machine.contents(path);
        for (const std::string &contents : nonsense()) {
            machine.put_file(path, contents);
            std::vector<std::string> paths;
            const std::string messages = said([&] { paths = tree_paths(); });
            EXPECT_THAT(paths, without_function) << file << ": " << contents.substr(0, 30);
            EXPECT_THAT(messages, HasSubstr("no PCI function, its identifiers cannot be read"));
            EXPECT_THAT(drives(), ElementsAre("c0t0d0 /ata@0,0/sd@0,0 sda 512 65536"));
        }
        fs::remove(path);
        EXPECT_THAT(tree_paths(), without_function) << file;
        machine.put_file(path, good);
    }
    EXPECT_THAT(drives().size(), 1U);
}

// Nothing that is made of a function goes by its revision.
TEST_F(hostile_machine, revision_of_a_function)
{
    const fs::path path = machine.root() / function / "revision";
    const auto expect_none = [](const std::string &contents) {
        const snapshot tree(ht_init(controller, HT_PROPS));
        ASSERT_TRUE(tree) << contents;
        int *values = nullptr;
        EXPECT_EQ(ht_prop_lookup_ints(HT_DEV_ANY, tree.get(), "revision-id", &values), 1) << contents;
        EXPECT_EQ(values[0], 0) << contents;
        EXPECT_THAT(drives(), ElementsAre(std::string("c0t0d0 ") + controller + "/disk@0,0 sda 512 65536"));
    };
    for (const std::string &contents : nonsense()) {
        machine.put_file(path, contents);
        expect_none(contents.substr(0, 30));
    }
    fs::remove(path);
    expect_none("no file");
}

// An unreadable folder fails the call, and a message says so: otherwise disks would move to other names.
TEST_F(hostile_machine, folders_that_cannot_be_opened)
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

// A file that is a link, a FIFO or a folder is not read.
TEST_F(hostile_machine, kinds_of_files)
{
    const fs::path path = machine.root() / function / "vendor";
    fs::rename(path, machine.root() / "vendor");
    // No kernel has a link there.
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
    EXPECT_THAT(tree_paths(), Not(Contains(controller)));
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_THAT(tree_paths(), Not(Contains(controller)));
}

// Folders of another machine, linked into this one at each level.
TEST_F(hostile_machine, folders_that_are_links)
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

TEST_F(hostile_machine, firmware_nodes)
{
    const fs::path link = machine.root() / "sys/devices/pci0000:00/firmware_node";
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
}

TEST_F(hostile_machine, texts_of_firmware_nodes)
{
    fs::create_symlink("../node", machine.root() / "sys/devices/pci0000:00/firmware_node");
    machine.text("sys/devices/node/hid", "PNP0A08");
    machine.text("sys/devices/node/uid", "7");
    EXPECT_EQ(other_identifier("acpi-uid"), "7");
    // The firmware's text as it is.
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

TEST_F(hostile_machine, names_of_functions)
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

TEST_F(hostile_machine, names_that_are_too_long)
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

TEST_F(hostile_machine, bridges_nested_too_deep)
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

TEST_F(hostile_machine, folders_with_thousands_of_entries)
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

TEST_F(hostile_machine, folders_with_more_names_than_are_looked_at)
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

TEST_F(hostile_machine, more_functions_than_any_machine_has)
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

} // namespace
