/* SPDX-License-Identifier: MIT */
// Device paths of what is started over a network.
#ifndef OVRA_TOOLS_NETWORKPATH_H
#define OVRA_TOOLS_NETWORKPATH_H

#include <optional>
#include <string>

#include "tools/text/text.h"

namespace tool {

// The six bytes of "52:54:00:12:34:56", also with other separators or none; nothing for any other text.
std::optional<bytes> parse_mac(const std::string &text);

// Whether firmware can be told to start from there: http or https, a host, visible characters of ASCII.
bool is_boot_uri(const std::string &text);

// The packed path of a network card, which gets its address from the network, and of what is fetched through
// it; at least one of them. Without a card it is the short form, for any card.
bytes network_path(const std::optional<bytes> &mac, const std::optional<std::string> &uri);

// The same behind the packed devices that lead to the card, less the nodes that these end in already. Throws
// a failure when they lead to a disk, to a file or to another card.
bytes network_path_behind(byte_view devices, const std::optional<bytes> &mac,
                          const std::optional<std::string> &uri);

// Whether a packed path names by a URI what is booted.
bool has_uri(byte_view path);

} // namespace tool

#endif
