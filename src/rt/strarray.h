/* SPDX-License-Identifier: MIT */
/* String arrays that grow entry by entry. */
#ifndef SRC_RT_STRARRAY_H
#define SRC_RT_STRARRAY_H

#include <utility>

#include "src/rt/rt.h"

namespace ovra {

/*
 * memlist_free for one of several blocks that were recorded one behind the other: looked for from *start on,
 * at first 0, which goes with it. So that releasing a long array does not search the whole list for each.
 */
void memlist_free_next(ovra_hdl_t hdl, void *block, size_t *start);

/* An array under construction, which neither counts nor moves a long list again for each entry. */
class str_array_builder {
public:
    explicit str_array_builder(ovra_hdl_t handle) : hdl(handle) {}
    str_array_builder(const str_array_builder &) = delete;
    str_array_builder &operator=(const str_array_builder &) = delete;
    ~str_array_builder() { free_str_array(hdl, array); }

    /* Appends a copy; -1 without memory. */
    int append(const char *str);

    /* The array, null without an entry, for the handle to own. */
    char **release() { return std::exchange(array, nullptr); }

private:
    ovra_hdl_t hdl;
    char **array = nullptr;
    size_t count = 0;
    size_t capacity = 0;
};

} // namespace ovra

#endif
