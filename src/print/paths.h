/* SPDX-License-Identifier: MIT */
/* Lists of decoded instances. */
#ifndef SRC_PRINT_PATHS_H
#define SRC_PRINT_PATHS_H

#include <memory>

#include "src/print/print.h"
#include "src/rt/list.h"

namespace ovra {

struct paths_freeing {
    ovra_hdl_t hdl;
    void operator()(ovra_path_t **list) const { free_dpath(hdl, list); }
};

constexpr tracked_memory path_list_memory(ovra_hdl_t hdl)
{
    return {hdl, "decoded_path"};
}

/* A list under construction. */
class path_list_builder : growing_list<std::unique_ptr<ovra_path_t *, paths_freeing>, tracked_memory, 2> {
public:
    explicit path_list_builder(ovra_hdl_t hdl)
        : growing_list({nullptr, {hdl}}, path_list_memory(hdl)), handle(hdl)
    {}

    /* Appends what add_path does; -1 without memory. */
    int append(const char *device, const char *file);

    using growing_list::release;

private:
    ovra_hdl_t handle;
};

} // namespace ovra

#endif
