// SPDX-License-Identifier: MIT
#include "tests/support/rows.h"
#include "tests/tool/support.h"

namespace tool_test {

using ::testing::HasSubstr;

class show_verb : public Machine {};

TEST_F(show_verb, prints_every_field)
{
    EXPECT_EQ(output({"show", "Boot0005"}),
              "Option         Boot0005\n"
              "Description    UEFI QEMU HARDDISK QM00001\n"
              "Attributes     0x00000001 (active)\n"
              "Position       5\n"
              "Path           02010c00d041030a000000000101060002"
              "1f03120a000000ffff00007fff0400 (32 bytes)\n"
              "Device path    /PciRoot(0x0)/Pci(0x1f,0x2)/Sata(0x0,0xffff,0x0)\n"
              "Optional data  4eac0881119f594d850ee21a522c59b2 (16 bytes)\n");
}

TEST_F(show_verb, json_has_every_field)
{
    put_order({});
    const json instance = {{"device_path", "MediaPath(0x7,1400c9bdb87cebf8344faaea3ee4af6516a1)/"
                                           "MediaPath(0x6,140083a5047c3e9e1c4fad65e05268d0b4d1)"},
                           {"file_path", nullptr},
                           {"uefi_text", "Fv(7CB8BDC9-F8EB-4F34-AAEA-3EE4AF6516A1)/"
                                         "FvFile(7C04A583-9E3E-4F1C-AD65-E05268D0B4D1)"}};
    EXPECT_EQ(parsed({"show", "Boot0007"}),
              json({{"option", "Boot0007"},
                    {"position", nullptr},
                    {"description", "EFI Internal Shell"},
                    {"active", true},
                    {"attributes", 1},
                    {"path", "04071400c9bdb87cebf8344faaea3ee4af6516a10406140083a5047c3e9e1c4f"
                             "ad65e05268d0b4d17fff0400"},
                    {"optional_data", ""},
                    {"optional_data_text", nullptr},
                    {"instances", json::array({instance})},
                    {"disks", json::array()},
                    {"kernel_names", json::array()},
                    {"other_extent", json::array()},
                    {"remarks", json::object()}}));
}

TEST_F(show_verb, prints_every_instance_of_a_path)
{
    put("Boot0003", load_option(1, "two",
                                from_hex("01010600020104040a005c00610000007f010400"
                                         "010106000302"
                                         "7fff0400")));
    EXPECT_THAT(output({"show", "Boot0003"}), HasSubstr("Device path    /Pci(0x1,0x2)\n"
                                                        "File path      \\a\n"
                                                        "Device path    /Pci(0x2,0x3)\n"
                                                        "Optional data"));
    const json first = {{"device_path", "/Pci(0x1,0x2)"}, {"file_path", "\\a"}};
    const json next = {{"device_path", "/Pci(0x2,0x3)"}, {"file_path", nullptr}};
    EXPECT_EQ(parsed({"show", "Boot0003"})["instances"], json::array({first, next}));
}

TEST_F(show_verb, says_why_a_path_has_no_text)
{
    put("Boot0003", load_option(1, "bad", from_hex("04012a00")));
    const std::string why = "the node at byte 0 gives its length as 42, 4 bytes are left";
    EXPECT_THAT(output({"show", "Boot0003"}), HasSubstr("Device path    (has no text: " + why + ")\n"));
    const json shown = parsed({"show", "Boot0003"});
    EXPECT_EQ(shown["instances"], nullptr);
    EXPECT_EQ(shown["path_error"], why);
}

TEST_F(show_verb, takes_short_and_lower_case_names)
{
    for (const char *name : {"Boot0007", "boot0007", "BOOT7", "0007", "7"})
        EXPECT_EQ(parsed({"show", name})["option"], "Boot0007") << name;
}

TEST_F(show_verb, says_when_an_option_is_not_in_the_order)
{
    put_order({0});
    const std::string text = output({"show", "Boot0007"});
    EXPECT_THAT(text, HasSubstr("Position       not in BootOrder\n"));
    EXPECT_THAT(text, HasSubstr("Optional data  none\n"));
}

TEST_F(show_verb, refuses_an_option_that_does_not_exist)
{
    EXPECT_EQ(failure({"show", "Boot001F"}), "ovra: no such option: Boot001F\n"
                                             "  'ovra list' shows the options.\n");
}

TEST_F(show_verb, says_what_to_do_about_a_damaged_option)
{
    put("Boot0003", "12345");
    EXPECT_EQ(failure({"show", "Boot0003"}), "ovra: cannot read Boot0003: damaged\n"
                                             "  'ovra vars -v Boot0003' shows its bytes.\n"
                                             "  'ovra remove Boot0003' removes it.\n");
}

TEST_F(show_verb, shows_a_description_that_the_library_refuses)
{
    put("Boot0003", load_option(1, std::string(127, 'x'), from_hex("7fff0400")));
    EXPECT_EQ(parsed({"show", "Boot0003"})["description"], std::string(127, 'x'));
    put("Boot0003", load_option(1, std::string(128, 'x'), from_hex("7fff0400")));
    EXPECT_EQ(parsed({"show", "Boot0003"})["description"], std::string(128, 'x'));
}

namespace {

struct optional_data_case {
    const char *name;
    std::string data;
    json text; // null: shown as digits
};

const std::string nul(1, '\0');

const optional_data_case optional_data_cases[] = {
    {"text_when_ascii", "quiet splash", "quiet splash"},
    {"text_when_ascii_is_terminated", "quiet" + nul, "quiet"},
    {"text_when_ucs2", ucs2("root=/dev/sda1") + nul + nul, "root=/dev/sda1"},
    {"text_when_ucs2_is_not_terminated", ucs2("quiet"), "quiet"},
    {"text_when_terminated_ucs2_is_no_ascii", std::string("\xcb\x7a\0\0", 4), "\u7acb"},
    {"digits_when_other_ucs2_is_not_terminated", std::string("\xcb\x7a\x2f\x67", 4), nullptr},
    {"digits_when_text_has_data_behind_it", "WINDOWS" + nul + "\x01" + nul, nullptr},
    {"digits_when_only_zeros", nul + nul, nullptr},
    {"digits_when_one_zero", nul, nullptr},
    {"digits_when_it_has_an_escape", ucs2("a\x1b[m") + nul + nul, nullptr},
    {"digits_when_it_has_half_a_character", std::string("\x00\xd8\0\0", 4), nullptr},
    {"digits_when_odd", "\xff" + nul + nul, nullptr},
};

class optional_data : public Machine {
public:
    using Machine::output;
    using Machine::parsed;
    using Machine::put;
};

void is_shown_as(optional_data &machine, const optional_data_case &row)
{
    machine.put("Boot0000", load_option(1, "x", from_hex("7fff0400"), row.data));
    const json shown = machine.parsed({"show", "Boot0000"});
    EXPECT_EQ(shown["optional_data_text"], row.text);
    EXPECT_EQ(from_hex(shown["optional_data"].get<std::string>()), row.data);
    if (row.text.is_string()) {
        EXPECT_THAT(machine.output({"show", "Boot0000"}),
                    HasSubstr("Optional data  \"" + row.text.get<std::string>()));
    }
}

const bool optional_data_registered = ovra::test::register_rows(
    "optional_data_is_shown_as", optional_data_cases, is_shown_as, __FILE__, __LINE__);

} // namespace

} // namespace tool_test
