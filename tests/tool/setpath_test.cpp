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

class SetPath : public Machine {
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

TEST_F(SetPath, file_replaces_the_file_and_keeps_every_other_byte)
{
    store(pci + odd + file_node + second);
    output({"set", "Boot0003", "--file", "\\c"});
    EXPECT_EQ(get("Boot0003"), with(pci + odd + "04040a005c0063000000" + second));
}

TEST_F(SetPath, file_is_put_before_the_end_where_there_was_none)
{
    store(pci + odd + second);
    output({"set", "Boot0003", "--file", "\\c"});
    EXPECT_EQ(get("Boot0003"), with(pci + odd + "04040a005c0063000000" + second));
}

TEST_F(SetPath, file_replaces_all_parts_of_a_file)
{
    store(file_node + pci + file_node + end);
    output({"set", "Boot0003", "--file", "c"});
    EXPECT_EQ(get("Boot0003"), with("0404080063000000" + pci + end));
}

TEST_F(SetPath, devpath_replaces_the_devices_and_keeps_every_other_byte)
{
    store(pci + odd + file_node + second);
    output({"set", "Boot0003", "--devpath", "/PciRoot(0)/Pci(7,3)"});
    EXPECT_EQ(get("Boot0003"), with("02010c00d041030a00000000"
                                    "010106000307" +
                                    file_node + second));
}

TEST_F(SetPath, both_and_other_fields_at_once)
{
    store(pci + file_node + end);
    output({"set", "Boot0003", "--devpath", "/Pci(7,3)", "--file", "c", "--desc", "New"});
    EXPECT_EQ(get("Boot0003"), load_option(0x109, "New",
                                           from_hex("010106000307"
                                                    "0404080063000000" +
                                                    end),
                                           "data"));
}

TEST_F(SetPath, the_same_path_changes_nothing)
{
    store(pci + file_node + second);
    EXPECT_EQ(output({"set", "Boot0003", "--file", "\\a"}), "nothing to change\n");
}

TEST_F(SetPath, dry_run_writes_nothing)
{
    store(pci + file_node + end);
    const auto before = snapshot();
    EXPECT_THAT(output({"set", "Boot0003", "--file", "c", "--dry-run"}), HasSubstr("would write Boot0003"));
    EXPECT_EQ(snapshot(), before);
    EXPECT_EQ(parsed({"set", "Boot0003", "--file", "c", "--dry-run"})["changes"][0]["path"],
              pci + "0404080063000000" + end);
}

TEST_F(SetPath, a_bad_text_is_pointed_at)
{
    store(pci + file_node + end);
    EXPECT_THAT(failure({"set", "Boot0003", "--devpath", "/Pci(1,2)/Nothing(1)"}),
                HasSubstr("node 2 of the path cannot be packed: \"Nothing(1)\"\n"
                          "  /Pci(1,2)/Nothing(1)\n"
                          "            ^^^^^^^^^^\n"
                          "    Nothing not found in encode table\n"));
}

TEST_F(SetPath, a_path_that_is_not_well_formed_is_refused)
{
    store("01010700" + pci);
    EXPECT_THAT(failure({"set", "Boot0003", "--file", "c"}),
                HasSubstr("ovra: the option's path is no packed device path: "));
}

TEST_F(SetPath, empty_texts_are_refused)
{
    EXPECT_EQ(run({"set", "Boot0003", "--file", ""}).status, 2);
    EXPECT_EQ(run({"set", "Boot0003", "--devpath", ""}).status, 2);
}

TEST_F(SetPath, create_takes_text)
{
    output({"create", "--desc", "x", "--devpath", "/Pci(1,2)", "--file", "\\a"});
    EXPECT_EQ(get("Boot0008"), load_option(1, "x", from_hex(pci + file_node + end)));
    EXPECT_THAT(failure({"create", "--desc", "x", "--devpath", "/Pci(1)"}),
                HasSubstr("node 1 of the path cannot be packed: \"Pci(1)\"\n"));
}

TEST_F(SetPath, create_takes_exactly_one_kind_of_path)
{
    EXPECT_THAT(run({"create", "--desc", "x"}).err,
                HasSubstr("create: one of --path-hex, --devpath and --disk is required\n"));
    for (const words &more :
         {words{"--path-hex", end, "--devpath", "/Pci(1,2)"}, words{"--path-hex", end, "--disk", "c0t0d0s0"},
          words{"--disk", "c0t0d0s0", "--devpath", "/Pci(1,2)"}, words{"--path-hex", end, "--file", "a"},
          words{"--devpath", "/Pci(1,2)", "--full"}}) {
        words arguments = {"create", "--desc", "x"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        EXPECT_EQ(run(arguments).status, 2) << more[0] << more[2];
    }
}

} // namespace tool_test
