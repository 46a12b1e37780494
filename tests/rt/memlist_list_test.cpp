// SPDX-License-Identifier: MIT
// The list of tracked memory: which slot a block takes, and what a long list costs.
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <random>
#include <vector>

#include "src/rt/rt.h"
#include "tests/rt/open_handle.h"
#include "tests/support/sweep.h"

using namespace ovra::test;

namespace {

class memlist_slots : public open_handle {};
class memlist_cost : public open_handle {};

// The list as one would write it first: every search starts at slot 0.
struct plain_list {
    std::vector<void *> slots;
    size_t size = 0;

    void add(void *block)
    {
        if (!block)
            return;
        const auto free_slot = std::find(slots.begin(), slots.end(), nullptr);
        if (free_slot != slots.end()) {
            *free_slot = block;
            return;
        }
        if (slots.size() == size)
            size += 20;
        slots.push_back(block);
    }

    void remove(void *block)
    {
        const auto slot = std::find(slots.begin(), slots.end(), block);
        if (block && slot != slots.end())
            *slot = nullptr;
    }
};

unsigned below(std::mt19937 &random, size_t limit)
{
    return static_cast<unsigned>(random() % limit);
}

// Empties the list of blocks that are not to be freed.
void forget_all(ovra_hdl_t hdl)
{
    std::fill_n(hdl->memlist_addr, hdl->memlist_end, nullptr);
}

void make_room(ovra_hdl_t hdl, size_t slots)
{
    hdl->memlist_addr = static_cast<void **>(malloc(slots * sizeof(void *)));
    ASSERT_NE(hdl->memlist_addr, nullptr);
    hdl->memlist_size = slots;
}

double processor_seconds()
{
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

} // namespace

// Blocks are addresses that are never freed, so that the list can be driven far and fast.
TEST_F(memlist_slots, equal_those_of_a_plain_list_under_random_use)
{
    static char memory[300];
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        ovra_hdl_t fresh = nullptr;
        ASSERT_EQ(ovra_init(&fresh), 0);
        plain_list expected;
        // Some runs fill up, some stay small, some empty what they filled.
        const unsigned distinct = 1 + below(random, sizeof memory);
        for (int step = 0; step < 400; ++step) {
            void *block = memory + below(random, distinct);
            const bool mostly_add = (step / 100) % 2 == static_cast<int>(seed % 2);
            if ((below(random, 10) < 7) == mostly_add) {
                ASSERT_EQ(memlist_add(fresh, block), 0);
                expected.add(block);
            } else {
                memlist_remove(fresh, block);
                expected.remove(block);
            }
            ASSERT_EQ(fresh->memlist_end, expected.slots.size()) << "seed " << seed << " step " << step;
            ASSERT_EQ(fresh->memlist_size, expected.size) << "seed " << seed << " step " << step;
            ASSERT_TRUE(std::equal(expected.slots.begin(), expected.slots.end(), fresh->memlist_addr))
                << "seed " << seed << " step " << step;
        }
        forget_all(fresh);
        ovra_fini(fresh);
    }
}

TEST_F(memlist_slots, equal_those_of_a_plain_list_with_real_blocks)
{
    count_blocks();
    std::mt19937 random(1);
    plain_list expected;
    std::vector<void *> blocks;
    const realloc_guard moves(realloc_policy::moves);
    for (int step = 0; step < 5000; ++step) {
        const size_t chosen = blocks.empty() ? 0 : below(random, blocks.size());
        const unsigned action = below(random, 10);
        if (blocks.empty() || action < 4) {
            blocks.push_back(memlist_malloc(hdl, 1 + below(random, 64), "test"));
            expected.add(blocks.back());
        } else if (action < 7) {
            void *old = blocks[chosen];
            blocks[chosen] = memlist_realloc(hdl, old, 1 + below(random, 64), "test");
            expected.remove(old);
            expected.add(blocks[chosen]);
        } else {
            expected.remove(blocks[chosen]);
            memlist_free(hdl, blocks[chosen]);
            blocks.erase(blocks.begin() + static_cast<long>(chosen));
        }
        ASSERT_EQ(hdl->memlist_end, expected.slots.size()) << step;
        ASSERT_TRUE(std::equal(expected.slots.begin(), expected.slots.end(), hdl->memlist_addr)) << step;
    }
    ovra_fini(std::exchange(hdl, nullptr));
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}

// Room is made before: what growing costs is a matter of its own, and dear under a sanitizer. Walking the
// list each time would look at 80,000,000,000 slots, which takes far more than the bound on any machine.
TEST_F(memlist_cost, making_and_finishing_400000_blocks_is_linear)
{
    constexpr size_t blocks = 400000;
    make_room(hdl, blocks);
    const double start = processor_seconds();
    for (size_t i = 0; i < blocks; ++i)
        ASSERT_NE(memlist_malloc(hdl, 16, "test"), nullptr);
    EXPECT_EQ(hdl->memlist_end, blocks);
    ovra_fini(std::exchange(hdl, nullptr));
    const double taken = processor_seconds() - start;
    RecordProperty("milliseconds", static_cast<int>(taken * 1000));
    EXPECT_LT(taken, 10.0);
}

TEST_F(memlist_cost, slots_behind_an_emptied_one_are_walked_once)
{
    constexpr size_t blocks = 100000;
    static char memory[2 * blocks];
    make_room(hdl, 2 * blocks);
    for (size_t i = 0; i < blocks; ++i)
        ASSERT_EQ(memlist_add(hdl, memory + i), 0);
    memlist_remove(hdl, memory);
    const double start = processor_seconds();
    for (size_t i = blocks; i < 2 * blocks; ++i)
        ASSERT_EQ(memlist_add(hdl, memory + i), 0);
    const double taken = processor_seconds() - start;
    EXPECT_EQ(hdl->memlist_addr[0], memory + blocks);
    EXPECT_EQ(hdl->memlist_end, 2 * blocks - 1);
    RecordProperty("milliseconds", static_cast<int>(taken * 1000));
    EXPECT_LT(taken, 3.0); // walking would look at 15,000,000,000 slots
    forget_all(hdl);
}

TEST_F(memlist_cost, sixty_thousand_blocks_grow_the_list_by_20_and_are_all_freed)
{
    constexpr size_t blocks = 60000;
    count_blocks();
    for (size_t i = 0; i < blocks; ++i)
        ASSERT_NE(memlist_malloc(hdl, 16, "test"), nullptr);
    EXPECT_EQ(live_blocks(), static_cast<long>(blocks) + 1);
    EXPECT_EQ(hdl->memlist_size, blocks);
    ovra_fini(std::exchange(hdl, nullptr));
    EXPECT_EQ(live_blocks(), 0);
    stop_counting();
}
