/* SPDX-License-Identifier: MIT */
// A load option (UEFI 3.1.3) as the command handles it.
#ifndef OVRA_TOOLS_LOADOPTION_H
#define OVRA_TOOLS_LOADOPTION_H

#include <cstdint>
#include <optional>
#include <string>

#include "src/base/load_option.h"
#include "tools/text/text.h"

namespace tool {

struct load_option {
    uint32_t attributes = LOAD_OPTION_ACTIVE;
    std::string description; // as description_of_units() has it
    bytes path;              // packed device path
    bytes optional_data;

    bool active() const { return (attributes & LOAD_OPTION_ACTIVE) != 0; }
};

// The parts of a load option variable; nothing when it is too short for what it says of itself.
std::optional<ovra::load_option_parts> split(byte_view variable);

// Takes the option in a variable, whole and with what the library would not read. False when it is damaged:
// then `*option` is as it was.
bool take_option(byte_view variable, load_option *option);

// The variable that an option is stored as. Its description must be one, which check_description says.
bytes as_stored(const load_option &option);

// Throws a usage_error for what no description can be.
void check_description(const std::string &description);

// Why programs that use the library cannot read a description; empty when they can.
std::string description_obstacle(const std::string &description);

// Throws a failure for an option that programs which use the library could not read back whole.
void check_size(const load_option &option);

// What is wrong with bytes that should be packed device paths, nodes that end in an END node; nothing if all
// is well.
std::optional<std::string> path_error(byte_view path);

// "0x00000109 (active, hidden, app)"
std::string attribute_text(uint32_t attributes);

// "\"quiet splash\"", or hexadecimal digits and the size.
std::string optional_data_text(byte_view data);

} // namespace tool

#endif
