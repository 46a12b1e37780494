// SPDX-License-Identifier: MIT
// Words of nodes, and identifiers.
#include <gtest/gtest.h>

#include "src/base/ids.h"
#include "src/base/words.h"

TEST(words, are_found_in_letters_of_either_case)
{
    EXPECT_EQ(ovra::by_text(ovra::partition_formats, "gpt")->value, ovra::format_gpt);
    EXPECT_EQ(ovra::by_text(ovra::partition_formats, "MBR")->value, ovra::format_mbr);
    for (const char *other : {"", "G", "GPTx", "GP", " GPT"})
        EXPECT_EQ(ovra::by_text(ovra::partition_formats, other), nullptr) << other;
    EXPECT_EQ(ovra::by_text({}, "GPT"), nullptr);
}

TEST(words, have_a_text_for_each_value_of_theirs)
{
    for (const std::span<const ovra::word> list :
         {std::span<const ovra::word>(ovra::ata_channels), std::span<const ovra::word>(ovra::ata_drives),
          std::span<const ovra::word>(ovra::uart_parities), std::span<const ovra::word>(ovra::uart_stop_bits),
          std::span<const ovra::word>(ovra::uart_flow_controls),
          std::span<const ovra::word>(ovra::partition_formats),
          std::span<const ovra::word>(ovra::bbs_device_types)}) {
        for (const ovra::word &word : list) {
            EXPECT_EQ(ovra::by_value(list, word.value), &word) << word.text;
            EXPECT_EQ(ovra::by_text(list, word.text), &word) << word.text;
        }
        EXPECT_EQ(ovra::by_value(list, 0xffff), nullptr);
        EXPECT_EQ(ovra::by_value(list, 0x10000u + list.front().value), nullptr); // no value is cut
    }
}

TEST(eisa_id, is_three_letters_and_a_number)
{
    EXPECT_EQ(ovra::eisa_id("PNP", 0x0a03), 0x0a0341d0U);
    EXPECT_EQ(ovra::eisa_product(0x0a0341d0), 0x0a03);
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        const char vendor[] = {letter, 'A', static_cast<char>('Z' - (letter - 'A'))};
        const uint32_t id = ovra::eisa_id({vendor, sizeof vendor}, 0xffff);
        for (unsigned place = 0; place < 3; ++place)
            EXPECT_EQ(ovra::eisa_letter(id, place), vendor[place]);
        EXPECT_EQ(ovra::eisa_product(id), 0xffff);
        EXPECT_EQ(id & 0x8000, 0U);
    }
}
