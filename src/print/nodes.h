/* SPDX-License-Identifier: MIT */
#ifndef SRC_PRINT_NODES_H
#define SRC_PRINT_NODES_H

#include "src/print/text.h"

namespace ovra {

/* The text of any node. False: no memory for it, and `to` is as it was. */
bool node_text(const uefi_device_path_t *node, text &to);

} // namespace ovra

#endif
