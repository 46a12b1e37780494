// SPDX-License-Identifier: MIT
// Lists of nodes.
#include <utility>

#include <gtest/gtest.h>

#include "tests/dpath/nodes.h"
#include "tests/fakes/driver.h"
#include "tests/support/guards.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

TEST(node_list, first_node_makes_the_list)
{
    uefi_device_path_t **list = nullptr;
    uefi_device_path_t *first = node_of(end_entire).release();
    ASSERT_EQ(add_dpath_list(&list, first), 0);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list[0], first); // the node itself, no copy
    EXPECT_EQ(list[1], nullptr);
    free_device_path(list);
}

TEST(node_list, nodes_are_appended_in_order_before_the_terminator)
{
    count_blocks();
    const realloc_guard moves(realloc_policy::moves);
    uefi_device_path_t **list = nullptr;
    std::vector<uefi_device_path_t *> expected;
    for (uint8_t i = 0; i < 100; ++i) {
        expected.push_back(node_of(node_bytes(1, i, 5)).release());
        ASSERT_EQ(add_dpath_list(&list, expected.back()), 0);
        for (size_t k = 0; k <= i; ++k)
            ASSERT_EQ(list[k], expected[k]);
        ASSERT_EQ(list[i + 1], nullptr);
    }
    EXPECT_EQ(live_blocks(), 101);
    free_device_path(list);
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST(node_list, append_to_a_list_that_was_emptied)
{
    auto **list = static_cast<uefi_device_path_t **>(calloc(1, sizeof(void *)));
    uefi_device_path_t *only = node_of(end_entire).release();
    ASSERT_EQ(add_dpath_list(&list, only), 0);
    EXPECT_EQ(list[0], only);
    EXPECT_EQ(list[1], nullptr);
    free_device_path(list);
}

TEST(node_list, free_of_null_is_ignored)
{
    free_device_path(nullptr);
}

TEST(node_list, free_of_a_list_without_nodes_frees_the_array)
{
    count_blocks();
    auto **list = static_cast<uefi_device_path_t **>(calloc(1, sizeof(void *)));
    free_device_path(list);
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST(node_list, free_of_a_node_that_stands_several_times_in_a_row_frees_it_once)
{
    count_blocks();
    uefi_device_path_t **list = nullptr;
    uefi_device_path_t *const first = node_of(end_instance).release();
    uefi_device_path_t *const second = node_of(end_entire).release();
    for (uefi_device_path_t *one : {first, first, first, second, second})
        ASSERT_EQ(add_dpath_list(&list, one), 0);
    free_device_path(list);
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST(node_list, refused_growth_leaves_list_and_node)
{
    const messages said;
    uefi_device_path_t **list = nullptr;
    node second = node_of(end_entire);
    refuse_from(0, true);
    EXPECT_EQ(add_dpath_list(&list, second.get()), -1);
    stop_refusing();
    EXPECT_EQ(list, nullptr);

    ASSERT_EQ(add_dpath_list(&list, node_of(end_instance).release()), 0);
    uefi_device_path_t **const before = list;
    refuse_from(0, true);
    EXPECT_EQ(add_dpath_list(&list, second.get()), -1);
    stop_refusing();
    EXPECT_EQ(list, before);
    EXPECT_EQ(nodes_of(list), (std::vector<std::string>{"7f 01 04 00"}));
    EXPECT_EQ(to_hex(second.get(), 4), "7f ff 04 00"); // still the caller's
    EXPECT_EQ(said.text(), "");
    free_device_path(list);
}

TEST(node_list, survives_every_refusal_silently)
{
    fakes::reset();
    const environment no_test_file("OVRA_TEST_FILE", nullptr);
    static uefi_device_path_t shared = {0x7f, 0xff, 4};
    for_each_refused_allocation(
        [](ovra_hdl_t) {
            uefi_device_path_t **list = nullptr;
            int result = 0;
            for (int i = 0; result == 0 && i < 10; ++i)
                result = add_dpath_list(&list, &shared);
            free(list);
            return result;
        },
        [](const attempt &one) { EXPECT_EQ(one.messages, ""); });
}

TEST(node_list_builder, takes_nodes_in_order_and_moves_the_list_only_now_and_then)
{
    for (const size_t nodes : {1U, 6U, 7U, 8U, 15U, 5000U}) {
        std::vector<uefi_device_path_t *> expected;
        ovra::node_list_builder builder;
        count_blocks();
        for (size_t i = 0; i < nodes; ++i) {
            node fresh = node_of(end_instance);
            expected.push_back(fresh.get());
            ASSERT_EQ(builder.append(std::move(fresh)), 0);
        }
        EXPECT_LT(allocations(), static_cast<long>(nodes) + 15);
        uefi_device_path_t **list = builder.release();
        for (size_t i = 0; i < nodes; ++i)
            ASSERT_EQ(list[i], expected[i]);
        EXPECT_EQ(list[nodes], nullptr);
        free_device_path(list);
        EXPECT_EQ(live_blocks(), 0);
        stop_counting();
    }
}

TEST(node_list_builder, without_a_node_has_no_list)
{
    count_blocks();
    ovra::node_list_builder builder;
    EXPECT_EQ(builder.release(), nullptr);
    EXPECT_EQ(allocations(), 0);
    stop_counting();
}

TEST(node_list_builder, frees_what_was_not_released_and_the_node_that_it_could_not_take)
{
    count_blocks();
    {
        ovra::node_list_builder builder;
        for (int i = 0; i < 7; ++i)
            ASSERT_EQ(builder.append(node_of(end_instance)), 0);
        node eighth = node_of(end_instance);
        refuse_from(0, false);
        EXPECT_EQ(builder.append(std::move(eighth)), -1);
        EXPECT_EQ(stop_refusing(), 1);
        EXPECT_EQ(live_blocks(), 8); // the seven and the list
        ASSERT_EQ(builder.append(node_of(end_entire)), 0);
        EXPECT_EQ(live_blocks(), 9);
    }
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}
