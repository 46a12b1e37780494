/* SPDX-License-Identifier: MIT */
/*
 * What a long list of tracked memory is looked up in: the slot of a block, and the lowest empty slot, without
 * a walk through the list. The list itself stays as it is; an index can be given up and made anew at any
 * time.
 */
#ifndef SRC_RT_MEMINDEX_H
#define SRC_RT_MEMINDEX_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "src/rt/owned.h"

struct memlist_index {
    /* Of the first `end` slots, with room for the next power of two. Null without memory. Released with
     * free(). */
    static ovra::owned<memlist_index> make(void *const *slots, size_t end);

    /* The slots that it has room for, from 0 on. */
    size_t room() const { return capacity; }

    /* The first slot from `start` on that holds `block`, else the first at all. */
    std::optional<size_t> find(void *const *slots, const void *block, size_t start) const;

    /* The lowest empty slot below the end of the list. */
    std::optional<size_t> lowest_empty() const;

    /* slots[slot] holds a block from now on; it was empty, or is the new end of the list. */
    void fill(void *const *slots, size_t slot);

    /* slots[slot], which still holds the block of this address, will be empty. */
    void empty(void *const *slots, size_t slot, uintptr_t address);

private:
    static constexpr unsigned bits = 64;       /* of a word */
    static constexpr unsigned most_levels = 6; /* 64 to the power of 6 slots are more than there can be */

    size_t home(uintptr_t address) const;
    size_t after(size_t place) const { return (place + 1) & (2 * capacity - 1); }
    void mark_empty(size_t slot);
    void mark_full(size_t slot);

    size_t capacity; /* a power of two */
    unsigned levels;
    /* A hash table of 2 * capacity places, which is never more than half full: a slot's number and 1, or 0.
     */
    uint32_t *places;
    /* A bit for each slot, set in an empty one; above it a bit for each word of the level below, set unless
     * that is 0. */
    uint64_t *empties[most_levels];
};

#endif
