#include <cinttypes>
#include <cstdio>
#include <random>

#include <gtest/gtest.h>

#include "tests/paths/tables.h"

using namespace ovra::test;

namespace {

constexpr int cases = 100'000;

// Texts of nodes whose printed form the encoder reads back, with values over the whole range of each field.
class node_texts {
public:
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

    std::string hard_drive()
    {
        const bool gpt = below(2) != 0;
        const std::string kind = gpt ? "GPT," + guid() : "MBR," + number(32);
        if (below(8) == 0)
            return "HD(0," + kind + ")";
        return "HD(" + written(1 + below(128)) + "," + kind + "," + number(64) + "," + number(64) + ")";
    }

    std::string next()
    {
        static constexpr const char *acpi[] = {"PciRoot",  "PcieRoot", "Floppy",
                                               "Keyboard", "Serial",   "ParallelPort"};
        static constexpr const char *generic[] = {"HardwarePath", "AcpiPath", "MessagingPath", "MediaPath"};
        static constexpr const char *fixed[] = {"VenPcAnsi()", "VenVt100()", "VenVt100Plus()", "VenUtf8()"};
        static constexpr const char *flow[] = {"None", "Hardware", "XonXoff"};
        static constexpr const char *words[] = {"Primary", "Secondary", "Master", "Slave"};
        switch (below(15)) {
        case 0:
            return "Pci(" + written(below(32)) + "," + written(below(8)) + ")";
        case 1:
            return "Ctrl(" + number(32) + ")";
        case 2:
            return std::string(acpi[below(6)]) + "(" + number(32) + ")";
        case 3:
            return "Scsi(" + number(16) + "," + number(16) + ")";
        case 4:
            return "Fibre(" + number(64) + "," + number(64) + ")";
        case 5:
            return "USB(" + number(8) + "," + number(8) + ")";
        case 6:
            return "MAC(" + hex(6) + ")";
        case 7:
            return hard_drive();
        case 8:
            return "Uart(" + written(below(INT64_MAX)) + "," + written(below(128)) + "," + written(below(6)) +
                   "," + written(below(4)) + ")";
        case 9:
            return std::string("UartFlowCtrl(") + flow[below(3)] + ")";
        case 10:
            return fixed[below(4)];
        case 11:
            return std::string("Ata(") + words[below(2)] + "," + words[2 + below(2)] + "," + number(16) + ")";
        case 12:
            return "AcpiAdr(" + number(32) + "," + number(32) + ")";
        case 13:
            return "BBS(" + written(1 + below(255)) + ",Name" + hex(3) + "," + number(16) + ")";
        default:
            // Subtypes that no record has.
            return std::string(generic[below(4)]) + "(" + written(100 + below(100)) + "," + raw_data() + ")";
        }
    }

    std::mt19937_64 engine{20}; // NOLINT: the same cases each time
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
        ASSERT_EQ(to_hex(*second), to_hex(*first)) << text << "\n" << printed->front().device;
    }
}
