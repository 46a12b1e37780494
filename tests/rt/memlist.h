/* SPDX-License-Identifier: MIT */
/* A fixture that looks at the list of tracked memory. */
#ifndef TESTS_RT_MEMLIST_H
#define TESTS_RT_MEMLIST_H

#include <utility>

#include "tests/rt/open_handle.h"

namespace ovra::test {

class tracked_memory : public open_handle {
protected:
    // How many slots hold the block.
    int times_recorded(const void *block) const
    {
        int times = 0;
        for (size_t slot = 0; slot < hdl->memlist_end; ++slot)
            if (hdl->memlist_addr[slot] == block)
                ++times;
        return times;
    }

    void fill(size_t blocks)
    {
        for (size_t i = 0; i < blocks; ++i)
            ASSERT_NE(memlist_malloc(hdl, 1, "fill"), nullptr);
    }

    // Slots in use so far: lists of a handle that tracks nothing are the same throughout the tests.
    std::pair<size_t, size_t> extent() const { return {hdl->memlist_end, hdl->memlist_size}; }
};

using extents = std::pair<size_t, size_t>;

} // namespace ovra::test

#endif
