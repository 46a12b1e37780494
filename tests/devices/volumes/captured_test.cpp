// SPDX-License-Identifier: MIT
// The captured machines, through the libraries and back, against a table written by hand.
#include <cstring>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ovra/ovra.h>

#include "tests/devices/library.h"
#include "tests/devices/sample.h"
#include "tests/support/messages.h"
#include "tests/support/rows.h"
#include "tests/support/strings.h"

namespace {

using namespace devices_test;
using ovra::test::register_rows;
using ovra::test::strings_of;
using ovra::test::to_digits;
using testing::ElementsAre;

struct row {
    std::string machine, name, link, path, start, size, brief, full;
};

std::vector<row> golden(const std::string &machine)
{
    std::vector<row> rows;
    std::ifstream stream(OVRA_TEST_DATA "/devices.tsv");
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with("#"))
            continue;
        std::istringstream fields(line);
        row read;
        for (std::string *field : {&read.machine, &read.name, &read.link, &read.path, &read.start, &read.size,
                                   &read.brief, &read.full})
            std::getline(fields, *field, '\t');
        if (read.machine == machine)
            rows.push_back(read);
    }
    return rows;
}

// A captured machine, its rows of the table and a handle.
class captured {
public:
    explicit captured(const std::string &name) : machine(name), rows(golden(name)) {}

    // The packed path; "-" if the transport has no node; the library's message for any other failure.
    std::string encoded(const std::string &disk, int flags)
    {
        const outcome found = ovra.encode(disk.c_str(), flags);
        if (found.error == 0)
            return found.text;
        const ovra::test::messages said(1, 0);
        EXPECT_EQ(ovra.encode(disk.c_str(), flags).error, -1);
        const std::string message = said.text();
        return message.starts_with("unrecognized node name: blkdev@0,0\n") ? "-" : message;
    }

    sample machine;
    std::vector<row> rows;
    library ovra;
};

struct tested_machine {
    const char *name;
};
constexpr tested_machine tested_machines[] = {{"q35"}, {"pc"}};

void lists_every_volume_and_no_other(testing::Test &, const tested_machine &tested)
{
    captured on(tested.name);
    std::vector<std::string> expected;
    for (const row &each : on.rows)
        expected.push_back(each.name + ' ' + each.start + ' ' + each.size);
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(volumes(), expected);
}
const bool lists_every_volume_and_no_other_registered =
    register_rows("captured_lists_every_volume_and_no_other", tested_machines,
                  lists_every_volume_and_no_other, __FILE__, __LINE__);

void links_by_both_names(testing::Test &, const tested_machine &tested)
{
    captured on(tested.name);
    for (const row &each : on.rows) {
        EXPECT_EQ(link_of("/dev/dsk/" + each.name), each.link);
        EXPECT_EQ(link_of("/dev/rdsk/" + each.name), each.link);
    }
}
const bool links_by_both_names_registered =
    register_rows("captured_links_by_both_names", tested_machines, links_by_both_names, __FILE__, __LINE__);

void paths_are_nodes_of_the_tree(testing::Test &, const tested_machine &tested)
{
    captured on(tested.name);
    const std::vector<std::string> paths = tree_paths();
    EXPECT_EQ(paths.front(), "/");
    for (const row &each : on.rows) {
        EXPECT_THAT(paths, testing::Contains(each.path));
        const snapshot node(ht_init(each.path.c_str(), HT_SUBTREE));
        ASSERT_NE(node, nullptr) << each.path;
        EXPECT_EQ(ht_child_node(node.get()), nullptr);
    }
}
const bool paths_are_nodes_of_the_tree_registered = register_rows(
    "captured_paths_are_nodes_of_the_tree", tested_machines, paths_are_nodes_of_the_tree, __FILE__, __LINE__);

