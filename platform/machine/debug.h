/* SPDX-License-Identifier: MIT */
/* Messages for the person who sets HWPLAT_DEBUG. */
#ifndef HWPLAT_MACHINE_DEBUG_H
#define HWPLAT_MACHINE_DEBUG_H

namespace machine {

/*
 * Prints a line to standard error while HWPLAT_DEBUG is set: why something was passed over. Bytes other than
 * printable ASCII become "\xNN", as names come from folders that anybody may fill. Leaves errno alone.
 */
[[gnu::format(printf, 1, 2)]] void debug(const char *format, ...);

} // namespace machine

#endif
