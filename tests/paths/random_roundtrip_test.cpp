// SPDX-License-Identifier: MIT
#include <cinttypes>
#include <cstdio>
#include <initializer_list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/paths/tables.h"

using namespace ovra::test;

namespace {

constexpr int cases = 100'000;

// Texts of nodes whose printed form the encoder reads back, with values over the whole range of each field.
class node_texts {
public:
    /* How often each keyword was drawn. */
    std::map<std::string, int> drawn;

    std::string next_path()
    {
        std::string path;
        for (auto nodes = below(5) + 1; nodes != 0; --nodes)
            path += "/" + next();
        return path;
    }

private:
    uint64_t below(uint64_t limit) { return engine() % limit; }

    // Any value of a width, and often one at its ends.
    uint64_t value(unsigned bits)
    {
        const uint64_t largest = bits == 64 ? UINT64_MAX : (uint64_t{1} << bits) - 1;
        switch (below(4)) {
        case 0:
            return 0;
        case 1:
            return largest;
        default:
            return engine() & largest;
        }
    }

    // A number as people write it.
    std::string number(unsigned bits) { return written(value(bits)); }
    std::string written(uint64_t number)
    {
        static constexpr const char *forms[] = {"%" PRIu64, "0x%" PRIx64, "0x%" PRIX64, "0%" PRIo64};
        char text[32];
        snprintf(text, sizeof text, forms[below(4)], number);
        return text;
    }

    std::string hex(size_t count)
    {
        std::string text;
        char digits[3];
        for (size_t i = 0; i < count; ++i) {
            snprintf(digits, sizeof digits, below(2) != 0 ? "%02x" : "%02X", static_cast<unsigned>(value(8)));
            text += digits;
        }
        return text;
    }

    std::string guid() { return hex(4) + "-" + hex(2) + "-" + hex(2) + "-" + hex(2) + "-" + hex(6); }

    // Type and subtype apart, a raw node: its data begins with its own length.
    std::string raw_data()
    {
        const size_t tail = below(40);
        char length[5];
        snprintf(length, sizeof length, "%02x00", static_cast<unsigned>(tail + 4));
        return length + hex(tail);
    }

    std::string one_of(std::initializer_list<const char *> words)
    {
        return words.begin()[below(words.size())];
    }

    // A vendor's GUID and data. No vendor has a keyword of its own: 16 bytes at random are none of theirs.
    std::string vendor() { return guid() + (below(4) == 0 ? "" : "," + hex(1 + below(40))); }

    std::string address4()
    {
        std::string text = std::to_string(value(8));
        for (int i = 0; i < 3; ++i)
            text += "." + std::to_string(value(8));
        return text;
    }

    std::string address6()
    {
        std::string text = hex(2);
        for (int i = 0; i < 7; ++i)
            text += ":" + hex(2);
        return text;
    }

    // What an IP node says of protocol and origin.
    std::string transport()
    {
        return (below(4) == 0 ? one_of({"TCP", "UDP"}) : number(16)) + "," + number(8) + ",";
    }

    // The place of a disk in its enclosure; a SAS node may have bay 0, a SasEx node not.
    std::string topology(unsigned least_bay)
    {
        switch (below(3)) {
        case 0:
            return "";
        case 1:
            return ",NoTopology";
        default:
            return "," + one_of({"SAS", "SATA"}) + "," + one_of({"Internal", "External", "0", "1"}) + "," +
                   one_of({"Direct", "Expanded", "0", "3"}) +
                   (below(2) == 0 ? "" : "," + written(least_bay + below(257 - least_bay)));
        }
    }

    std::string iscsi()
    {
        return "iqn." + hex(below(40)) + "," + number(16) + "," + hex(8) + "," + one_of({"CRC32C", "None"}) +
               "," + one_of({"CRC32C", "None"}) + "," + one_of({"None", "CHAP_UNI", "CHAP_BI"}) + ",TCP";
    }

