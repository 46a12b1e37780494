/* SPDX-License-Identifier: MIT */
/*
 * Owners of malloc'd memory inside the library. Each releases on the way out: every early return is one line.
 */
#ifndef SRC_RT_OWNED_H
#define SRC_RT_OWNED_H

#include <cstdlib>
#include <memory>

#include "src/rt/rt.h"

namespace ovra {

struct freeing {
    void operator()(void *block) const { free(block); }
};

/* A block of the malloc family, or null. */
template <typename T>
using owned = std::unique_ptr<T, freeing>;

struct memlist_freeing {
    ovra_hdl_t hdl;
    void operator()(void *block) const { memlist_free(hdl, block); }
};

/* A block that the handle tracks, taken back unless it is released to the caller. */
template <typename T>
using tracked = std::unique_ptr<T, memlist_freeing>;

template <typename T>
tracked<T> tracked_malloc(ovra_hdl_t hdl, size_t size, const char *what)
{
    return tracked<T>(static_cast<T *>(memlist_malloc(hdl, size, what)), memlist_freeing{hdl});
}

} // namespace ovra

#endif
