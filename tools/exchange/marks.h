/* SPDX-License-Identifier: MIT */
// What tells machines apart, as sums that do not tell what they are sums of.
#ifndef OVRA_TOOLS_EXCHANGE_MARKS_H
#define OVRA_TOOLS_EXCHANGE_MARKS_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>

#include "tools/exchange/store.h"

namespace tool {

struct machine_marks {
    std::optional<uint32_t> product; // of the UUID that the maker gave the machine, which only root can read
    std::set<uint32_t> partitions;   // of the GUIDs of partitions: on the disks, and named by options
};

// Of the machine and of what its variables hold. Disks that cannot be read have none.
machine_marks marks_of(const boot_store &store);

// Why marks are not those of this machine; empty when they are, or when nothing on either side tells.
// Where both know their UUID it alone counts: a copied disk has the partitions of its original.
std::string why_other(const machine_marks &text, const machine_marks &here);

} // namespace tool

#endif