    // A raw node of the one kind whose text is its own: type, flags, a description.
    std::string raw_bbs()
    {
        std::string description = hex(below(10));
        std::string data;
        char bytes[3];
        for (const char c : description) {
            snprintf(bytes, sizeof bytes, "%02x", static_cast<unsigned>(c));
            data += bytes;
        }
        char header[13];
        snprintf(header, sizeof header, "%02x00%02x%02x", static_cast<unsigned>(9 + description.size()),
                 static_cast<unsigned>(1 + below(255)), static_cast<unsigned>(value(8)));
        return "1," + (header + hex(2)) + data + "00";
    }

    std::string hard_drive()
    {
        const bool gpt = below(2) != 0;
        const std::string kind = gpt ? "GPT," + guid() : "MBR," + number(32);
        if (below(8) == 0)
            return "0," + kind;
        return written(1 + below(INT32_MAX)) + "," + kind + "," + number(64) + "," + number(64);
    }

    std::string adr()
    {
        std::string text = number(32);
        for (auto more = below(5); more != 0; --more)
            text += "," + number(32);
        return text;
    }

    std::string uart() { return number(64) + "," + written(below(128)) + "," + number(8) + "," + number(8); }

    std::string flow() { return one_of({"None", "Hardware", "XonXoff"}); }

    std::string ata()
    {
        return one_of({"Primary", "Secondary"}) + "," + one_of({"Master", "Slave"}) + "," + number(16);
    }

    std::string sas()
    {
        const std::string text = number(64) + "," + number(64) + "," + number(16) + topology(0);
        return below(2) == 0 ? text : text + ",Reserved=" + number(32);
    }

    std::string sas_ex() { return hex(8) + "," + hex(8) + "," + number(16) + topology(1); }
    std::string ip4()
    {
        return address4() + "," + transport() + address4() + "," + address4() + "," + address4();
    }
    std::string ip6() { return address6() + "," + transport() + address6(); }
    std::string wwid()
    {
        // Its interface number is read from the product, which has to be one.
        return number(16) + "," + number(8) + "," + number(16) + "," + hex(1 + below(20));
    }
    std::string mac() { return hex(6) + (below(2) == 0 ? "" : ",0"); }
    std::string pci() { return written(below(32)) + "," + written(below(8)); }
    std::string vlan() { return written(below(4095)); }
    std::string bbs() { return written(1 + below(UINT16_MAX)) + ",Name" + hex(3) + "," + number(16); }
    // Of an identifier only the product is printed.
    std::string eisa() { return "PNP" + hex(2); }

    struct row {
        std::string keyword;
        // How its arguments are made: one letter each, see argument(). Everything else stands as it is.
        std::string form;
        std::string (node_texts::*arguments)() = nullptr; // instead of that
    };
    static const std::vector<row> kinds;

    // With those that roundtrip.tsv has a form for, in its fifth column.
    static std::vector<row> with_rows_of_the_table(std::vector<row> rows)
    {
        for (const auto &line : read_table("roundtrip.tsv")) {
            if (line.size() > 4)
                rows.push_back({line[0].substr(0, line[0].find('(')), line[4]});
        }
        return rows;
    }

    std::string argument(char letter)
    {
        switch (letter) {
        case 'b':
            return number(8);
        case 'w':
            return number(16);
        case 'd':
            return number(32);
        case 'q':
            return number(64);
        case 'G':
            return guid();
        case 'E':
            return hex(8);
        case 'S':
            return hex(16);
        case 'P':
            return eisa();
        case 'p':
            return written(below(UINT16_MAX)); // a port of a disk
        case 'R':
            return raw_data();
        case 'T':
            return written(100 + below(100)); // a subtype that no record has
        case 'Y':
            return written(below(5)); // a type that no record of such a subtype has
        default:
            return std::string(1, letter);
        }
    }

    std::string next()
    {
        static const std::vector<row> rows = with_rows_of_the_table(kinds);
        const row &chosen = rows[below(rows.size())];
        ++drawn[chosen.keyword];
        std::string arguments;
        if (chosen.arguments)
            arguments = (this->*chosen.arguments)();
        for (const char letter : chosen.form)
            arguments += argument(letter);
        return chosen.keyword + "(" + arguments + ")";
    }

