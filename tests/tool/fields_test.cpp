// SPDX-License-Identifier: MIT
// What create, set, copy and rename can be told beside a path and a description.
#include "tests/tool/disks.h"

namespace tool_test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class fields : public disks_verb {
protected:
    static words linux_option(const words &more = {})
    {
        return words{"create", "--desc", "Linux", "--path-hex", sample_path_hex} + more;
    }
    std::string path_of(const std::string &option) const { return parsed({"show", option})["path"]; }
};

const std::string path = from_hex(sample_path_hex);

TEST_F(fields, create_names_the_option_first)
{
    const auto before = snapshot();
    EXPECT_THAT(output(linux_option({"--dry-run"})), StartsWith("Boot0008 would be made: \"Linux\", "));
    EXPECT_EQ(snapshot(), before);
    const json document = parsed(linux_option());
    EXPECT_EQ(document["option"], "Boot0008");
    EXPECT_EQ(document["changes"][0]["action"], "write");
}

TEST_F(fields, create_if_absent_makes_no_second_one)
{
    output(linux_option({"--optdata-ascii", "x"}));
    const auto before = snapshot();
    EXPECT_EQ(output(linux_option({"--optdata-ascii", "x", "--if-absent"})),
              "Boot0008 is there already, with this path, file and data.\n");
    EXPECT_EQ(parsed(linux_option({"--optdata-ascii", "x", "--if-absent"})), json({{"dry_run", false},
                                                                                   {"changes", json::array()},
                                                                                   {"option", "Boot0008"},
                                                                                   {"active", true},
                                                                                   {"in_order", true}}));
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(parsed(linux_option({"--if-absent"}))["option"], "Boot0009");
    output({"set", "8", "--inactive"});
    EXPECT_EQ(output(linux_option({"--optdata-ascii", "x", "--if-absent"})),
              "Boot0008 is there already, with this path, file and data, but is inactive.\n");
    put_order({1});
    EXPECT_EQ(
        output(linux_option({"--optdata-ascii", "x", "--if-absent"})),
        "Boot0008 is there already, with this path, file and data, but is inactive and not in BootOrder.\n");
}

TEST_F(fields, create_and_copy_take_a_place)
{
    put_order({1, 2, 3});
    output(linux_option({"--first"}));
    EXPECT_THAT(order(), ElementsAre(8, 1, 2, 3));
    output(linux_option({"--after", "uefi qemu nvme"}));
    EXPECT_THAT(order(), ElementsAre(8, 1, 2, 9, 3));
    output(linux_option({"--no-order"}));
    EXPECT_THAT(order(), ElementsAre(8, 1, 2, 9, 3));
    EXPECT_THAT(failure(linux_option({"--after", "7"})), StartsWith("ovra: Boot0007 is not in BootOrder\n"));
    output({"copy", "Boot0008", "--after", "8"});
    EXPECT_THAT(order(), ElementsAre(8, 0xb, 1, 2, 9, 3));
    for (const words &both : {words{"--first", "--after", "1"}, words{"--first", "--position", "1"},
                              words{"--no-order", "--first"}, words{"--after", ""}})
        EXPECT_EQ(run(linux_option(both)).status, 2);
}

TEST_F(fields, create_takes_inactive_and_data_from_anywhere)
{
    output(linux_option({"--inactive", "--optdata-ascii", "a b"}));
    EXPECT_EQ(get("Boot0008"), load_option(0, "Linux", path, "a b"));
    surroundings around;
    around.in = std::string("\0\xff\n", 3);
    EXPECT_EQ(run(linux_option({"--optdata-file", "-"}), around).status, 0);
    EXPECT_EQ(get("Boot0009"), load_option(1, "Linux", path, around.in));
    EXPECT_EQ(run(linux_option({"--optdata-ascii", "\u00e9"})).status, 2);
    EXPECT_EQ(run(linux_option({"--optdata-ascii", "a", "--optdata-text", "a"})).status, 2);
}

