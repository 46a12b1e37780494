// SPDX-License-Identifier: MIT
#include "tests/support/captured.h"
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

namespace {

// A vendor's hardware node and one of no known kind: text would lose both. A second path behind the first
// END.
const std::string pci = "010106000201";
const std::string odd = "0163060012340104160000112233445566778899aabbccddeeff0099";
const std::string file_node = "04040a005c0061000000";
const std::string end = "7fff0400";
const std::string second = "7f010400"
                           "010106000304"
                           "04040a005c0062000000"
                           "7fff0400"
                           "0162050077"
                           "7fff0400";

} // namespace

class set_path : public Machine {
protected:
    void store(const std::string &path) const
    {
        put("Boot0003", load_option(0x109, "Old", from_hex(path), "data"));
    }
    static std::string with(const std::string &path)
    {
        return load_option(0x109, "Old", from_hex(path), "data");
    }
};

TEST_F(set_path, file_replaces_the_file_and_keeps_every_other_byte)
{
    store(pci + odd + file_node + second);
    output({"set", "Boot0003", "--file", "\\c"});
    EXPECT_EQ(get("Boot0003"), with(pci + odd + "04040a005c0063000000" + second));
}

TEST_F(set_path, file_is_put_before_the_end_where_there_was_none)
{
    store(pci + odd + second);
    output({"set", "Boot0003", "--file", "\\c"});
    EXPECT_EQ(get("Boot0003"), with(pci + odd + "04040a005c0063000000" + second));
}

TEST_F(set_path, file_replaces_all_parts_of_a_file)
{
    store(file_node + pci + file_node + end);
    output({"set", "Boot0003", "--file", "c"});
    EXPECT_EQ(get("Boot0003"), with("0404080063000000" + pci + end));
}

TEST_F(set_path, devpath_replaces_the_devices_and_keeps_every_other_byte)
{
    store(pci + odd + file_node + second);
    output({"set", "Boot0003", "--devpath", "/PciRoot(0)/Pci(7,3)"});
    EXPECT_EQ(get("Boot0003"), with("02010c00d041030a00000000"
                                    "010106000307" +
                                    file_node + second));
}

TEST_F(set_path, both_and_other_fields_at_once)
{
    store(pci + file_node + end);
    output({"set", "Boot0003", "--devpath", "/Pci(7,3)", "--file", "c", "--desc", "New"});
    EXPECT_EQ(get("Boot0003"), load_option(0x109, "New",
                                           from_hex("010106000307"
                                                    "0404080063000000" +
                                                    end),
                                           "data"));
}

TEST_F(set_path, the_same_path_changes_nothing)
{
    store(pci + file_node + second);
    EXPECT_EQ(output({"set", "Boot0003", "--file", "\\a"}), "nothing to change\n");
}

TEST_F(set_path, dry_run_writes_nothing)
{
    store(pci + file_node + end);
    const auto before = snapshot();
    EXPECT_THAT(output({"set", "Boot0003", "--file", "c", "--dry-run"}), HasSubstr("would write Boot0003"));
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(parsed({"set", "Boot0003", "--file", "c", "--dry-run"})["changes"][0]["path"],
              pci + "0404080063000000" + end);
}

TEST_F(set_path, a_bad_text_is_pointed_at)
{
    store(pci + file_node + end);
    EXPECT_THAT(failure({"set", "Boot0003", "--devpath", "/Pci(1,2)/Nothing(1)"}),
                HasSubstr("node 2 of the path cannot be packed: \"Nothing(1)\"\n"
                          "  /Pci(1,2)/Nothing(1)\n"
                          "            ^^^^^^^^^^\n"
                          "    Nothing not found in encode table\n"));
}

