/* SPDX-License-Identifier: MIT */
#ifndef OVRA_TOOLS_DROPIN_LISTING_H
#define OVRA_TOOLS_DROPIN_LISTING_H

#include "tools/dropin/settings.h"
#include "tools/dropin/store.h"

namespace tool::dropin {

// What efibootmgr prints of the variables. Why their order is not among it; empty when it is. Throws a
// failure.
std::string print_listing(const store &store, const settings &given);

} // namespace tool::dropin

#endif
