// SPDX-License-Identifier: MIT
#include "src/rt/memindex.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

using ovra::owned;

owned<memlist_index> memlist_index::make(void *const *slots, size_t end)
{
    constexpr size_t most = size_t{1} << 30;
    if (end > most)
        return nullptr; // a place has 32 bits
    const size_t room = std::max<size_t>(bits, std::bit_ceil(end));
    size_t words = 0;
    for (size_t level = room; level != 1; words += level)
        level = (level + bits - 1) / bits;
    static_assert(sizeof(memlist_index) % alignof(uint64_t) == 0);
    owned<memlist_index> made(static_cast<memlist_index *>(
        calloc(1, sizeof(memlist_index) + words * sizeof(uint64_t) + 2 * room * sizeof(uint32_t))));
    if (!made)
        return nullptr;
    made->capacity = room;
    auto *word = reinterpret_cast<uint64_t *>(made.get() + 1);
    for (size_t level = room; level != 1; word += level) {
        level = (level + bits - 1) / bits;
        made->empties[made->levels++] = word;
    }
    made->places = reinterpret_cast<uint32_t *>(word);
    for (size_t slot = 0; slot < end; ++slot) {
        if (slots[slot])
            made->fill(slots, slot);
        else
            made->mark_empty(slot);
    }
    return made;
}

std::optional<size_t> memlist_index::find(void *const *slots, const void *block, size_t start) const
{
    // A block that was recorded more than once has a place for each of its slots.
    std::optional<size_t> first;
    std::optional<size_t> from_start;
    for (size_t place = home(reinterpret_cast<uintptr_t>(block)); places[place] != 0; place = after(place)) {
        const size_t slot = places[place] - 1;
        if (slots[slot] != block)
            continue;
        first = std::min(first.value_or(slot), slot);
        if (slot >= start)
            from_start = std::min(from_start.value_or(slot), slot);
    }
    return from_start ? from_start : first;
}

std::optional<size_t> memlist_index::lowest_empty() const
{
    size_t slot = 0;
    for (unsigned level = levels; level-- != 0;) {
        const uint64_t word = empties[level][slot];
        if (word == 0)
            return std::nullopt;
        slot = slot * bits + static_cast<unsigned>(std::countr_zero(word));
    }
    return slot;
}

void memlist_index::fill(void *const *slots, size_t slot)
{
    mark_full(slot);
    size_t place = home(reinterpret_cast<uintptr_t>(slots[slot]));
    while (places[place] != 0)
        place = after(place);
    places[place] = static_cast<uint32_t>(slot + 1);
}

void memlist_index::empty(void *const *slots, size_t slot, uintptr_t address)
{
    mark_empty(slot);
    size_t gap = home(address);
    while (places[gap] != slot + 1) {
        if (places[gap] == 0)
            return;
        gap = after(gap);
    }
    // What follows moves up, unless it would come before its home: a search ends at the first place without a
    // slot.
    const size_t mask = 2 * capacity - 1;
    for (size_t place = after(gap); places[place] != 0; place = after(place)) {
        const size_t wanted = home(reinterpret_cast<uintptr_t>(slots[places[place] - 1]));
        if (((place - wanted) & mask) < ((place - gap) & mask))
            continue;
        places[gap] = places[place];
        gap = place;
    }
    places[gap] = 0;
}

size_t memlist_index::home(uintptr_t address) const
{
    // The golden ratio spreads addresses that are a multiple of something apart.
    const uint64_t mixed = static_cast<uint64_t>(address) * 0x9e3779b97f4a7c15U;
    return mixed >> (static_cast<unsigned>(std::countl_zero(2 * capacity)) + 1);
}

void memlist_index::mark_empty(size_t slot)
{
    for (unsigned level = 0; level < levels; ++level) {
        uint64_t &word = empties[level][slot / bits];
        const bool known = word != 0;
        word |= uint64_t{1} << slot % bits;
        if (known)
            return;
        slot /= bits;
    }
}

void memlist_index::mark_full(size_t slot)
{
    for (unsigned level = 0; level < levels; ++level) {
        uint64_t &word = empties[level][slot / bits];
        word &= ~(uint64_t{1} << slot % bits);
        if (word != 0)
            return;
        slot /= bits;
    }
}
