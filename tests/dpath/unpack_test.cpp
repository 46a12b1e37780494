// SPDX-License-Identifier: MIT
// Packed paths, whatever they claim, to node lists.
#include <climits>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "tests/dpath/nodes.h"
#include "tests/fakes/driver.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

constexpr char too_long[] = "encoded_path does not match encoded_path_len\n";
constexpr char no_end[] = "device does not have END type\n";

std::string corrupt(int type)
{
    return "corrupted node-type for node in unpack: type: " + std::to_string(type) + "\n";
}

struct outcome {
    int result = 0;
    std::vector<std::string> nodes = {};
    std::string messages = {};

    bool operator==(const outcome &) const = default;
};

std::ostream &operator<<(std::ostream &out, const outcome &one)
{
    out << one.result << " \"" << one.messages << "\"";
    for (const std::string &text : one.nodes)
        out << " [" << text << "]";
    return out;
}

// Unpacks from a block of exactly these bytes, so that a sanitizer sees a byte too many; `misaligned` puts it
// at an odd address.
outcome unpacked(const bytes &path, bool misaligned = false)
{
    const size_t shift = misaligned ? 1 : 0;
    const ovra::owned<uint8_t> block(static_cast<uint8_t *>(malloc(path.size() + shift)));
    std::copy(path.begin(), path.end(), block.get() + shift);
    const messages said(1, 1);
    count_blocks();
    uefi_device_path_t **list = nullptr;
    outcome seen;
    seen.result = device_path_unpack(block.get() + shift, static_cast<int>(path.size()), &list);
    if (seen.result == 0) {
        seen.nodes = nodes_of(list);
        EXPECT_EQ(live_blocks(), list ? static_cast<long>(seen.nodes.size()) + 1 : 0);
        EXPECT_TRUE(list == nullptr || !seen.nodes.empty());
        free_device_path(list);
    }
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
    seen.messages = said.text();
    return seen;
}

// What must come of these bytes, written down once more from the rules.
outcome expected_of(const bytes &path)
{
    outcome expected;
    size_t at = 0;
    while (at < path.size()) {
        const size_t left = path.size() - at;
        const size_t length = left < 4 ? SIZE_MAX : path[at + 2] + 256U * path[at + 3];
        if (length > left)
            return {-1, {}, too_long};
        const uint8_t type = path[at];
        if (length < 4 || (type > 5 && type != 0x7f))
            return {-1, {}, corrupt(type)};
        expected.nodes.push_back(to_hex(path.data() + at, length));
        if (type == 0x7f && path[at + 1] == 0xff)
            return expected;
        at += length;
    }
    expected.messages = no_end;
    return expected;
}

outcome unpacked_hex(const char *text)
{
    return unpacked(from_hex(text));
}

} // namespace

TEST(unpack, node_and_end_are_two_nodes)
{
    EXPECT_EQ(unpacked_hex("01010400 7fff0400"), (outcome{0, {"01 01 04 00", "7f ff 04 00"}, ""}));
}

TEST(unpack, end_entire_alone)
{
    EXPECT_EQ(unpacked_hex("7fff0400"), (outcome{0, {"7f ff 04 00"}, ""}));
}

TEST(unpack, stops_at_the_first_end_entire_and_ignores_what_is_behind)
{
    EXPECT_EQ(unpacked_hex("7fff0400 01010400"), (outcome{0, {"7f ff 04 00"}, ""}));
    EXPECT_EQ(unpacked_hex("7fff0400 ffffffffff"), (outcome{0, {"7f ff 04 00"}, ""}));
    EXPECT_EQ(unpacked_hex("7fff0400 7f"), (outcome{0, {"7f ff 04 00"}, ""}));
}

TEST(unpack, end_entire_longer_than_its_header_is_copied_whole)
{
    EXPECT_EQ(unpacked_hex("7fff0600 aabb cc"), (outcome{0, {"7f ff 06 00 aa bb"}, ""}));
}

TEST(unpack, end_instance_stays_in_the_list_and_unpacking_goes_on)
{
    EXPECT_EQ(unpacked_hex("01010400 7f010400 02020400 7fff0400"),
              (outcome{0, {"01 01 04 00", "7f 01 04 00", "02 02 04 00", "7f ff 04 00"}, ""}));
}

