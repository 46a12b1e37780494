// SPDX-License-Identifier: MIT
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace {

const std::string sata_hex = "02010c00d041030a0000000001010600021f";

std::string said_at_failure(const words &arguments)
{
    const outcome result = run_command(arguments);
    EXPECT_EQ(result.status, 1) << result.out;
    EXPECT_EQ(result.out, "");
    return result.err;
}

} // namespace

// These run without a machine: paths need no firmware.

TEST(path_encode_verb, prints_digits)
{
    const outcome result = run_command({"path", "encode", "/PciRoot(0)/Pci(0x1F,2)", "--file", "\\EFI"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, sata_hex + "04040e005c0045004600490000007fff0400\n");
}

TEST(path_encode_verb, takes_nothing_but_a_plain_file_after_the_devices)
{
    const std::string hd = "HD(1,GPT,5F9F0A37-8A44-4AD0-9C2E-1D9E6F5B7C01,0x800,0x1)";
    for (const char *rest : {"/\\a(x", "/\\a)", "/File(\"\\a.efi\")"}) {
        const outcome refused = run_command({"path", "encode", hd + rest});
        EXPECT_EQ(refused.status, 2) << rest;
        EXPECT_THAT(refused.err, HasSubstr("is not a plain file")) << rest;
    }
    EXPECT_EQ(run_command({"path", "encode", hd + "/\\a.efi/Pci(1,1)"}).status, 2);
    EXPECT_EQ(run_command({"path", "encode", hd + "\\a.efi"}).status, 0);
    EXPECT_EQ(run_command({"path", "encode", hd + "/File(\\a(1).efi)"}).status, 0);
    EXPECT_EQ(run_command({"path", "encode", hd, "--file", "\\a(1).efi"}).status, 0);
}

TEST(path_encode_verb, prints_bytes_and_json)
{
    const outcome raw = run_command({"path", "encode", "/Pci(1,2)", "--raw"});
    EXPECT_EQ(raw.out, from_hex("0101060002017fff0400"));
    const outcome document = run_command({"path", "encode", "/Pci(1,2)", "--json"});
    EXPECT_EQ(
        json::parse(document.out),
        json({{"format", 1}, {"path", "0101060002017fff0400"}, {"size", 10}, {"warnings", json::array()}}));
}

TEST(path_encode_verb, takes_an_empty_text_for_a_file_alone)
{
    EXPECT_EQ(run_command({"path", "encode", "", "--file", "a"}).out, "04040800610000007fff0400\n");
}

TEST(path_encode_verb, points_at_the_node_that_is_wrong)
{
    EXPECT_EQ(said_at_failure({"path", "encode", "/PciRoot(0)/Pci(32,2)/Sata(0,0,0)"}),
              "ovra: node 2 of the path cannot be packed: \"Pci(32,2)\"\n"
              "  /PciRoot(0)/Pci(32,2)/Sata(0,0,0)\n"
              "              ^^^^^^^^^\n"
              "    'device' cannot be greater than 31:  32\n"
              "    failure encoding Pci\n"
              "    error with encode_uefipath\n");
    EXPECT_THAT(said_at_failure({"path", "encode", "//\u7acb/Pci(0,0)"}),
                StartsWith("ovra: node 1 of the path cannot be packed: \"\u7acb\"\n"
                           "  //\u7acb/Pci(0,0)\n"
                           "    ^^\n"
                           "    invalid devnode: "));
    EXPECT_THAT(
        said_at_failure({"path", "encode", "/Pci(1,2)//"}),
        HasSubstr("node 2 of the path cannot be packed: it is empty\n  /Pci(1,2)//\n             ^\n"));
}

TEST(path_encode_verb, misses_a_node_between_two_slashes)
{
    for (const char *text :
         {"PciRoot(0x0)/Pci(0x1f,0x2)//HD(1,GPT,11111111-1111-1111-1111-111111111111,0x800,0x1000)",
          "PciRoot(0x0)/Pci(0x1f,0x2)///Sata(0x0,0xffff,0x0)", "PciRoot(0x0)/Pci(0x1f,0x2)//\\EFI\\a.efi"})
        EXPECT_EQ(said_at_failure({"path", "encode", text}),
                  "ovra: nothing stands between two slashes of the path\n"
                  "  efibootmgr prints nothing for some nodes: one may be missing.\n")
            << text;
}

TEST(path_encode_verb, says_that_a_file_or_a_device_is_wrong)
{
    EXPECT_THAT(said_at_failure({"path", "encode", "/Pci(1,2)", "--file", "\xff"}),
                StartsWith("ovra: the file \"\\xff\" cannot be packed\n"));
    EXPECT_THAT(said_at_failure({"path", "encode", "/devices/nothing"}),
                StartsWith("ovra: the path \"/devices/nothing\" cannot be packed\n"));
}

TEST(path_encode_verb, refuses_a_file_that_no_node_holds)
{
    const auto encode = [](size_t characters) {
        return words{"path", "encode", "", "--file", std::string(characters, 'x')};
    };
    const outcome longest = run_command(encode(32764));
    EXPECT_EQ(longest.status, 0) << longest.err;
    EXPECT_THAT(longest.out, StartsWith("0404feff78007800"));
    EXPECT_EQ(longest.out.size(), 2 * (65534 + 4) + 1U);
    for (const size_t characters : {32765U, 32766U, 32770U}) {
        EXPECT_EQ(said_at_failure(encode(characters)),
                  "ovra: the file \"" + std::string(40, 'x') + "...\" cannot be packed\n  It has " +
                      std::to_string(characters) + " characters; a node holds 32764.\n");
    }
    EXPECT_THAT(said_at_failure({"path", "encode", "/Pci(1,2)", "--file", std::string(32765, 'x')}),
                HasSubstr("...\" cannot be packed\n"));
}

// The library stores the third argument of a Sata node in place of the first.
TEST(path_encode_verb, keeps_the_port_of_a_disk)
{
    const outcome packed = run_command({"path", "encode", "/Pci(1,2)/Sata(5,0xffff,0)"});
    EXPECT_EQ(packed.status, 0);
    EXPECT_EQ(packed.out, "01010600020103120a000500ffff00007fff0400\n");
    EXPECT_EQ(packed.err, "");
}

TEST(path_encode_verb, takes_a_file_behind_the_devices)
{
    const std::string digits = "01010600020104040a005c00610000007fff0400\n";
    for (const char *text : {"/Pci(1,2)\\a", "/Pci(1,2)/\\a", "/Pci(1,2)/File(\\a)"}) {
        const outcome packed = run_command({"path", "encode", text});
        EXPECT_EQ(packed.out, digits) << text;
        EXPECT_EQ(packed.err, "") << text;
        const outcome twice = run_command({"path", "encode", text, "--file", "b"});
        EXPECT_EQ(twice.status, 2) << text;
        EXPECT_THAT(twice.err, StartsWith("ovra: the path names a file, \"\\a\", and --file another\n"));
    }
    EXPECT_THAT(said_at_failure({"path", "encode", "/Pci(1,2)x\\a"}),
                StartsWith("ovra: node 1 of the path cannot be packed: \"Pci(1,2)x\\a\"\n"));
}

TEST(path_encode_verb, names_files_as_firmware_does)
{
    for (const words &given : {words{"/Pci(1,2)", "--file", "/a"}, words{"/Pci(1,2)", "--file=/a"}}) {
        const outcome packed = run_command(words{"path", "encode"} + given);
        EXPECT_EQ(packed.status, 0);
        EXPECT_EQ(packed.out, "01010600020104040a005c00610000007fff0400\n");
        EXPECT_EQ(packed.err, "The file is named as firmware does, \\a.\n");
    }
    EXPECT_EQ(run_command({"path", "encode", "/Pci(1,2)\\a/b", "--json"}).err,
              "The file is named as firmware does, \\a\\b.\n");
}

TEST(path_encode_verb, takes_several_instances)
{
    EXPECT_EQ(run_command({"path", "encode", "/Pci(1,2)/Pci(1,3),/Pci(1,4)"}).out, "010106000201"
                                                                                   "010106000301"
                                                                                   "7f010400"
                                                                                   "010106000401"
                                                                                   "7fff0400\n");
    EXPECT_EQ(run_command({"path", "encode", "HD(1,MBR,0x1,1,1)\\a,HD(2,MBR,0x1,1,1)\\b"}).status, 0);
    EXPECT_THAT(said_at_failure({"path", "encode", "/Pci(1,2)/Pci(1,3),x,/Pci(1,4)"}),
                StartsWith("ovra: node 2 of the path cannot be packed: \"Pci(1,3),x,\"\n"));
    EXPECT_EQ(
        said_at_failure({"path", "encode", "/Pci(1,2)/Path(0x7f,1,0400)/Pci(1,2)"}).find("ovra: node 2"), 0u);
    EXPECT_EQ(said_at_failure({"path", "encode", ""}), "ovra: a device path is needed\n");
}

TEST(path_encode_verb, keeps_to_a_path_where_test_files_are_wanted)
{
    surroundings around;
    around.environment = {{"OVRA_TEST_FILE", ""}};
    EXPECT_EQ(run_command({"path", "encode", "/Pci(1,2)"}, around).out, "0101060002017fff0400\n");
}

TEST(path_decode_verb, prints_every_instance)
{
    const std::string two = sata_hex + "04040e005c0045004600490000007f010400"
                                       "010106000201"
                                       "7fff0400";
    const outcome text = run_command({"path", "decode", two});
    EXPECT_EQ(text.status, 0) << text.err;
    EXPECT_EQ(text.out, "Device path  /PciRoot(0x0)/Pci(0x1f,0x2)\n"
                        "File path    \\EFI\n"
                        "Device path  /Pci(0x1,0x2)\n");
    const json first = {{"device_path", "/PciRoot(0x0)/Pci(0x1f,0x2)"}, {"file_path", "\\EFI"}};
    const json next = {{"device_path", "/Pci(0x1,0x2)"}, {"file_path", nullptr}};
    EXPECT_EQ(json::parse(run_command({"--json", "path", "decode", two}).out)["instances"],
              json::array({first, next}));
}

// An option holds a list of paths.
TEST(path_decode_verb, prints_the_paths_that_follow_the_first)
{
    const std::string list = "010106000201"
                             "7fff0400"
                             "01010600020204040a005c00610000007f010400"
                             "010106000203"
                             "7fff0400"
                             "04071400c9bdb87cebf8344faaea3ee4af6516a1"
                             "7fff0400";
    const outcome text = run_command({"path", "decode", list});
    EXPECT_EQ(text.err, "");
    EXPECT_EQ(text.out, "Device path   /Pci(0x1,0x2)\n"
                        "Further path  /Pci(0x2,0x2)\n"
                        "File path     \\a\n"
                        "Device path   /Pci(0x3,0x2)\n"
                        "Further path  MediaPath(0x7,1400c9bdb87cebf8344faaea3ee4af6516a1)\n"
                        "Text in UEFI  Fv(7CB8BDC9-F8EB-4F34-AAEA-3EE4AF6516A1)\n");
    const json document = json::parse(run_command({"path", "decode", "--json", list + "00"}).out);
    EXPECT_EQ(document["bytes_not_shown"], 1);
    EXPECT_EQ(document["instances"].size(), 1u);
    ASSERT_EQ(document["further_paths"].size(), 2u);
    EXPECT_EQ(document["further_paths"][0]["instances"][0]["file_path"], "\\a");
    EXPECT_EQ(document["further_paths"][0]["instances"][1]["device_path"], "/Pci(0x3,0x2)");
    EXPECT_EQ(document["further_paths"][1]["instances"][0]["uefi_text"],
              "Fv(7CB8BDC9-F8EB-4F34-AAEA-3EE4AF6516A1)");
}

TEST(path_decode_verb, says_how_much_stands_behind_the_end)
{
    const auto said = [](const std::string &digits) {
        const outcome result = run_command({"path", "decode", digits});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "Device path  /Pci(0x1,0x2)\n");
        return result.err;
    };
    const std::string pci = "010106000201";
    EXPECT_EQ(said(pci + "7fff0400"), "");
    EXPECT_EQ(said(pci + "7fff0400" + pci), // without its END node no further path
              "ovra: warning: 6 bytes after the path's END node are not shown\n");
    // Whatever it is, as long as it is behind the end.
    EXPECT_EQ(said(pci + "7fff0400" + "00"),
              "ovra: warning: 1 bytes after the path's END node are not shown\n");
    EXPECT_EQ(said(pci + "7f010400" + pci),
              "ovra: warning: 6 bytes after the path's END node are not shown\n");

    const outcome document = run_command({"path", "decode", "--json", pci + "7fff0400" + "7fff0400"});
    EXPECT_EQ(document.status, 0);
    EXPECT_EQ(document.err, "ovra: warning: 4 bytes after the path's END node are not shown\n");
    const json instance = {{"device_path", "/Pci(0x1,0x2)"}, {"file_path", nullptr}};
    EXPECT_EQ(json::parse(document.out),
              json({{"format", 1},
                    {"instances", json::array({instance})},
                    {"bytes_not_shown", 4},
                    {"warnings",
                     {{{"text", "4 bytes after the path's END node are not shown"}, {"advice", nullptr}}}}}));
    EXPECT_EQ(json::parse(run_command({"path", "decode", "--json", pci + "7fff0400"}).out)["bytes_not_shown"],
              0);
}

