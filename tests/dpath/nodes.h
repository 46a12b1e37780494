/* SPDX-License-Identifier: MIT */
/* Nodes and lists as tests hold them. */
#ifndef TESTS_DPATH_NODES_H
#define TESTS_DPATH_NODES_H

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "src/dpath/dpath.h"
#include "src/dpath/list.h"
#include "src/rt/owned.h"
#include "tests/support/bytes.h"

namespace ovra::test {

using node = owned<uefi_device_path_t>;

/* A node in a block of its own, exactly as long as its bytes. */
inline node node_of(const bytes &content)
{
    auto *block = static_cast<uefi_device_path_t *>(malloc(content.size()));
    memcpy(block, content.data(), content.size());
    return node(block);
}

inline node node_of(std::string_view hex_text)
{
    return node_of(from_hex(hex_text));
}

/* A node of `length` bytes, header included, filled with one byte. */
inline bytes node_bytes(uint8_t type, uint8_t subtype, uint16_t length, uint8_t fill = 0x5a)
{
    bytes content(length, fill);
    content[0] = type;
    content[1] = subtype;
    content[2] = static_cast<uint8_t>(length);
    content[3] = static_cast<uint8_t>(length >> 8);
    return content;
}

inline bytes operator+(bytes left, const bytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline const bytes end_entire = {0x7f, 0xff, 4, 0};
inline const bytes end_instance = {0x7f, 0x01, 4, 0};

/* The nodes of a list, each as hex text; a null list has none. */
inline std::vector<std::string> nodes_of(uefi_device_path_t **list)
{
    std::vector<std::string> all;
    for (; list && *list; ++list)
        all.push_back(to_hex(*list, (*list)->len));
    return all;
}

} // namespace ovra::test

#endif
