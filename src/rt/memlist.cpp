// SPDX-License-Identifier: MIT
#include "src/rt/memlist.h"

#include <algorithm>
#include <cstdlib>

#include "src/rt/diag.h"

using ovra::say;

static constexpr size_t growth = 20; // slots

// The first slot from `start` on that holds `block`, else the first at all, or null.
static void **find_slot(ovra_hdl_t hdl, void *block, size_t start = 0)
{
    void **end = hdl->memlist_addr + hdl->memlist_end;
    void **slot = std::find(hdl->memlist_addr + start, end, block);
    if (slot != end)
        return slot;
    return start == 0 ? nullptr : find_slot(hdl, block);
}

static void empty_slot(ovra_hdl_t hdl, void **slot)
{
    *slot = nullptr;
    const auto index = static_cast<size_t>(slot - hdl->memlist_addr);
    if (index < hdl->memlist_low)
        hdl->memlist_low = static_cast<uint32_t>(index);
}

int memlist_add(ovra_hdl_t hdl, void *block)
{
    if (!block || !hdl)
        return 0;

    size_t slot = hdl->memlist_low;
    while (slot < hdl->memlist_end && hdl->memlist_addr[slot])
        ++slot;

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
    // A start for the next search: filling a long list does not walk it each time.
    hdl->memlist_low = static_cast<uint32_t>(std::min<size_t>(slot + 1, UINT32_MAX));
    return 0;
}

void memlist_remove(ovra_hdl_t hdl, void *block)
{
    if (!block || !hdl)
        return;
    if (void **slot = find_slot(hdl, block))
        empty_slot(hdl, slot);
}

bool memlist_holds(ovra_hdl_t hdl, void *block)
{
    return hdl && block && find_slot(hdl, block);
}

void ovra::memlist_free_next(ovra_hdl_t hdl, void *block, size_t *start)
{
    if (void **slot = hdl ? find_slot(hdl, block, *start) : nullptr) {
        *start = static_cast<size_t>(slot - hdl->memlist_addr);
        empty_slot(hdl, slot);
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
        empty_slot(hdl, slot);
    // Kept: unlike memlist_malloc this hands out a block that is not tracked; it is the caller's then.
    // [kept_realloc_hands_out_a_block_that_could_not_be_recorded]
    if (memlist_add(hdl, moved) != 0)
        say("failed to add realloc'ed %s to memlist\n", what);
    return moved;
}
