/* SPDX-License-Identifier: MIT */
/* Rows of the table of keywords by their keyword. */
#ifndef SRC_ENCODE_TABLE_H
#define SRC_ENCODE_TABLE_H

#include <string_view>

#include "src/encode/encode.h"

namespace ovra {

/* The first row of a keyword, in letters of any case; null when there is none. */
const uefi_encode_opt_t *find_keyword(std::string_view keyword);

} // namespace ovra

#endif
