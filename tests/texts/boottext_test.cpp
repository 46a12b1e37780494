// SPDX-License-Identifier: MIT
// Boot variables as text: every option comes back byte for byte, and a changed line changes what it says.
#include <clocale>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/exchange/boottext.h"
#include "tools/exchange/quoted.h"
#include "tools/exchange/settings.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace texts_test {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using tool::bytes;

class boot_texts : public ::testing::Test {
protected:
    boot_texts() { setlocale(LC_CTYPE, "C.UTF-8"); }
    ~boot_texts() override { setlocale(LC_CTYPE, "C"); }

    static bytes from(const std::string &digits) { return tool::parse_hex(digits).value(); }

    static std::string text_of(const tool::variable_values &values, tool::device_paths &paths)
    {
        tool::boot_store store;
        store.values = values;
        return tool::boot_text(store, {}, paths);
    }

    tool::variable_values read(const std::string &text)
    {
        return tool::read_boot_text(text, "boot.txt", paths).values;
    }

    void expect_to_come_back(const bytes &option)
    {
        const tool::variable_values values = {{"Boot0001", option}};
        EXPECT_EQ(read(text_of(values, paths)), values) << tool::hex(option);
        // Without its bytes an option is what its other lines say, which is as much.
        tool::text_lines lines = tool::lines_of(option, paths);
        if (!lines.empty()) {
            EXPECT_EQ(tool::option_of(lines, 1, paths), option) << tool::hex(option);
        }
    }

    // The text of one option in which something is replaced.
    std::string edited(const std::string &old_text, const std::string &new_text)
    {
        std::string text = text_of({{"Boot0001", sample}}, paths);
        const size_t at = text.find(old_text);
        EXPECT_NE(at, std::string::npos) << old_text << " in\n" << text;
        return text.replace(std::min(at, text.size()), old_text.size(), new_text);
    }

    std::string refusal(const std::string &text)
    {
        try {
            read(text);
        } catch (const tool::failure &why) {
            return why.what();
        }
        return "taken";
    }

    // "Ab" on a partition, with "q" as optional data that a kernel takes.
    const std::string path =
        "04012a00010000000008000000000000006000000000000011223344556677889900aabbccddeeff"
        "0202"
        "04040e005c004500460049000000"
        "7fff0400";
    const bytes sample = from("01000000"
                              "3c00"
                              "410062000000" +
                              path + "71000000");
    tool::device_paths paths;
};

TEST_F(boot_texts, give_back_every_real_option)
{
    std::ifstream file(OVRA_TEST_DATA "/options.tsv");
    std::string line;
    std::getline(file, line);
    size_t count = 0;
    while (std::getline(file, line)) {
        expect_to_come_back(from(line.substr(line.find('\t') + 1)));
        ++count;
    }
    EXPECT_GT(count, 60u);
}

TEST_F(boot_texts, give_back_an_option_that_is_cut_anywhere_or_has_any_byte_wrong)
{
    for (size_t size = 1; size < sample.size(); ++size)
        expect_to_come_back({sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(size)});
    for (size_t at = 0; at < sample.size(); ++at) {
        for (const uint8_t value : bytes{0x00, 0x0a, 0x20, 0x22, 0x5c, 0x7f, 0xd8, 0xff}) {
            bytes changed = sample;
            changed[at] = value;
            expect_to_come_back(changed);
        }
    }
}

TEST_F(boot_texts, give_back_odd_options)
{
    std::istringstream table(R"(
        00000000 0000 0000                                      nothing in it
        00000000 0000 3dd8 0000                                 a surrogate alone
        00000000 0000 3dd800de 22005c0020000a00 2e20 0000       a pair of them, and what is escaped
        ffffffff 0400 4100 0000 7fff0400                        a path of no nodes
        01000000 0800 4100 0000 7fff0400 7fff0400               two of them
        01000000 0600 4100 0000 7fff0400 0000                   bytes behind the END node
        01000000 0500 4100 0000 7fff0500 00                     an END node that is not plain
        01000000 1400 4100 0000 010106000002 7f010400 010106000003 7fff0400  two instances
        01000000 1400 4100 0000 010106000002 7fff0400 010106000003 7fff0400  two paths
        01000000 0400 4100 0000 7fff0400 00                     optional data of a zero
        01000000 0400 4100 0000 7fff0400 410000000000           text with zeros at its end
        01000000 0400 4100 0000 7fff0400 3dd80000               text of half a character
        01000000 0400 4100 0000 7fff0400 22205c2022             ASCII
)");
    size_t count = 0;
    for (std::string line; std::getline(table, line);) {
        if (line.empty())
            continue;
        expect_to_come_back(from(line.substr(0, line.find("  ", line.find_first_not_of(' ')))));
        ++count;
    }
    EXPECT_EQ(count, 13u);
}

