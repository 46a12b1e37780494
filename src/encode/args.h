/* SPDX-License-Identifier: MIT */
/* Argument lists inside the library. */
#ifndef SRC_ENCODE_ARGS_H
#define SRC_ENCODE_ARGS_H

#include <cstring>
#include <string_view>

#include "src/encode/encode.h"
#include "src/rt/owned.h"

namespace ovra {

struct arg_list_freeing {
    void operator()(uefi_arg_list_t *list) const { free_arglist(list); }
};

/* Owns a list with all that it holds. */
using arg_list = std::unique_ptr<uefi_arg_list_t, arg_list_freeing>;

/* A null-terminated copy; null without memory. */
inline owned<char> copy_of(std::string_view text)
{
    return owned<char>(strndup(text.data(), text.size()));
}

} // namespace ovra

#endif