    std::mt19937_64 engine{20}; // NOLINT: the same cases each time
};

const std::vector<node_texts::row> node_texts::kinds = {
    {"Path", "Y,T,R"},
    {"HardwarePath", "T,R"},
    {"Pci", "", &node_texts::pci},
    {"pcCard", "b"},
    {"MemoryMapped", "d,q,q"},
    {"VenHw", "", &node_texts::vendor},
    {"Ctrl", "d"},
    {"AcpiPath", "T,R"},
    {"Acpi", "P,d"},
    {"PciRoot", "d"},
    {"PcieRoot", "d"},
    {"Floppy", "d"},
    {"Keyboard", "d"},
    {"Serial", "d"},
    {"ParallelPort", "d"},
    {"AcpiEx", "P,0,P"},
    {"AcpiAdr", "", &node_texts::adr},
    {"MessagingPath", "T,R"},
    {"Ata", "", &node_texts::ata},
    {"Scsi", "w,w"},
    {"Fibre", "q,q"},
    {"FibreEx", "E,E"},
    {"I1394", "E"},
    {"USB", "b,b"},
    {"I2O", "d"},
    {"Infiniband", "d,S,q,q,q"},
    {"VenMsg", "", &node_texts::vendor},
    {"VenPcAnsi", ""},
    {"VenVt100", ""},
    {"VenVt100Plus", ""},
    {"VenUtf8", ""},
    {"UartFlowCtrl", "", &node_texts::flow},
    {"SAS", "", &node_texts::sas},
    {"SasEx", "", &node_texts::sas_ex},
    {"MAC", "", &node_texts::mac},
    {"IPv4", "", &node_texts::ip4},
    {"IPv6", "", &node_texts::ip6},
    {"Uart", "", &node_texts::uart},
    {"UsbClass", "w,w,b,b,b"},
    {"UsbAudio", "w,w,b,b"},
    {"UsbCDCControl", "w,w,b,b"},
    {"UsbHID", "w,w,b,b"},
    {"UsbImage", "w,w,b,b"},
    {"UsbPrinter", "w,w,b,b"},
    {"UsbMassStorage", "w,w,b,b"},
    {"UsbHub", "w,w,b,b"},
    {"UsbCDCData", "w,w,b,b"},
    {"UsbSmartCard", "w,w,b,b"},
    {"UsbVideo", "w,w,b,b"},
    {"UsbDiagnostic", "w,w,b,b"},
    {"UsbWireless", "w,w,b,b"},
    {"UsbDeviceFirmwareUpdate", "w,w,b,b"},
    {"UsbIrdaBridge", "w,w,b,b"},
    {"UsbTestAndMeasurement", "w,w,b,b"},
    {"UsbWwid", "", &node_texts::wwid},
    {"Unit", "b"},
    {"Sata", "p,w,0"},
    {"iSCSI", "", &node_texts::iscsi},
    {"Vlan", "", &node_texts::vlan},
    {"MediaPath", "T,R"},
    {"HD", "", &node_texts::hard_drive},
    {"CDROM", ",q,q"},
    {"VenMedia", "", &node_texts::vendor},
    {"Media", "G"},
    {"Offset", "q,q"},
    {"BbsPath", "", &node_texts::raw_bbs},
    {"BBS", "", &node_texts::bbs},
};

} // namespace

TEST(random_roundtrip, printed_text_encodes_to_the_same_bytes)
{
    node_texts texts;
    for (int i = 0; i < cases; ++i) {
        const std::string text = texts.next_path();
        const auto first = encode(text);
        ASSERT_TRUE(first) << text;
        const auto printed = decode(*first);
        ASSERT_TRUE(printed) << text;
        ASSERT_EQ(printed->size(), 1U) << text;
        const auto second = encode(printed->front().device);
        ASSERT_TRUE(second) << text << "\n" << printed->front().device;
        ASSERT_EQ(*second, *first) << text << "\n" << printed->front().device;
    }
    // Every keyword whose text comes back the same at all.
    for (const auto &row : read_table("roundtrip.tsv")) {
        const std::string keyword = row.at(0).substr(0, row[0].find('('));
        if (row.at(2) == "same") {
            EXPECT_GT(texts.drawn[keyword], cases / 100) << keyword;
        }
    }
}
