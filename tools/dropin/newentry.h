/* SPDX-License-Identifier: MIT */
#ifndef OVRA_TOOLS_DROPIN_NEWENTRY_H
#define OVRA_TOOLS_DROPIN_NEWENTRY_H

#include "tools/dropin/settings.h"
#include "tools/text/loadoption.h"

namespace tool::dropin {

// The option that -c makes, as it is stored. Throws a failure.
bytes new_entry(const settings &given);

} // namespace tool::dropin

#endif
