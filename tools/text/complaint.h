/* SPDX-License-Identifier: MIT */
// What is said of a verb that failed.
#ifndef OVRA_TOOLS_COMPLAINT_H
#define OVRA_TOOLS_COMPLAINT_H

#include "tools/text/failure.h"

namespace tool {

// On standard error the reason, what to do about it, and the messages of libovra; for programs also the
// document of an error on standard output, with the exit status. Never throws: where standard output cannot
// be written the exit status has to say it all.
void complain(const failure &reason, int exit_status, bool as_json) noexcept;

} // namespace tool

#endif