TEST(unpack, without_end_entire_is_accepted_with_a_trace)
{
    EXPECT_EQ(unpacked_hex("01010400"), (outcome{0, {"01 01 04 00"}, no_end}));
    EXPECT_EQ(unpacked_hex("01010400 7f010400"), (outcome{0, {"01 01 04 00", "7f 01 04 00"}, no_end}));
}

TEST(unpack, length_below_1_is_an_empty_list_with_a_trace)
{
    bytes path = end_entire;
    for (const int length : {0, -1, -4, INT_MIN}) {
        const messages said(1, 1);
        uefi_device_path_t **list = reinterpret_cast<uefi_device_path_t **>(0x10);
        EXPECT_EQ(device_path_unpack(path.data(), length, &list), 0) << length;
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(said.text(), no_end);
        EXPECT_EQ(device_path_unpack(nullptr, length, &list), 0) << length;
    }
}

TEST(unpack, every_type_up_to_5_and_7f_is_accepted_the_others_refused)
{
    for (int type = 0; type < 256; ++type)
        for (const int subtype : {0, 1, 4, 0xfe}) {
            const bytes path =
                node_bytes(static_cast<uint8_t>(type), static_cast<uint8_t>(subtype), 6) + end_entire;
            const outcome seen = unpacked(path);
            if (type <= 5 || type == 0x7f)
                EXPECT_EQ(seen.result, 0) << type;
            else
                EXPECT_EQ(seen, (outcome{-1, {}, corrupt(type)}));
        }
}

TEST(unpack, unknown_type_behind_good_nodes_frees_them)
{
    EXPECT_EQ(unpacked_hex("01010400 02020400 06010400 7fff0400"), (outcome{-1, {}, corrupt(6)}));
}

TEST(unpack, node_that_claims_more_than_is_left_is_refused)
{
    EXPECT_EQ(unpacked_hex("01010500"), (outcome{-1, {}, too_long}));
    EXPECT_EQ(unpacked_hex("01010400 04040700 4100"), (outcome{-1, {}, too_long}));
    EXPECT_EQ(unpacked_hex("0101ffff 7fff0400"), (outcome{-1, {}, too_long}));
    EXPECT_EQ(unpacked_hex("01010400 7fff0500"), (outcome{-1, {}, too_long}));
}

TEST(unpack, length_is_looked_at_before_the_type)
{
    EXPECT_EQ(unpacked_hex("06010500"), (outcome{-1, {}, too_long}));
    EXPECT_EQ(unpacked_hex("06010400"), (outcome{-1, {}, corrupt(6)}));
}

TEST(unpack, fewer_bytes_than_a_header_are_refused_with_the_length_message)
{
    for (const char *path : {"01", "0101", "010104", "7f", "7fff", "7fff04", "06", "00"})
        EXPECT_EQ(unpacked_hex(path), (outcome{-1, {}, too_long})) << path;
    for (const char *path : {"01010400 01", "01010400 0101", "01010400 7fff04"})
        EXPECT_EQ(unpacked_hex(path), (outcome{-1, {}, too_long})) << path;
}

TEST(unpack, node_shorter_than_its_header_is_refused_with_the_type_message)
{
    for (uint8_t length = 0; length < 4; ++length)
        for (const uint8_t type : bytes{0, 1, 4, 6, 0x7f, 0xff})
            for (const uint8_t subtype : bytes{0x01, 0xff}) {
                const bytes header = {type, subtype, length, 0};
                EXPECT_EQ(unpacked(header), (outcome{-1, {}, corrupt(type)})) << int{length};
                EXPECT_EQ(unpacked(header + end_entire), (outcome{-1, {}, corrupt(type)})) << int{length};
                EXPECT_EQ(unpacked(end_instance + header), (outcome{-1, {}, corrupt(type)})) << int{length};
            }
}

TEST(unpack, lengths_4_and_5_are_nodes)
{
    EXPECT_EQ(unpacked_hex("01010400 7fff0400").result, 0);
    EXPECT_EQ(unpacked_hex("01010500aa 7fff0400"), (outcome{0, {"01 01 05 00 aa", "7f ff 04 00"}, ""}));
}

