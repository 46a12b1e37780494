// SPDX-License-Identifier: MIT
// Nodes and paths that are not what they claim. Each stands in a block of its own size, for the sanitizer.
#include <algorithm>
#include <map>
#include <random>

#include "tests/print/golden.h"
#include "tests/rt/open_handle.h"
#include "tests/support/messages.h"

using namespace ovra::test;

namespace {

bytes with_length(bytes node, size_t length)
{
    node.resize(length);
    node[2] = static_cast<uint8_t>(length);
    node[3] = static_cast<uint8_t>(length >> 8);
    return node;
}

// The least length that a node's own form needs; nothing: it has no such form.
std::optional<size_t> least_length(const bytes &node)
{
    static const std::map<std::pair<int, int>, size_t> records = {
        {{1, 1}, 6},  {{1, 5}, 8}, {{2, 1}, 12},  {{2, 2}, 16},  {{2, 3}, 4},   {{3, 1}, 8},  {{3, 2}, 8},
        {{3, 3}, 20}, {{3, 5}, 6}, {{3, 11}, 37}, {{3, 14}, 19}, {{3, 18}, 10}, {{4, 1}, 42}, {{4, 4}, 4}};
    static const std::map<std::string, size_t> vendors = {
        {"53 47 c1 e0 be f9 d2 11 9a 0c 00 90 27 3f c1 4d", 20},
        {"65 60 a6 df 19 b4 d3 11 9a 2d 00 90 27 3f c1 4d", 20},
        {"0b c7 ae 7b e0 57 76 4c 8e 87 2f 9e 28 08 83 43", 20},
        {"d6 a0 15 ad ec 8b cf 4a a0 73 d0 1d e7 7e 2d 88", 20},
        {"d2 e8 a4 eb 58 38 ec 41 a2 81 26 47 ba 96 60 d0", 20},
        {"9d 9a 49 37 2f 54 89 4c a0 26 35 da 14 20 94 e4", 21}};
    if (node[0] == 5)
        return 8;
    if (node[0] == 3 && node[1] == 10) {
        if (node.size() < 20)
            return std::nullopt;
        const auto vendor = vendors.find(to_hex(node.data() + 4, 16));
        return vendor == vendors.end() ? std::nullopt : std::optional(vendor->second);
    }
    const auto record = records.find({node[0], node[1]});
    if (record == records.end())
        return row_size(node[0], node[1]);
    EXPECT_EQ(row_size(node[0], node[1]), record->second);
    return record->second;
}

bool is_name(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                                   "0123456789") == std::string_view::npos;
}

// "/Name(...)" as the node asks for, its beginning when it is cut, or one of the texts without parentheses.
void expect_known_form(const bytes &node, const std::optional<std::string> &text, bool follows)
{
    ASSERT_TRUE(text) << to_hex(node);
    ASSERT_LE(text->size(), 1023U);
    const std::optional<size_t> least = least_length(node);
    if (node[0] == 0x7f) {
        EXPECT_EQ(*text, "/EndPath");
        return;
    }
    if (!least || node.size() < *least) {
        EXPECT_EQ(*text, generic_text(node, follows));
        return;
    }
    if (node[0] == 4 && node[1] == 4) // a name is any text
        return;
    if (*text == "/DebugPort")
        return;
    const size_t slash = text->starts_with('/') ? 1 : 0;
    EXPECT_EQ(slash, node[0] != 4 || follows ? 1U : 0U) << *text;
    const size_t opening = text->find('(');
    ASSERT_NE(opening, std::string::npos) << *text;
    EXPECT_TRUE(is_name(std::string_view(*text).substr(slash, opening - slash))) << *text;
    EXPECT_FALSE(text->substr(slash, opening - slash).ends_with("Path")) << *text;
    EXPECT_TRUE(text->ends_with(')') || text->size() == 1023) << *text;
}

void expect_known_forms(const bytes &node)
{
    expect_known_form(node, printed(node), false);
    expect_known_form(node, printed(node, "x"), true);
}

TEST(hostile, every_record_cut_at_every_byte)
{
    size_t generic = 0;
    for (const golden_case &one : golden_cases()) {
        for (const bytes &node : split_nodes(one.nodes)) {
            for (size_t length = 4; length < node.size(); ++length) {
                const bytes cut = with_length(node, length);
                SCOPED_TRACE(one.name + " cut to " + std::to_string(length));
                expect_known_forms(cut);
                generic += printed(cut) == generic_text(cut);
            }
        }
    }
    EXPECT_GT(generic, 1000U);
}

TEST(hostile, every_kind_at_every_length_up_to_64)
{
    for (unsigned type = 0; type < 9; ++type)
        for (unsigned subtype = 0; subtype < 32; ++subtype)
            for (size_t length = 4; length <= 64; ++length) {
                expect_known_forms(node_of(static_cast<uint8_t>(type), static_cast<uint8_t>(subtype),
                                           bytes(length - 4, 0xff)));
                expect_known_forms(node_of(static_cast<uint8_t>(type), static_cast<uint8_t>(subtype),
                                           bytes(length - 4, 0x00)));
            }
}

