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

// Of ASCII that shows JSON escapes two characters.
void append_plain(std::string_view text, std::string *to)
{
    const auto lacks = [text](char c) { return text.find(c) == std::string_view::npos; };
    if (lacks('"') && lacks('\\')) {
        *to += text;
        return;
    }
    for (const char c : text) {
        if (c == '"' || c == '\\')
            *to += '\\';
        *to += c;
    }
}

} // namespace

std::string in_one_line(const json &value)
{
    return escaped_in_json(dumped(value));
}

void append_json(std::string_view text, std::string *to)
{
    // As nearly all texts are. The library looks at each byte, and asks for the locale.
    if (!is_plain(text)) {
        *to += escaped_in_json(dumped(text));
        return;
    }
    *to += '"';
    append_plain(text, to);
    *to += '"';
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
