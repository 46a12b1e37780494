// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include <unistd.h>

#include "tests/support/gpt.h"
#include "tests/support/memory_folder.h"
#include "tests/tool/support.h"

namespace tool_test {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

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

std::vector<known_volume> known_volumes(const std::string &of)
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
            machine != of)
            continue;
        all.push_back(next);
    }
    return all;
}

bool is_logical(const std::string &name)
{
    const size_t partition = name.find('p');
    return partition != std::string::npos && std::stoi(name.substr(partition + 1)) > 4;
}

bool is_hex(const std::string &text)
{
    return text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

} // namespace

class disks_verb : ovra::test::folders_in_memory, public Machine {
protected:
    explicit disks_verb(const std::string &captured = "q35")
    {
        fs::remove_all(root / "sys");
        const std::string unpack = "tar --sparse -xzf '" OVRA_TEST_DATA "/machines/" + captured +
                                   ".tar.gz' -C '" + root.string() + "'";
        EXPECT_EQ(system(unpack.c_str()), 0);
    }

    // A text file of sysfs.
    void put_text(const std::string &path, const std::string &text) const
    {
        fs::create_directories((root / path).parent_path());
        std::ofstream(root / path) << text << '\n';
    }

    // A disk of 32 MiB at a place in sysfs, without an image.
    void put_disk(const std::string &name, const std::string &place) const
    {
        const std::string path = place + "/block/" + name;
        put_text(path + "/size", "65536");
        put_text(path + "/queue/logical_block_size", "512");
        fs::create_symlink(".." + path.substr(3), root / "sys/block" / name);
    }

    // The same with an image of two slices.
    void put_partitioned_disk(const std::string &name, const std::string &place) const
    {
        put_disk(name, place);
        ovra::test::write_gpt(root / "dev" / name, 65536,
                              ovra::test::make_gpt(65536, {{1, 2048, 4095}, {2, 4096, 8191}}));
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

    // The entry of the disk that has it.
    static json disk_of(const json &disks, const std::string &volume)
    {
        for (const json &disk : disks["disks"]) {
            for (const json &each : disk["volumes"]) {
                if (each["name"] == volume)
                    return disk;
            }
        }
        return nullptr;
    }

    // As a GUID's text stands on disk.
    static std::string bytes_of_guid(std::string text)
    {
        std::erase(text, '-');
        std::string data = from_hex(text);
        std::reverse(data.begin(), data.begin() + 4);
        std::reverse(data.begin() + 4, data.begin() + 6);
        std::reverse(data.begin() + 6, data.begin() + 8);
        return data;
    }
};

// Each captured machine.
class known_disks : public disks_verb, public ::testing::WithParamInterface<const char *> {
protected:
    known_disks() : disks_verb(GetParam()) {}