void names_become_packed_paths(testing::Test &, const tested_machine &tested)
{
    captured on(tested.name);
    for (const row &each : on.rows) {
        EXPECT_EQ(on.encoded(each.name, 0), each.brief) << each.name;
        EXPECT_EQ(on.encoded("/dev/dsk/" + each.name, 0), each.brief) << each.name;
        EXPECT_EQ(on.encoded(each.name, 1), each.full) << each.name;
    }
}
const bool names_become_packed_paths_registered = register_rows(
    "captured_names_become_packed_paths", tested_machines, names_become_packed_paths, __FILE__, __LINE__);

void short_paths_become_devices(testing::Test &, const tested_machine &tested)
{
    captured on(tested.name);
    for (const row &each : on.rows) {
        const outcome found = on.ovra.decode(on.ovra.packed(each.name.c_str(), 0));
        EXPECT_EQ(found.error, 0) << each.name;
        EXPECT_EQ(found.text, each.link.substr(each.link.find("/devices") + 8) + '\n');
    }
}
const bool short_paths_become_devices_registered = register_rows(
    "captured_short_paths_become_devices", tested_machines, short_paths_become_devices, __FILE__, __LINE__);

void kept_full_paths_are_not_descended_into(testing::Test &, const tested_machine &tested)
{
    captured on(tested.name);
    for (const row &each : on.rows) {
        if (each.full == "-")
            continue;
        std::string own = on.ovra.packed(each.name.c_str(), 1);
        EXPECT_EQ(on.ovra.decode(own).error, -1);

        // Without the hard-drive node (42 bytes) it is the path of the disk.
        own.erase(own.size() - 4 - 42, 42);
        ovra_path_t **found = nullptr;
        ASSERT_EQ(ovra_epath_decode_to_devices(on.ovra.get(), reinterpret_cast<ovra_epath_t>(own.data()),
                                               static_cast<int>(own.size()), &found),
                  0);
        EXPECT_EQ(found[0]->device_path, each.path);
        EXPECT_EQ(found[0]->file_path, nullptr);
    }
}
const bool kept_full_paths_are_not_descended_into_registered =
    register_rows("captured_kept_full_paths_are_not_descended_into", tested_machines,
                  kept_full_paths_are_not_descended_into, __FILE__, __LINE__);

// An option for each volume, in both forms if it has two. Volumes find their options, options their volume.
void options_and_disks_find_each_other(testing::Test &, const tested_machine &tested)
{
    captured on(tested.name);
    std::map<std::string, std::vector<std::string>> options;
    unsigned number = 0x1000;
    for (const row &each : on.rows) {
        for (int flags : {0, 1}) {
            if (flags == 1 && each.full == "-")
                continue;
            std::string text = each.name;
            std::string file = "\\EFI\\BOOT\\BOOTX64.EFI";
            ovra_path_t instance = {text.data(), file.data()};
            ovra_path_t *paths[] = {&instance, nullptr};
            ovra_epath_t packed = nullptr;
            int size = 0;
            ASSERT_EQ(ovra_epath_encode(on.ovra.get(), paths, flags, &packed, &size), 0);
            char name[9];
            std::snprintf(name, sizeof name, "Boot%04X", number++);
            std::string description = "a disk";
            ASSERT_EQ(ovra_bootopt_set(on.ovra.get(), name, packed, size, description.data(), 1, nullptr, 0),
                      0);
            options[each.name].emplace_back(name);
        }
    }
    for (const row &each : on.rows) {
        char **found = nullptr;
        std::string text = each.name;
        ASSERT_EQ(ovra_bootopt_find(on.ovra.get(), text.data(), &found), 0) << each.name;
        EXPECT_EQ(strings_of(found), options[each.name]) << each.name;
        for (std::string option : options[each.name]) {
            char **disks = nullptr;
            ASSERT_EQ(ovra_bootopt_logdev(on.ovra.get(), option.data(), &disks), 0) << option;
            EXPECT_THAT(strings_of(disks), ElementsAre(each.name));
        }
    }
}
const bool options_and_disks_find_each_other_registered =
    register_rows("captured_options_and_disks_find_each_other", tested_machines,
                  options_and_disks_find_each_other, __FILE__, __LINE__);

