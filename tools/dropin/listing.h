/* SPDX-License-Identifier: MIT */
#ifndef OVRA_TOOLS_DROPIN_LISTING_H
#define OVRA_TOOLS_DROPIN_LISTING_H

#include "tools/dropin/settings.h"
#include "tools/dropin/store.h"

namespace tool::dropin {

// What efibootmgr prints of the variables. Throws a failure.
void print_listing(const store &store, const settings &given);

} // namespace tool::dropin

#endif