TEST_F(fields, create_boots_over_a_network)
{
    const std::string mac =
        "030b2500525400123456" + std::string(52, '0') + "01" + "030c1b00" + std::string(46, '0');
    const std::string uri = "03181200687474703a2f2f612f622e656669";
    output({"create", "--desc", "n", "--uri", "http://a/b.efi"});
    EXPECT_EQ(path_of("8"), uri + "7fff0400");
    const outcome alone = run({"create", "--desc", "n", "--mac", "52:54:00:12:34:56"});
    EXPECT_THAT(alone.err, HasSubstr("the path begins with the address of a network card\n"));
    EXPECT_EQ(path_of("9"), mac + "7fff0400");
    output({"create", "--desc", "n", "--devpath", "/PciRoot(0x0)/Pci(0x3,0x0)", "--mac", "52-54-00-12-34-56",
            "--uri", "http://a/b.efi"});
    EXPECT_EQ(path_of("a"), "02010c00d041030a00000000010106000003" + mac + uri + "7fff0400");
    EXPECT_THAT(parsed({"show", "a"})["instances"][0]["device_path"].get<std::string>(),
                StartsWith("/PciRoot(0x0)/Pci(0x3,0x0)/MAC(525400123456,0x1)/"));
    output({"set", "Boot0000", "--uri", "http://a/b.efi"});
    EXPECT_EQ(path_of("0"), path_of("8"));
    for (const words &wrong :
         {words{"--uri", "ftp://a"}, words{"--uri", "http://"}, words{"--uri", "http://a b"},
          words{"--mac", "52:54:00:12:34"}, words{"--mac", "x"}, words{"--uri", "http://a", "--file", "x"},
          words{"--mac", "525400123456", "--disk", "sda1"}})
        EXPECT_EQ(run(words{"create", "--desc", "n"} + wrong).status, 2);
}

TEST_F(fields, over_a_network_go_with_the_hardware_of_a_card)
{
    const auto created = [this](const std::string &devices, const words &more) {
        return run(words{"create", "--desc", "n", "--devpath", devices} + more);
    };
    const words mac = {"--mac", "52:54:00:12:34:56"};
    const words uri = {"--uri", "http://a/b"};
    const std::string card = "/PciRoot(0x0)/Pci(0x3,0x0)/MAC(525400123456,0x1)";
    ASSERT_EQ(created("/PciRoot(0x0)/Pci(0x3,0x0)", mac + uri).status, 0);
    for (const std::string &same : {card, card + "/IPv4(0.0.0.0:0<->0.0.0.0:0,0x0,0x0)"}) {
        const outcome made = created(same, mac + uri);
        ASSERT_EQ(made.status, 0) << made.err;
    }
    EXPECT_EQ(path_of("9"), path_of("8")) << "its address once";
    EXPECT_EQ(path_of("a"), path_of("8"));

    const auto before = snapshot();
    const auto refused = [&](const std::string &devices, const words &more) {
        const outcome tried = created(devices, more);
        EXPECT_EQ(tried.status, 1) << devices;
        return tried.err;
    };
    EXPECT_THAT(refused("/PciRoot(0x0)/Pci(0x3,0x0)/MAC(525400123457,0x1)", mac),
                StartsWith("ovra: the device path leads to another network card than --mac\n"));
    for (const char *disk : {"c5t0d0s0", "/PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)"})
        EXPECT_THAT(refused(disk, mac), HasSubstr("ovra: the device path leads to no network card\n"));
    for (const words &network : {mac, uri})
        EXPECT_THAT(refused("PciRoot(0x0)/Pci(0x3,0x0)/\\EFI\\a.efi", network),
                    HasSubstr("ovra: what is booted over a network has no file: \"\\EFI\\a.efi\"\n"));
    EXPECT_EQ(snapshot(), before);
    output({"set", "0", "--uri", "http://a/b"});
    EXPECT_THAT(failure({"set", "0", "--file", "\\x"}),
                StartsWith("ovra: the option boots what a URI names, which has no file\n"));
}

