// SPDX-License-Identifier: MIT
// Device paths as other tools print them: what they pack to, and what is refused.
#include <clocale>
#include <fstream>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/machine/pathnodes.h"
#include "tools/paste/pasted.h"
#include "tools/text/failure.h"
#include "tools/text/nodeparse.h"
#include "tools/text/nodevalues.h"
#include "tools/text/numbers.h"

namespace texts_test {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace {

const std::string end = "7fff0400";
const std::string root = "02010c00d041030a00000000";
const std::string guid = "12345678-9abc-def0-0123-456789abcdef";
const std::string guid_digits = "78563412bc9af0de0123456789abcdef";
const std::string partition = "HD(1,GPT," + guid + ",0x800,0x64000)";
const std::string partition_digits = "04012a00"
                                     "01000000"
                                     "0008000000000000"
                                     "0040060000000000" +
                                     guid_digits + "0202";

struct outcome {
    std::string digits; // "-" when it is refused
    std::string reason;
    tool::pasted_path path;
};

std::vector<std::vector<std::string>> rows_of(const std::string &table)
{
    std::vector<std::vector<std::string>> all;
    std::ifstream stream(OVRA_TEST_DATA "/" + table);
    for (std::string line; std::getline(stream, line);) {
        const auto cells = tool::parts_of(line, '\t');
        const bool is_row = !line.starts_with('#') && cells[0] != "tool" && cells[0] != "kind";
        if (is_row)
            all.emplace_back(cells.begin(), cells.end());
    }
    return all;
}

} // namespace

class pasted_texts : public ::testing::Test {
protected:
    pasted_texts() { setlocale(LC_CTYPE, "C.UTF-8"); }
    ~pasted_texts() override { setlocale(LC_CTYPE, "C"); }

    // As the command takes it.
    outcome packed(const std::string &text)
    {
        outcome result = {"-", {}, {}};
        try {
            const tool::path_text parted = tool::part_file(text);
            result.path = tool::pack_pasted(paths, parted.device, parted.file, text);
            result.digits = tool::hex(result.path.packed);
        } catch (const tool::failure &why) {
            result.reason = why.what() + ('\n' + why.advice + '\n' + why.messages);
        } catch (const tool::unclear_node &why) {
            result.reason = why.what();
        }
        return result;
    }

    void expect_refused(const std::string &text, const std::string &reason)
    {
        const outcome result = packed(text);
        EXPECT_EQ(result.digits, "-") << text;
        EXPECT_THAT(result.reason, HasSubstr(reason)) << text;
    }

    // What is shown of a packed path packs to the same bytes again.
    void expect_to_come_back(const tool::bytes &path)
    {
        const tool::decoded_path shown = paths.decode(path);
        ASSERT_EQ(shown.error, "") << tool::hex(path);
        const auto instances = tool::instances_of(path);
        for (size_t at = 0; at < shown.instances.size(); ++at) {
            std::string nodes;
            for (const tool::byte_view node : instances.at(at))
                nodes += tool::hex(node);
            const tool::path_text &texts = shown.instances[at];
            if (nodes.empty())
                continue;
            const auto again = tool::pack_pasted(paths, texts.device, texts.file, texts.device);
            EXPECT_EQ(tool::hex(again.packed), nodes + end) << texts.device;
            EXPECT_THAT(again.assumed, IsEmpty()) << texts.device;
        }
    }

