// SPDX-License-Identifier: MIT
// Tracked memory when memory runs out.
#include <cstring>
#include <utility>
#include <vector>

#include "src/rt/rt.h"
#include "tests/rt/memlist.h"
#include "tests/support/messages.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

class memlist_refused : public tracked_memory {};

TEST_F(memlist_refused, refused_malloc_says_so_and_records_nothing)
{
    const messages said(1, 0);
    refuse_from(0, false);
    EXPECT_EQ(memlist_malloc(hdl, 8, "some_routine"), nullptr);
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_EQ(said.text(), "malloc failed for some_routine\n");
    EXPECT_EQ(extent(), extents(0, 0));
}

TEST_F(memlist_refused, refused_growth_fails_malloc_says_so_and_frees_the_block)
{
    fill(20);
    void **const array = hdl->memlist_addr;
    count_blocks();
    const messages said(1, 0);
    refuse_from(1, false);
    EXPECT_EQ(memlist_malloc(hdl, 8, "some_routine"), nullptr);
    EXPECT_EQ(stop_refusing(), 1);
    EXPECT_EQ(said.text(), "failed to add some_routine to memlist\n");
    EXPECT_EQ(live_blocks(), 0);
    EXPECT_EQ(hdl->memlist_addr, array);
    EXPECT_EQ(extent(), extents(20, 20));
    stop_counting();
    fill(1);
    EXPECT_EQ(extent(), extents(21, 40));
}

TEST_F(memlist_refused, refused_growth_of_add_leaves_the_handle_unchanged)
{
    int block = 0;
    refuse_from(0, true);
    EXPECT_EQ(memlist_add(hdl, &block), -1);
    stop_refusing();
    EXPECT_EQ(extent(), extents(0, 0));
    EXPECT_EQ(hdl->memlist_addr, nullptr);
}

TEST_F(memlist_refused, refused_realloc_says_so_and_keeps_the_old_block_recorded)
{
    auto *block = static_cast<char *>(memlist_malloc(hdl, 4, "test"));
    memcpy(block, "abc", 4);
    const messages said(1, 0);
    refuse_from(0, true);
    EXPECT_EQ(memlist_realloc(hdl, block, 8, "some_routine"), nullptr);
    stop_refusing();
    EXPECT_EQ(said.text(), "realloc failed for some_routine\n");
    EXPECT_STREQ(block, "abc");
    EXPECT_EQ(times_recorded(block), 1);
}

TEST_F(memlist_refused, refused_realloc_of_null_speaks_as_malloc)
{
    const messages said(1, 0);
    refuse_from(0, true);
    EXPECT_EQ(memlist_realloc(hdl, nullptr, 8, "some_routine"), nullptr);
    stop_refusing();
    EXPECT_EQ(said.text(), "malloc failed for some_routine\n");
}

