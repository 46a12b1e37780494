/* SPDX-License-Identifier: MIT */
// What is written: plain text for people, JSON for programs, warnings.
#ifndef OVRA_TOOLS_OUTPUT_H
#define OVRA_TOOLS_OUTPUT_H

#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/text/loadoption.h"

namespace tool {

using json = nlohmann::ordered_json; // members in the order in which they are written here

// Writes to standard output; throws a failure when not all of it could be written.
void print(std::string_view text);
void print_json(const json &document);

// One line to standard error, and what to do about it.
void warn(const std::string &what, const std::string &advice = {});

// Columns as wide as their widest cell.
class table {
public:
    void row(std::vector<std::string> cells);
    // A line below the last row, indented by `spaces`.
    void below(size_t spaces, const std::string &text);
    std::string text() const;

private:
    struct entry {
        std::vector<std::string> cells;
        std::string note; // printed as it is when there are no cells
    };
    std::vector<entry> lines;
};

// A load option's fields.
json as_json(const load_option &option);

// "Boot001F", or null.
json as_json(std::optional<uint16_t> option);

json option_names(const std::vector<uint16_t> &options);

} // namespace tool

#endif
