// SPDX-License-Identifier: MIT
// Device paths through the command's own encoder and decoder: texts that come back, or are refused by their
// nodes.
#include <clocale>
#include <fstream>
#include <random>
#include <set>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/machine/devicepaths.h"
#include "tools/machine/pathnodes.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace texts_test {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class path_texts : public ::testing::Test {
protected:
    path_texts() { setlocale(LC_CTYPE, "C.UTF-8"); }
    ~path_texts() override { setlocale(LC_CTYPE, "C"); }

    static tool::bytes bytes_of(const std::string &digits) { return tool::parse_hex(digits).value(); }

    // The packed path in digits, or why there is none.
    std::string encoded(const std::string &text, const std::optional<std::string> &file = {})
    {
        try {
            return tool::hex(paths.encode(text, file));
        } catch (const tool::failure &why) {
            return why.what() + ('\n' + why.advice);
        }
    }

    static bool is_refused(const std::string &encoded) { return encoded.find(' ') != std::string::npos; }

    // The first instance of a path as people are shown it.
    std::string decoded(const std::string &digits)
    {
        const tool::decoded_path shown = paths.decode(bytes_of(digits));
        if (!shown.error.empty())
            return shown.error;
        const tool::path_text &texts = shown.instances.at(0);
        return tool::printable(texts.device) + (texts.file ? " file " + tool::printable(*texts.file) : "");
    }

    // Every instance of a path, as it is shown, encodes to its own bytes.
    void expect_to_come_back(const tool::bytes &path)
    {
        const tool::decoded_path shown = paths.decode(path);
        ASSERT_EQ(shown.error, "") << tool::hex(path);
        const auto instances = tool::instances_of(path);
        for (size_t at = 0; at < shown.instances.size(); ++at) {
            const tool::path_text &texts = shown.instances[at];
            std::string nodes;
            for (const tool::byte_view node : instances.at(at))
                nodes += tool::hex(node);
            if (nodes.empty())
                continue;
            const std::string device = tool::printable(texts.device);
            const auto file = texts.file ? std::optional(tool::printable(*texts.file)) : std::nullopt;
            EXPECT_EQ(tool::firmware_file(file.value_or("")), file.value_or(""));
            EXPECT_FALSE(tool::split_file(device).file) << device;
            EXPECT_EQ(encoded(device, file), nodes + end) << device << " of " << tool::hex(path);
            ++compared;
        }
    }

    static std::vector<std::vector<std::string>> rows(const std::string &table)
    {
        std::vector<std::vector<std::string>> all;
        std::ifstream stream(OVRA_TEST_DATA "/" + table);
        for (std::string line; std::getline(stream, line);) {
            if (line.starts_with('#'))
                continue;
            std::vector<std::string> cells;
            std::istringstream text(line);
            for (std::string cell; std::getline(text, cell, '\t');)
                cells.push_back(cell);
            all.push_back(cells);
        }
        return all;
    }

    // The paths of print.tsv, with an END node.
    static std::vector<tool::bytes> printed_paths()
    {
        std::vector<tool::bytes> all;
        for (const auto &row : rows("print.tsv"))
            all.push_back(bytes_of(row.at(1) + end));
        return all;
    }

    static const std::string end;
    tool::device_paths paths;
    size_t compared = 0;
};

const std::string path_texts::end = "7fff0400";

TEST_F(path_texts, have_no_strings_in_quotes)
{
    for (const char *text : {"UsbWwid(0x1,0x2,0x3,\"abc\")", "BBS(HD,\"x\")"})
        EXPECT_THAT(encoded(text), HasSubstr("strings stand without quotes")) << text;
    // A stored string with quotes is shown as bytes, which come back.
    expect_to_come_back(bytes_of("05010c0002000000227822007fff0400"));
}

TEST_F(path_texts, of_every_printed_node_come_back)
{
    for (const tool::bytes &path : printed_paths())
        expect_to_come_back(path);
    EXPECT_GE(compared, 180u);
}