TEST_F(fields, of_an_option_that_firmware_made_are_changed_with_a_warning)
{
    const std::string mark = from_hex("4eac0881119f594d850ee21a522c59b2");
    put("Boot0010", load_option(1, "UEFI QEMU", path, mark));
    const std::string warning = "firmware made this option itself, and may make it anew as it was\n";
    for (const words &change : {words{"set", "10", "--inactive"}, words{"rename", "10", "mine"}})
        EXPECT_THAT(run(change).err, HasSubstr(warning));
    EXPECT_EQ(run({"rename", "10", "mine"}).err, "") << "nothing changes";
    EXPECT_EQ(parsed({"copy", "10", "--number", "11"})["unmarked"], true);
    EXPECT_EQ(get("Boot0011"), load_option(0, "mine", path));
    EXPECT_EQ(run({"set", "10", "--no-optdata"}).err, "");
    EXPECT_EQ(get("Boot0010"), load_option(0, "mine", path));
}

TEST_F(fields, set_appends_to_text_of_both_kinds)
{
    put("Boot0010", load_option(1, "x", path, ucs2("quiet") + std::string(2, '\0')));
    output({"set", "10", "--append-optdata", " ro"});
    EXPECT_EQ(get("Boot0010"), load_option(1, "x", path, ucs2("quiet ro") + std::string(2, '\0')));
    put("Boot0010", load_option(1, "x", path, "quiet"));
    output({"set", "10", "--append-optdata", " ro"});
    EXPECT_EQ(get("Boot0010"), load_option(1, "x", path, "quiet ro"));
    put("Boot0010", load_option(1, "x", path));
    output({"set", "10", "--append-optdata", "ro"});
    EXPECT_EQ(get("Boot0010"), load_option(1, "x", path, ucs2("ro") + std::string(2, '\0')));
    EXPECT_EQ(failure({"set", "Boot0002", "--append-optdata", "ro"}),
              "ovra: the optional data is no text that more can be appended to\n"
              "  --optdata-text or --optdata-file gives all of it.\n");
    EXPECT_EQ(run({"set", "10", "--append-optdata", "a", "--no-optdata"}).status, 2);
}

TEST_F(fields, set_replaces_the_partition_and_nothing_else)
{
    const std::string front = "02010c00d041030a00000000010106000003";
    const auto with = [&](const std::string &node) {
        return front + node + "04040e005c004500460049000000" + "7fff0400";
    };
    put("Boot0010", load_option(1, "x", from_hex(with(sample_path_hex.substr(0, 84)))));
    const outcome done = run({"set", "10", "--replace-disk", "c0t0d0s0"});
    EXPECT_EQ(done.status, 0) << done.err;
    const std::string now = path_of("10");
    EXPECT_THAT(now, StartsWith(front + "04012a0001000000"));
    EXPECT_THAT(now, HasSubstr("370a9f5f448ad04a9c2e1d9e6f5b7cd1"));
    EXPECT_THAT(now, ::testing::EndsWith("04040e005c0045004600490000007fff0400"));
    EXPECT_THAT(run({"set", "Boot0007", "--replace-disk", "c0t0d0s0"}).err,
                HasSubstr("ovra: the path names no partition\n"));
}

TEST_F(fields, copy_and_rename_keep_every_other_byte)
{
    put("Boot0010", load_option(0x109, "x", path, "data"));
    EXPECT_THAT(output({"copy", "10", "--desc", "y"}), StartsWith("Boot0008 is made: \"y\", 0x00000109"));
    EXPECT_EQ(get("Boot0008"), load_option(0x109, "y", path, "data"));
    EXPECT_EQ(parsed({"copy", "10", "--number", "20", "--no-order", "--dry-run"})["option"], "Boot0020");
    EXPECT_EQ(get("Boot0020"), "(none)");
    EXPECT_THAT(output({"rename", "y", "z", "--dry-run"}), StartsWith("would write Boot0008: \"z\", "));
    output({"rename", "y", "z"});
    EXPECT_EQ(get("Boot0008"), load_option(0x109, "z", path, "data"));
    EXPECT_EQ(output({"rename", "z", "z"}), "nothing to change\n");
    EXPECT_EQ(run({"rename", "z", "\xff"}).status, 2);
    EXPECT_EQ(get("Boot0008"), load_option(0x109, "z", path, "data"));
}

} // namespace tool_test