TEST_F(boot_texts, say_what_can_be_said_in_words)
{
    const std::string text =
        text_of({{"Boot0001", sample}, {"BootOrder", from("01000000")}, {"Timeout", from("0500")}}, paths);
    EXPECT_THAT(text, HasSubstr("\nBootOrder = Boot0001 Boot0000\nBootNext = none\nTimeout = 5\n"));
    EXPECT_THAT(text, HasSubstr("\n[Boot0001]\ndescription = \"Ab\"\nactive = yes\n"
                                "path = HD(1,GPT,44332211-6655-8877-9900-AABBCCDDEEFF,0x800,0x6000)\n"
                                "file = \\EFI\ndata = text \"q\"\nbytes = 01000000"));
}

TEST_F(boot_texts, change_what_a_changed_line_says_and_nothing_else)
{
    const auto changed = [&](const std::string &old_text, const std::string &new_text) {
        return tool::hex(read(edited(old_text, new_text)).at("Boot0001"));
    };
    EXPECT_EQ(changed("\"Ab\"", "\"C\\u0301\""), "01000000"
                                                 "3c00"
                                                 "430001030000" +
                                                     path + "71000000");
    EXPECT_EQ(changed("active = yes", "active = no"), "00000000"
                                                      "3c00"
                                                      "410062000000" +
                                                          path + "71000000");
    EXPECT_EQ(changed("active = yes", "active = yes\nflags = 0x108"), "09010000"
                                                                      "3c00"
                                                                      "410062000000" +
                                                                          path + "71000000");
    EXPECT_EQ(changed("data = text \"q\"\n", ""), "01000000"
                                                  "3c00"
                                                  "410062000000" +
                                                      path);
    EXPECT_EQ(changed("data = text \"q\"", "data = ascii \"a b\""), "01000000"
                                                                    "3c00"
                                                                    "410062000000" +
                                                                        path + "612062");
    const std::string other_file = changed("file = \\EFI", "file = \\EFH");
    EXPECT_EQ(other_file.size(), tool::hex(sample).size());
    EXPECT_THAT(other_file, HasSubstr("5c004500460048000000"));
    // As firmware prints it.
    const std::string pasted =
        changed("path = HD(1,GPT,44332211-6655-8877-9900-AABBCCDDEEFF,0x800,0x6000)\nfile = \\EFI",
                "path = PciRoot(0x0)/Pci(0x1F,0x2)");
    EXPECT_EQ(pasted, "01000000"
                      "1600"
                      "410062000000"
                      "02010c00d041030a00000000"
                      "01010600021f"
                      "7fff0400"
                      "71000000");
    EXPECT_EQ(read(edited("[Boot0001]", "[Boot0001]\nbytes = 00\n\n[Boot0002]")).at("Boot0001"), bytes{0});
}

