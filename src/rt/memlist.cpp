// SPDX-License-Identifier: MIT
#include "src/rt/memlist.h"

#include <algorithm>
#include <cstdlib>

#include "src/rt/diag.h"
#include "src/rt/memindex.h"

using ovra::say;

static constexpr size_t growth = 20;        // slots
static constexpr size_t longest_walk = 128; // slots; a longer list has an index, if there is memory for it

// The first slot from `start` on that holds `block`, else the first at all, or null.
static void **find_slot(ovra_hdl_t hdl, void *block, size_t start = 0)
{
    if (hdl->memlist_index) {
        const auto slot = hdl->memlist_index->find(hdl->memlist_addr, block, start);
        return slot ? hdl->memlist_addr + *slot : nullptr;
    }
    void **end = hdl->memlist_addr + hdl->memlist_end;
    void **slot = std::find(hdl->memlist_addr + start, end, block);
    if (slot != end)
        return slot;
    return start == 0 ? nullptr : find_slot(hdl, block);
}

// `address` is that of the block, which may have been released.
static void empty_slot(ovra_hdl_t hdl, void **slot, uintptr_t address)
{
    const auto number = static_cast<size_t>(slot - hdl->memlist_addr);
    if (hdl->memlist_index)
        hdl->memlist_index->empty(hdl->memlist_addr, number, address);
    *slot = nullptr;
    if (number < hdl->memlist_low)
        hdl->memlist_low = static_cast<uint32_t>(number);
}

static size_t lowest_empty_slot(ovra_hdl_t hdl)
{
    if (hdl->memlist_index)
        return hdl->memlist_index->lowest_empty().value_or(hdl->memlist_end);
    size_t slot = hdl->memlist_low;
    while (slot < hdl->memlist_end && hdl->memlist_addr[slot])
        ++slot;
    return slot;
}

// Enters a slot that was the lowest empty one. A long list without an index is a slow one, and no failure.
static void enter_slot(ovra_hdl_t hdl, size_t slot)
{
    // A start for the next search: filling a list without an index does not walk it each time.
    hdl->memlist_low = static_cast<uint32_t>(std::min<size_t>(slot + 1, UINT32_MAX));
    if (hdl->memlist_index && slot < hdl->memlist_index->room()) {
        hdl->memlist_index->fill(hdl->memlist_addr, slot);
        return;
    }
    if (slot < longest_walk)
        return;
    free(hdl->memlist_index);
    hdl->memlist_index = memlist_index::make(hdl->memlist_addr, hdl->memlist_end).release();
}

int memlist_add(ovra_hdl_t hdl, void *block)
{
    if (!block || !hdl)
        return 0;

    const size_t slot = lowest_empty_slot(hdl);
    if (slot == hdl->memlist_size) {
        const size_t size = hdl->memlist_size + growth;
        auto *grown = static_cast<void **>(realloc(hdl->memlist_addr, size * sizeof(void *)));
        if (!grown)
            return -1;
        hdl->memlist_addr = grown;
        hdl->memlist_size = size;
    }
    hdl->memlist_addr[slot] = block;
    hdl->memlist_end = std::max(hdl->memlist_end, slot + 1);
    enter_slot(hdl, slot);
    return 0;
}

void memlist_remove(ovra_hdl_t hdl, void *block)
{
    if (!block || !hdl)
        return;
    if (void **slot = find_slot(hdl, block))
        empty_slot(hdl, slot, reinterpret_cast<uintptr_t>(block));
}

bool memlist_holds(ovra_hdl_t hdl, void *block)
{
    return hdl && block && find_slot(hdl, block);
}

void ovra::memlist_free_next(ovra_hdl_t hdl, void *block, size_t *start)
{
    if (void **slot = hdl ? find_slot(hdl, block, *start) : nullptr) {
        *start = static_cast<size_t>(slot - hdl->memlist_addr);
        empty_slot(hdl, slot, reinterpret_cast<uintptr_t>(block));
    }
    free(block);
}

void memlist_free(ovra_hdl_t hdl, void *block)
{
    memlist_remove(hdl, block);
    free(block);
}

void *memlist_malloc(ovra_hdl_t hdl, size_t size, const char *what)
{
    void *block = malloc(size);
    if (!block) {
        say("malloc failed for %s\n", what);
        return nullptr;
    }
    if (memlist_add(hdl, block) != 0) {
        say("failed to add %s to memlist\n", what);
        free(block);
        return nullptr;
    }
    return block;
}

void *memlist_realloc(ovra_hdl_t hdl, void *block, size_t size, const char *what)
{
    if (!block)
        return memlist_malloc(hdl, size, what);
    if (size == 0) {
        memlist_free(hdl, block);
        return nullptr;
    }
    // Looked up first: afterwards the old address is not a pointer any more.
    void **slot = hdl ? find_slot(hdl, block) : nullptr;
    const auto address = reinterpret_cast<uintptr_t>(block);
    void *moved = realloc(block, size);
    if (!moved) {
        say("realloc failed for %s\n", what);
        return nullptr;
    }
    if (reinterpret_cast<uintptr_t>(moved) == address)
        return moved;
    if (slot)
        empty_slot(hdl, slot, address);
    // Kept: unlike memlist_malloc this hands out a block that is not tracked; it is the caller's then.
    // [kept_realloc_hands_out_a_block_that_could_not_be_recorded]
    if (memlist_add(hdl, moved) != 0)
        say("failed to add realloc'ed %s to memlist\n", what);
    return moved;
}
