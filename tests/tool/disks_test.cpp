#include <fstream>
#include <sstream>

#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

namespace {

// What the disks of the captured machine are known to be.
struct known_volume {
    std::string name;
    std::string path;
    uint64_t start = 0;
    uint64_t size = 0;
    std::string short_form;
    std::string full_form;
};

std::vector<known_volume> known_volumes()
{
    std::ifstream table(OVRA_TEST_DATA "/devices.tsv");
    std::vector<known_volume> all;
    for (std::string line; std::getline(table, line);) {
        std::istringstream cells(line);
        std::string machine;
        std::string link;
        known_volume next;
        if (!(cells >> machine >> next.name >> link >> next.path >> next.start >> next.size >>
              next.short_form >> next.full_form) ||
            machine != "q35")
            continue;
        all.push_back(next);
    }
    return all;
}

bool is_hex(const std::string &text)
{
    return text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

} // namespace

class Disks : public Machine {
protected:
    Disks()
    {
        const std::string unpack =
            "tar --sparse -xzf '" OVRA_TEST_DATA "/machines/q35.tar.gz' -C '" + root.string() + "'";
        EXPECT_EQ(system(unpack.c_str()), 0);
    }

    // The entry of a slice or partition in what "ovra disks" says.
    static json volume(const json &disks, const std::string &name)
    {
        for (const json &disk : disks["disks"]) {
            for (const json &volume : disk["volumes"]) {
                if (volume["name"] == name)
                    return volume;
            }
        }
        return nullptr;
    }
};

TEST_F(Disks, agree_with_what_is_known_of_them)
{
    const json disks = parsed({"disks"});
    const auto known = known_volumes();
    ASSERT_GE(known.size(), 4u);
    for (const known_volume &expected : known) {
        const json found = volume(disks, expected.name);
        ASSERT_FALSE(found.is_null()) << expected.name;
        EXPECT_EQ(found["start"], expected.start) << expected.name;
        EXPECT_EQ(found["size"], expected.size) << expected.name;
    }
}

TEST_F(Disks, become_the_known_paths)
{
    size_t in_full = 0;
    for (const known_volume &expected : known_volumes()) {
        const words create = {"create", "--desc", "x", "--dry-run", "--disk", expected.name};
        if (is_hex(expected.short_form)) {
            EXPECT_EQ(parsed(create)["changes"][0]["path"], expected.short_form) << expected.name;
        }
        if (!is_hex(expected.full_form))
            continue;
        words full = create;
        full.emplace_back("--full");
        EXPECT_EQ(parsed(full)["changes"][0]["path"], expected.full_form) << expected.name;
        ++in_full;
    }
    EXPECT_GE(in_full, 2u);
}

TEST_F(Disks, are_shown_with_the_options_that_find_gives)
{
    size_t options = 0;
    const json before = parsed({"disks"});
    for (const json &disk : before["disks"]) {
        for (const json &volume : disk["volumes"]) {
            EXPECT_EQ(volume["options"], json::array());
            output({"create", "--desc", "x", "--disk", volume["name"], "--file", "\\a"});
            ++options;
        }
    }
    EXPECT_GE(options, 10u);
    const json after = parsed({"disks"});
    for (const json &disk : after["disks"]) {
        for (const json &volume : disk["volumes"]) {
            EXPECT_EQ(volume["options"].size(), 1u) << volume["name"];
            EXPECT_EQ(parsed({"find", volume["name"]})["options"], volume["options"]) << volume["name"];
        }
    }
}

TEST_F(Disks, are_printed)
{
    output({"create", "--desc", "x", "--disk", "c5t0d0s1"});
    const std::string text = output({"disks"});
    EXPECT_THAT(text,
                HasSubstr("c5t0d0  sda  64.0 MiB  GPT\n"
                          "  /pci@0,0/pci8086,2922@1f,2/disk@0,0\n"
                          "  Name      Linux  Start  Blocks  GUID                                  Boot "
                          "options\n"));
    EXPECT_THAT(text, HasSubstr("  c5t0d0s1  sda2   43008  32768   5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02  "
                                "Boot0008\n"));
    EXPECT_THAT(text, HasSubstr("c5t3d0  sdb  32.0 MiB  MBR 1234abcd\n"));
    EXPECT_THAT(text, HasSubstr("c4t0d0  vda  8.0 MiB  no partition table\n"));
}

TEST_F(Disks, are_shown_without_firmware)
{
    std::filesystem::remove_all(root / "sys/firmware");
    EXPECT_THAT(output({"disks"}),
                HasSubstr("Which boot options use them is not known: no firmware variables"));
    EXPECT_EQ(volume(parsed({"disks"}), "c5t0d0s0")["options"], nullptr);
}

TEST_F(Disks, may_be_none)
{
    std::filesystem::remove_all(root / "sys/devices");
    std::filesystem::remove_all(root / "sys/block");
    EXPECT_EQ(output({"disks"}), "no disks\n");
    EXPECT_EQ(parsed({"disks"})["disks"], json::array());
}

TEST_F(Disks, may_be_given_by_their_linux_names)
{
    const struct {
        const char *given;
        const char *name;
    } cases[] = {{"/dev/sda1", "c5t0d0s0"},         {"sda9", "c5t0d0s8"},
                 {"/dev/nvme0n1p3", "c2t0d0s2"},    {"sdb5", "c5t3d0p5"},
                 {"/dev/dsk/c5t0d0s0", "c5t0d0s0"}, {"/dev/rdsk/c5t3d0p1", "c5t3d0p1"}};
    for (const auto &[given, name] : cases) {
        const auto of_name = parsed({"create", "--desc", "x", "--dry-run", "--disk", name})["changes"];
        EXPECT_EQ(parsed({"create", "--desc", "x", "--dry-run", "--disk", given})["changes"], of_name)
            << given;
        EXPECT_EQ(parsed({"find", given})["disk"], name) << given;
    }
    EXPECT_THAT(output({"create", "--desc", "x", "--disk", "/dev/sda1"}),
                HasSubstr("/dev/sda1 is c5t0d0s0.\n"));
    EXPECT_EQ(output({"find", "/dev/sda1"}), "/dev/sda1 is c5t0d0s0.\nBoot0008  x\n");
    EXPECT_EQ(output({"find", "c5t0d0s0"}), "Boot0008  x\n");
    EXPECT_EQ(output({"find", "c5t0d0s1"}), "no option boots from c5t0d0s1\n");
}

TEST_F(Disks, that_are_not_there_are_refused)
{
    for (const char *disk : {"sda", "/dev/sda4", "sda01", "sdap1", "nvme0n11", "", "/dev/", "c9t0d0s0",
                             "c5t0d0", "c5t0d0s0x", "c5t0d0s99999999999"}) {
        EXPECT_EQ(run({"find", disk}).status, 1) << disk;
        const outcome created = run({"create", "--desc", "x", "--disk", disk});
        EXPECT_EQ(created.status, 1) << disk;
        EXPECT_EQ(created.out, "") << disk;
    }
    EXPECT_EQ(
        run({"find", "sda"}).err,
        "ovra: \"sda\" is the whole disk c5t0d0\n"
        "  One of its slices or partitions is needed. 'ovra disks' shows the disks with their names.\n");
    EXPECT_EQ(get("Boot0008"), "(none)");
}

TEST_F(Disks, of_an_option_are_shown)
{
    output({"create", "--desc", "x", "--disk", "sda1", "--file", "\\a", "--full"});
    EXPECT_THAT(output({"show", "Boot0008"}), HasSubstr("Disk           c5t0d0s0\n"));
    EXPECT_EQ(parsed({"show", "Boot0008"})["disks"], json({"c5t0d0s0"}));
    EXPECT_EQ(parsed({"show", "Boot0005"})["disks"], json::array());
}

TEST_F(Disks, may_be_a_thousand)
{
    namespace fs = std::filesystem;
    const std::string host = "devices/pci0000:00/0000:00:03.0/virtio0/host6/target6:0:";
    const fs::path sys = root / "sys";
    for (int at = 0; at < 1000; ++at) {
        const std::string target = std::to_string(2 + at / 8);
        const std::string unit = host + target + "/6:0:" + target + ":" + std::to_string(at % 8) + "/block/";
        const std::string name = "sdx" + std::string(1, static_cast<char>('a' + at / 100)) +
                                 static_cast<char>('a' + at / 10 % 10) + static_cast<char>('a' + at % 10);
        fs::create_directories(sys / unit);
        fs::copy(sys / (host + "1/6:0:1:2/block/sdc"), sys / (unit + name),
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        fs::create_symlink("../" + unit + name, sys / "block" / name);
        fs::create_hard_link(root / "dev/sdc", root / "dev" / name);
    }
    const json disks = parsed({"disks"});
    ASSERT_EQ(disks["disks"].size(), 1007u);
    EXPECT_EQ(volume(disks, "c1t2d0s0")["kernel_name"], "sdxaaa1");
    EXPECT_EQ(volume(disks, "c1t126d7s0")["kernel_name"], "sdxjjj1");
    EXPECT_EQ(parsed({"find", "/dev/sdxjjj1"})["disk"], "c1t126d7s0");
}

TEST_F(Disks, stand_in_the_tree)
{
    const std::string text = output({"tree"});
    EXPECT_THAT(text, HasSubstr("hwplat\n  pci@0,0              PNP0A08\n"));
    EXPECT_THAT(text, HasSubstr("    pci8086,2922@1f,2\n      disk@0,0         c5t0d0  sda\n"));
    const json tree = parsed({"tree"});
    EXPECT_EQ(tree["name"], "hwplat");
    EXPECT_EQ(tree["address"], nullptr);
    const json &bridge = tree["children"][0];
    EXPECT_EQ(bridge["properties"]["acpi-hid"], "PNP0A08");
    EXPECT_EQ(bridge["children"][0]["properties"]["vendor-id"], 0x8086);
    EXPECT_EQ(bridge["children"][0]["path"], "/pci@0,0/pci8086,29c0@0");
}

} // namespace tool_test
