/* SPDX-License-Identifier: MIT */
// The text of one node of a device path. The library reads such text loosely, and some of its keywords pack
// other than what stands there: here a text is held to what it says before the library packs it.
#ifndef OVRA_TOOLS_NODETEXT_H
#define OVRA_TOOLS_NODETEXT_H

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/text/text.h"

namespace tool {

// Why a node's text is not packed.
struct unclear_node : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The text that makes the library pack what `text` says: often the same one. Throws an unclear_node.
std::string text_to_pack(const std::string &text);

// Whether a text gives its node's bytes, as MediaPath(0x3,0600abcd) does.
bool is_raw(const std::string &text);

// Whether the library's text of the packed node, without a slash in front, repeats what was typed.
bool says_the_same(const std::string &typed, const std::string &printed);

// The bytes of a node as text, which gives them back whatever they are.
std::string raw_text(byte_view node);

// Texts that say more of a node than the library's does; whether they say all of it is not known.
std::vector<std::string> fuller_texts(byte_view node);

} // namespace tool

#endif
