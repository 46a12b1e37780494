/* SPDX-License-Identifier: MIT */
// Who printed the text of a device path: told by the style of its numbers and words.
#ifndef OVRA_TOOLS_PASTE_DIALECT_H
#define OVRA_TOOLS_PASTE_DIALECT_H

#include <string>

#include "tools/paste/cut.h"

namespace tool {

// A set of dialects.
using dialects = unsigned;

inline constexpr dialects of_ovra = 1;
inline constexpr dialects of_firmware = 2; // and its shell
inline constexpr dialects of_efibootmgr = 4;
inline constexpr dialects of_old_efibootmgr = 8; // up to 0.8, "ACPI(a0341d0,0)PCI(1f,2)HD(1,800,64000,...)"
inline constexpr dialects any_dialect = of_ovra | of_firmware | of_efibootmgr | of_old_efibootmgr;
inline constexpr dialects each_dialect[] = {of_ovra, of_firmware, of_efibootmgr, of_old_efibootmgr};

struct style {
    dialects possible = any_dialect; // those that nothing in the text contradicts; all where it mixes them
    dialects likely = 0;             // those of them of which the text has something that no other has
};

style style_of(const cut_text &text);

// "firmware", or several names.
std::string names_of_dialects(dialects which);

} // namespace tool

#endif
