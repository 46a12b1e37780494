// SPDX-License-Identifier: MIT
// Single nodes: dispatch, generic forms, the bound of a node's text, and the steps that the printers share.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/print/golden.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

std::string hexdump(const bytes &node)
{
    const exact_node exact(node);
    char *hex = nullptr;
    device_path_hexdump(exact.get(), &hex);
    std::string text = hex ? hex : "no memory";
    free(hex);
    return text;
}

std::string guid_text(const EFI_GUID &guid)
{
    char text[38];
    memset(text, '#', sizeof text);
    print_guid(&guid, text);
    EXPECT_EQ(text[36], '\0');
    EXPECT_EQ(text[37], '#');
    return text;
}

bytes filled(size_t size, uint8_t value)
{
    return bytes(size, value);
}

// UCS-2 units, little-endian.
bytes units(size_t count, uint16_t unit)
{
    bytes result;
    for (size_t i = 0; i < count; ++i) {
        result.push_back(static_cast<uint8_t>(unit));
        result.push_back(static_cast<uint8_t>(unit >> 8));
    }
    return result;
}

} // namespace

TEST(node, end_nodes_print_as_end_path)
{
    for (const char *end : {"7f 00 0400", "7f 01 0400", "7f ff 0400"})
        EXPECT_EQ(printed(from_hex(end)), "/EndPath");
    EXPECT_EQ(printed({0x7f, 0xff, 4, 0}, "before"), "/EndPath");
}

TEST(node, type_9_prints_as_an_unknown_type)
{
    EXPECT_EQ(printed(from_hex("09 01 0600 0a0b")), "/Path(0x9,0x1,06000a0b)");
}

TEST(node, every_type_without_a_printer_prints_as_an_unknown_type)
{
    for (unsigned type = 0; type < 256; ++type) {
        if ((type >= 1 && type <= 5) || type == 0x7f)
            continue;
        const bytes node = node_of(static_cast<uint8_t>(type), 0xab, {0x12, 0xcd});
        char expected[64];
        snprintf(expected, sizeof expected, "/Path(0x%x,0xab,060012cd)", type);
        EXPECT_EQ(printed(node), expected);
    }
}

TEST(node, every_subtype_without_a_row_is_generic)
{
    const auto is_known = [](unsigned type, unsigned subtype) {
        static const std::vector<std::vector<unsigned>> known = {
            {}, {1, 5}, {1, 2, 3}, {1, 2, 3, 5, 10, 11, 14, 18}, {1, 4}};
        for (const unsigned one : known[type])
            if (one == subtype) {
                EXPECT_TRUE(row_size(type, subtype)) << type << ' ' << subtype;
                return true;
            }
        return row_size(type, subtype).has_value();
    };
    for (unsigned type = 1; type <= 4; ++type)
        for (unsigned subtype = 0; subtype < 256; ++subtype) {
            // Long enough for any record.
            const bytes node =
                node_of(static_cast<uint8_t>(type), static_cast<uint8_t>(subtype), filled(60, 0x55));
            if (is_known(type, subtype))
                EXPECT_EQ(printed(node) == generic_text(node), type == 3 && subtype == 10)
                    << type << ' ' << subtype;
            else
                EXPECT_EQ(printed(node), generic_text(node)) << type << ' ' << subtype;
            EXPECT_EQ(printed(node, "x") == generic_text(node, true),
                      !is_known(type, subtype) || (type == 3 && subtype == 10));
        }
}

TEST(node, printer_of_another_type_prints_in_its_own_generic_form)
{
    const bytes pci = from_hex("01 01 0600 021f");
    EXPECT_EQ(printed(pci, {}, print_acpi_path), "/AcpiPath(0x1,0600021f)");
    EXPECT_EQ(printed(pci, {}, print_messaging_path), "/MessagingPath(1,0600021f)");
    EXPECT_EQ(printed(pci, {}, print_media_path), "MediaPath(0x1,0600021f)");
    EXPECT_EQ(printed(pci, {}, print_bios_path), "/Path(0x1,0x1,0600021f)");
    EXPECT_EQ(printed(from_hex("09 01 0600 021f"), {}, print_hardware_path), "/HardwarePath(0x1,0600021f)");
}

TEST(node, media_nodes_begin_with_a_slash_only_behind_a_text)
{
    const bytes generic = from_hex("04 07 0400");
    EXPECT_EQ(printed(generic), "MediaPath(0x7,0400)");
    EXPECT_EQ(printed(generic, ""), "/MediaPath(0x7,0400)"); // an empty text is a text
    EXPECT_EQ(printed(generic, "x"), "/MediaPath(0x7,0400)");
    EXPECT_EQ(printed(from_hex("04 04 0800 6100 0000"), "x"), "a");
}

