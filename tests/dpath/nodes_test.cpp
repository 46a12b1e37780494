// SPDX-License-Identifier: MIT
// Building END and File-path nodes.
#include <cstddef>
#include <string>

#include <gtest/gtest.h>

#include "src/dpath/build.h"
#include "tests/dpath/nodes.h"
#include "tests/fakes/driver.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

std::string file_path(const std::string &text)
{
    uefi_device_path_t *out = nullptr;
    if (add_file_path(text.c_str(), &out) != 0)
        return "refused";
    const node built(out);
    return to_hex(out, out->len);
}

uefi_device_path_t *const untouched = reinterpret_cast<uefi_device_path_t *>(0x10);

} // namespace

TEST(device_end, is_four_bytes_of_the_subtype_given)
{
    const struct {
        uint8_t subtype;
        const char *expected;
    } cases[] = {{0xff, "7f ff 04 00"}, {0x01, "7f 01 04 00"}, {0x00, "7f 00 04 00"}, {0x7f, "7f 7f 04 00"}};
    for (const auto &one : cases) {
        uefi_device_path_t *out = nullptr;
        ASSERT_EQ(add_device_end(one.subtype, &out), 0);
        const node built(out);
        EXPECT_EQ(to_hex(out, 4), one.expected);
    }
}

TEST(device_end, survives_every_refusal_silently)
{
    fakes::reset();
    const environment no_test_file("OVRA_TEST_FILE", nullptr);
    for_each_refused_allocation(
        [](ovra_hdl_t) {
            uefi_device_path_t *out = untouched;
            if (add_device_end(0xff, &out) != 0) {
                EXPECT_EQ(out, untouched);
                return -1;
            }
            free(out);
            return 0;
        },
        [](const attempt &one) { EXPECT_EQ(one.messages, ""); });
}

TEST(file_path, of_21_characters_has_48_bytes)
{
    EXPECT_EQ(
        file_path("\\EFI\\BOOT\\BOOTX64.EFI"),
        hex("04 04 30 00 5c00 4500 4600 4900 5c00 4200 4f00 4f00 5400 5c00 4200 4f00 4f00 5400 5800 3600 3400"
            "2e00 4500 4600 4900 0000"));
}

TEST(file_path, empty_text_is_a_header_and_a_terminator)
{
    EXPECT_EQ(file_path(""), hex("04 04 06 00 0000"));
}

TEST(file_path, text_is_taken_as_it_stands)
{
    EXPECT_EQ(file_path("/a"), hex("04 04 0a 00 2f00 6100 0000"));
    EXPECT_EQ(file_path("a\\\\"), hex("04 04 0c 00 6100 5c00 5c00 0000"));
    EXPECT_EQ(file_path(" a "), hex("04 04 0c 00 2000 6100 2000 0000"));
    EXPECT_EQ(file_path("\xc3\xa9\xe4\xb8\xad"), hex("04 04 0a 00 e900 2d4e 0000"));
}

TEST(file_path, may_be_longer_than_the_declared_field)
{
    uefi_device_path_t *out = nullptr;
    ASSERT_EQ(add_file_path(std::string(300, 'x').c_str(), &out), 0);
    const node built(out);
    EXPECT_EQ(out->len, 4 + 2 * 301);
    EXPECT_EQ(to_hex(reinterpret_cast<const char *>(out) + 4 + 2 * 299, 4), "78 00 00 00");
}

TEST(file_path, kept_length_is_cut_to_16_bits_while_the_string_keeps_its_bytes)
{
    const struct {
        size_t characters;
        uint16_t len;
    } cases[] = {{32764, 65534}, {32765, 0}, {32766, 2}, {32769, 8}, {100000, 0x0d46}};
    for (const auto &one : cases) {
        uefi_device_path_t *out = nullptr;
        ASSERT_EQ(add_file_path(std::string(one.characters, 'x').c_str(), &out), 0);
        const node built(out);
        EXPECT_EQ(out->len, one.len) << one.characters;
        // The block is as long as the string: its last unit and terminator are there.
        EXPECT_EQ(to_hex(reinterpret_cast<const char *>(out) + 2 + 2 * one.characters, 4), "78 00 00 00");
    }
}

TEST(file_path, text_that_cannot_be_converted_is_refused)
{
    const messages said(1, 0);
    uefi_device_path_t *out = untouched;
    EXPECT_EQ(add_file_path("a\xff", &out), -1);
    EXPECT_EQ(out, untouched);
    EXPECT_EQ(said.text(), "iconv(a\xff) failed");
    EXPECT_EQ(add_file_path("\xf0\x9f\x98\x80", &out), -1);
}

TEST(file_path, without_memory_for_the_node_says_so)
{
    static_cast<void>(file_path("opens what is kept"));
    for (const int eprint : {1, 0}) {
        const messages said(eprint, 1);
        count_blocks();
        uefi_device_path_t *out = untouched;
        refuse_from(1, false);
        EXPECT_EQ(add_file_path("x", &out), -1);
        EXPECT_EQ(stop_refusing(), 1);
        EXPECT_EQ(live_blocks(), 0);
        stop_counting();
        EXPECT_EQ(out, untouched);
        EXPECT_EQ(said.text(), eprint == 1 ? "unable to allocate device path\n" : "");
    }
}

TEST(file_path, survives_every_refusal)
{
    fakes::reset();
    const environment no_test_file("OVRA_TEST_FILE", nullptr);
    for_each_refused_allocation(
        [](ovra_hdl_t) {
            uefi_device_path_t *out = untouched;
            if (add_file_path("\\EFI\\x", &out) != 0) {
                EXPECT_EQ(out, untouched);
                return -1;
            }
            free(out);
            return 0;
        },
        [](const attempt &one) {
            EXPECT_TRUE(one.messages.empty() || one.messages == "unable to allocate device path\n");
        });
}

TEST(builder, writes_the_kind_of_the_record_and_zeros)
{
    const auto sata = ovra::new_node<uefi_sata_device_path_t>();
    ASSERT_NE(sata, nullptr);
    EXPECT_EQ(to_hex(sata.get(), 10), hex("03 12 0a00 0000 0000 0000"));
    const auto vendor = ovra::new_node<uefi_venmsg_device_path_t>(3);
    ASSERT_NE(vendor, nullptr);
    EXPECT_EQ(to_hex(vendor.get(), 23), hex("03 0a 1700") + " " + hex(std::string(38, '0')));
}

TEST(builder, is_null_without_memory)
{
    refuse_from(0, true);
    const auto sata = ovra::new_node<uefi_sata_device_path_t>();
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_EQ(sata, nullptr);
}

TEST(builder, refuses_a_length_that_no_node_can_have)
{
    const auto longest = ovra::new_raw_node(UEFI_MEDIA, 4, 65535);
    ASSERT_NE(longest, nullptr);
    EXPECT_EQ(to_hex(longest.get(), 4), "04 04 ff ff");
    EXPECT_EQ(ovra::new_raw_node(UEFI_MEDIA, 4, 65536), nullptr);
    EXPECT_EQ(ovra::new_node<uefi_venmedia_path_t>(65535 - 19), nullptr);
    EXPECT_NE(ovra::new_node<uefi_venmedia_path_t>(65535 - 20), nullptr);
}
