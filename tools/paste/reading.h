/* SPDX-License-Identifier: MIT */
// What the text of one node says in the dialects of other tools.
#ifndef OVRA_TOOLS_PASTE_READING_H
#define OVRA_TOOLS_PASTE_READING_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/paste/dialect.h"
#include "tools/text/text.h"

namespace tool {

struct reading {
    dialects by = any_dialect;
    bytes node = {};
    std::string why_not =
        {}; // set: tools of these dialects print the node so, and the text does not say all of it
    std::string assumed = {}; // what the text leaves open, and was assumed
    bool rare = false;        // counts only where the text is like no other's
    std::string how = {};     // what tells it from the readings of others
    std::string told = {};    // set: what decided for it; it is said whenever it is taken
};

// The fields of a node's text.
struct node_fields {
    std::string name;
    std::string arguments;
    std::vector<std::string_view> values; // of the arguments, at their commas
    byte_view before = {};                // the nodes that stand in front of it in its instance, packed

    bool is(std::string_view keyword) const;
    size_t count() const { return values.size(); }
};

// The readings that differ from what ovra's own keyword says; none where there is no such keyword, or all
// tools mean the same. Throws an unclear_node where a value makes no sense.
std::vector<reading> read_node(const std::string &name, const std::string &arguments, byte_view before);
std::vector<reading> read_network_node(const node_fields &fields);
std::vector<reading> read_storage_node(const node_fields &fields);
std::vector<reading> read_other_node(const node_fields &fields);
// In the dialect of old versions of efibootmgr, whose numbers are all hexadecimal.
std::vector<reading> read_old_node(const node_fields &fields);

// Whether a node may begin with this word that is none of ovra's own keywords.
bool is_pasted_keyword(std::string_view name);

// A node's bytes, put together in their order.
class new_node {
public:
    new_node(uint8_t type, uint8_t subtype) : data{type, subtype, 0, 0} {}

    new_node &number(uint64_t value, size_t size);
    new_node &append(byte_view what);
    new_node &text(std::string_view what);
    // Throws an unclear_node when it is longer than a node can be.
    bytes done();

private:
    bytes data;
};

// Numbers of at most `size` bytes, and others. Throw an unclear_node.
uint64_t sized_number(std::string_view text, size_t size);   // decimal, or hexadecimal after 0x
uint64_t hexadecimal_of(std::string_view text, size_t size); // with or without 0x
bytes guid_bytes_of(std::string_view text);
bytes bytes_of_digits(std::string_view text);
bool is_guid(std::string_view text);
bool has_prefix(std::string_view text); // 0x

void require_count(const node_fields &fields, size_t least, size_t most);

// The position of a word in a list, case ignored.
std::optional<size_t> index_of(std::string_view word, std::initializer_list<std::string_view> words);

} // namespace tool

#endif
