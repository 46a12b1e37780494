// What becomes of BootOrder, told in advance.
#ifndef OVRA_TOOLS_BOOTORDER_H
#define OVRA_TOOLS_BOOTORDER_H

#include <cstdint>
#include <vector>

namespace tool {

// The order that ovra_bootorder_insert makes.
std::vector<uint16_t> with_inserted(std::vector<uint16_t> order, uint16_t number, int position);

// The order that ovra_bootorder_remove makes.
std::vector<uint16_t> without(std::vector<uint16_t> order, uint16_t number);

} // namespace tool

#endif