// The list is full and the block unknown, so that recording the moved one needs room that is refused.
TEST_F(memlist_refused, kept_realloc_hands_out_a_block_that_could_not_be_recorded)
{
    fill(20);
    count_blocks();
    auto *block = static_cast<char *>(malloc(4));
    memcpy(block, "abc", 4);
    {
        const realloc_guard moves(realloc_policy::moves);
        const messages said(1, 0);
        refuse_from(1, true);
        block = static_cast<char *>(memlist_realloc(hdl, block, 8, "some_routine"));
        EXPECT_EQ(stop_refusing(), 1);
        EXPECT_EQ(said.text(), "failed to add realloc'ed some_routine to memlist\n");
    }
    ASSERT_NE(block, nullptr);
    EXPECT_STREQ(block, "abc");
    EXPECT_EQ(times_recorded(block), 0);
    EXPECT_EQ(live_blocks(), 1);
    EXPECT_EQ(extent(), extents(20, 20));
    ovra_fini(std::exchange(hdl, nullptr));
    EXPECT_EQ(live_blocks(), 1); // ovra_fini does not know it
    memset(block, 'x', 8);
    free(block);
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST_F(memlist_refused, messages_are_silent_while_the_switch_is_off)
{
    fill(20);
    count_blocks();
    void *block = malloc(4);
    const realloc_guard moves(realloc_policy::moves);
    const messages said(0, 1);
    refuse_from(0, true);
    EXPECT_EQ(memlist_malloc(hdl, 8, "x"), nullptr);
    EXPECT_EQ(memlist_realloc(hdl, block, 8, "x"), nullptr);
    refuse_from(1, true);
    EXPECT_EQ(memlist_malloc(hdl, 8, "x"), nullptr);
    refuse_from(1, true);
    block = memlist_realloc(hdl, block, 8, "x");
    stop_refusing();
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(said.text(), "");
    free(block);
    stop_counting();
}

TEST_F(memlist_refused, malloc_survives_every_refusal)
{
    for_each_refused_allocation(
        [](ovra_hdl_t fresh) { return memlist_malloc(fresh, 8, "x") ? 0 : -1; },
        [](const attempt &one) {
            static const char *const said[] = {"malloc failed for x\n", "failed to add x to memlist\n", ""};
            EXPECT_EQ(one.messages, said[one.n]);
        });
}

TEST_F(memlist_refused, realloc_survives_every_refusal)
{
    for (const realloc_policy policy : {realloc_policy::moves, realloc_policy::stays}) {
        const realloc_guard as_told(policy);
        for_each_refused_allocation([](ovra_hdl_t fresh) {
            void *block = memlist_malloc(fresh, 8, "x");
            return block && memlist_realloc(fresh, block, 800, "x") ? 0 : -1;
        });
    }
}

TEST_F(memlist_refused, add_survives_every_refusal)
{
    for_each_refused_allocation(
        [](ovra_hdl_t fresh) {
            static int block;
            const int result = memlist_add(fresh, &block);
            memlist_remove(fresh, &block);
            return result;
        },
        [](const attempt &one) { EXPECT_EQ(one.messages, ""); });
}

// Without the index of a long list everything is as with it, but slower.
TEST_F(memlist_refused, refused_index_of_a_long_list_changes_nothing_that_can_be_seen)
{
    count_blocks();
    fill(139);
    EXPECT_EQ(live_blocks(), 139 + 2); // the list and its index
    std::vector<void *> blocks(hdl->memlist_addr, hdl->memlist_addr + 139);
    // The index is asked for anew when the list has outgrown it, and at each block until there is memory.
    for (size_t n = 139; n < 1000; ++n) {
        blocks.push_back(malloc(1));
        ASSERT_NE(blocks.back(), nullptr);
        refuse_from(n == hdl->memlist_size ? 1 : 0, true);
        ASSERT_EQ(memlist_add(hdl, blocks.back()), 0);
        stop_refusing();
        ASSERT_EQ(hdl->memlist_addr[n], blocks.back());
    }
    EXPECT_EQ(hdl->memlist_index, nullptr);
    EXPECT_EQ(extent(), extents(1000, 1000));
    memlist_free(hdl, blocks[700]);
    memlist_free(hdl, blocks[3]);
    refuse_from(0, true);
    EXPECT_EQ(memlist_add(hdl, hdl), 0);
    EXPECT_EQ(memlist_add(hdl, hdl), 0);
    stop_refusing();
    EXPECT_EQ(hdl->memlist_addr[3], hdl);
    EXPECT_EQ(hdl->memlist_addr[700], hdl);
    memlist_remove(hdl, hdl);
    EXPECT_EQ(hdl->memlist_addr[3], nullptr);
    EXPECT_EQ(hdl->memlist_addr[700], hdl);
    fill(1);
    EXPECT_NE(hdl->memlist_addr[3], nullptr);
    EXPECT_EQ(hdl->memlist_index, nullptr);
    fill(1); // there is memory now
    EXPECT_NE(hdl->memlist_index, nullptr);
    memlist_remove(hdl, hdl);
    EXPECT_EQ(hdl->memlist_addr[700], nullptr);
    EXPECT_EQ(extent(), extents(1001, 1020));
    ovra_fini(std::exchange(hdl, nullptr));
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

} // namespace
