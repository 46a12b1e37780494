// SPDX-License-Identifier: MIT
// GUIDs and their text, against printf and against texts that are almost one.
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "src/base/guid.h"

namespace {

constexpr char global_text[] = "8be4df61-93ca-11d2-aa0d-00e098032b8c";

std::string printed(const EFI_GUID &guid, const char *format)
{
    char text[64];
    const uint8_t *tail = guid.Data4;
    snprintf(text, sizeof text, format, guid.Data1, guid.Data2, guid.Data3, tail[0], tail[1], tail[2],
             tail[3], tail[4], tail[5], tail[6], tail[7]);
    return text;
}

EFI_GUID random_guid(std::mt19937 *random)
{
    ovra::guid_bytes bytes = {};
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>((*random)());
    return *ovra::guid_of(bytes);
}

} // namespace

TEST(guid, global_variable_is_stored_as_uefi_stores_it)
{
    constexpr uint8_t stored[] = {0x61, 0xdf, 0xe4, 0x8b, 0xca, 0x93, 0xd2, 0x11,
                                  0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c};
    const ovra::guid_bytes bytes = ovra::stored_guid(ovra::global_variable_guid);
    EXPECT_EQ(memcmp(bytes.data(), stored, sizeof stored), 0);
    EXPECT_TRUE(ovra::same_guid(*ovra::guid_of(stored), ovra::global_variable_guid));
    EXPECT_STREQ(ovra::guid_text(ovra::global_variable_guid, ovra::letters::lower).c_str(), global_text);
}

TEST(guid, text_is_what_printf_makes_of_the_fields)
{
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same numbers each time
    for (int i = 0; i < 10000; ++i) {
        const EFI_GUID guid = random_guid(&random);
        EXPECT_EQ(ovra::guid_text(guid, ovra::letters::lower).view(),
                  printed(guid, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x"));
        EXPECT_EQ(ovra::guid_text(guid, ovra::letters::upper).view(),
                  printed(guid, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X"));
    }
}

TEST(guid, text_is_read_back_in_letters_of_either_case)
{
    std::mt19937 random(2); // NOLINT(cert-msc51-cpp): the same numbers each time
    for (int i = 0; i < 10000; ++i) {
        const EFI_GUID guid = random_guid(&random);
        for (const auto of : {ovra::letters::lower, ovra::letters::upper}) {
            const auto read = ovra::parse_guid(ovra::guid_text(guid, of).view());
            ASSERT_TRUE(read);
            EXPECT_TRUE(ovra::same_guid(*read, guid));
        }
    }
    const auto mixed = ovra::parse_guid("8bE4Df61-93cA-11d2-Aa0d-00E098032b8C");
    ASSERT_TRUE(mixed);
    EXPECT_TRUE(ovra::same_guid(*mixed, ovra::global_variable_guid));
}

TEST(guid, text_of_another_length_is_none)
{
    const std::string text = global_text;
    for (size_t length = 0; length < text.size(); ++length)
        EXPECT_FALSE(ovra::parse_guid(text.substr(0, length))) << length;
    for (const char *other :
         {"8be4df61-93ca-11d2-aa0d-00e098032b8c0", " 8be4df61-93ca-11d2-aa0d-00e098032b8c",
          "{8be4df61-93ca-11d2-aa0d-00e098032b8c}", "8be4df6193ca11d2aa0d00e098032b8c",
          "{be4df61-93ca-11d2-aa0d-00e098032b8}"})
        EXPECT_FALSE(ovra::parse_guid(other)) << other;
    EXPECT_FALSE(
        ovra::parse_guid(std::string_view(global_text, sizeof global_text))); // its terminator is one more
}

TEST(guid, every_place_takes_what_belongs_there_alone)
{
    for (size_t place = 0; place < ovra::guid_length; ++place) {
        const bool is_dash = global_text[place] == '-';
        for (int c = 0; c < 256; ++c) {
            std::string text = global_text;
            text[place] = static_cast<char>(c);
            const bool is_digit = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
            EXPECT_EQ(ovra::parse_guid(text).has_value(), is_dash ? c == '-' : is_digit) << place << " " << c;
        }
    }
}

TEST(guid, dashes_elsewhere_are_not_passed_over)
{
    EXPECT_FALSE(ovra::parse_guid("8be4df619-3ca-11d2-aa0d-00e098032b8c"));
    EXPECT_FALSE(ovra::parse_guid("8be4df61-93ca-11d2-aa0d00-e098032b8c"));
    EXPECT_FALSE(ovra::parse_guid("------------------------------------"));
}

TEST(guid, bytes_of_another_count_are_none)
{
    const ovra::guid_bytes bytes = ovra::stored_guid(ovra::global_variable_guid);
    const ovra::byte_view view = bytes;
    EXPECT_TRUE(ovra::guid_of(view));
    EXPECT_FALSE(ovra::guid_of(view.first(15)));
    EXPECT_FALSE(ovra::guid_of({}));
    const uint8_t longer[17] = {};
    EXPECT_FALSE(ovra::guid_of(longer));
}

TEST(guid, is_another_when_any_bit_differs)
{
    for (size_t place = 0; place < sizeof(EFI_GUID); ++place) {
        ovra::guid_bytes bytes = ovra::stored_guid(ovra::global_variable_guid);
        bytes[place] ^= 0x80;
        EXPECT_FALSE(ovra::same_guid(*ovra::guid_of(bytes), ovra::global_variable_guid)) << place;
    }
}

static_assert(
    ovra::parse_guid(global_text).has_value()); // in constants too, without a byte read beyond the text
