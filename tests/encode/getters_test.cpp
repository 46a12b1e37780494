// SPDX-License-Identifier: MIT
// The typed getters: what they give, what they say, and what each leaves behind when it fails.
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "src/encode/args.h"
#include "tests/support/bytes.h"
#include "tests/support/messages.h"

using namespace ovra::test;
using ovra::arg_list;

namespace {

constexpr const char *one_parameter[] = {"A", nullptr};

class getter : public testing::Test {
protected:
    // A list with the one argument A, or none.
    uefi_arg_list_t *of(const std::string &value)
    {
        uefi_arg_list_t *made = nullptr;
        EXPECT_EQ(arg_list_init(&made, ("A=" + value).c_str(), one_parameter), 0);
        list.reset(made);
        return made;
    }
    uefi_arg_list_t *of_nothing()
    {
        uefi_arg_list_t *made = nullptr;
        EXPECT_EQ(arg_list_init(&made, "", one_parameter), 0);
        list.reset(made);
        return made;
    }

    messages said{1, 0};
    arg_list list;
};

constexpr uint64_t mark = 0x5a5a5a5a5a5a5a5a;

int common(uefi_arg_list_t *list, uint64_t *out, int base = 0)
{
    return static_cast<int>(encode_arg_uint_common(list, "A", out, base));
}

constexpr EFI_GUID guid_mark = {mark & 0xffffffff, 0x5a5a, 0x5a5a, {1, 2, 3, 4, 5, 6, 7, 8}};

// GUIDs as they stand in a node.
std::string stored(const EFI_GUID &guid)
{
    return to_hex(&guid, sizeof guid);
}

TEST_F(getter, numbers_in_base_0)
{
    uint64_t value = mark;
    for (const auto &[text, expected] :
         {std::pair("31", 31), {"0x1F", 31}, {"0X1f", 31}, {"017", 15}, {"0", 0}, {"", 0}, {"+5", 5}}) {
        EXPECT_EQ(encode_arg_uint64(of(text), "A", &value, 0), 0);
        EXPECT_EQ(value, static_cast<uint64_t>(expected)) << text;
    }
    EXPECT_EQ(said.text(), "");
}

TEST_F(getter, base_is_handed_on)
{
    uint64_t value = mark;
    EXPECT_EQ(encode_arg_uint64(of("1f"), "A", &value, 16), 0);
    EXPECT_EQ(value, 31U);
    EXPECT_EQ(encode_arg_uint64(of("017"), "A", &value, 10), 0);
    EXPECT_EQ(value, 17U);
    uint16_t narrow = 0;
    EXPECT_EQ(encode_arg_uint16(of("z"), "A", &narrow, 36), 0);
    EXPECT_EQ(narrow, 35U);
}

TEST_F(getter, base_that_is_none_is_a_failed_conversion)
{
    uint64_t value = mark;
    EXPECT_EQ(common(of("1"), &value, 1), -1);
    EXPECT_EQ(said.text(), "error converting A = '1': Invalid argument\n");
}

TEST_F(getter, minus_one_of_64_bits_is_all_ones)
{
    uint64_t value = 0;
    EXPECT_EQ(encode_arg_uint64(of("-1"), "A", &value, 0), 0);
    EXPECT_EQ(value, UINT64_MAX);
}

TEST_F(getter, common_tells_absent_from_malformed)
{
    uint64_t value = mark;
    EXPECT_EQ(common(of_nothing(), &value), -2);
    EXPECT_EQ(value, mark);
    EXPECT_EQ(said.take(), "failed to get variable 'A'\n");
    EXPECT_EQ(common(of("1x"), &value), -1);
    EXPECT_EQ(said.take(), "strtoull has endptr: arg_name: A value: 1x: end_ptr:x\n");
}

TEST_F(getter, message_shows_the_name_that_was_looked_up)
{
    uint64_t value = mark;
    EXPECT_EQ(encode_arg_uint64(of("x"), "a", &value, 0), -1);
    EXPECT_EQ(said.take(), "strtoull has endptr: arg_name: a value: x: end_ptr:x\n");
}

TEST_F(getter, common_stores_before_it_checks)
{
    uint64_t value = mark;
    EXPECT_EQ(common(of("12x"), &value), -1);
    EXPECT_EQ(value, 12U);
    EXPECT_EQ(common(of("x"), &value), -1);
    EXPECT_EQ(value, 0U);
    said.take();
    EXPECT_EQ(common(of("0x10000000000000000"), &value), -1);
    EXPECT_EQ(value, UINT64_MAX);
    EXPECT_EQ(said.take(), "error converting A = '0x10000000000000000': Numerical result out of range\n");
}

TEST_F(getter, sized_integers_at_their_limits)
{
    uint8_t u8 = 0;
    EXPECT_EQ(encode_arg_uint8(of("255"), "A", &u8, 0), 0);
    EXPECT_EQ(u8, 255);
    EXPECT_EQ(encode_arg_uint8(of("0xff"), "A", &u8, 0), 0);
    EXPECT_EQ(u8, 255);
    uint16_t u16 = 0;
    EXPECT_EQ(encode_arg_uint16(of("65535"), "A", &u16, 0), 0);
    EXPECT_EQ(u16, 65535);
    uint32_t u32 = 0;
    EXPECT_EQ(encode_arg_uint32(of("0xffffffff"), "A", &u32, 0), 0);
    EXPECT_EQ(u32, UINT32_MAX);
    uint64_t u64 = 0;
    EXPECT_EQ(encode_arg_uint64(of("18446744073709551615"), "A", &u64, 0), 0);
    EXPECT_EQ(u64, UINT64_MAX);
    EXPECT_EQ(said.text(), "");
}

TEST_F(getter, sized_integers_beyond_their_limits_leave_the_result)
{
    uint8_t u8 = 0x5a;
    EXPECT_EQ(encode_arg_uint8(of("256"), "A", &u8, 0), -1);
    EXPECT_EQ(said.take(), "encode_arg_uint8: value out of range: 256\n");
    EXPECT_EQ(encode_arg_uint8(of("-1"), "A", &u8, 0), -1);
    EXPECT_EQ(said.take(), "encode_arg_uint8: value out of range: 18446744073709551615\n");
    EXPECT_EQ(u8, 0x5a);
    uint16_t u16 = 0x5a5a;
    EXPECT_EQ(encode_arg_uint16(of("0x10000"), "A", &u16, 0), -1);
    EXPECT_EQ(said.take(), "encode_arg_uint16: value out of range: 65536\n");
    EXPECT_EQ(u16, 0x5a5a);
    uint32_t u32 = 0x5a5a5a5a;
    EXPECT_EQ(encode_arg_uint32(of("0x100000000"), "A", &u32, 0), -1);
    EXPECT_EQ(said.take(), "encode_arg_uint32: value out of range: 4294967296\n");
    EXPECT_EQ(u32, 0x5a5a5a5aU);
}

TEST_F(getter, sized_integers_pass_on_absent_and_malformed)
{
    uint8_t u8 = 0x5a;
    uint16_t u16 = 0x5a5a;
    uint32_t u32 = 0x5a5a5a5a;
    uint64_t u64 = mark;
    uefi_arg_list_t *nothing = of_nothing();
    EXPECT_EQ(encode_arg_uint8(nothing, "A", &u8, 0), -2);
    EXPECT_EQ(encode_arg_uint16(nothing, "A", &u16, 0), -2);
    EXPECT_EQ(encode_arg_uint32(nothing, "A", &u32, 0), -2);
    EXPECT_EQ(encode_arg_uint64(nothing, "A", &u64, 0), -2);
    uefi_arg_list_t *malformed = of("7x");
    EXPECT_EQ(encode_arg_uint8(malformed, "A", &u8, 0), -1);
    EXPECT_EQ(encode_arg_uint16(malformed, "A", &u16, 0), -1);
    EXPECT_EQ(encode_arg_uint32(malformed, "A", &u32, 0), -1);
    EXPECT_EQ(encode_arg_uint64(malformed, "A", &u64, 0), -1);
    EXPECT_EQ(u8, 0x5a);
    EXPECT_EQ(u16, 0x5a5a);
    EXPECT_EQ(u32, 0x5a5a5a5aU);
    EXPECT_EQ(u64, mark);
}

TEST_F(getter, eisaid_packs_three_letters_and_a_number)
{
    uint32_t id = 0;
    for (const auto &[text, expected] : {std::pair("PNP0A03", 0x0a0341d0U),
                                         {"0", 0U},
                                         {"AAA0000", 0x00000421U},
                                         {"ZZZFFFF", 0xffff6b5aU},
                                         {"PNPabcd", 0xabcd41d0U}}) {
        EXPECT_EQ(encode_arg_eisaid(of(text), "A", &id), 0);
        EXPECT_EQ(id, expected) << text;
    }
    EXPECT_EQ(said.text(), "");
}

TEST_F(getter, kept_eisaid_messages_have_no_line_end)
{
    uint32_t id = 0;
    EXPECT_EQ(encode_arg_eisaid(of("0x41d0"), "A", &id), -1);
    EXPECT_EQ(said.take(), "eisaid should be 7 characters");
    EXPECT_EQ(encode_arg_eisaid(of(""), "A", &id), -1);
    EXPECT_EQ(said.take(), "eisaid should be 7 characters");
    EXPECT_EQ(encode_arg_eisaid(of("00"), "A", &id), -1);
    EXPECT_EQ(said.take(), "eisaid should be 7 characters");
    EXPECT_EQ(encode_arg_eisaid(of("pnp0a03"), "A", &id), -1);
    EXPECT_EQ(said.take(), "first 3 characters of EISAID should be upper case alpha");
    EXPECT_EQ(encode_arg_eisaid(of("0000000"), "A", &id), -1);
    EXPECT_EQ(said.take(), "first 3 characters of EISAID should be upper case alpha");
}

TEST_F(getter, eisaid_absent_leaves_the_result)
{
    uint32_t id = 0x5a5a5a5a;
    EXPECT_EQ(encode_arg_eisaid(of_nothing(), "A", &id), -2);
    EXPECT_EQ(said.take(), "encode_arg_eisaid: argument not found A\n");
    EXPECT_EQ(id, 0x5a5a5a5aU);
}

TEST_F(getter, eisaid_is_built_in_the_result_itself)
{
    uint32_t id = 0x5a5a5a5a;
    EXPECT_EQ(encode_arg_eisaid(of("PNp0A03"), "A", &id), -1);
    EXPECT_NE(id, 0x5a5a5a5aU);
}

TEST_F(getter, kept_eisaid_number_ends_at_the_first_other_character)
{
    uint32_t id = 0;
    EXPECT_EQ(encode_arg_eisaid(of("PNP0Ax3"), "A", &id), 0);
    EXPECT_EQ(id, 0x000a41d0U);
    EXPECT_EQ(encode_arg_eisaid(of("PNP...."), "A", &id), 0);
    EXPECT_EQ(id, 0x000041d0U);
}

TEST_F(getter, guid_is_stored_in_the_order_of_the_machine)
{
    EFI_GUID guid = {};
    EXPECT_EQ(encode_arg_guid(of("00112233-4455-6677-8899-aAbBcCdDeEfF"), "A", &guid), 0);
    EXPECT_EQ(guid.Data1, 0x00112233U);
    EXPECT_EQ(guid.Data2, 0x4455);
    EXPECT_EQ(guid.Data3, 0x6677);
    EXPECT_EQ(stored(guid), "33 22 11 00 55 44 77 66 88 99 aa bb cc dd ee ff");
}

TEST_F(getter, kept_guid_messages_have_no_line_end_and_the_result_stays)
{
    EFI_GUID guid = guid_mark;
    EXPECT_EQ(encode_arg_guid(of_nothing(), "A", &guid), -2);
    EXPECT_EQ(said.take(), "encode_arg_guid: argument not found A\n");
    for (const char *text :
         {"{00112233-4455-6677-8899-aabbccddeeff}", "", "00112233-4455-6677-8899-aabbccddeef",
          "00112233-4455-6677-8899-aabbccddeefff"}) {
        EXPECT_EQ(encode_arg_guid(of(text), "A", &guid), -1);
        EXPECT_EQ(said.take(), "GUID not 36 characters") << text;
    }
    for (const char *text : {"00112233x4455-6677-8899-aabbccddeeff", "00112233-4455x6677-8899-aabbccddeeff",
                             "00112233-4455-6677x8899-aabbccddeeff", "00112233-4455-6677-8899xaabbccddeeff",
                             "0011223-34455-6677-8899-aabbccddeeff"}) {
        EXPECT_EQ(encode_arg_guid(of(text), "A", &guid), -1);
        EXPECT_EQ(said.take(), "GUID improperly formatted") << text;
    }
    EXPECT_EQ(stored(guid), stored(guid_mark));
}

TEST_F(getter, kept_guid_fields_end_at_the_first_other_character)
{
    EFI_GUID guid = guid_mark;
    EXPECT_EQ(encode_arg_guid(of("12xx5678-9xbc-xdef-0g2h-x1x2x3x4x5x6"), "A", &guid), 0);
    EXPECT_EQ(stored(guid), "12 00 00 00 09 00 00 00 00 02 00 00 00 00 00 00");
}

// Field by field as the C library reads it, whatever the characters.
TEST_F(getter, guid_is_what_strtoull_makes_of_its_fields)
{
    const auto field = [](const std::string &text, size_t from, size_t count) {
        return strtoull(text.substr(from, count).c_str(), nullptr, 16);
    };
    constexpr char characters[] = "0123456789abcdefABCDEF0123456789abcdefABCDEFxX+-g\t";
    std::mt19937 random(6); // NOLINT(cert-msc51-cpp): the same texts each time
    for (int i = 0; i < 20000; ++i) {
        std::string text = "00000000-0000-0000-0000-000000000000";
        const size_t choice = i % 2 == 0 ? 44 : sizeof characters - 1; // digits alone, or others among them
        for (char &c : text)
            c = c == '-' ? c : characters[random() % choice];
        EFI_GUID expected = {static_cast<uint32_t>(field(text, 0, 8)),
                             static_cast<uint16_t>(field(text, 9, 4)),
                             static_cast<uint16_t>(field(text, 14, 4)),
                             {}};
        for (size_t byte = 0; byte < 8; ++byte)
            expected.Data4[byte] = static_cast<uint8_t>(field(text, (byte < 2 ? 19 : 20) + 2 * byte, 2));
        EFI_GUID guid = guid_mark;
        ASSERT_EQ(encode_arg_guid(of(text), "A", &guid), 0) << text;
        ASSERT_EQ(stored(guid), stored(expected)) << text;
    }
}

TEST_F(getter, hexdump_pair_is_what_strtoull_makes_of_it)
{
    for (int high = 1; high < 256; ++high) {
        std::string text;
        std::string expected;
        for (int low = 1; low < 256; ++low) {
            if (high == ',' || high == ' ' || low == ',' || low == ' ')
                continue;
            const char pair[] = {static_cast<char>(high), static_cast<char>(low), '\0'};
            text += pair;
            expected += static_cast<char>(strtoull(pair, nullptr, 16));
        }
        if (text.empty())
            continue;
        void *bytes = nullptr;
        size_t size = 0;
        ASSERT_EQ(encode_arg_hexdump(of(text), "A", &bytes, &size, 1, 300), 0);
        const ovra::owned<void> given(bytes);
        ASSERT_EQ(to_hex(bytes, size), to_hex(expected.data(), expected.size())) << high;
    }
}

TEST_F(getter, hexdump_gives_the_bytes_in_their_order)
{
    void *bytes = nullptr;
    size_t size = 0;
    EXPECT_EQ(encode_arg_hexdump(of("0A0bff7F"), "A", &bytes, &size, 1, 4), 0);
    const ovra::owned<void> given(bytes);
    ASSERT_EQ(size, 4U);
    EXPECT_EQ(to_hex(bytes, size), "0a 0b ff 7f");
}

TEST_F(getter, hexdump_at_its_limits)
{
    size_t size = 0;
    for (const char *text : {"01", "0102", "010203"}) {
        void *bytes = nullptr;
        EXPECT_EQ(encode_arg_hexdump(of(text), "A", &bytes, &size, 1, 3), 0);
        EXPECT_EQ(size, strlen(text) / 2);
        free(bytes);
    }
    EXPECT_EQ(said.text(), "");
}

TEST_F(getter, hexdump_out_of_its_limits_leaves_the_size_only)
{
    void *const untouched = &said;
    void *bytes = untouched;
    size_t size = 99;
    EXPECT_EQ(encode_arg_hexdump(of_nothing(), "A", &bytes, &size, 1, 3), -1);
    EXPECT_EQ(said.take(), "encode_arg_hexdump: property not found: A\n");
    EXPECT_EQ(size, 99U);
    EXPECT_EQ(encode_arg_hexdump(of("ABC"), "A", &bytes, &size, 1, 3), -1);
    EXPECT_EQ(said.take(), "encode_arg_hexdump: val_str needs to be multiple of 2\n");
    EXPECT_EQ(size, 99U);
    EXPECT_EQ(encode_arg_hexdump(of("01020304"), "A", &bytes, &size, 1, 3), -1);
    EXPECT_EQ(said.take(), "data_size = 4 but min is 1 and max is 3\n");
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(encode_arg_hexdump(of(""), "A", &bytes, &size, 1, 3), -1);
    EXPECT_EQ(said.take(), "data_size = 0 but min is 1 and max is 3\n");
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(bytes, untouched);
}

TEST_F(getter, kept_hexdump_pair_ends_at_the_first_other_character)
{
    void *bytes = nullptr;
    size_t size = 0;
    EXPECT_EQ(encode_arg_hexdump(of("g11gzz-1"), "A", &bytes, &size, 1, 4), 0);
    const ovra::owned<void> given(bytes);
    EXPECT_EQ(to_hex(bytes, size), "00 01 00 ff");
    EXPECT_EQ(said.text(), "");
}

TEST_F(getter, none_changes_the_list)
{
    uefi_arg_list_t *args = of("00112233-4455-6677-8899-aabbccddeeff");
    EFI_GUID guid = {};
    uint64_t value = 0;
    uint32_t id = 0;
    void *bytes = nullptr;
    size_t size = 0;
    EXPECT_EQ(encode_arg_guid(args, "A", &guid), 0);
    EXPECT_EQ(common(args, &value), -1);
    EXPECT_EQ(encode_arg_eisaid(args, "A", &id), -1);
    EXPECT_EQ(encode_arg_hexdump(args, "A", &bytes, &size, 1, 3), -1);
    EXPECT_STREQ(ovra_get_arg(args, "A"), "00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(args->argc, 1U);
}

} // namespace