TEST_F(set_path, an_end_node_in_the_text_is_refused)
{
    store(pci + file_node + end);
    const std::string advice = "  What follows it would not belong to the path's first instance;\n"
                               "  --path-hex stores any path.\n";
    EXPECT_EQ(failure({"set", "Boot0003", "--devpath", "/Path(0x7f,1,0400)/Pci(1,2)"}),
              "ovra: node 1 of the path is an END node\n" + advice);
    EXPECT_EQ(failure({"set", "Boot0003", "--devpath", "/Pci(1,2)/Path(0x7f,0xff,0400)"}),
              "ovra: node 2 of the path is an END node\n" + advice);
    for (const words &more : {words{}, words{"--file", "\\a"}}) {
        const words arguments =
            words{"create", "--desc", "x", "--devpath", "/Pci(1,2)/Pci(1,3)/Path(0x7f,1,0400)/Pci(1,2)"} +
            more;
        EXPECT_EQ(failure(arguments), "ovra: node 3 of the path is an END node\n" + advice);
    }
}

TEST_F(set_path, a_file_that_no_node_holds_is_refused)
{
    store(pci + file_node + end);
    for (const size_t characters : {32765U, 32770U}) {
        const std::string name(characters, 'x');
        const std::string said = "ovra: the file \"" + std::string(40, 'x') + "...\" cannot be packed\n";
        EXPECT_THAT(failure({"set", "Boot0003", "--file", name}), HasSubstr(said));
        EXPECT_THAT(failure({"create", "--desc", "x", "--devpath", "/Pci(1,2)", "--file", name}),
                    HasSubstr(said));
    }
    // A node holds the name, and a path does not hold the node.
    EXPECT_THAT(failure({"set", "Boot0003", "--file", std::string(32764, 'x')}),
                HasSubstr("ovra: the description and the path have "));
}

TEST_F(set_path, a_port_is_kept)
{
    store(pci + file_node + end);
    output({"set", "Boot0003", "--devpath", "/Pci(1,2)/Sata(5,0xffff,0)"});
    EXPECT_EQ(get("Boot0003"), with(pci + "03120a000500ffff0000" + file_node + end));
    output({"create", "--desc", "x", "--devpath", "Sata(5,0xffff,0)\\a"});
    EXPECT_EQ(get("Boot0008"),
              load_option(1, "x", from_hex("03120a000500ffff000004040a005c0061000000" + end)));
    EXPECT_THAT(output({"show", "Boot0008"}), HasSubstr("/Sata(0x5,0xffff,0x0)\n"));
}

TEST_F(set_path, a_file_may_stand_behind_the_devices)
{
    store(pci + file_node + second);
    output({"set", "Boot0003", "--devpath", "/Pci(7,3)\\c"});
    EXPECT_EQ(get("Boot0003"), with("010106000307"
                                    "04040a005c0063000000" +
                                    second));
    output({"create", "--desc", "x", "--devpath", "/Pci(1,2)/\\a"});
    EXPECT_EQ(get("Boot0008"), load_option(1, "x", from_hex(pci + file_node + end)));
}

TEST_F(set_path, a_file_is_named_as_firmware_does)
{
    store(pci + file_node + end);
    const outcome set = run({"set", "Boot0003", "--file", "/c"});
    EXPECT_EQ(set.status, 0);
    EXPECT_EQ(set.err, "The file is named as firmware does, \\c.\n");
    EXPECT_EQ(get("Boot0003"), with(pci + "04040a005c0063000000" + end));
    const outcome created = run({"create", "--desc", "x", "--devpath", "/Pci(1,2)", "--file", "/a"});
    EXPECT_EQ(created.err, "The file is named as firmware does, \\a.\n");
    EXPECT_EQ(get("Boot0008"), load_option(1, "x", from_hex(pci + file_node + end)));
}

TEST_F(set_path, a_path_that_is_not_well_formed_is_refused)
{
    store("01010700" + pci);
    EXPECT_THAT(failure({"set", "Boot0003", "--file", "c"}),
                HasSubstr("ovra: the option's path is no packed device path: "));
}

TEST_F(set_path, empty_texts_are_refused)
{
    EXPECT_EQ(run({"set", "Boot0003", "--file", ""}).status, 2);
    EXPECT_EQ(run({"set", "Boot0003", "--devpath", ""}).status, 2);
}

