/* SPDX-License-Identifier: MIT */
// Packed paths node by node, without a detour through text.
#ifndef OVRA_TOOLS_PATHNODES_H
#define OVRA_TOOLS_PATHNODES_H

#include <vector>

#include "tools/text/text.h"

namespace tool {

// How many bytes follow the END node at which the text ends: the first END-entire node, or else the last END
// node.
size_t bytes_after_end(byte_view packed);

// The nodes of each instance of a packed path, as far as they can be told.
std::vector<std::vector<byte_view>> instances_of(byte_view packed);

// The packed paths that stand one after another in an option, each with its END node; at the end what has
// none.
std::vector<byte_view> paths_of(byte_view packed);

// The nodes of each instance of each path of an option, without END nodes; at the end what has none.
struct path_instance {
    byte_view nodes;
    bool begins_path = true;
};
std::vector<path_instance> all_instances_of(byte_view packed);

// The nodes of a packed path in front of its first END node.
byte_view first_instance_of(byte_view packed);

// A path of these nodes.
bytes with_end(byte_view nodes);

// A path in which the nodes of one stand in front of those of another; both are packed paths.
bytes joined(byte_view front, byte_view path);

bool is_file(byte_view node);

// Whether a path ends in an END-entire node, and every END node is no more than its header.
bool ends_plainly(byte_view packed);

// Throws a failure when a path that was encoded has an END node before its last node.
void require_one_instance(byte_view encoded);

// The same for one that is to be put before the file of another: it has neither another instance nor a file.
void require_devices(byte_view encoded);

// The path in `packed` with other device nodes, or with another file, in its first instance. Every other byte
// stays, also of nodes that have no text. `nodes` is a packed path of just what is new. Throws a failure when
// the path is not well-formed.
bytes with_devices(byte_view packed, byte_view nodes);
bytes with_file(byte_view packed, byte_view nodes);

// The path with another hard-drive node in place of each that it has, whatever stands before and behind.
// Throws a failure when it has none, or is not well-formed.
bytes with_hard_drive(byte_view packed, byte_view node);

} // namespace tool

#endif