TEST(path_decode_verb, says_that_an_end_is_not_shown)
{
    for (const char *digits :
         {"0101060002017f010400", "0101060002017fff0500aa", "0101060002017f0004007fff0400"})
        EXPECT_EQ(run_command({"path", "decode", digits}).err,
                  "ovra: warning: the path's END node is not shown: its text gives a plain one\n");
    EXPECT_EQ(run_command({"path", "decode", "0101060002017f0104007fff0400"}).err, "");
}

TEST(path_decode_verb, reads_standard_input)
{
    surroundings around;
    around.in = "0101 0600\n0201 7fff:0400\n";
    EXPECT_EQ(run_command({"path", "decode", "-"}, around).out, "Device path  /Pci(0x1,0x2)\n");
    around.in = "01x";
    EXPECT_EQ(run_command({"path", "decode", "-"}, around).err,
              "ovra: pairs of hexadecimal digits are needed on standard input\n");
}

TEST(path_decode_verb, refuses_what_is_no_path)
{
    EXPECT_THAT(said_at_failure({"path", "decode", "01010700020100"}),
                StartsWith("ovra: this path has no text: it does not end in an END node (7fff0400)\n"));
    EXPECT_THAT(said_at_failure({"path", "decode", "01010300"}),
                StartsWith("ovra: this path has no text: the node at byte 0 gives its length as 3"));
    EXPECT_EQ(said_at_failure({"path", "decode", ""}), "ovra: this path has no text: it is empty\n");
    const outcome digits = run_command({"path", "decode", "0g"});
    EXPECT_EQ(digits.status, 2);
    EXPECT_THAT(digits.err, HasSubstr("path decode: pairs of hexadecimal digits are needed\n"));
}

TEST(path_decode_verb, is_what_was_encoded)
{
    for (const char *text : {"/PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0x8000,0x0)", "/Pci(0x1,0x2)"}) {
        const outcome encoded = run_command({"path", "encode", text});
        surroundings around;
        around.in = encoded.out;
        EXPECT_EQ(run_command({"path", "decode", "-"}, around).out,
                  "Device path  " + std::string(text) + "\n");
    }
}

TEST(path_verb, needs_to_know_what_to_do)
{
    EXPECT_EQ(run_command({"path"}).status, 2);
    EXPECT_EQ(run_command({"path", "encode"}).status, 2);
    EXPECT_EQ(run_command({"path", "decode"}).status, 2);
}

} // namespace tool_test