TEST(hostile, every_kind_at_lengths_0_to_5)
{
    for (unsigned type = 0; type < 256; ++type)
        for (unsigned subtype = 0; subtype < 256; ++subtype)
            for (uint8_t length = 0; length <= 5; ++length) {
                bytes node = {static_cast<uint8_t>(type), static_cast<uint8_t>(subtype), length, 0};
                if (length == 5)
                    node.push_back(0xaa);
                const auto text = printed(node);
                if (type == 0x7f) {
                    ASSERT_EQ(text, "/EndPath");
                    continue;
                }
                if (length >= 4 && ((type == 2 && subtype == 3) || (type == 4 && subtype == 4))) {
                    ASSERT_EQ(text, type == 2 ? "/AcpiAdr()" : "");
                    continue;
                }
                node.resize(std::max<size_t>(2, length)); // the bytes that it claims
                ASSERT_EQ(text, generic_text(node)) << type << ' ' << subtype << ' ' << int{length};
            }
}

TEST(hostile, every_kind_at_the_largest_length)
{
    for (unsigned type = 0; type < 7; ++type)
        for (unsigned subtype = 0; subtype < 24; ++subtype)
            for (const bytes &filling : {bytes(65531, 0), bytes(65531, 'A'), bytes(65531, 0xff)})
                expect_known_forms(
                    node_of(static_cast<uint8_t>(type), static_cast<uint8_t>(subtype), filling));
}

TEST(hostile, random_nodes_print_in_a_known_form)
{
    std::mt19937_64 random(20240229);
    const auto below = [&](uint64_t limit) { return random() % limit; };
    const auto any_byte = [&] { return static_cast<uint8_t>(random()); };
    const std::vector<golden_case> &known = golden_cases();
    constexpr int nodes = 100000;
    for (int i = 0; i < nodes; ++i) {
        bytes node;
        if (below(2) == 0) { // a known node with a few bytes changed
            const auto candidates = split_nodes(known[below(known.size())].nodes);
            if (candidates.empty())
                continue;
            node = with_length(candidates[below(candidates.size())], candidates[0].size());
            for (uint64_t changes = below(4); changes > 0; --changes)
                node[below(node.size())] = any_byte();
            node = with_length(node, below(4) == 0 ? 4 + below(80) : node.size());
        } else {
            bytes data(below(100));
            for (uint8_t &byte : data)
                byte = any_byte();
            if (below(200) == 0) // long ones repeat their bytes
                data.resize(below(65531), any_byte());
            node = node_of(below(10) == 0 ? any_byte() : static_cast<uint8_t>(below(6)),
                           below(4) == 0 ? any_byte() : static_cast<uint8_t>(below(24)), data);
        }
        expect_known_forms(node);
        ASSERT_FALSE(::testing::Test::HasFailure()) << "node " << i << ": " << to_hex(node);
    }
}

class hostile_path : public open_handle {};

TEST_F(hostile_path, every_path_cut_at_every_byte)
{
    for (const golden_case &one : golden_cases()) {
        const bytes path = ended(one.nodes);
        std::vector<size_t> boundaries = {0};
        for (const bytes &node : split_nodes(path))
            boundaries.push_back(boundaries.back() + node.size());
        for (size_t length = 0; length < path.size(); ++length) {
            const exact_node exact(bytes(path.begin(), path.begin() + static_cast<ptrdiff_t>(length)));
            SCOPED_TRACE(one.name + " cut to " + std::to_string(length));
            const messages said;
            ovra_path_t *before = nullptr;
            ovra_path_t **paths = &before;
            const int result = ovra_epath_decode_to_uefi(hdl, reinterpret_cast<uint8_t *>(exact.get()),
                                                         static_cast<int>(length), &paths);
            if (std::find(boundaries.begin(), boundaries.end(), length) != boundaries.end()) {
                EXPECT_EQ(result, 0);
                EXPECT_EQ(paths, nullptr);
                EXPECT_EQ(said.text(), "device does not have END type\n");
            } else {
                EXPECT_EQ(result, -1);
                EXPECT_EQ(paths, &before);
                EXPECT_EQ(said.text(), "encoded_path does not match encoded_path_len\n");
            }
        }
    }
}

TEST_F(hostile_path, random_bytes_are_decoded_or_refused)
{
    std::mt19937_64 random(7);
    int decoded = 0;
    for (int i = 0; i < 50000; ++i) {
        bytes path;
        for (uint64_t nodes = random() % 6; nodes > 0; --nodes) {
            bytes node = node_of(static_cast<uint8_t>(random() % 7), static_cast<uint8_t>(random() % 20),
                                 bytes(random() % 60, static_cast<uint8_t>(random())));
            if (random() % 4 == 0)
                node = {0x7f, static_cast<uint8_t>(random() % 3), 4, 0};
            path.insert(path.end(), node.begin(), node.end());
        }
        path = ended(path);
        if (random() % 2 == 0)
            path[random() % path.size()] = static_cast<uint8_t>(random());
        const exact_node exact(path);
        ovra_path_t **paths = nullptr;
        if (ovra_epath_decode_to_uefi(hdl, reinterpret_cast<uint8_t *>(exact.get()),
                                      static_cast<int>(path.size()), &paths) == 0) {
            ++decoded;
            free_dpath(hdl, paths);
        }
    }
    EXPECT_GT(decoded, 5000);
}

} // namespace
