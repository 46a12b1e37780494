/* SPDX-License-Identifier: MIT */
/* Bytes under construction, in a block that grows. */
#ifndef SRC_RT_GROWING_H
#define SRC_RT_GROWING_H

#include <algorithm>

#include "src/rt/owned.h"

namespace ovra {

/* It is not copied for each piece: a full block doubles. Null until the first piece. */
template <typename byte>
class growing_block {
    static_assert(sizeof(byte) == 1);

public:
    byte *get() const { return block.get(); }
    size_t size() const { return used; }

    /* Where to write so many bytes behind those in use; null without memory. */
    byte *reserve(size_t more)
    {
        if ((!block || more > room - used) && !grow(more))
            return nullptr;
        return block.get() + used;
    }

    /* Counts bytes that were written there as in use. */
    void take(size_t written) { used += written; }

    byte *release()
    {
        used = room = 0;
        return block.release();
    }

private:
    static constexpr size_t first_room = 256;

    bool grow(size_t more)
    {
        const size_t larger = std::max(first_room, 2 * (used + more));
        auto *grown = static_cast<byte *>(realloc(block.get(), larger));
        if (!grown)
            return false;
        static_cast<void>(block.release());
        block.reset(grown);
        room = larger;
        return true;
    }

    owned<byte> block;
    size_t used = 0;
    size_t room = 0;
};

} // namespace ovra

#endif