TEST(unpack, longest_node)
{
    const bytes longest = node_bytes(4, 4, 65535);
    EXPECT_EQ(unpacked(longest + end_entire), (outcome{0, {to_hex(longest), "7f ff 04 00"}, ""}));
    bytes cut = longest;
    cut.pop_back();
    EXPECT_EQ(unpacked(cut), (outcome{-1, {}, too_long}));
}

TEST(unpack, cut_at_every_byte)
{
    const bytes path = node_bytes(2, 1, 12) + node_bytes(1, 1, 6) + end_instance + node_bytes(3, 18, 10) +
                       node_bytes(4, 1, 42) + end_entire;
    for (size_t length = 0; length <= path.size(); ++length) {
        const bytes cut(path.begin(), path.begin() + static_cast<long>(length));
        const outcome seen = unpacked(cut);
        EXPECT_EQ(seen, expected_of(cut)) << length;
        const bool between_nodes = length == 0 || length == 12 || length == 18 || length == 22 ||
                                   length == 32 || length == 74 || length == 78;
        EXPECT_EQ(seen.result, between_nodes ? 0 : -1) << length;
    }
}

TEST(unpack, path_may_stand_at_an_odd_address)
{
    const bytes path = node_bytes(2, 1, 13) + node_bytes(1, 1, 7) + node_bytes(4, 1, 42) + end_entire;
    EXPECT_EQ(unpacked(path, true), expected_of(path));
    EXPECT_EQ(unpacked(path, false), expected_of(path));
}

TEST(unpack, nodes_are_copies_in_blocks_of_their_own)
{
    bytes path = from_hex("0101 0600 0302 7fff0400");
    uefi_device_path_t **list = nullptr;
    ASSERT_EQ(device_path_unpack(path.data(), static_cast<int>(path.size()), &list), 0);
    const ovra::node_list owner(list);
    std::fill(path.begin(), path.end(), static_cast<uint8_t>(0));
    EXPECT_EQ(nodes_of(list), (std::vector<std::string>{"01 01 06 00 03 02", "7f ff 04 00"}));
}

TEST(unpack, as_many_nodes_as_a_load_option_can_hold)
{
    bytes path;
    for (int i = 0; i < 16382; ++i)
        path.insert(path.end(), {1, 1, 4, 0});
    path.insert(path.end(), end_entire.begin(), end_entire.end());
    const outcome seen = unpacked(path);
    EXPECT_EQ(seen.result, 0);
    EXPECT_EQ(seen.nodes.size(), 16383U);
}

TEST(unpack, failure_leaves_no_list)
{
    const messages said(0, 0);
    for (const char *text : {"01010400 06010400", "06010400", "01010400 01010500", "01"}) {
        bytes path = from_hex(text);
        auto **list = reinterpret_cast<uefi_device_path_t **>(0x10);
        EXPECT_EQ(device_path_unpack(path.data(), static_cast<int>(path.size()), &list), -1);
        EXPECT_EQ(list, nullptr) << text;
    }
}

TEST(unpack, each_message_has_its_switch)
{
    bytes cut = from_hex("01010500");
    bytes unknown = from_hex("06010400");
    bytes endless = from_hex("01010400");
    const auto said_of = [](bytes &path, int eprint, int debug) {
        const messages said(eprint, debug);
        uefi_device_path_t **list = nullptr;
        if (device_path_unpack(path.data(), static_cast<int>(path.size()), &list) == 0)
            free_device_path(list);
        return said.text();
    };
    EXPECT_EQ(said_of(cut, 1, 0), too_long);
    EXPECT_EQ(said_of(cut, 0, 1), "");
    EXPECT_EQ(said_of(unknown, 1, 0), corrupt(6));
    EXPECT_EQ(said_of(unknown, 0, 1), "");
    EXPECT_EQ(said_of(endless, 0, 1), no_end);
    EXPECT_EQ(said_of(endless, 1, 0), "");
}