    tool::device_paths paths;
};

TEST_F(pasted_texts, of_real_machines_pack_to_their_bytes)
{
    size_t right = 0;
    std::vector<std::string> wrong;
    std::vector<std::string> refused;
    for (const auto &row : rows_of("paste.tsv")) {
        const outcome result = packed(row.at(1));
        if (result.digits == row.at(2))
            ++right;
        else
            (result.digits == "-" ? refused : wrong).push_back(row.at(0) + ' ' + row.at(1));
    }
    EXPECT_THAT(wrong, IsEmpty());
    EXPECT_THAT(refused, IsEmpty());
    EXPECT_EQ(right, 182u);
}

// A node of every kind, as two tools print it.
TEST_F(pasted_texts, of_every_kind_are_right_or_refused)
{
    size_t right = 0;
    size_t refused = 0;
    for (const auto &row : rows_of("paste_kinds.tsv")) {
        const std::string &text = row.at(1);
        if (row.at(2) == "-") {
            expect_refused(text, row.at(3));
            ++refused;
            continue;
        }
        const outcome result = packed(text);
        EXPECT_EQ(result.digits, row.at(2)) << text << '\n' << result.reason;
        EXPECT_EQ(result.path.assumed.empty(), row.at(3) == "right") << text;
        right += row.at(3) == "right";
    }
    EXPECT_GE(right, 200u);
    EXPECT_LE(refused, 40u);
}

TEST_F(pasted_texts, are_never_packed_wrongly_in_silence)
{
    const auto rows = rows_of("paste_traps.tsv");
    EXPECT_GE(rows.size(), 50u);
    for (const auto &row : rows) {
        const std::string &text = row.at(0);
        if (row.at(1) == "-") {
            expect_refused(text, row.at(2));
            continue;
        }
        const outcome result = packed(text);
        EXPECT_EQ(result.digits, row.at(1)) << text << '\n' << result.reason;
        EXPECT_THAT(result.path.assumed, SizeIs(row.at(2) == "assumed")) << text;
        const std::string said = result.path.decided.empty() ? "" : "told " + result.path.decided.front();
        EXPECT_EQ(said.substr(0, 5), row.at(2).substr(0, said.empty() ? 0 : 5)) << text;
        EXPECT_THAT(said, HasSubstr(row.at(2).starts_with("told ") ? row.at(2).substr(5) : "")) << text;
    }
}

TEST_F(pasted_texts, that_ovra_prints_are_packed_as_ever)
{
    size_t compared = 0;
    for (const auto &row : rows_of("paths.tsv")) {
        if (row.at(0) != "hex")
            continue;
        expect_to_come_back(tool::parse_hex(row.at(1)).value());
        ++compared;
    }
    for (const auto &row : rows_of("print.tsv")) {
        expect_to_come_back(tool::parse_hex(row.at(1) + end).value());
        ++compared;
    }
    EXPECT_GE(compared, 200u);
}

// Whatever ovra's own reader takes after a slash, with its bytes; what it does not take it may not take now.
TEST_F(pasted_texts, in_ovras_keywords_are_packed_as_ever)
{
    size_t same = 0;
    for (const char *table : {"acpi", "arguments", "disk", "generic", "hardware", "media", "network", "path",
                              "sas", "terminal", "usb"}) {
        for (const auto &row : rows_of("encode_" + std::string(table) + ".tsv")) {
            const std::string text = '/' + row.at(1).substr(row.at(1).starts_with('/') ? 1 : 0);
            try {
                const std::string own = tool::hex(paths.encode(text, std::nullopt));
                EXPECT_EQ(packed(text).digits, own) << text;
                ++same;
            } catch (const tool::failure &) {
                continue;
            }
        }
    }
    EXPECT_GE(same, 450u);
}

TEST_F(pasted_texts, have_files_at_their_end)
{
    const std::string file = "040412005c004500460049005c0061000000";
    for (const char *rest : {"/\\EFI\\a", "\\EFI\\a", "/File(\\EFI\\a)", "File(\\EFI\\a)"})
        EXPECT_EQ(packed(partition + rest).digits, partition_digits + file + end) << rest;
    for (const char *text : {"\\EFI\\a", "/\\EFI\\a", "File(\\EFI\\a)", "/File(\\EFI\\a)"})
        EXPECT_EQ(packed(text).digits, file + end) << text;
    // To the parenthesis that closes it.
    EXPECT_EQ(packed(partition + "/File(\\a(1))").digits,
              partition_digits + "040410005c00610028003100290000" + "00" + end);
    // In two nodes.
    const std::string centos = "04041c005c004500460049005c00630065006e0074006f0073000000"
                               "04041c0067007200750062007800360034002e006500660069000000";
    EXPECT_EQ(packed(partition + "/File(\\EFI\\centos)/File(grubx64.efi)").digits,
              partition_digits + centos + end);
    EXPECT_EQ(packed("PciRoot(0xA)/\\EFI\\centos/grubx64.efi").digits,
              "02010c00d041030a0a000000" + centos + end);
    expect_refused(partition + "/\\EFI\\centos/grubx64.efi", "a slash may stand for a backslash");
    // Without a backslash, as firmware prints it; in capitals, as it does.
    EXPECT_EQ(packed("VenMedia(1428F772-B64A-441E-B8C3-9EBDD7F893C7)/kernel").digits,
              "0403140072f728144ab61e44b8c39ebdd7f893c7040412006b00650072006e0065006c000000" + end);
    expect_refused("VenMedia(1428f772-b64a-441e-b8c3-9ebdd7f893c7)/kernel", "\"kernel\"");
    expect_refused(partition + "/File()", "File");
    expect_refused(partition + "/File(\\EFI\\a)WINDOWS....", "prints the data of an option behind its path");
}

TEST_F(pasted_texts, have_several_instances)
{
    const std::string instance = "7f010400";
    for (const char *text :
         {"PciRoot(0x0),PciRoot(0x0)", "/PciRoot(0),/PciRoot(0)", "PciRoot(0x0),/PciRoot(0x0)"})
        EXPECT_EQ(packed(text).digits, root + instance + root + end) << text;
    EXPECT_EQ(packed(partition + "/\\a,b," + partition + "/File(\\c)").digits,
              partition_digits + "04040e005c0061002c0062000000" + instance + partition_digits +
                  "04040a005c0063000000" + end);
    expect_refused("PciRoot(0x0),", "PciRoot(0x0),");
    expect_refused("PciRoot(0x0),x", "x");
}

TEST_F(pasted_texts, of_nvme_are_read_in_the_order_of_their_tool)
{
    const std::string node = "03171000010000001122334455667788";
    const std::string reversed = "03171000010000008877665544332211";
    const outcome firmware = packed("PciRoot(0x0)/Pci(0x1F,0x0)/NVMe(0x1,11-22-33-44-55-66-77-88)");
    EXPECT_THAT(firmware.digits, HasSubstr(reversed));
    EXPECT_THAT(firmware.path.decided, SizeIs(1));
    EXPECT_THAT(firmware.path.decided.at(0), HasSubstr("as firmware prints it, the last byte first"));
    const outcome efibootmgr = packed("PciRoot(0x0)/Pci(0x1f,0x0)/NVMe(0x1,11-22-33-44-55-66-77-88)");
    EXPECT_THAT(efibootmgr.digits, HasSubstr(node));
    EXPECT_THAT(efibootmgr.path.decided.at(0), HasSubstr("as efibootmgr prints it, the first byte first"));
    // Nothing tells.
    const outcome unclear = packed("PciRoot(0x0)/Pci(0x1,0x0)/NVMe(0x1,11-22-33-44-55-66-77-88)");
    EXPECT_THAT(unclear.reason, HasSubstr("firmware means MessagingPath(23,1000010000008877665544332211)"));
    EXPECT_THAT(unclear.reason, HasSubstr("efibootmgr means MessagingPath(23,1000010000001122334455667788)"));
    // The same both ways.
    const outcome zeros = packed("PciRoot(0x0)/Pci(0x1,0x0)/NVMe(0x1,00-00-00-00-00-00-00-00)");
    EXPECT_THAT(zeros.digits, HasSubstr("03171000010000000000000000000000"));
    EXPECT_THAT(zeros.path.decided, IsEmpty());
    // Some firmware has small letters, and a slash in front.
    EXPECT_THAT(packed("/PciRoot(0x0)/NVMe(0x1,11-22-33-44-55-66-77-aa)").digits, HasSubstr("112233445566"
                                                                                            "77aa"));
    EXPECT_THAT(packed("NVMe(0x1,11-22-33-44-55-66-77-aa)").digits, HasSubstr("11223344556677aa"));
    // A maker's number stands in front of what its drives have.
    const std::string drive = "0317100001000000002538b221d13750";
    EXPECT_THAT(packed("NVMe(0x1,00-25-38-B2-21-D1-37-50)").digits, HasSubstr(drive));
    EXPECT_THAT(packed("NVMe(0x1,50-37-D1-21-B2-38-25-00)").digits, HasSubstr(drive));
    expect_refused("PciRoot(0xA)/NVMe(0x1,00-25-38-B2-21-D1-37-50)", "depends on who printed it");
    for (const char *text : {"NVMe(0x1)", "NVMe(0x1,00-25)", "NVMe(0x1,0-0-0-0-0-0-0-0)",
                             "NVMe(0x100000000,00-00-00-00-00-00-00-00)", "NVMe(,00-00-00-00-00-00-00-00)"})
        expect_refused(text, "NVMe");
}

TEST_F(pasted_texts, of_an_old_efibootmgr_are_hexadecimal)
{
    const std::string old = "ACPI(a0341d0,0)PCI(1f,2)03120a000100ffff0000HD(1,800,64000," + guid + ")";
    const outcome result = packed(old + "File(\\a)");
    EXPECT_EQ(result.digits,
              root + "01010600021f03120a000100ffff0000" + partition_digits + "04040a005c0061000000" + end);
    EXPECT_EQ(result.path.by, tool::of_old_efibootmgr);
    EXPECT_EQ(packed("ACPI(a0341d0,0)/PCI(10,0)").digits, root + "010106000010" + end);
    // Others print the function of a PCI device first so.
    expect_refused("/ACPI(a0341d0,0)/PCI(2,1f)", "ACPI");
    expect_refused("PCI(10,0)", "an old efibootmgr means HardwarePath(0x1,06000010)");
    expect_refused("ACPI(a0341d0,0)Vendor(" + guid + ",)", "three kinds of nodes");
    expect_refused("ACPI(a0341d0,0)03120a000100ffff", "cannot be packed");
    // The shell of early firmware.
    EXPECT_EQ(packed("Acpi(PNP0A03,0)/Pci(1F|2)").digits, root + "01010600021f" + end);
}

// Several readings, and nothing in the text that tells.
TEST_F(pasted_texts, that_mean_different_things_are_refused)
{
    for (const char *text : {"Fibre(0x1,0x2)", "I1394(0123456789012345)", "UartFlowCtrl(Hardware)",
                             "IPv4(10.0.2.2,TCP,DHCP,10.0.2.15)", "UsbClass(1234,5678,4,80)",
                             "UsbWwid(1234,5678,5,A)", "PciRoot()", "MediaPath(10,0102)", "IPv4(10.0.2.2)"}) {
        expect_refused(text, "its meaning depends on who printed it:");
        // A slash in front is ours.
        EXPECT_EQ(packed('/' + std::string(text)).digits == "-", std::string(text).starts_with("MediaPath"))
            << text;
    }
    EXPECT_EQ(packed("PciRoot(0xA)/Fibre(0x1,0x2)").digits, "02010c00d041030a0a000000"
                                                            "0303180000000000010000000000000002000000"
                                                            "00000000" +
                                                                end);
    expect_refused("IPv4(10.0.2.151.0.2.2,6,0)", "may be 10.0.2.1 and 51.0.2.2 or 10.0.2.15 and 1.0.2.2");
    expect_refused("PciRoot(0x0)/", "one may be missing");
    expect_refused("Uri(a\\u001bb)", "a URI has no backslash");
    // Firmware's older node, with an origin that has no word.
    const std::string older = packed("IPv6(2001:0DB8:0000:0000:0000:0000:0000:0001,TCP,0x7,"
                                     "2001:0DB8:0000:0000:0000:0000:0000:0100)")
                                  .digits;
    EXPECT_THAT(older, ::testing::StartsWith("030d2b00"));
    EXPECT_THAT(older, ::testing::EndsWith("0600077fff0400"));
}

TEST_F(pasted_texts, name_their_dialect)
{
    const struct {
        std::string text;
        tool::dialects by;
    } cases[] = {
        {"/PciRoot(0)/Pci(0x1F,2)", tool::of_ovra},
        {"PciRoot(UID=0)", tool::of_ovra},
        {"PciRoot(0x0)/Pci(0x1F,0x2)", tool::of_firmware},
        {"PciRoot(0x0)/Pci(0x1f,0x2)", tool::of_efibootmgr},
        {"PciRoot(0x0)/Pci(0x1,0x2)", tool::of_firmware | tool::of_efibootmgr},
        {"PciRoot(0x0)/Pci(0x1,0x2)/Sata(0x0,0x0,0x0)", tool::of_firmware},
        {"PciRoot(0x0)/Pci(0x1,0x2)/Sata(0,0,0)", tool::of_efibootmgr},
        {"PciRoot(0x0)/Pci(0x1,0x2)/File(\\a)", tool::of_efibootmgr},
        {"Fv(11111111-1111-1111-1111-111111111111)", tool::of_firmware},
        {"FvVol(11111111-1111-1111-1111-111111111111)", tool::of_efibootmgr},
        {"HD(1,800,8a0,11111111-1111-1111-1111-111111111111)", tool::of_old_efibootmgr},
    };
    for (const auto &[text, by] : cases)
        EXPECT_EQ(packed(text).path.by, by) << text << packed(text).reason;
    EXPECT_EQ(tool::names_of_dialects(tool::of_firmware | tool::of_efibootmgr), "firmware or efibootmgr");
}

// Whatever is typed: no crash, and what packs is shown in a text that packs to the same bytes.
TEST_F(pasted_texts, changed_at_random_come_back)
{
    std::mt19937 random(13);
    const auto below = [&](size_t limit) { return random() % limit; };
    std::vector<std::string> texts;
    for (const char *table : {"paste.tsv", "paste_kinds.tsv"}) {
        for (const auto &row : rows_of(table))
            texts.push_back(row.at(1));
    }
    constexpr std::string_view alphabet = "()/\\,-:.[]|=\"' 0123456789abcdefABCDEFxXMPni\n\x80\xc3";
    size_t came_back = 0;
    for (int round = 0; round < 8000; ++round) {
        std::string text = texts[below(texts.size())];
        for (size_t changes = 1 + below(3); changes != 0; --changes) {
            const size_t place = below(text.size() + 1);
            const std::string &other = texts[below(texts.size())];
            switch (below(4)) {
            case 0:
                text.insert(place, 1, alphabet[below(alphabet.size())]);
                break;
            case 1:
                text.erase(place, 1 + below(4));
                break;
            case 2:
                if (place < text.size())
                    text[place] = alphabet[below(alphabet.size())];
                break;
            default:
                text = text.substr(0, place) + other.substr(below(other.size()));
            }
        }
        const outcome result = packed(text);
        if (result.digits == "-")
            continue;
        expect_to_come_back(result.path.packed);
        ++came_back;
        if (HasFailure()) {
            ADD_FAILURE() << text;
            return;
        }
    }
    EXPECT_GE(came_back, 500u);
}

// No text takes long: this is as long as a command line can be.
TEST_F(pasted_texts, of_any_length_are_read_at_once)
{
    for (const char *part :
         {"(", "/", "\\,", ",", "\\,Pci(", "MAC(MAC(", "Uri(", "0101060000", "Pci(0x1,0x2),"}) {
        std::string text = "HD(";
        while (text.size() < 100000)
            text += part;
        const outcome result = packed(text);
        EXPECT_EQ(result.digits, "-") << part;
    }
    const std::string longest(70000, 'a');
    expect_refused("Uri(" + longest + ")", "longer than a node can be");
    expect_refused("PciRoot(0x0)/File(\\" + longest + ")/File(b)", "longer than a node can be");
}

} // namespace texts_test