TEST(node, atapi_edge_case)
{
    EXPECT_EQ(printed(from_hex("03 01 0800 01 00 0000")), "/Ata(Secondary,Master,0)");
}

TEST(node, uart_edge_case)
{
    EXPECT_EQ(printed(from_hex("03 0e 1300 00000000 00c2010000000000 08 01 01")), "/Uart(115200,8,N,1)");
}

TEST(node, mac_edge_cases)
{
    bytes mac = node_of(3, 11, filled(33, 0xa5));
    mac.back() = 1;
    EXPECT_EQ(printed(mac), "/MAC(a5a5a5a5a5a5)");
    mac.back() = 6;
    EXPECT_EQ(printed(mac)->size(), strlen("/MAC()") + 64);
}

TEST(node, root_bridge_edge_case)
{
    EXPECT_EQ(printed(from_hex("02 01 0c00 d041030a 00000000")), "/PciRoot(0x0)");
    EXPECT_EQ(printed(from_hex("02 01 0c00 0000030a 00000000")), "/PciRoot(0x0)");
    EXPECT_EQ(printed(from_hex("02 01 0c00 ffff030a 00000000")), "/PciRoot(0x0)");
}

TEST(node, ipv4_edge_case)
{
    EXPECT_TRUE(printed(node_of(3, 12, filled(23, 1)))->starts_with("/MessagingPath(12,1b00"));
}

TEST(node, bbs_edge_case)
{
    EXPECT_EQ(printed(from_hex("05 01 0c00 8000 0000 4e455400")), "/BBS(0x80,NET,0x0)");
}

TEST(node, generic_text_of_1023_characters_is_whole_and_one_byte_more_is_cut)
{
    const bytes whole = node_of(1, 3, filled(500, 0xee));
    ASSERT_EQ(printed(whole)->size(), 1023U);
    EXPECT_TRUE(printed(whole)->ends_with("ee)"));
    const bytes cut = node_of(1, 3, filled(501, 0xee));
    ASSERT_EQ(printed(cut)->size(), 1023U);
    EXPECT_TRUE(printed(cut)->ends_with("eeee"));
    EXPECT_EQ(printed(cut), generic_text(cut));
}

TEST(node, every_form_that_can_grow_is_cut_at_1023_characters)
{
    const bytes long_data = filled(65535 - 4, 'x');
    for (const auto &[type, subtype] : std::vector<std::pair<uint8_t, uint8_t>>{
             {1, 3}, {2, 9}, {2, 2}, {2, 3}, {3, 12}, {3, 10}, {4, 7}, {4, 4}, {5, 1}, {9, 9}}) {
        const auto text = printed(node_of(type, subtype, long_data));
        ASSERT_TRUE(text);
        // The characters of the name that these units make take three bytes each, and 341 of them fill it.
        EXPECT_EQ(text->size(), 1023U) << int{type} << ' ' << int{subtype};
    }
}

TEST(node, cut_is_that_of_the_node_and_not_of_the_text)
{
    const std::string before(5000, 'b');
    EXPECT_EQ(printed(node_of(1, 3, filled(600, 1)), before)->size(), 1023U);
    EXPECT_EQ(printed(from_hex("01 01 0600 021f"), before), "/Pci(0x1f,0x2)");
}

TEST(node, acpi_addresses_are_cut_within_a_value)
{
    std::string expected = "/AcpiAdr(";
    for (int i = 0; i < 200; ++i)
        expected += "4294967295,";
    EXPECT_EQ(printed(node_of(2, 3, filled(800, 0xff))), expected.substr(0, 1023));
}

TEST(node, long_description_leaves_no_room_for_the_flags)
{
    bytes data = {2, 0, 0, 0};
    data.insert(data.end(), 2000, 'd');
    EXPECT_EQ(printed(node_of(5, 1, data)), "/BBS(HD," + std::string(1023 - 8, 'd'));
}

TEST(node, long_expanded_string_leaves_no_room_for_the_others)
{
    bytes data = from_hex("d041030a 00000000 00000000");
    data.insert(data.end(), 2000, 's');
    EXPECT_EQ(printed(node_of(2, 2, data)), "/AcpiEx(PNP0A03,0,0x0," + std::string(1023 - 22, 's'));
}

TEST(node, file_name_of_1023_bytes_is_whole)
{
    EXPECT_EQ(printed(node_of(4, 4, units(1023, 'n'))), std::string(1023, 'n'));
    EXPECT_EQ(printed(node_of(4, 4, units(1024, 'n'))), std::string(1023, 'n'));
}