    std::vector<known_volume> known = known_volumes(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Machines, known_disks, ::testing::Values("q35", "pc"),
                         [](const auto &tested) { return std::string(tested.param); });

TEST_P(known_disks, agree_with_what_is_known_of_them)
{
    const json disks = parsed({"disks"});
    ASSERT_GE(known.size(), 2u);
    std::vector<std::string> names;
    for (const json &disk : disks["disks"]) {
        for (const json &volume : disk["volumes"])
            names.push_back(volume["name"]);
        const std::string path = disk["path"];
        EXPECT_EQ(disk["controller"], path.substr(0, path.rfind('/')));
    }
    std::vector<std::string> known_names;
    for (const known_volume &expected : known) {
        known_names.push_back(expected.name);
        const json found = volume(disks, expected.name);
        ASSERT_FALSE(found.is_null()) << expected.name;
        EXPECT_EQ(found["start"], expected.start) << expected.name;
        EXPECT_EQ(found["size"], expected.size) << expected.name;
        const bool slice = expected.name.find('s') != std::string::npos;
        EXPECT_EQ(found["kind"], slice ? "slice" : "partition") << expected.name;
        const json disk = disk_of(disks, expected.name);
        EXPECT_EQ(disk["path"], expected.path) << expected.name;
        EXPECT_EQ(disk["medium"], slice ? "GPT" : "MBR") << expected.name;
        EXPECT_EQ(disk["error"], nullptr);
        // The signature stands in the known path behind 24 bytes: of a slice its GUID, else that of the MBR.
        const std::string stored = from_hex(expected.short_form).substr(24, 16);
        if (slice) {
            EXPECT_EQ(bytes_of_guid(found["guid"]), stored) << expected.name;
            EXPECT_EQ(disk["signature"], nullptr);
        } else {
            EXPECT_EQ(found["guid"], nullptr) << expected.name;
            std::string signature = from_hex(disk["signature"].get<std::string>());
            std::ranges::reverse(signature);
            EXPECT_EQ(signature + std::string(12, '\0'), stored) << expected.name;
        }
    }
    std::ranges::sort(names);
    std::ranges::sort(known_names);
    EXPECT_EQ(names, known_names);
}

// Options of each, in both forms: the bytes are the known ones, and each shows and is found by its disk.
TEST_P(known_disks, become_the_known_paths_and_are_found_by_them)
{
    size_t in_full = 0;
    std::map<std::string, std::vector<std::string>> of_disks;
    for (const known_volume &expected : known) {
        ASSERT_TRUE(is_hex(expected.short_form)) << expected.name;
        std::vector<std::string> &options = of_disks[expected.name];
        for (const bool full : {false, true}) {
            words create = {"create", "--desc", "x", "--disk", expected.name};
            if (full)
                create.emplace_back("--full");
            const std::string &path = full ? expected.full_form : expected.short_form;
            if (!is_hex(path)) {
                EXPECT_EQ(path, "-");
                const outcome refused = run(create);
                EXPECT_EQ(refused.status, 1);
                EXPECT_THAT(refused.err, HasSubstr("unrecognized node name: blkdev@0,0"));
                continue;
            }
            json created;
            if (is_logical(expected.name)) { // of which a warning tells
                words with_json = create;
                with_json.emplace_back("--json");
                created = json::parse(run(with_json).out);
            } else {
                created = parsed(create);
            }
            EXPECT_EQ(created["changes"][0]["path"], path) << expected.name;
            options.push_back(created["changes"][0]["variable"]);
            const json shown = parsed({"show", options.back()});
            EXPECT_EQ(shown["disks"], json({expected.name}));
            EXPECT_EQ(shown["path"], path) << expected.name;
            in_full += full;
        }
        EXPECT_EQ(parsed({"find", expected.name})["options"], json(options)) << expected.name;
    }
    const json disks = parsed({"disks"});
    for (const auto &[name, options] : of_disks)
        EXPECT_EQ(volume(disks, name)["options"], json(options)) << name;
    EXPECT_GE(in_full, 2u);
}

TEST_F(disks_verb, have_the_sizes_of_their_blocks)
{
    const json disks = parsed({"disks"});
    const json sata = disk_of(disks, "c5t0d0s0");
    EXPECT_EQ(sata["block_size"], 512);
    EXPECT_EQ(sata["blocks"], 131072);
    const json nvme = disk_of(disks, "c2t0d0s0");
    EXPECT_EQ(nvme["block_size"], 4096);
    EXPECT_EQ(nvme["blocks"], 16384);
    EXPECT_EQ(disk_of(disks, "c5t3d0p0")["signature"], "1234abcd");
    EXPECT_EQ(volume(disks, "c5t0d0s1")["guid"], "5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02");
}

// Between an IDE disk and its function there is a channel.
TEST_F(disks_verb, of_an_ide_channel_have_its_function_as_controller)
{
    put_text("sys/devices/pci0000:00/0000:00:1f.1/vendor", "0x8086");
    put_text("sys/devices/pci0000:00/0000:00:1f.1/device", "0x7010");
    put_text("sys/devices/pci0000:00/0000:00:1f.1/revision", "0x00");
    put_text("sys/devices/pci0000:00/0000:00:1f.1/class", "0x010180");
    const std::string port = "sys/devices/pci0000:00/0000:00:1f.1/ata9";
    put_text(port + "/ata_port/ata9/port_no", "2");
    put_partitioned_disk("sdi", port + "/host9/target9:0:1/9:0:1:0");
    const json disks = parsed({"disks"});
    const json disk = disk_of(disks, "c5t3d0s0");
    EXPECT_EQ(disk["path"], "/pci@0,0/pci8086,7010@1f,1/ide@1/hdrv@1,0");
    EXPECT_EQ(disk["controller"], "/pci@0,0/pci8086,7010@1f,1");
}

TEST_F(disks_verb, are_shown_with_the_options_that_find_gives)
{
    size_t options = 0;
    const json before = parsed({"disks"});
    for (const json &disk : before["disks"]) {
        for (const json &volume : disk["volumes"]) {
            EXPECT_EQ(volume["options"], json::array());
            EXPECT_EQ(run({"create", "--desc", "x", "--disk", volume["name"], "--file", "\\a"}).status, 0);
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

TEST_F(disks_verb, are_printed)
{
    EXPECT_EQ(run({"create", "--desc", "x", "--disk", "c5t0d0s1"}).status, 0);
    const std::string text = output({"disks"});
    EXPECT_THAT(text, HasSubstr("c5t0d0  sda  64.0 MiB  GPT\n"
                                "  Controller  /pci@0,0/pci8086,2922@1f,2\n"
                                "  Path        /pci@0,0/pci8086,2922@1f,2/disk@0,0\n"
                                "  Name      Linux  Start  Blocks  Boot options\n"));
    EXPECT_THAT(text, HasSubstr("  c5t0d0s1  sda2   43008  32768   Boot0008\n"
                                "      GUID 5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02\n"));
    for (int more = 0; more < 6; ++more)
        EXPECT_EQ(run({"create", "--desc", "x", "--disk", "c5t0d0s1"}).status, 0);
    EXPECT_THAT(output({"disks"}), HasSubstr("  c5t0d0s1  sda2   43008  32768   Boot0008 Boot0009 Boot000A\n"
                                             "                                  Boot000B Boot000C Boot000D\n"
                                             "                                  Boot000E\n"
                                             "      GUID 5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02\n"));
    EXPECT_THAT(text, HasSubstr("c5t3d0  sdb  32.0 MiB  MBR 1234abcd\n"));
    EXPECT_THAT(text, HasSubstr("\n      whole disk\n"));
    EXPECT_THAT(text, HasSubstr("c4t0d0  vda  8.0 MiB  no medium that can be read\n"));
}

// Most disks are not for everybody to read; that is not to say that they are blank.
TEST_F(disks_verb, that_cannot_be_read_say_so)
{
    if (geteuid() == 0) {
        fs::permissions(root / "dev/sda", fs::perms::none);
        surroundings nobody;
        nobody.as_nobody = true;
        const outcome printed = run({"disks"}, nobody);
        EXPECT_EQ(printed.status, 0) << printed.err;
        EXPECT_THAT(printed.out, HasSubstr("c5t0d0  sda  64.0 MiB  cannot be read: Permission denied\n"));
        EXPECT_THAT(printed.out, HasSubstr("c3t0d0  sde  8.0 MiB  no medium that can be read\n"));
        EXPECT_THAT(printed.out, HasSubstr("c5t3d0  sdb  32.0 MiB  MBR 1234abcd\n"));
        for (const char *disk : {"/dev/sda1", "c5t0d0s0", "/dev/dsk/c5t0d0s0"}) {
            const outcome found = run({"find", disk}, nobody);
            EXPECT_EQ(found.status, 1);
            EXPECT_EQ(found.err, "ovra: cannot read /dev/sda: Permission denied\n  Run this as root.\n")
                << disk;
        }
        EXPECT_EQ(
            run({"find", "PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01"}, nobody).err,
            "ovra: no disk that can be read has \"PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01\"; cannot read "
            "/dev/sda: Permission denied\n  Run this as root.\n");
        EXPECT_THAT(run({"find", "sdaa1"}, nobody).err, HasSubstr("no disk is named \"sdaa1\""));
    }
    // The same for a reason that everybody meets.
    fs::remove(root / "dev/sda");
    fs::create_symlink("sdb", root / "dev/sda");
    const json disks = parsed({"disks"});
    size_t unreadable = 0;
    for (const json &disk : disks["disks"]) {
        if (disk["kernel_name"] == "sda") {
            EXPECT_EQ(disk["medium"], nullptr);
            EXPECT_EQ(disk["error"], strerror(ELOOP));
            ++unreadable;
        } else if (disk["kernel_name"] == "sde" || disk["kernel_name"] == "vda") { // blank; without a file
            EXPECT_EQ(disk["medium"], nullptr);
            EXPECT_EQ(disk["error"], nullptr);
        }
    }
    EXPECT_EQ(unreadable, 1u);
}

TEST_F(disks_verb, are_shown_without_firmware)
{
    std::filesystem::remove_all(root / "sys/firmware");
    EXPECT_THAT(output({"disks"}),
                HasSubstr("Which boot options use them is not known: no firmware variables"));
    EXPECT_EQ(volume(parsed({"disks"}), "c5t0d0s0")["options"], nullptr);
}

TEST_F(disks_verb, may_be_none)
{
    std::filesystem::remove_all(root / "sys/devices");
    std::filesystem::remove_all(root / "sys/block");
    std::filesystem::create_directory(root / "sys/devices");
    EXPECT_EQ(output({"disks"}), "no disks\n");
    EXPECT_EQ(parsed({"disks"})["disks"], json::array());
    EXPECT_EQ(output({"tree"}), "hwplat\n");
}

// That nothing can be seen is not to say that nothing is there.
TEST_F(disks_verb, are_not_said_to_be_none_where_they_cannot_be_seen)
{
    std::filesystem::remove_all(root / "sys/devices");
    std::filesystem::remove_all(root / "sys/block");
    const std::string said = "ovra: there is no sys/devices in " + root.string() +
                             "\n  The devices of a machine's folder are seen there.\n";
    for (const words &arguments :
         {words{"disks"}, words{"tree"}, words{"find", "sda1"}, words{"disks", "--json"},
          words{"create", "--desc", "x", "--disk", "c5t0d0s0"}})
        EXPECT_EQ(failure(arguments), said) << arguments[0];
}

TEST_F(disks_verb, may_be_given_by_their_linux_names)
{
    const struct {
        const char *given;
        const char *name;
    } cases[] = {{"/dev/sda1", "c5t0d0s0"},         {"sda9", "c5t0d0s8"},
                 {"/dev/nvme0n1p3", "c2t0d0s2"},    {"sdb5", "c5t3d0p5"},
                 {"/dev/dsk/c5t0d0s0", "c5t0d0s0"}, {"/dev/rdsk/c5t3d0p1", "c5t3d0p1"}};
    const auto planned = [this](const char *disk) {
        return json::parse(run({"create", "--desc", "x", "--dry-run", "--json", "--disk", disk}).out);
    };
    for (const auto &[given, name] : cases) {
        EXPECT_EQ(planned(given)["changes"], planned(name)["changes"]) << given;
        EXPECT_EQ(parsed({"find", given})["disk"], name) << given;
    }
    EXPECT_EQ(parsed({"create", "--desc", "x", "--disk", "/dev/sda1", "--dry-run"})["disk"], "c5t0d0s0");
    EXPECT_EQ(json::parse(run({"create", "--desc", "y", "--disk", "/dev/sdb5", "--json"}).out)["disk"],
              "c5t3d0p5");
    EXPECT_EQ(output({"remove", "Boot0008"}).find("/dev"), std::string::npos);
    EXPECT_EQ(run({"create", "--desc", "x", "--disk", "/dev/sda1"}).err,
              "/dev/sda1 is c5t0d0s0, PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01.\n");
    EXPECT_EQ(run({"find", "/dev/sda1"}).out, "Boot0008  x\n");
    EXPECT_EQ(run({"find", "c5t0d0s0"}).out, "Boot0008  x\n");
    EXPECT_EQ(run({"find", "c5t0d0s1"}).out, "no option boots from c5t0d0s1\n");
}

TEST_F(disks_verb, are_told_of_by_their_other_names)
{
    const std::string uuid = "PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01";
    EXPECT_EQ(run({"find", "c5t0d0s0"}).err, "c5t0d0s0 is /dev/sda1, " + uuid + ".\n");
    EXPECT_EQ(run({"find", "sda1"}).err, "sda1 is c5t0d0s0, /dev/sda1, " + uuid + ".\n");
    EXPECT_EQ(run({"find", "/dev/dsk/c5t0d0s0"}).err,
              "/dev/dsk/c5t0d0s0 is c5t0d0s0, /dev/sda1, " + uuid + ".\n");
    EXPECT_EQ(run({"find", "c5t3d0p5"}).err, "c5t3d0p5 is /dev/sdb5, PARTUUID=1234abcd-05.\n");
    EXPECT_EQ(run({"find", "c5t3d0p0"}).err, "c5t3d0p0 is /dev/sdb, MBR signature 1234abcd.\n");
    // A disk that is not taken is not told of.
    EXPECT_EQ(run({"find", "c5t0d0s77"}).err,
              "ovra: no disk is named \"c5t0d0s77\"\n  'ovra disks' shows the disks with their names.\n");
}

TEST_F(disks_verb, may_be_given_by_what_identifies_them)
{
    const auto created = [this](const std::string &disk) {
        return json::parse(
            run({"create", "--desc", "x", "--dry-run", "--json", "--disk", disk}).out)["changes"];
    };
    EXPECT_EQ(created("PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02"), created("c5t0d0s1"));
    EXPECT_EQ(created("partuuid=5F9F0A37-8A44-4AD0-9C2E-1D9E6F5B7C02"), created("c5t0d0s1"));
    EXPECT_EQ(created("PARTUUID=1234abcd-05"), created("c5t3d0p5"));
    EXPECT_EQ(created("/dev/disk/by-partuuid/1234abcd-05"), created("c5t3d0p5"));
    const outcome found = run({"find", "PARTUUID=1234abcd-05"});
    EXPECT_EQ(found.err, "PARTUUID=1234abcd-05 is c5t3d0p5, /dev/sdb5.\n");
    for (const char *none : {"PARTUUID=", "PARTUUID=1234abcd-09", "PARTUUID=1234abcd", "PARTUUID=5f9f0a37"})
        EXPECT_THAT(failure({"find", none}),
                    HasSubstr("ovra: no disk is named \"" + std::string(none) + "\"\n"));
    // A copy of a disk identifies itself as the other does.
    put_disk("sdz", "sys/devices/pci0000:00/0000:00:03.0/virtio0/host6/target6:0:9/6:0:9:0");
    fs::copy_file(root / "dev/sda", root / "dev/sdz");
    EXPECT_THAT(failure({"find", "PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02"}),
                HasSubstr("names more than one disk\n  They are "));
}

// Firmware looks for a short form by what identifies the partition.
TEST_F(disks_verb, that_another_has_the_identity_of_are_warned_of)
{
    const words create = {"create", "--desc", "x", "--dry-run", "--disk"};
    const auto said_of = [&](const words &more) {
        words arguments = create;
        arguments.insert(arguments.end(), more.begin(), more.end());
        const outcome result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        return result.err;
    };
    EXPECT_THAT(said_of({"c5t0d0s1"}), Not(HasSubstr("warning")));
    EXPECT_THAT(said_of({"c5t3d0p1"}), Not(HasSubstr("warning")));
    const std::string host = "sys/devices/pci0000:00/0000:00:03.0/virtio0/host6/target6:0:9/6:0:9:";
    put_disk("sdy", host + "0");
    put_disk("sdz", host + "1");
    fs::copy_file(root / "dev/sda", root / "dev/sdy");
    fs::copy_file(root / "dev/sdb", root / "dev/sdz");
    const std::string advice =
        "  The firmware may take either. With --full the path leads to one of them alone.\n";
    EXPECT_EQ(said_of({"c5t0d0s1"}),
              "c5t0d0s1 is /dev/sda2, PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02.\n"
              "ovra: warning: c1t9d0s1, /dev/sdy2, has the same PARTUUID as c5t0d0s1\n" +
                  advice);
    EXPECT_THAT(said_of({"c1t9d0s1"}), HasSubstr("c5t0d0s1, /dev/sda2, has the same PARTUUID as c1t9d0s1\n"));
    EXPECT_THAT(said_of({"c5t3d0p1"}),
                HasSubstr("warning: c1t9d1p1, /dev/sdz1, has the same PARTUUID as c5t3d0p1\n" + advice));
    EXPECT_THAT(said_of({"c5t3d0p0"}),
                HasSubstr("warning: c1t9d1p0, /dev/sdz, has the same MBR signature as c5t3d0p0\n" + advice));
    EXPECT_THAT(said_of({"c5t0d0s1", "--full"}), Not(HasSubstr("warning")));
    EXPECT_THAT(said_of({"c2t0d0s0"}), Not(HasSubstr("warning")));
    const outcome set = run({"set", "Boot0003", "--devpath", "c5t0d0s1", "--dry-run"});
    EXPECT_EQ(set.status, 0);
    EXPECT_THAT(set.err, HasSubstr(" has the same PARTUUID as c5t0d0s1\n  The firmware may take either.\n"));
}

TEST_F(disks_verb, that_are_logical_partitions_are_warned_of)
{
    for (const words &more : {words{}, words{"--full"}}) {
        words arguments = {"create", "--desc", "x", "--disk", "c5t3d0p5", "--dry-run"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const outcome result = run(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "c5t3d0p5 is /dev/sdb5, PARTUUID=1234abcd-05.\n"
                              "ovra: warning: the path has the number 0 for c5t3d0p5, a logical partition\n"
                              "  Firmware that goes by the number does not find it.\n");
    }
    EXPECT_THAT(run({"find", "c5t3d0p5"}).err, Not(HasSubstr("warning")));
}

// Behind a name that ends in a digit Linux writes a "p" before the number.
TEST_F(disks_verb, of_an_sd_host_may_be_given_by_their_linux_names)
{
    const std::string host = "sys/devices/pci0000:00/0000:00:1e.0";
    for (const auto &[file, text] :
         {std::pair("vendor", "0x8086"), {"device", "0xa32b"}, {"revision", "0x10"}, {"class", "0x080501"}})
        put_text(host + "/" + file, text);
    put_partitioned_disk("mmcblk0", host + "/mmc_host/mmc0/mmc0:0001");
    const json found = parsed({"find", "/dev/mmcblk0p2"});
    EXPECT_THAT(found["disk"].get<std::string>(), ::testing::MatchesRegex("c[0-9]+t0d0s1"));
    EXPECT_EQ(volume(parsed({"disks"}), found["disk"])["kernel_name"], "mmcblk0p2");
    EXPECT_EQ(run({"find", "mmcblk02"}).status, 1);
}

TEST_F(disks_verb, that_are_not_there_are_refused)
{
    for (const char *disk : {"sda", "/dev/sda4", "sda01", "sdap1", "nvme0n11", "", "/dev/", "c9t0d0s0",
                             "c5t0d0", "c5t0d0s0x", "c5t0d0s99999999999"}) {
        EXPECT_EQ(run({"find", disk}).status, 1) << disk;
        const outcome created = run({"create", "--desc", "x", "--disk", disk});
        EXPECT_EQ(created.status, 1) << disk;
        EXPECT_EQ(created.out, "") << disk;
    }
    EXPECT_EQ(
        whole(run({"find", "sda"}).err),
        "ovra: \"sda\" is the whole disk c5t0d0\n"
        "  One of its slices or partitions is needed. 'ovra disks' shows the disks with their names.\n");
    EXPECT_EQ(get("Boot0008"), "(none)");
}

TEST_F(disks_verb, of_an_option_are_shown)
{
    EXPECT_EQ(run({"create", "--desc", "x", "--disk", "sda1", "--file", "\\a", "--full"}).status, 0);
    EXPECT_THAT(output({"show", "Boot0008"}), HasSubstr("Disk           c5t0d0s0\n"));
    EXPECT_EQ(parsed({"show", "Boot0008"})["disks"], json({"c5t0d0s0"}));
    EXPECT_EQ(parsed({"show", "Boot0005"})["disks"], json::array());
}

// 1,000 disks of 16 slices each, beside those of the machine.
TEST_F(disks_verb, may_be_a_thousand)
{
    constexpr int most = 1000;
    constexpr unsigned slices = 16;
    constexpr uint64_t blocks = 65536;
    std::vector<ovra::test::gpt_entry> entries;
    for (unsigned i = 1; i <= slices; ++i)
        entries.push_back({i, i * 2048, i * 2048 + 2047});
    const ovra::test::gpt_bytes table = ovra::test::make_gpt(blocks, entries);
    const std::string host = "sys/devices/pci0000:00/0000:00:03.0/virtio0/host6/target6:0:";
    for (int at = 0; at < most; ++at) {
        const std::string target = std::to_string(2 + at / 8);
        const std::string name = "sdx" + std::string(1, static_cast<char>('a' + at / 100)) +
                                 static_cast<char>('a' + at / 10 % 10) + static_cast<char>('a' + at % 10);
        put_disk(name, host + target + "/6:0:" + target + ":" + std::to_string(at % 8));
        ovra::test::write_gpt(root / "dev" / name, blocks, table);
    }
    const outcome result = run({"disks"});
    EXPECT_EQ(result.status, 0) << result.err;
    std::istringstream text(result.out);
    std::map<std::string, std::string> linux_names; // of the slices on that controller
    size_t shown = 0;
    for (std::string line; std::getline(text, line);) {
        std::istringstream cells(line);
        std::string name;
        std::string linux_name;
        cells >> name >> linux_name;
        shown += line.starts_with("c");
        if (line.starts_with("  c1t"))
            linux_names[name] = linux_name;
    }
    EXPECT_EQ(shown, most + 7u);
    EXPECT_EQ(linux_names.size(), most * slices + 1) << "with that of sdc";
    EXPECT_EQ(linux_names["c1t2d0s0"], "sdxaaa1");
    EXPECT_EQ(linux_names["c1t126d7s0"], "sdxjjj1");
    EXPECT_EQ(linux_names["c1t126d7s15"], "sdxjjj16");
#ifndef __SANITIZE_ADDRESS__
    EXPECT_LT(result.processor_seconds, 2);
#endif
    RecordProperty("milliseconds", static_cast<int>(result.processor_seconds * 1000));
    EXPECT_EQ(parsed({"find", "/dev/sdxjjj1"})["disk"], "c1t126d7s0");
}

TEST_F(disks_verb, stand_in_the_tree)
{
    const std::string text = output({"tree"});
    EXPECT_THAT(text, HasSubstr("hwplat\n  pci@0,0              PNP0A03\n"));
    EXPECT_THAT(text, HasSubstr("    pci8086,2922@1f,2\n      disk@0,0         c5t0d0  sda\n"));
    const json tree = parsed({"tree"});
    EXPECT_EQ(tree["name"], "hwplat");
    EXPECT_EQ(tree["address"], nullptr);
    const json &bridge = tree["children"][0];
    EXPECT_EQ(bridge["properties"]["acpi_hid"], "PNP0A03");
    EXPECT_EQ(bridge["children"][0]["properties"]["vendor_id"], 0x8086);
    EXPECT_EQ(bridge["children"][0]["path"], "/pci@0,0/pci8086,29c0@0");
    EXPECT_EQ(bridge["drive"], nullptr);
    EXPECT_EQ(bridge["kernel_name"], nullptr);
    std::map<std::string, std::string> names;
    for (const json &function : bridge["children"]) {
        for (const json &child : function["children"]) {
            if (!child["drive"].is_null())
                names[child["drive"]] = child["kernel_name"];
        }
    }
    EXPECT_THAT(names, ::testing::IsSupersetOf({std::pair<const std::string, std::string>("c5t0d0", "sda"),
                                                {"c5t3d0", "sdb"},
                                                {"c1t1d2", "sdc"},
                                                {"c2t0d0", "nvme0n1"}}));
}

} // namespace tool_test