TEST_F(boot_texts, that_are_damaged_are_refused_with_the_line)
{
    const auto said = [&](const std::string &old_text, const std::string &new_text) {
        return refusal(edited(old_text, new_text));
    };
    EXPECT_THAT(said("\nend\n", "\n"), HasSubstr("the text stops here; its last line is end"));
    EXPECT_EQ(said("format = 1", "format = 2"),
              "boot.txt, line 6: this is not format 1, which is all that this ovra reads");
    EXPECT_THAT(said("format = 1\n", ""), HasSubstr("there is no line format = 1"));
    EXPECT_EQ(said("active = yes", "active = maybe"), "boot.txt, line 17: active: yes or no is needed");
    EXPECT_EQ(said("active = yes\n", ""), "boot.txt, line 15: the option has no line active");
    EXPECT_THAT(said("active = yes", "activ = yes"), HasSubstr("line 17: \"activ\" is no line of an option"));
    EXPECT_THAT(said("active = yes", "active = yes\nactive = no"),
                HasSubstr("line 18: active stands in line 17 already"));
    EXPECT_THAT(said("\"Ab\"", "Ab"), HasSubstr("line 16: description: a text in quotes is needed"));
    EXPECT_THAT(said("\"Ab\"", "\"Ab"), HasSubstr("line 16: description: the quote at the end is missing"));
    EXPECT_THAT(said("\"Ab\"", "\"\\x41\""), HasSubstr("line 16: description: after a backslash"));
    EXPECT_THAT(said("\"Ab\"", "\"\\u0000\""), HasSubstr("line 16: description: no text holds"));
    EXPECT_THAT(said("\"Ab\"", "\"\xff\""), HasSubstr("line 16: it is no UTF-8"));
    EXPECT_THAT(said("\"Ab\"", "\"\x01\""), HasSubstr("line 16: it has a control character"));
    EXPECT_THAT(said("HD(", "HX("), HasSubstr("boot.txt, line 18: "));
    EXPECT_THAT(said("bytes = 01", "bytes = 02"), HasSubstr("crc32: the bytes have the sum "));
    EXPECT_THAT(said("bytes = 01", "bytes = 0"), HasSubstr("bytes: pairs of hexadecimal digits are needed"));
    EXPECT_THAT(said("crc32 = ", "# "), HasSubstr("without crc32 it is not clear"));
    EXPECT_THAT(said("[Boot0001]", "[Boot001]"), HasSubstr("line 15: wanted is the name of an option"));
    EXPECT_THAT(said("[Boot0001]", "[Boot0001]\nbytes = 00\n[Boot0001]"),
                HasSubstr("there is a Boot0001 above"));
    EXPECT_THAT(said("Timeout = none", "Timeout = 65536"), HasSubstr("Timeout: none or a number"));
    EXPECT_THAT(said("BootOrder = none", "BootOrder = Driver0000"), HasSubstr("BootOrder: none or names"));
    EXPECT_THAT(said("data = text \"q\"", "data = q"), HasSubstr("data: text \"...\", ascii"));
    EXPECT_THAT(said("file = \\EFI", "file = \\EFI\nfile = \\EFI"), HasSubstr("the path has a file already"));
    EXPECT_THAT(said("\nend", "\nend\nBootNext = none"), HasSubstr("it stands behind the end"));
    EXPECT_THAT(said("format = 1", "  format = 1"), HasSubstr("it begins with blanks"));
}

TEST_F(boot_texts, that_are_cut_off_or_changed_in_any_byte_are_read_or_refused)
{
    const std::string text = text_of({{"Boot0001", sample}, {"BootOrder", from("0100")}}, paths);
    for (size_t size = 0; size + 1 < text.size(); ++size)
        EXPECT_THAT(refusal(text.substr(0, size)), StartsWith("boot.txt, line ")) << size;
    for (size_t at = 0; at < text.size(); ++at) {
        std::string changed = text;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        refusal(changed); // does not fail in another way
    }
}

TEST_F(boot_texts, leave_what_they_do_not_speak_of)
{
    tool::boot_store store;
    store.values = {
        {"Boot0001", sample}, {"Boot0002", sample}, {"Timeout", from("0500")}, {"BootNext", from("0100")}};
    tool::boot_document document;
    document.values = {{"Boot0001", from("00")}};
    document.absent = {"BootNext"};
    document.left = {"Boot0003"};
    EXPECT_EQ(tool::wanted_values(document, store),
              (tool::variable_values{{"Boot0001", from("00")}, {"Timeout", from("0500")}}));
}

TEST_F(boot_texts, tell_machines_apart)
{
    const tool::machine_marks none;
    EXPECT_EQ(tool::why_other(none, none), "");
    EXPECT_EQ(tool::why_other({1, {2}}, {1, {3}}), "");
    EXPECT_NE(tool::why_other({1, {2}}, {4, {2}}), "");
    EXPECT_EQ(tool::why_other({{}, {2, 3}}, {4, {3}}), "");
    EXPECT_NE(tool::why_other({{}, {2}}, {4, {3}}), "");
    EXPECT_NE(tool::why_other(none, {{}, {3}}), "");
    EXPECT_NE(tool::why_other({1, {}}, none), "");
}

TEST_F(boot_texts, say_settings_whatever_they_hold)
{
    for (const std::string &digits : std::vector<std::string>{"00", "0100", "010002", "01000200", "ffff"}) {
        for (const char *name : tool::settings) {
            const std::string text = tool::setting_text(name, from(digits));
            EXPECT_EQ(tool::setting_of(name, text), from(digits)) << name << ' ' << text;
        }
    }
}

} // namespace texts_test