TEST(node, file_name_is_cut_before_a_character_that_does_not_fit_whole)
{
    std::string expected;
    for (int i = 0; i < 511; ++i)
        expected += "\u00e9";
    EXPECT_EQ(printed(node_of(4, 4, units(600, 0xe9))), expected); // two bytes each: 1022
}

TEST(node, kept_hex_text_begins_with_the_length)
{
    EXPECT_EQ(hexdump(from_hex("01 03 0600 abcd")), "0600abcd");
}

TEST(node, hex_text_has_two_digits_for_every_byte_from_the_length_on)
{
    for (const size_t length : {4U, 5U, 255U, 256U, 1000U, 65535U}) {
        const bytes node = node_of(1, 3, filled(length - 4, 0x0f));
        EXPECT_EQ(hexdump(node), dump(node)) << length;
        EXPECT_EQ(hexdump(node).size(), 2 * length - 4) << length;
    }
}

TEST(node, hex_text_of_every_byte_value)
{
    bytes data;
    for (int i = 0; i < 256; ++i)
        data.push_back(static_cast<uint8_t>(i));
    const bytes node = node_of(1, 3, data);
    EXPECT_EQ(hexdump(node), dump(node));
}

TEST(node, hex_text_of_a_length_below_the_header_has_the_bytes_that_it_claims)
{
    EXPECT_EQ(hexdump({1, 3, 0, 0}), "");
    EXPECT_EQ(hexdump({1, 3, 1, 0}), "");
    EXPECT_EQ(hexdump({1, 3, 2, 0}), "");
    EXPECT_EQ(hexdump({1, 3, 3, 0}), "03");
    EXPECT_EQ(hexdump({1, 3, 4, 0}), "0400");
}

TEST(node, hex_text_without_memory_is_null)
{
    const exact_node node(from_hex("01 03 0400"));
    char unused = 0;
    char *hex = &unused;
    refuse_from(0, false);
    device_path_hexdump(node.get(), &hex);
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_EQ(hex, nullptr);
}

TEST(node, lengths_below_the_header_print_in_the_generic_form)
{
    EXPECT_EQ(printed({1, 1, 0, 0}), "/HardwarePath(0x1,)");
    EXPECT_EQ(printed({2, 3, 3, 0}), "/AcpiPath(0x3,03)");
    EXPECT_EQ(printed({3, 10, 2, 0}), "/MessagingPath(10,)");
    EXPECT_EQ(printed({4, 4, 1, 0}), "MediaPath(0x4,)");
    EXPECT_EQ(printed({5, 1, 0, 0}), "/Path(0x5,0x1,)");
    EXPECT_EQ(printed({9, 1, 3, 0}), "/Path(0x9,0x1,03)");
    EXPECT_EQ(printed({0x7f, 1, 0, 0}), "/EndPath");
}

TEST(node, append_makes_a_text_and_appends_to_it)
{
    char *text = nullptr;
    append_uefi_path("", &text);
    ASSERT_STREQ(text, "");
    append_uefi_path("/one", &text);
    append_uefi_path("", &text);
    append_uefi_path("/two", &text);
    EXPECT_STREQ(text, "/one/two");
    free(text);
}

TEST(node, append_without_memory_leaves_the_text)
{
    char *text = nullptr;
    refuse_from(0, false);
    append_uefi_path("/one", &text);
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_EQ(text, nullptr);
    append_uefi_path("/one", &text);
    refuse_from(0, false);
    append_uefi_path("/two", &text);
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_STREQ(text, "/one");
    append_uefi_path("/three", &text);
    EXPECT_STREQ(text, "/one/three");
    free(text);
}

TEST(node, guid_text_is_in_upper_case_and_padded)
{
    EXPECT_EQ(guid_text({0x8be4df61, 0x93ca, 0x11d2, {0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c}}),
              "8BE4DF61-93CA-11D2-AA0D-00E098032B8C");
    EXPECT_EQ(guid_text({}), "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(guid_text({0x1, 0x2, 0x3, {0, 4, 0, 0, 0, 0, 0, 5}}), "00000001-0002-0003-0004-000000000005");
    EXPECT_EQ(guid_text({0xffffffff, 0xffff, 0xffff, {255, 255, 255, 255, 255, 255, 255, 255}}),
              "FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF");
}

TEST(node, guid_text_reads_the_stored_bytes)
{
    const bytes stored = from_hex("33221100 5544 7766 8899 aabbccddeeff");
    EFI_GUID guid;
    memcpy(&guid, stored.data(), sizeof guid);
    EXPECT_EQ(guid_text(guid), "00112233-4455-6677-8899-AABBCCDDEEFF");
}
