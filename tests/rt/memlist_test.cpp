// SPDX-License-Identifier: MIT
// Tracked memory: blocks made, resized and given back.
#include <cstdint>
#include <cstring>

#include "src/rt/rt.h"
#include "tests/rt/memlist.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

class memlist : public tracked_memory {};

TEST_F(memlist, malloc_records_a_usable_block)
{
    auto *block = static_cast<char *>(memlist_malloc(hdl, 100, "test"));
    ASSERT_NE(block, nullptr);
    memset(block, 'x', 100);
    EXPECT_EQ(times_recorded(block), 1);
}

TEST_F(memlist, malloc_of_no_bytes_is_a_block)
{
    void *block = memlist_malloc(hdl, 0, "test");
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(times_recorded(block), 1);
}

TEST_F(memlist, first_block_makes_room_for_20_and_the_21st_for_40)
{
    EXPECT_EQ(extent(), extents(0, 0));
    fill(1);
    EXPECT_EQ(extent(), extents(1, 20));
    fill(19);
    EXPECT_EQ(extent(), extents(20, 20));
    fill(1);
    EXPECT_EQ(extent(), extents(21, 40));
    fill(20);
    EXPECT_EQ(extent(), extents(41, 60));
}

TEST_F(memlist, freed_slot_is_reused)
{
    fill(2);
    void *third = memlist_malloc(hdl, 1, "test");
    fill(2);
    ASSERT_EQ(extent(), extents(5, 20));
    memlist_free(hdl, third);
    EXPECT_EQ(hdl->memlist_addr[2], nullptr);
    EXPECT_EQ(extent(), extents(5, 20));
    void *fresh = memlist_malloc(hdl, 1, "test");
    EXPECT_EQ(hdl->memlist_addr[2], fresh);
    EXPECT_EQ(extent(), extents(5, 20));
}

TEST_F(memlist, freed_slot_of_a_full_list_is_reused_before_it_grows)
{
    fill(20);
    memlist_free(hdl, hdl->memlist_addr[19]);
    fill(1);
    EXPECT_EQ(extent(), extents(20, 20));
    memlist_free(hdl, hdl->memlist_addr[0]);
    fill(1);
    EXPECT_EQ(extent(), extents(20, 20));
    fill(1);
    EXPECT_EQ(extent(), extents(21, 40));
}

TEST_F(memlist, end_and_size_never_shrink)
{
    fill(25);
    while (times_recorded(nullptr) < 25)
        for (size_t slot = 0; slot < hdl->memlist_end; ++slot)
            if (hdl->memlist_addr[slot])
                memlist_free(hdl, hdl->memlist_addr[slot]);
    EXPECT_EQ(extent(), extents(25, 40));
}

TEST_F(memlist, remove_forgets_without_freeing)
{
    auto *block = static_cast<char *>(memlist_malloc(hdl, 4, "test"));
    memlist_remove(hdl, block);
    EXPECT_EQ(times_recorded(block), 0);
    memset(block, 'x', 4); // still there
    free(block);
}

TEST_F(memlist, remove_of_an_unknown_block_changes_nothing)
{
    fill(3);
    void *const before[] = {hdl->memlist_addr[0], hdl->memlist_addr[1], hdl->memlist_addr[2]};
    int other = 0;
    memlist_remove(hdl, &other);
    EXPECT_EQ(memcmp(hdl->memlist_addr, before, sizeof before), 0);
    EXPECT_EQ(extent(), extents(3, 20));
}

TEST_F(memlist, remove_from_an_empty_list_is_ignored)
{
    int other = 0;
    memlist_remove(hdl, &other);
    EXPECT_EQ(extent(), extents(0, 0));
}

TEST_F(memlist, remove_of_a_block_recorded_twice_clears_the_first_slot_only)
{
    fill(1);
    void *twice = memlist_malloc(hdl, 1, "test");
    ASSERT_EQ(memlist_add(hdl, twice), 0);
    ASSERT_EQ(times_recorded(twice), 2);
    memlist_remove(hdl, twice);
    EXPECT_EQ(hdl->memlist_addr[1], nullptr);
    EXPECT_EQ(hdl->memlist_addr[2], twice);
}

TEST_F(memlist, add_of_a_null_block_or_to_a_null_handle_does_nothing)
{
    int block = 0;
    EXPECT_EQ(memlist_add(hdl, nullptr), 0);
    EXPECT_EQ(memlist_add(nullptr, &block), 0);
    EXPECT_EQ(memlist_add(nullptr, nullptr), 0);
    EXPECT_EQ(extent(), extents(0, 0));
}

