// SPDX-License-Identifier: MIT
// Node lists to packed paths.
#include <climits>
#include <random>

#include <gtest/gtest.h>

#include "tests/dpath/nodes.h"
#include "tests/fakes/driver.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

ovra::node_list list_of(const std::vector<bytes> &contents)
{
    uefi_device_path_t **list = nullptr;
    for (const bytes &content : contents)
        EXPECT_EQ(add_dpath_list(&list, node_of(content).release()), 0);
    return ovra::node_list(list);
}

std::string packed(uefi_device_path_t **list)
{
    ovra_epath_t path = nullptr;
    int length = -1;
    EXPECT_EQ(device_path_pack(list, &path, &length), 0);
    const ovra::owned<uint8_t> block(path);
    EXPECT_NE(path, nullptr);
    return to_hex(path, static_cast<size_t>(length));
}

} // namespace

TEST(pack, lays_nodes_end_to_end)
{
    const auto list = list_of({from_hex("0101 0600 0302"), from_hex("0404 0900 4100 0000 99"), end_entire});
    EXPECT_EQ(packed(list.get()), hex("010106000302 040409004100000099 7fff0400"));
}

TEST(pack, adds_no_end_of_its_own)
{
    const auto list = list_of({from_hex("0101 0600 0302")});
    EXPECT_EQ(packed(list.get()), hex("010106000302"));
}

TEST(pack, goes_on_behind_an_end)
{
    const auto list = list_of({end_instance, end_entire, from_hex("0101 0600 0302")});
    EXPECT_EQ(packed(list.get()), hex("7f010400 7fff0400 010106000302"));
}

TEST(pack, of_nothing_is_a_block_of_no_bytes)
{
    uefi_device_path_t *none[] = {nullptr};
    EXPECT_EQ(packed(none), "");
    EXPECT_EQ(packed(nullptr), "");
}

TEST(pack, without_an_output_only_measures)
{
    count_blocks();
    const auto list = list_of({node_bytes(1, 1, 65535), node_bytes(1, 1, 4), end_entire});
    const long before = live_blocks();
    int length = -1;
    EXPECT_EQ(device_path_pack(list.get(), nullptr, &length), 0);
    EXPECT_EQ(length, 65543);
    EXPECT_EQ(device_path_pack(list.get(), nullptr, nullptr), 0);
    EXPECT_EQ(live_blocks(), before);
    stop_counting();
}

TEST(pack, length_may_be_left_out)
{
    const auto list = list_of({end_entire});
    ovra_epath_t path = nullptr;
    ASSERT_EQ(device_path_pack(list.get(), &path, nullptr), 0);
    EXPECT_EQ(to_hex(path, 4), "7f ff 04 00");
    free(path);
}

TEST(pack, leaves_the_list_as_it_was)
{
    const auto list = list_of({from_hex("0101 0600 0302"), end_entire});
    const auto before = nodes_of(list.get());
    static_cast<void>(packed(list.get()));
    EXPECT_EQ(nodes_of(list.get()), before);
}

TEST(pack, longest_nodes)
{
    const auto list = list_of({node_bytes(4, 4, 65535, 1), node_bytes(4, 4, 65535, 2)});
    EXPECT_EQ(packed(list.get()), to_hex(node_bytes(4, 4, 65535, 1) + node_bytes(4, 4, 65535, 2)));
}

TEST(pack, what_does_not_fit_the_length_is_refused)
{
    const node longest = node_of(node_bytes(4, 4, 65535));
    std::vector<uefi_device_path_t *> list(32768, longest.get());
    list.push_back(nullptr);
    int length = -1;
    EXPECT_EQ(device_path_pack(list.data(), nullptr, &length), 0);
    EXPECT_EQ(length, 32768 * 65535);

    list.back() = longest.get();
    list.push_back(nullptr);
    const messages said;
    ovra_epath_t path = nullptr;
    length = -1;
    count_blocks();
    EXPECT_EQ(device_path_pack(list.data(), &path, &length), -1);
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
    EXPECT_EQ(path, nullptr);
    EXPECT_EQ(length, -1);
    EXPECT_EQ(said.text(), "");
}

TEST(pack, survives_every_refusal_silently_with_outputs_untouched)
{
    fakes::reset();
    const environment no_test_file("OVRA_TEST_FILE", nullptr);
    const auto list = list_of({from_hex("0101 0600 0302"), end_entire});
    for_each_refused_allocation(
        [&](ovra_hdl_t) {
            ovra_epath_t path = nullptr;
            int length = -7;
            const int result = device_path_pack(list.get(), &path, &length);
            EXPECT_EQ(length, result == 0 ? 10 : -7);
            EXPECT_EQ(path != nullptr, result == 0);
            free(path);
            return result;
        },
        [](const attempt &one) { EXPECT_EQ(one.messages, ""); });
}

TEST(pack, then_unpack_gives_the_same_nodes)
{
    std::mt19937 random(3);
    for (int round = 0; round < 500; ++round) {
        std::vector<bytes> contents;
        for (size_t count = random() % 12; count > 0; --count) {
            const auto length = static_cast<uint16_t>(4 + random() % (round % 50 == 0 ? 65532 : 40));
            bytes content =
                node_bytes(static_cast<uint8_t>(random() % 6), static_cast<uint8_t>(random()), length);
            for (size_t i = 4; i < content.size(); ++i)
                content[i] = static_cast<uint8_t>(random());
            contents.push_back(content);
        }
        contents.push_back(end_entire);
        const auto list = list_of(contents);
        ovra_epath_t path = nullptr;
        int length = 0;
        ASSERT_EQ(device_path_pack(list.get(), &path, &length), 0);
        const ovra::owned<uint8_t> block(path);
        uefi_device_path_t **again = nullptr;
        ASSERT_EQ(device_path_unpack(path, length, &again), 0);
        const ovra::node_list owner(again);
        ASSERT_EQ(nodes_of(again), nodes_of(list.get()));
    }
}
