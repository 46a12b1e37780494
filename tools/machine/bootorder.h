/* SPDX-License-Identifier: MIT */
// What becomes of BootOrder.
#ifndef OVRA_TOOLS_BOOTORDER_H
#define OVRA_TOOLS_BOOTORDER_H

#include <cstdint>
#include <vector>

#include "tools/text/optionkind.h"

namespace tool {

// The order with an option put, or moved, to a position, as ovra_bootorder_insert has it; standard error says
// when there is no such position.
std::vector<uint16_t> with_inserted(const option_kind &kind, std::vector<uint16_t> order, uint16_t number,
                                    int position);

// The order without all places of an option.
std::vector<uint16_t> without(std::vector<uint16_t> order, uint16_t number);
std::vector<uint16_t> without_all(std::vector<uint16_t> order, const std::vector<uint16_t> &options);

// Each option once, where it is named first.
std::vector<uint16_t> distinct(const std::vector<uint16_t> &options);

} // namespace tool

#endif
