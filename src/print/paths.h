/* SPDX-License-Identifier: MIT */
/* Lists of decoded instances that grow one by one. */
#ifndef SRC_PRINT_PATHS_H
#define SRC_PRINT_PATHS_H

#include <utility>

#include "src/print/print.h"

namespace ovra {

/* A list under construction, which neither counts nor moves a long list again for each instance. */
class path_list_builder {
public:
    explicit path_list_builder(ovra_hdl_t handle) : hdl(handle) {}
    path_list_builder(const path_list_builder &) = delete;
    path_list_builder &operator=(const path_list_builder &) = delete;
    ~path_list_builder() { free_dpath(hdl, list); }

    /* Appends what add_path does; -1 without memory. */
    int append(const char *device, const char *file);

    /* The list, null without an instance, for the handle to own. */
    ovra_path_t **release() { return std::exchange(list, nullptr); }

private:
    ovra_hdl_t hdl;
    ovra_path_t **list = nullptr;
    size_t count = 0;
    size_t capacity = 0;
};

/*
 * ovra_epath_decode_to_uefi for a caller that writes the path back: *whole is false when the text of a node
 * was left out for want of memory.
 */
int decode_to_uefi(ovra_hdl_t hdl, ovra_epath_t epath, int len, ovra_path_t ***paths, bool *whole);

} // namespace ovra

#endif
