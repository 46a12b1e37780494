/* SPDX-License-Identifier: MIT */
/* Argument lists inside the library. */
#ifndef SRC_ENCODE_ARGS_H
#define SRC_ENCODE_ARGS_H

#include <string_view>

#include "src/encode/encode.h"
#include "src/rt/owned.h"

namespace ovra {

struct arg_list_freeing {
    void operator()(uefi_arg_list_t *list) const { free_arglist(list); }
};

/* Owns a list with all that it holds. */
using arg_list = std::unique_ptr<uefi_arg_list_t, arg_list_freeing>;

struct arg_list_ending {
    void operator()(const uefi_arg_list_t *list) const;
};

/* A list in a room. It tells its end as a list of its own does. */
using lent_arg_list = std::unique_ptr<uefi_arg_list_t, arg_list_ending>;

/* Room for an argument list, with its pairs and their texts: for one after the other, without a block for
 * each. */
class arg_list_room {
public:
    /* `least`: bytes that the room begins with, should the first list need fewer. */
    explicit arg_list_room(size_t least) : first(least) {}

    /* What arg_list_init makes, to end before the next; null when it fails. */
    lent_arg_list make(std::string_view arg_text, const char *const *param_list);

    /* Gives the room to the list that was made last. */
    arg_list release() { return arg_list(block.release()); }

private:
    bool reserve(size_t bytes);

    owned<uefi_arg_list_t> block;
    size_t first;
    size_t size = 0;
};

} // namespace ovra

#endif
