/* SPDX-License-Identifier: MIT */
// The text of one node. The library reads it loosely and packs some keywords differently from what they say;
// texts are checked here first.
#ifndef OVRA_TOOLS_NODETEXT_H
#define OVRA_TOOLS_NODETEXT_H

#include <string>

#include "tools/text/nodeparse.h"

namespace tool {

// The text that makes the library pack what `text` says: often the same one. Throws an unclear_node.
std::string text_to_pack(const std::string &text);

// Whether a text gives its node's bytes, as MediaPath(0x3,0600abcd) does.
bool is_raw(const std::string &text);

// Whether the library's text of the packed node, without a slash in front, repeats what was typed.
bool says_the_same(const std::string &typed, const std::string &printed);

} // namespace tool

#endif