TEST(unpack, refused_copy_and_refused_growth_each_say_so_and_free_what_was_built)
{
    bytes path;
    for (int i = 0; i < 8; ++i)
        path = path + node_bytes(1, 1, 6);
    path = path + end_entire;
    // The list has room for seven nodes and its terminator at first, and is made after the first copy.
    const std::set<long> growths = {1, 9};
    for (const int eprint : {1, 0})
        for (long n = 0; n < 11; ++n) {
            const messages said(eprint, 1);
            count_blocks();
            uefi_device_path_t **list = nullptr;
            refuse_from(n, false);
            EXPECT_EQ(device_path_unpack(path.data(), static_cast<int>(path.size()), &list), -1) << n;
            EXPECT_EQ(stop_refusing(), 1) << n;
            EXPECT_EQ(live_blocks(), 0) << n;
            stop_counting();
            const char *expected =
                growths.contains(n) ? "unable to add device path\n" : "unable to allocate device_path\n";
            EXPECT_EQ(said.text(), eprint == 1 ? expected : "") << n;
        }
}

TEST(unpack, survives_every_refusal)
{
    fakes::reset();
    const environment no_test_file("OVRA_TEST_FILE", nullptr);
    bytes path = node_bytes(2, 1, 12) + node_bytes(1, 1, 6) + node_bytes(4, 1, 42) + end_entire;
    for_each_refused_allocation([&](ovra_hdl_t) {
        uefi_device_path_t **list = nullptr;
        const int result = device_path_unpack(path.data(), static_cast<int>(path.size()), &list);
        if (result == 0)
            free_device_path(list);
        return result;
    });
}

// Random paths: what is unpacked follows the rules, and packed again is the part of the path that was read.
TEST(unpack, random_paths_follow_the_rules_and_pack_to_what_was_read)
{
    std::mt19937 random(4);
    int accepted = 0;
    int refused = 0;
    for (int round = 0; round < 100000; ++round) {
        bytes path;
        for (size_t count = random() % 6; count > 0; --count) {
            const auto length = static_cast<uint16_t>(4 + random() % 12);
            bytes one =
                node_bytes(static_cast<uint8_t>(random() % 6), static_cast<uint8_t>(random()), length);
            for (size_t i = 4; i < one.size(); ++i)
                one[i] = static_cast<uint8_t>(random());
            switch (random() % 16) {
            case 0: // a wrong length
                one[2] = static_cast<uint8_t>(random() % 20);
                break;
            case 1: // any length
                one[3] = static_cast<uint8_t>(random());
                break;
            case 2: // any type
                one[0] = static_cast<uint8_t>(random());
                break;
            case 3:
                one = random() % 2 == 0 ? end_entire : end_instance;
                break;
            case 4: // bytes without sense
                for (uint8_t &byte : one)
                    byte = static_cast<uint8_t>(random());
                break;
            default:
                break;
            }
            path = path + one;
        }
        if (random() % 4 == 0 && !path.empty())
            path.resize(random() % path.size());
        const outcome seen = unpacked(path, random() % 2 == 0);
        ASSERT_EQ(seen, expected_of(path)) << to_hex(path);
        if (seen.result != 0) {
            ++refused;
            continue;
        }
        ++accepted;
        uefi_device_path_t **list = nullptr;
        const messages said(0, 0);
        ASSERT_EQ(device_path_unpack(path.data(), static_cast<int>(path.size()), &list), 0);
        const ovra::node_list owner(list);
        ovra_epath_t again = nullptr;
        int length = 0;
        ASSERT_EQ(device_path_pack(list, &again, &length), 0);
        const ovra::owned<uint8_t> block(again);
        ASSERT_LE(static_cast<size_t>(length), path.size());
        ASSERT_EQ(to_hex(again, static_cast<size_t>(length)),
                  to_hex(path.data(), static_cast<size_t>(length)));
    }
    // Both ways are well trodden.
    EXPECT_GT(accepted, 20000);
    EXPECT_GT(refused, 20000);
}

TEST(unpack, random_bytes_never_read_beyond_the_path)
{
    std::mt19937 random(5);
    for (int round = 0; round < 100000; ++round) {
        bytes path(random() % 24);
        for (uint8_t &byte : path)
            byte = static_cast<uint8_t>(random() % 4 == 0 ? random() : random() % 8);
        ASSERT_EQ(unpacked(path), expected_of(path)) << to_hex(path);
    }
}