TEST_F(path_texts, of_real_machines_come_back)
{
    for (const auto &row : rows("paths.tsv")) {
        if (row.at(0) == "hex")
            expect_to_come_back(bytes_of(row.at(1)));
    }
    EXPECT_GE(compared, 100u);
    for (const auto &row : rows("options.tsv")) {
        if (row.at(0) == "variable")
            continue;
        const tool::bytes variable = bytes_of(row.at(1));
        const auto parts = tool::split(variable);
        if (parts && !tool::path_error(parts->path))
            expect_to_come_back({parts->path.begin(), parts->path.end()});
    }
    EXPECT_GE(compared, 150u);
}

// What the library packs comes back too.
TEST_F(path_texts, of_every_keyword_come_back)
{
    for (const auto &row : rows("roundtrip.tsv")) {
        const std::string packed = encoded(row.at(0));
        if (!is_refused(packed))
            expect_to_come_back(bytes_of(packed));
    }
    EXPECT_GE(compared, 80u);
}

// Nodes of random bytes below real headers, and real nodes with some bytes changed, cut or added.
TEST_F(path_texts, of_random_paths_come_back)
{
    std::mt19937 random(4);
    const auto below = [&](size_t limit) { return random() % limit; };
    std::vector<tool::bytes> nodes;
    for (const tool::bytes &path : printed_paths()) {
        for (const auto &instance : tool::instances_of(path)) {
            for (const tool::byte_view node : instance)
                nodes.emplace_back(node.begin(), node.end());
        }
    }
    for (int round = 0; round < 3000; ++round) {
        tool::bytes path;
        for (size_t count = 1 + below(3); count != 0; --count) {
            tool::bytes node = nodes[below(nodes.size())];
            if (below(3) == 0)
                node.resize(std::max<size_t>(node.size() + below(9), 8) - 4,
                            static_cast<uint8_t>(below(256)));
            for (size_t changes = below(4); changes != 0 && node.size() > 4; --changes)
                node[4 + below(node.size() - 4)] =
                    static_cast<uint8_t>(below(2) ? below(256) : ' ' + below(95));
            if (below(9) == 0)
                node[1] = static_cast<uint8_t>(below(256));
            node[2] = static_cast<uint8_t>(node.size());
            node[3] = static_cast<uint8_t>(node.size() >> 8);
            path.insert(path.end(), node.begin(), node.end());
        }
        const tool::bytes last = bytes_of(end);
        path.insert(path.end(), last.begin(), last.end());
        expect_to_come_back(path);
        if (HasFailure())
            return;
    }
    EXPECT_GE(compared, 3000u);
}

// Of the texts that the library packs the command packs the same, says otherwise here, or refuses.
TEST_F(path_texts, are_packed_as_by_the_library_or_refused)
{
    // Where the library packs other than the text says.
    const std::set<std::string> corrected = {"sata", "offset", "usbwwid", "acpiex", "hd", "sas", "sasex"};
    size_t same = 0;
    size_t refused = 0;
    for (const char *table : {"acpi", "arguments", "disk", "generic", "hardware", "media", "network", "path",
                              "sas", "terminal", "usb"}) {
        for (const auto &row : rows("encode_" + std::string(table) + ".tsv")) {
            const std::string text = row.at(1);
            if (row.at(2) == "-" || text.empty() || text.find('\\') != std::string::npos)
                continue;
            const std::string packed = encoded(text);
            if (is_refused(packed)) {
                EXPECT_THAT(packed, AllOf(StartsWith("node "), HasSubstr(" of the path "))) << text;
                ++refused;
                continue;
            }
            expect_to_come_back(bytes_of(packed));
            std::string keyword = text.substr(0, text.find('('));
            std::ranges::transform(keyword, keyword.begin(), [](char c) { return c | 0x20; });
            if (packed == tool::hex(bytes_of(row.at(2) + end)))
                ++same;
            else
                EXPECT_TRUE(corrected.contains(keyword)) << text << ' ' << packed;
        }
    }
    EXPECT_GE(same, 450u);
    EXPECT_LE(refused, 140u);
    RecordProperty("refused", static_cast<int>(refused));
}

