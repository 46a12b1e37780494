/* SPDX-License-Identifier: MIT */
// What is written: plain text for people, JSON for programs, warnings.
#ifndef OVRA_TOOLS_OUTPUT_H
#define OVRA_TOOLS_OUTPUT_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/text/jsontext.h"
#include "tools/text/loadoption.h"
#include "tools/text/optionkind.h"

namespace tool {

// Writes to standard output; throws a failure when not all of it could be written.
void print(std::string_view text);

// Warnings are kept from now on, to be members of the documents that are printed.
void keep_warnings();

// Prints an object as a document: "format" stands before its members and "warnings" behind them.
void print_json(const json &document);
// The same on one line, one of many.
void print_json_line(const json &document);
// The document of what failed; it ends the document of a json_list that has begun to be printed.
void print_json_error(const json &error);

// A document with a list. It is printed entry by entry: a long one is never in memory whole.
class json_list {
public:
    json_list(const json &members, const std::string &key);
    void add(const std::function<void(json_members &)> &put);
    void end();

private:
    std::string pending; // not printed yet
    bool empty = true;
};

// One line to standard error, and what to do about it. Programs find it in the next document.
void warn(const std::string &what, const std::string &advice = {});

// A load option's fields.
json as_json(const load_option &option);
void put_members(json_members &to, const load_option &option);

// "Boot001F", or null.
json as_json(const option_kind &kind, std::optional<uint16_t> option);

json option_names(const option_kind &kind, const std::vector<uint16_t> &options);

} // namespace tool

#endif
