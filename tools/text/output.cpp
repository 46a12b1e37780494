// SPDX-License-Identifier: MIT
#include "tools/text/output.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <utility>

#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

constexpr size_t part_size = 1u << 16; // of a long text: what is kept, or written, together
constexpr int json_format = 1;         // counts up when a member is removed or changes what it means

struct json_state {
    bool keeps_warnings = false;
    json warnings = json::array(); // not printed yet
    bool list_is_open = false;     // a json_list is printed in part
};

json_state &state()
{
    static json_state only;
    return only;
}

json taken_warnings()
{
    return std::exchange(state().warnings, json::array());
}

// A document as it is printed, from its members.
json completed(const json &members)
{
    json document = {{"format", json_format}};
    document.update(members);
    document["warnings"] = taken_warnings();
    return document;
}

} // namespace

void print(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written == -1 && errno == EINTR)
            continue;
        if (written == -1 && errno == EPIPE)
            throw nobody_reads(std::string("cannot write to standard output: ") + strerror(errno));
        if (written == -1)
            throw failure(std::string("cannot write to standard output: ") + strerror(errno));
        text.remove_prefix(static_cast<size_t>(written));
    }
}

void keep_warnings()
{
    state().keeps_warnings = true;
}

void print_json(const json &document)
{
    std::string text;
    append_json(completed(document), 0, &text);
    print(text + '\n');
}

void print_json_line(const json &document)
{
    print(in_one_line(completed(document)) + '\n');
}

namespace {

// The last members of a document: behind a list, whose bracket ends `text`.
void append_last_members(const json &members, std::string *text)
{
    std::string last;
    append_json(members, 0, &last);
    *text += ',' + last.substr(1) + '\n'; // without the brace that begins an object
}

} // namespace

void print_json_error(const json &error)
{
    if (!state().list_is_open)
        return print_json({{"error", error}});
    std::string text = "\n  ]";
    append_last_members({{"error", error}, {"warnings", taken_warnings()}}, &text);
    print(text);
}

json_list::json_list(const json &members, const std::string &key)
{
    json first = {{"format", json_format}};
    first.update(members);
    append_json(first, 0, &pending);
    pending.erase(pending.rfind('\n')); // the brace that ends the document
    pending += ",\n  \"" + key + "\": [";
}

void json_list::add(const std::function<void(json_members &)> &put)
{
    constexpr size_t indent = 4;
    pending += empty ? "\n    " : ",\n    ";
    empty = false;
    json_members entry(&pending, indent);
    put(entry);
    entry.end();
    if (pending.size() > part_size) {
        state().list_is_open = true;
        print(pending);
        pending.clear();
    }
}

void json_list::end()
{
    pending += empty ? "]" : "\n  ]";
    append_last_members({{"warnings", taken_warnings()}}, &pending);
    state().list_is_open = false;
    print(pending);
    pending.clear();
}

void warn(const std::string &what, const std::string &advice)
{
    const std::string name = "ovra: warning: ";
    fprintf(stderr, "%s%s\n", name.c_str(), broken(what, name.size()).c_str());
    if (!advice.empty())
        fprintf(stderr, "  %s\n", broken(advice, 2).c_str());
    if (state().keeps_warnings)
        state().warnings.push_back(
            {{"text", what}, {"advice", advice.empty() ? json(nullptr) : json(advice)}});
}

namespace {

template <typename object>
void put_fields(object &to, const load_option &option)
{
    to.member("description", description_for_json(option.description));
    if (is_damaged_text(option.description))
        to.member("damaged_description", shown_description(option.description));
    to.member("active", option.active());
    to.member("attributes", option.attributes);
    to.member("path", hex(option.path));
    to.member("optional_data", hex(option.optional_data));
    to.member("optional_data_text", tool::as_text(option.optional_data));
}

} // namespace

json as_json(const load_option &option)
{
    json fields;
    json_value to(&fields);
    put_fields(to, option);
    return fields;
}

void put_members(json_members &to, const load_option &option)
{
    put_fields(to, option);
}

json as_json(const option_kind &kind, std::optional<uint16_t> option)
{
    return option ? json(kind.name(*option)) : json(nullptr);
}

json option_names(const option_kind &kind, const std::vector<uint16_t> &options)
{
    json names = json::array();
    for (const uint16_t option : options)
        names.push_back(kind.name(option));
    return names;
}

} // namespace tool