void a_volume_carries_its_signature(testing::Test &, const tested_machine &tested)
{
    captured on(tested.name);
    for (const row &each : on.rows) {
        const bool slice = each.brief.ends_with("02027fff0400");
        const std::string signature = each.brief.substr(2 * 24, 32);
        int err = -1;
        const vs_descriptor_t desc =
            vs_get_descriptor_by_name(slice ? VS_SLICE : VS_PARTITION,
                                      ((slice ? "/dev/dsk/" : "/dev/rdsk/") + each.name).c_str(), &err);
        ASSERT_NE(desc, 0U) << each.name;
        EXPECT_EQ(err, 0);
        if (slice) {
            uint8_t *guid = nullptr;
            unsigned count = 0;
            const attributes list = attributes_of(desc);
            ASSERT_EQ(kvlist_lookup_uint8_array(list.get(), "uguid", &guid, &count), 0);
            EXPECT_EQ(to_digits(guid, count), signature);
        } else {
            const descriptors media = associated(desc, VS_MEDIA);
            uint32_t serial = 0;
            ASSERT_EQ(kvlist_lookup_uint32(attributes_of(media[0]).get(), "volserno", &serial), 0);
            EXPECT_EQ(to_digits(&serial, 4) + std::string(24, '0'), signature);
        }
        vs_free_descriptor(desc);
    }
}
const bool a_volume_carries_its_signature_registered =
    register_rows("captured_a_volume_carries_its_signature", tested_machines, a_volume_carries_its_signature,
                  __FILE__, __LINE__);

TEST(captured_drives, of_the_captured_machines)
{
    {
        const sample machine("q35");
        EXPECT_THAT(drives(), ElementsAre("c0t0d0 /pci@0,0/pci1b36,c@2/pci1af4,1048@0/sd@0,0 sdd 512 65536",
                                          "c1t1d2 /pci@0,0/pci1af4,1004@3/sd@1,2 sdc 512 65536",
                                          "c2t0d0 /pci@0,0/pci1b36,10@4/blkdev@0,0 nvme0n1 4096 16384",
                                          "c3t0d0 /pci@0,0/pci1b36,d@5/blkdev@0,0 sde 512 16384",
                                          "c4t0d0 /pci@0,0/pci1af4,1001@6/blkdev@0,0 vda 512 16384",
                                          "c5t0d0 /pci@0,0/pci8086,2922@1f,2/disk@0,0 sda 512 131072",
                                          "c5t3d0 /pci@0,0/pci8086,2922@1f,2/disk@3,0 sdb 512 65536"));
    }
    const sample machine("pc");
    EXPECT_THAT(drives(), ElementsAre("c1t3d0 /pci@0,0/pci1000,60@3/sd@3,0 sdb 512 65536",
                                      "c2t5d0 /pci@0,0/pci1000,12@4/sd@5,0 sda 512 65536",
                                      "c3t0d0 /pci@0,0/pci1af4,1001@5/blkdev@0,0 vda 512 16384"));
}

// Every controller keeps its number, and every disk its name, when any one disk is pulled.
TEST(captured_drives, keep_their_names_when_a_disk_goes)
{
    const sample machine("q35");
    const std::vector<std::string> before = drives();
    for (const char *pulled : {"sda", "sdb", "sdc", "sdd", "sde", "nvme0n1", "vda"}) {
        const fs::path link = machine.root() / "sys/block" / pulled;
        const fs::path target = fs::read_symlink(link);
        fs::remove(link);
        std::vector<std::string> left = before;
        std::erase_if(left, [&](const std::string &row) {
            return row.find(std::string(" ") + pulled + " ") != std::string::npos;
        });
        EXPECT_EQ(left.size() + 1, before.size());
        EXPECT_EQ(drives(), left) << pulled;
        fs::create_directory_symlink(target, link);
    }
}

} // namespace
