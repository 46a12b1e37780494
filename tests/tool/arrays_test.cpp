// SPDX-License-Identifier: MIT
// Arrays of disks, which firmware does not know, and disks that it knows no way to.
#include <algorithm>
#include <fstream>
#include <map>
#include <stdexcept>

#include "tests/support/machine_text.h"
#include "tests/tool/support.h"

namespace tool_test {

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

// A machine of tests/machines.
class text_machines : public Machine {
protected:
    void become(const std::string &name) const
    {
        fs::remove_all(root);
        fs::create_directories(variables);
        fs::create_directories(root / "var/lib/hwplat");
        const auto &all = ovra::test::machine_texts();
        const auto found = std::ranges::find_if(
            all, [&](const ovra::test::machine_text &text) { return text.name == name; });
        if (found == all.end())
            throw std::runtime_error("no machine " + name);
        ovra::test::lay_out(*found, root);
    }
};

const words create = {"create", "--desc", "x", "--file", "\\a", "--disk"};

TEST_F(text_machines, an_array_is_named_and_its_first_member_taken)
{
    become("md_arrays");
    for (const char *name : {"md0", "/dev/md0", "c1t0d0"}) {
        const outcome made = run(create + words{name, "--json"});
        EXPECT_EQ(made.status, 0) << made.err;
        EXPECT_EQ(json::parse(made.out)["disk"], "c0t0d0s0");
        EXPECT_THAT(whole(made.err),
                    HasSubstr("\" is an array of sda1 and sdb1 (metadata 1.0); sda1 is taken"));
    }
    // The format of old, which begins no member either.
    const fs::path format = root / "sys/devices/virtual/block/md0/md/metadata_version";
    std::ofstream(format) << "0.90\n";
    EXPECT_THAT(whole(run(create + words{"md0"}).err), HasSubstr("(metadata 0.90); sda1 is taken"));
}

TEST_F(text_machines, an_array_that_begins_its_members_is_refused)
{
    become("md_arrays");
    EXPECT_THAT(
        whole(failure(create + words{"md1"})),
        HasSubstr("\"md1\" is an array of sda2 and sdb2, whose members begin with the array's own data "
                  "(metadata 1.2)\n  Firmware finds no file system on sda2 and sdb2."));
    const fs::path format = root / "sys/devices/virtual/block/md1/md/metadata_version";
    std::ofstream(format) << "1.1\n";
    EXPECT_THAT(whole(failure(create + words{"md1"})), HasSubstr("(metadata 1.1)"));
    EXPECT_THAT(whole(failure(create + words{"sda2"})), HasSubstr("c0t0d0s1 is a member of an array"));
    // It can be looked for all the same.
    EXPECT_EQ(run({"find", "sda2"}).out, "no option boots from c0t0d0s1 (sda2)\n");
}

TEST_F(text_machines, an_array_with_a_table_is_a_disk)
{
    become("md_arrays");
    EXPECT_THAT(failure(create + words{"md126"}),
                HasSubstr("\"md126\" is the whole disk c1t126d0 (md126)\n"));
    EXPECT_EQ(json::parse(run(create + words{"md126p1", "--json"}).out)["disk"], "c1t126d0s0");
}

// Firmware sees the members of an array without a table.
TEST_F(text_machines, options_of_an_array_are_those_of_its_member_or_partitions)
{
    become("md_arrays");
    EXPECT_EQ(run(create + words{"sda1"}).status, 0);
    EXPECT_EQ(run(create + words{"md126p1"}).status, 0);
    const json member = json::parse(run({"find", "md0", "--json"}).out);
    EXPECT_EQ(member["disk"], "c0t0d0s0");
    EXPECT_EQ(member["options"], json({"Boot0000"}));
    EXPECT_EQ(parsed({"find", "sda"})["options"], json({"Boot0000"}));
    EXPECT_EQ(parsed({"find", "md126"})["disk"], "c1t126d0");
    EXPECT_EQ(parsed({"find", "md126"})["options"], json({"Boot0001"}));
}

TEST_F(text_machines, arrays_stand_in_documents_with_their_members)
{
    become("md_arrays");
    std::map<std::string, json> disks;
    const json document = parsed({"disks"});
    for (const json &disk : document["disks"])
        disks[disk["kernel_name"]] = disk;
    EXPECT_EQ(disks["md0"]["members"], json({"sda1", "sdb1"}));
    EXPECT_EQ(disks["md0"]["metadata"], "1.0");
    EXPECT_EQ(disks["md0"]["contents"], "file-system");
    EXPECT_EQ(disks["md0"]["contents_detail"], "vfat");
    EXPECT_EQ(disks["sda"]["members"], json::array());
    EXPECT_EQ(disks["sda"]["metadata"], nullptr);
    EXPECT_EQ(disks["sda"]["contents"], "gpt");
}

TEST_F(text_machines, without_a_way_to_a_disk_the_full_form_is_refused)
{
    static constexpr struct {
        const char *name;
        const char *disk;
        const char *why;
    } refused[] = {{"emmc_by_acpi", "mmcblk0p1", "it is below no PCI function"},
                   {"arm_device_tree_pci", "vda1", "its host bridge has no identifier of the firmware's"},
                   {"hyperv_storvsc", "sda1", "it is below no PCI function"}};
    for (const auto &[name, disk, why] : refused) {
        become(name);
        EXPECT_EQ(run(create + words{disk, "--dry-run"}).status, 0) << name;
        const std::string said = whole(run(create + words{disk, "--full"}).err);
        EXPECT_THAT(said, HasSubstr(std::string(" is not known: ") + why + '\n')) << name;
        EXPECT_THAT(said, HasSubstr("Without --full the path is the short form")) << name;
    }
}

TEST_F(text_machines, media_that_have_no_table_are_told_apart)
{
    become("media");
    std::map<std::string, json> disks;
    const json document = parsed({"disks"});
    for (const json &disk : document["disks"])
        disks[disk["kernel_name"]] = disk;
    EXPECT_EQ(disks["sda"]["contents"], "file-system");
    EXPECT_EQ(disks["sdb"]["contents"], "unknown");
    EXPECT_EQ(disks["sdc"]["contents"], "blank");
    EXPECT_EQ(disks["sdd"]["contents"], "gpt");
    EXPECT_EQ(disks["sdd"]["first_header_damaged"], true);
    EXPECT_EQ(disks["sde"]["contents"], "damaged-gpt");
    EXPECT_EQ(disks["sdf"]["contents"], "absent");
}

} // namespace

} // namespace tool_test