TEST_F(memlist, free_of_null_does_nothing)
{
    fill(1);
    memlist_free(hdl, nullptr);
    memlist_free(nullptr, nullptr);
    EXPECT_EQ(extent(), extents(1, 20));
}

TEST_F(memlist, free_releases_the_block)
{
    count_blocks();
    void *block = memlist_malloc(hdl, 1, "test");
    ASSERT_NE(block, nullptr);
    const long with_it = live_blocks();
    memlist_free(hdl, block);
    EXPECT_EQ(live_blocks(), with_it - 1);
    stop_counting();
}

TEST_F(memlist, free_of_an_unknown_block_releases_it_too)
{
    count_blocks();
    void *block = malloc(1);
    memlist_free(hdl, block);
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

TEST_F(memlist, without_a_handle_blocks_are_plain_ones)
{
    void *block = memlist_malloc(nullptr, 4, "test");
    ASSERT_NE(block, nullptr);
    memset(block, 1, 4);
    block = memlist_realloc(nullptr, block, 4000, "test");
    ASSERT_NE(block, nullptr);
    memset(block, 2, 4000);
    memlist_free(nullptr, block);
}

TEST_F(memlist, realloc_of_null_allocates_and_records)
{
    void *block = memlist_realloc(hdl, nullptr, 50, "test");
    ASSERT_NE(block, nullptr);
    memset(block, 1, 50);
    EXPECT_EQ(times_recorded(block), 1);
}

TEST_F(memlist, realloc_to_no_bytes_frees_and_returns_null)
{
    count_blocks();
    void *block = memlist_malloc(hdl, 4, "test");
    const long with_it = live_blocks();
    EXPECT_EQ(memlist_realloc(hdl, block, 0, "test"), nullptr);
    EXPECT_EQ(live_blocks(), with_it - 1);
    EXPECT_EQ(hdl->memlist_addr[0], nullptr);
    stop_counting();
}

TEST_F(memlist, realloc_of_null_to_no_bytes_is_a_malloc)
{
    void *block = memlist_realloc(hdl, nullptr, 0, "test");
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(times_recorded(block), 1);
}

TEST_F(memlist, realloc_that_stays_keeps_the_slot)
{
    fill(3);
    count_blocks();
    void *block = memlist_malloc(hdl, 100, "test");
    memlist_free(hdl, hdl->memlist_addr[0]);
    const realloc_guard stays(realloc_policy::stays);
    EXPECT_EQ(memlist_realloc(hdl, block, 50, "test"), block);
    EXPECT_EQ(hdl->memlist_addr[3], block);
    EXPECT_EQ(hdl->memlist_addr[0], nullptr);
    EXPECT_EQ(times_recorded(block), 1);
    stop_counting();
}

TEST_F(memlist, realloc_that_moves_is_recorded_at_the_lowest_free_slot)
{
    fill(2);
    count_blocks();
    auto *block = static_cast<char *>(memlist_malloc(hdl, 4, "test"));
    memcpy(block, "abc", 4);
    const auto old_address = reinterpret_cast<uintptr_t>(block);
    const realloc_guard moves(realloc_policy::moves);

    block = static_cast<char *>(memlist_realloc(hdl, block, 8, "test")); // its own slot is the lowest
    ASSERT_NE(reinterpret_cast<uintptr_t>(block), old_address);
    EXPECT_EQ(hdl->memlist_addr[2], block);

    memlist_free(hdl, hdl->memlist_addr[0]);
    block = static_cast<char *>(memlist_realloc(hdl, block, 16, "test"));
    EXPECT_EQ(hdl->memlist_addr[0], block);
    EXPECT_EQ(hdl->memlist_addr[2], nullptr);
    EXPECT_EQ(times_recorded(block), 1);
    EXPECT_EQ(extent(), extents(3, 20));
    EXPECT_STREQ(block, "abc");
    stop_counting();
}

TEST_F(memlist, realloc_of_an_unknown_block_that_moves_records_it)
{
    count_blocks();
    void *block = malloc(4);
    const realloc_guard moves(realloc_policy::moves);
    block = memlist_realloc(hdl, block, 8, "test");
    EXPECT_EQ(times_recorded(block), 1);
    stop_counting();
}

TEST_F(memlist, realloc_of_an_unknown_block_that_stays_leaves_it_unknown)
{
    count_blocks();
    void *block = malloc(8);
    const realloc_guard stays(realloc_policy::stays);
    EXPECT_EQ(memlist_realloc(hdl, block, 8, "test"), block);
    EXPECT_EQ(times_recorded(block), 0);
    free(block);
    stop_counting();
}

} // namespace