// The library packs something else for each of these.
TEST_F(path_texts, say_what_is_packed)
{
    const struct {
        const char *text;
        const char *node;
    } cases[] = {
        {"Sata(0x3,0xffff,0x0)", "03120a000300ffff0000"},
        {"sata(lun=1,HPN=5,PMPN=2)", "03120a00050002000100"},
        {"Sata(0xffff,0xffff,0xffff)", "03120a00ffffffffffff"},
        {"Offset(1,0x200)", "040818000000000001000000000000000002000000000000"},
        {"UsbWwid(0x10,0x200,5,AB)", "0310100005001000000241004200"
                                     "0000"},
        {"CDROM(1,0x13,4)", "040218000100000013000000000000000400000000000000"},
        {"MAC(525400123456,1)", "030b2500525400123456"
                                "0000000000000000000000000000000000000000000000000000"
                                "01"},
        {"HD(1,2,5f9f0a37-8a44-4ad0-9c2e-1d9e6f5b7c01,1,2)",
         "04012a000100000001000000000000000200000000000000370a9f5f448ad04a9c2e1d9e6f5b7c010202"},
        {"HD(1,1,0x1234abcd,1,2)",
         "04012a000100000001000000000000000200000000000000cdab34120000000000000000000000000101"},
        {"IPv4(1.2.3.4,TCP,Static)", "030c1b0000000000010203040000000006000100000000000000"
                                     "00"},
        {"SAS(1,0,0,SAS,1,0,0)",
         "030a2c00d487ddd4008b11d9afdc001083ffca4d00000000010000000000000000000000000000002100"
         "0000"},
        {"AcpiEx(PNP0A03,0,0x7)", "02021300d041030a0700000000000000000000"},
        {"AcpiEx(PNP0A00,0,1,UIDSTR=VMBu)", "02021700d041000a010000000000000000564d42750000"},
        {"BBS(HD,P0: a disk,0x0)", "0501130002000000"
                                   "50303a2061206469736b"
                                   "00"},
        {"BBS(unknown,x,1)", "05010a00000001007800"},
        {"DebugPort", "030a1400d2e8a4eb5838ec41a2812647ba9660d0"},
    };
    for (const auto &[text, node] : cases)
        EXPECT_EQ(encoded(text), node + end) << text;
}

