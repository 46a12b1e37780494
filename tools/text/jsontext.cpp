// SPDX-License-Identifier: MIT
#include "tools/text/jsontext.h"

#include "tools/text/text.h"

namespace tool {

namespace {

// A description can hold what is no text: it becomes U+FFFD.
std::string dumped(const json &value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// What stands between the brackets; `append_one` writes a member.
template <typename append>
void append_members_of(const json &value, size_t indent, std::string *to, append append_one)
{
    const std::string line = '\n' + std::string(indent + 2, ' ');
    for (auto member = value.begin(); member != value.end(); ++member) {
        *to += member == value.begin() ? "" : ",";
        *to += line;
        append_one(member);
    }
    to->append(line, 0, indent + 1);
}

} // namespace

// Nearly all texts stand in JSON as they are, and looking at each byte is most of what the library does.
void append_json(std::string_view text, std::string *to)
{
    const auto lacks = [text](char c) { return text.find(c) == std::string_view::npos; };
    if (is_plain(text) && lacks('"') && lacks('\\')) {
        to->append(1, '"').append(text).append(1, '"');
    } else {
        *to += escaped_in_json(dumped(text));
    }
}

void append_json(const json &value, size_t indent, std::string *to)
{
    if (value.is_string()) {
        append_json(std::string_view(value.get_ref<const std::string &>()), to);
    } else if (value.is_object() && !value.empty()) {
        *to += '{';
        append_members_of(value, indent, to, [&](const auto &member) {
            append_json(std::string_view(member.key()), to);
            *to += ": ";
            append_json(member.value(), indent + 2, to);
        });
        *to += '}';
    } else if (value.is_array() && !value.empty()) {
        *to += '[';
        append_members_of(value, indent, to,
                          [&](const auto &member) { append_json(*member, indent + 2, to); });
        *to += ']';
    } else {
        *to += dumped(value);
    }
}

} // namespace tool
