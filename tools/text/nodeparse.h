/* SPDX-License-Identifier: MIT */
// The text of a node taken apart: its keyword, and the values of its parameters.
#ifndef OVRA_TOOLS_NODEPARSE_H
#define OVRA_TOOLS_NODEPARSE_H

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// Why a node's text is not packed.
struct unclear_node : std::runtime_error {
    using std::runtime_error::runtime_error;
};

[[noreturn]] void refuse(const std::string &why);

// A keyword and its parameters, each as name and kind, separated by blanks. The kinds:
//   number   decimal, or hexadecimal after 0x
//   digits   a hexadecimal number with or without 0x
//   bytes    pairs of hexadecimal digits
//   guid, eisa, address, text
//   word     a word that the library knows, or a number
//   guid?    a GUID or a number
//   A|B,b|C  words that stand for 0, 1 and 2, or a number; after a comma another word for the same
//   list     a word of this list of the library's, or a number; after a comma more words, as above
struct keyword {
    std::string_view name;
    const char *parameters;
};

struct parameter {
    std::string_view name;
    std::string_view kind;
    std::optional<std::string> value; // nothing: left to its default
    bool by_place = false;
};

struct parsed_node {
    const keyword *row = nullptr;
    std::string arguments;
    std::vector<parameter> parameters;

    bool is(std::string_view name) const { return name == row->name; }

    parameter &operator[](std::string_view name)
    {
        return *std::find_if(parameters.begin(), parameters.end(),
                             [name](const parameter &parameter) { return parameter.name == name; });
    }
    const std::optional<std::string> &value(std::string_view name) { return (*this)[name].value; }
};

bool is_keyword(std::string_view name);

// Throws an unclear_node.
parsed_node parse(const std::string &typed);

// The text of what was parsed, with the names of all parameters that have a value.
std::string text_of(const parsed_node &node);

// The library prints one keyword without parentheses, and does not read it so.
std::string with_parentheses(const std::string &text);

} // namespace tool

#endif