// Accepted by the library, each with something lost, guessed or made another.
TEST_F(path_texts, that_say_more_or_less_are_refused)
{
    for (const char *text : {"MAC(525400123456)",
                             "Pci(010,2)",
                             "Pci(1,2,)",
                             "Pci(1,2)x",
                             "Pci(1,2),",
                             "Pci(Device=,Function=1)",
                             "Pci(1,2,device=3)",
                             "Pci(1,device=3,Function=2)",
                             "Fibre(-1,0)",
                             "Pci(\t1,2)",
                             "Pci(+1,2)",
                             "Acpi(PNP0G03,0)",
                             "Acpi(PNP-001,0)",
                             "VenHw(e0c14753-f9be-11d2-9a0c-0090273fc14x)",
                             "VenHw(e0c14753-f9be-11d2-9a0c-0090273fc14d,zz)",
                             "MessagingPath(9,0500x1)",
                             "AcpiAdr()",
                             "AcpiAdr(1,,2)",
                             "HD(0,MBR,0x1,x)",
                             "HD(1,0,00000000-0000-0000-0000-000000000000,1,2)",
                             "HD(1,MBR,12345678,1,2)",
                             "UsbDeviceFirmwareUpdate(1,2,7,3)",
                             "IPv6(::1,UDP,0,::2,fe80::1)",
                             "AcpiExp(PNP0A03,0,abc)",
                             "AcpiEx(PNP0A03,0,0,,a,)",
                             "AcpiEx(PNP0A03,0,PNP0A08)",
                             "SAS(1,0,0,SAS,Internal,Direct,3)",
                             "Uart(9600,8,Nine,1)",
                             "Uart(9600,8,N,3)",
                             "Uart(9600,8,N,0x2)",
                             "Path(9,1,0400)",
                             "Path(0x7f,1,0400)/Pci(1,2)",
                             "Pci(1,2)/Path(0x7f,0xff,0400)",
                             "iSCSI(\U000e0041,1,0000000000000001)"}) {
        const std::string said = encoded(text);
        EXPECT_TRUE(is_refused(said)) << text << ' ' << said;
        EXPECT_THAT(said, StartsWith("node ")) << text;
    }
    EXPECT_EQ(encoded("Pci(1,2)/Pci(1,2),/Pci(1,3)"),
              "node 2 of the path cannot be packed: \"Pci(1,2),\"\n"
              "Pci(1,2)/Pci(1,2),/Pci(1,3)\n"
              "         ^^^^^^^^^\n"
              "what follows the comma is another instance; a text holds one");
    EXPECT_EQ(encoded(""), "a device path is needed\n");
}

TEST_F(path_texts, show_what_the_library_does_not_print)
{
    const struct {
        const char *nodes;
        const char *shown;
    } cases[] = {
        {"030b25005254001234560000000000000000000000000000000000000000000000000000"
         "01",
         "/MAC(525400123456,0x1)"},
        {"010108000201aabb", "/HardwarePath(0x1,08000201aabb)"},
        {"02010c002434030a00000000", "/Acpi(MAD0A03,0x0)"},
        {"02021700d041000affffffff0000000000564d42750000", "/AcpiEx(PNP0A00,0,0xFFFFFFFF,UIDSTR=VMBu)"},
        {"05770a00020000004100", "/BbsPath(0x77,0a00020000004100)"},
        {"05010a00020000001b00", "/BbsPath(0x1,0a00020000001b00)"},
        {"030a1800"
         "9d9a49372f54894ca02635da142094e4"
         "01000000",
         "/MessagingPath(10,18009d9a49372f54894ca02635da142094e401000000)"},
        {"03120a0003000080"
         "0000",
         "/Sata(0x3,0x8000,0x0)"},
        {"040408005c002e20"
         "04040800"
         "61000000",
         "MediaPath(0x4,08005c002e20) file a"},
        {"04040c005c002f0061000000", "MediaPath(0x4,0c005c002f0061000000)"},
        {"040408002e200000"
         "010106000201",
         "MediaPath(0x4,08002e200000)/Pci(0x1,0x2)"},
    };
    for (const auto &[nodes, shown] : cases)
        EXPECT_EQ(decoded(nodes + end), shown);
}

TEST_F(path_texts, with_a_file_no_node_can_hold_are_refused)
{
    for (const char *file : {"\\a\U0001f600", "\\a\U000e0041", "\\a\xed\xa0\x80", "\\\xff"})
        EXPECT_THAT(encoded("/Pci(1,2)", file),
                    AllOf(StartsWith("the file \""), HasSubstr(" cannot be packed\n")));
}

// Nobody sees a blank at the end of a line, and a terminal does not copy it.
TEST_F(path_texts, show_what_ends_in_a_blank_as_bytes)
{
    EXPECT_THAT(decoded("0404080061000000"
                        "7fff0400"),
                HasSubstr(" file a"));
    EXPECT_THAT(decoded("04040a0061002000"
                        "00007fff0400"),
                ::testing::Not(HasSubstr(" file ")));
    expect_to_come_back(bytes_of("04040a006100200000007fff0400"));
}

} // namespace texts_test