TEST_F(set_path, create_takes_text)
{
    output({"create", "--desc", "x", "--devpath", "/Pci(1,2)", "--file", "\\a"});
    EXPECT_EQ(get("Boot0008"), load_option(1, "x", from_hex(pci + file_node + end)));
    EXPECT_THAT(failure({"create", "--desc", "x", "--devpath", "/Pci(1)"}),
                HasSubstr("node 1 of the path cannot be packed: \"Pci(1)\"\n"));
}

TEST_F(set_path, create_takes_exactly_one_kind_of_path)
{
    EXPECT_THAT(run({"create", "--desc", "x"}).err,
                HasSubstr("create: one of --path-hex, --devpath, --disk, --uri and --mac is required\n"));
    for (const words &more :
         {words{"--path-hex", end, "--devpath", "/Pci(1,2)"}, words{"--path-hex", end, "--disk", "c0t0d0s0"},
          words{"--disk", "c0t0d0s0", "--devpath", "/Pci(1,2)"}, words{"--path-hex", end, "--file", "a"},
          words{"--devpath", "/Pci(1,2)", "--full"}}) {
        EXPECT_EQ(run(words{"create", "--desc", "x"} + more).status, 2) << more[0] << more[2];
    }
}

// On a machine with disks.
class set_path_of_disk : public set_path {
protected:
    set_path_of_disk() { ovra::test::unpack_machine("q35", root); }
};

TEST_F(set_path_of_disk, devpath_takes_the_name_of_a_disk)
{
    store(pci + odd + file_node + second);
    const outcome set = run({"set", "Boot0003", "--devpath", "c5t0d0s1"});
    EXPECT_EQ(set.status, 0);
    EXPECT_EQ(set.err, "c5t0d0s1 is /dev/sda2, PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02.\n");
    EXPECT_EQ(get("Boot0003"), with("04012a000200000000a80000000000000080000000000000"
                                    "370a9f5f448ad04a9c2e1d9e6f5b7c020202" +
                                    file_node + second));
}

TEST_F(set_path_of_disk, every_verb_says_which_disk_it_took)
{
    store(pci + file_node + second);
    const std::string said = "/dev/sda2 is c5t0d0s1, PARTUUID=5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02.\n";
    for (const words &arguments :
         {words{"set", "Boot0003", "--devpath", "/dev/sda2"}, words{"path", "encode", "/dev/sda2"},
          words{"create", "--desc", "x", "--devpath", "/dev/sda2", "--file", "\\a"},
          words{"create", "--desc", "x", "--disk", "/dev/sda2", "--file", "\\a"},
          words{"find", "/dev/sda2"}}) {
        const outcome result = run(arguments);
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.err, said) << arguments[0];
        const json document = parsed(arguments);
        EXPECT_EQ(document["disk"], "c5t0d0s1") << arguments[0];
        EXPECT_EQ(document["kernel_name"], "sda2");
        EXPECT_EQ(document["partuuid"], "5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c02");
        EXPECT_EQ(document["signature"], nullptr);
    }
    EXPECT_THAT(failure({"set", "Boot0003", "--devpath", "/dev/sdx1"}),
                HasSubstr("ovra: no disk is named \"/dev/sdx1\"\n"));
}

TEST_F(set_path_of_disk, a_name_of_the_tree_has_no_path)
{
    store(pci + file_node + end);
    // libovra accepts such a name and makes no path of it.
    const std::string said = "ovra: the path \"/devices/pci@0,0\" cannot be packed\n"
                             "    encoding non block /dev or any /devices paths not available\n";
    EXPECT_EQ(failure({"path", "encode", "/devices/pci@0,0"}), said);
    EXPECT_EQ(failure({"create", "--desc", "x", "--devpath", "/devices/pci@0,0"}), said);
    EXPECT_EQ(failure({"set", "Boot0003", "--devpath", "/devices/pci@0,0"}), said);
}

} // namespace tool_test
