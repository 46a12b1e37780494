/* SPDX-License-Identifier: MIT */
// The variables beside the options as the text after "BootOrder =".
#ifndef OVRA_TOOLS_EXCHANGE_SETTINGS_H
#define OVRA_TOOLS_EXCHANGE_SETTINGS_H

#include <optional>
#include <string>

#include "tools/text/text.h"

namespace tool {

bool is_setting(const std::string &name);

// "Boot0001 Boot0000", "5", or "hex ..." where the bytes are no such thing.
std::string setting_text(const std::string &name, byte_view value);

// The bytes of such a text; nothing for one that makes no sense.
std::optional<bytes> setting_of(const std::string &name, const std::string &text);

} // namespace tool

#endif
