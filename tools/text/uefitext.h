/* SPDX-License-Identifier: MIT */
// The text that the UEFI specification gives nodes (10.6.1.6) for which the library has only the general
// form.
#ifndef OVRA_TOOLS_UEFITEXT_H
#define OVRA_TOOLS_UEFITEXT_H

#include <optional>
#include <string>

#include "tools/text/text.h"

namespace tool {

// "NVMe(0x1,50-37-D1-21-B2-38-25-00)" of a packed node. Nothing for a kind that the library has a text for,
// and for a node that is too short for its kind. It is for people: no program reads it back.
std::optional<std::string> uefi_text(byte_view node);

} // namespace tool

#endif
