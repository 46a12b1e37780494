// SPDX-License-Identifier: MIT
// The UEFI specification's text of paths, which stands beside the library's.
#include <fstream>
#include <random>

#include <gtest/gtest.h>

#include "src/base/ascii.h"
#include "tools/machine/devicepaths.h"
#include "tools/text/numbers.h"
#include "tools/text/uefitext.h"

namespace texts_test {

// Beside the library's text, in letters of either case.
TEST(uefi_texts, are_those_that_firmware_prints)
{
    tool::device_paths paths;
    std::ifstream table(OVRA_TEST_DATA "/uefi_text.tsv");
    size_t rows = 0;
    for (std::string line; std::getline(table, line);) {
        if (line.starts_with('#'))
            continue;
        const size_t tab = line.find('\t');
        ASSERT_NE(tab, std::string::npos) << line;
        const tool::decoded_path shown = paths.decode(tool::parse_hex(line.substr(tab + 1)).value());
        ASSERT_EQ(shown.instances.size(), 1U) << line;
        const std::string &found = shown.instances[0].uefi;
        EXPECT_TRUE(ovra::alike(found, line.substr(0, tab))) << found << "\n" << line;
        ++rows;
    }
    EXPECT_GE(rows, 70U);
}

// Random nodes of all kinds, cut at random: no text comes from beyond their end.
TEST(uefi_texts, stay_within_their_nodes)
{
    std::mt19937 random(12);
    size_t with_text = 0;
    for (unsigned turn = 0; turn < 20000; ++turn) {
        tool::bytes node(4 + random() % 70);
        for (uint8_t &byte : node)
            byte = static_cast<uint8_t>(random());
        node[0] = static_cast<uint8_t>(1 + random() % 5);
        node[1] = static_cast<uint8_t>(random() % 32);
        node[2] = static_cast<uint8_t>(node.size());
        node[3] = 0;
        // Exactly as long as it is: a sanitizer sees what is read beyond.
        const std::vector<uint8_t> copy(node.begin(), node.end());
        if (const auto text = tool::uefi_text(copy)) {
            EXPECT_EQ(tool::printable(*text), *text);
            ++with_text;
        }
    }
    EXPECT_GE(with_text, 100U);
}

} // namespace texts_test
