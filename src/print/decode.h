/* SPDX-License-Identifier: MIT */
#ifndef SRC_PRINT_DECODE_H
#define SRC_PRINT_DECODE_H

#include <ovra/ovra.h>

namespace ovra {

/*
 * ovra_epath_decode_to_uefi for a caller that writes the path back: *whole is false when the text of a node
 * was left out for want of memory.
 */
int decode_to_uefi(ovra_hdl_t hdl, ovra_epath_t epath, int len, ovra_path_t ***paths, bool *whole);

} // namespace ovra

#endif
