/* SPDX-License-Identifier: MIT */
// Boot variables as a text that a person reads, compares and changes. docs/man/ovra.1 has its form.
#ifndef OVRA_TOOLS_EXCHANGE_BOOTTEXT_H
#define OVRA_TOOLS_EXCHANGE_BOOTTEXT_H

#include <set>
#include <string>

#include "tools/exchange/fields.h"
#include "tools/exchange/marks.h"
#include "tools/exchange/store.h"

namespace tool {

// Far above what the variables of a machine take, in bytes.
inline constexpr size_t boot_text_limit = size_t{1} << 28;

std::string boot_text(const boot_store &store, const machine_marks &marks, device_paths &paths);

// What a text says.
struct boot_document {
    machine_marks marks;
    variable_values values;       // that are to be
    std::set<std::string> absent; // settings that are not to be
    std::set<std::string> left;   // variables that stay as they are, whatever they are
};

// Reads a text; `source` names it in messages. Throws a failure that says which line is wrong, and why.
boot_document read_boot_text(const std::string &text, const std::string &source, device_paths &paths);

// All variables as they are to be on a machine: what the text does not speak of stays.
variable_values wanted_values(const boot_document &document, const boot_store &store);

// The damaged variables of a machine that a text does not leave as they are.
std::vector<std::string> unwanted_damage(const boot_document &document, const boot_store &store);

// What one value says that another does not: lines with + and -, the name in front. Both may be absent.
std::string difference(const std::string &name, const bytes *before, const bytes *after, device_paths &paths);

} // namespace tool

#endif
