// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstring>
#include <set>
#include <span>
#include <sstream>

#include <unistd.h>

#include "tests/tool/disks.h"

namespace tool_test {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

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
                                "  Options     Boot0005\n"
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
        EXPECT_THAT(printed.out, HasSubstr("c3t0d0  sde  8.0 MiB  blank\n"));
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

TEST_F(disks_verb, of_an_option_are_shown)
{
    EXPECT_EQ(run({"create", "--desc", "x", "--disk", "sda1", "--file", "\\a", "--full"}).status, 0);
    EXPECT_THAT(output({"show", "Boot0008"}), HasSubstr("Disk           c5t0d0s0 (sda1)\n"));
    EXPECT_EQ(parsed({"show", "Boot0008"})["disks"], json({"c5t0d0s0"}));
    EXPECT_EQ(parsed({"show", "Boot0005"})["disks"],
              json({"c5t0d0"})); // the firmware's own names no partition
    EXPECT_EQ(parsed({"show", "Boot0000"})["disks"], json::array());
}

// 1,000 disks of 16 slices each, beside those of the machine.
TEST_F(disks_verb, may_be_a_thousand)
{
    const int most = has_sanitizers() ? 100 : 1000; // with sanitizers it takes six seconds
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
    const std::string last = has_sanitizers() ? "c1t14d3s" : "c1t126d7s";
    const std::string last_disk = has_sanitizers() ? "sdxajj" : "sdxjjj";
    EXPECT_EQ(linux_names[last + "0"], last_disk + "1");
    EXPECT_EQ(linux_names[last + "15"], last_disk + "16");
    if (!has_sanitizers()) {
        EXPECT_LT(result.processor_seconds, 2);
    }
    RecordProperty("milliseconds", static_cast<int>(result.processor_seconds * 1000));
    EXPECT_EQ(parsed({"find", "/dev/" + last_disk + "1"})["disk"], last + "0");
}

namespace {

// Every name in a document, with those of its members.
void collect_names(const json &document, std::set<std::string> *names)
{
    if (!document.is_structured())
        return;
    for (const auto &[name, value] : document.items()) {
        if (document.is_object())
            names->insert(name);
        collect_names(value, names);
    }
}

} // namespace

TEST_F(disks_verb, stand_in_documents_with_names_in_snake_case)
{
    put("Boot0099", "damaged");
    const words changes[] = {
        {"create", "--desc", "x", "--disk", "sda1", "--number", "55", "--file", "a"},
        {"set", "Boot0055", "--desc", "y"},
        {"next", "Boot0055"},
        {"order", "set", "Boot0055"},
        {"remove", "Boot0055"},
        {"time", "--wakeup", "--clear"},
        {"reset", "--yes"},
    };
    const words shown[] = {{"list"},
                           {"show", "Boot0003"},
                           {"order"},
                           {"next"},
                           {"current"},
                           {"find", "sda1"},
                           {"disks"},
                           {"tree"},
                           {"vars"},
                           {"time"},
                           {"time", "--wakeup"},
                           {"path", "encode", "/Pci(0,0)"},
                           {"path", "encode", "/dev/sda1"},
                           {"path", "decode", "01010600000004040800610000007fff0400"}};
    std::set<std::string> names;
    for (const auto &all : {std::span<const words>(changes), std::span<const words>(shown)}) {
        for (const words &arguments : all) {
            const outcome result = run(arguments + words{"--json"});
            ASSERT_EQ(result.status, 0) << testing::PrintToString(arguments) << result.err;
            collect_names(json::parse(result.out), &names);
        }
    }
    EXPECT_THAT(names, ::testing::IsSupersetOf({"device_path", "file_path", "acpi_hid", "vendor_id"}));
    EXPECT_THAT(names, ::testing::Each(::testing::MatchesRegex("[a-z]+(_[a-z]+)*")));
}

TEST_F(disks_verb, may_be_those_of_damaged_options)
{
    put("Boot0098", "damaged");
    std::filesystem::create_directory(file("Boot0099"));
    for (const words &arguments : {words{"find", "sda1", "--json"}, words{"disks", "sda"}}) {
        const outcome shown = run(arguments);
        EXPECT_EQ(shown.status, 0);
        EXPECT_EQ(whole(shown.err),
                  "ovra: warning: Boot0098, Boot0099 are damaged\n"
                  "  To which disks this leads is not known; 'ovra list -v' says what is damaged.\n");
    }
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
