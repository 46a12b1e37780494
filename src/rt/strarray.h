/* SPDX-License-Identifier: MIT */
/* Strings and arrays of them that a handle tracks. */
#ifndef SRC_RT_STRARRAY_H
#define SRC_RT_STRARRAY_H

#include "src/rt/list.h"
#include "src/rt/owned.h"

namespace ovra {

/* A tracked copy of a string; null without memory. */
tracked<char> copy_string(ovra_hdl_t hdl, const char *str);

struct names_freeing {
    ovra_hdl_t hdl;
    void operator()(char **names) const { free_str_array(hdl, names); }
};

/* A string array that the handle owns, taken back unless it is released to the caller. */
using tracked_names = std::unique_ptr<char *, names_freeing>;

/* A string array under construction. */
class str_array_builder : growing_list<tracked_names, tracked_memory> {
public:
    explicit str_array_builder(ovra_hdl_t hdl)
        : growing_list({nullptr, {hdl}}, {hdl, "add_str_array"}), handle(hdl)
    {}

    /* Appends a copy; -1 without memory. */
    int append(const char *str) { return growing_list::append(copy_string(handle, str)); }

    using growing_list::release;

private:
    ovra_hdl_t handle;
};

} // namespace ovra

#endif
