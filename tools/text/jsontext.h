/* SPDX-License-Identifier: MIT */
// JSON written as it comes, without values for the library for JSON in between: a listing of all options has
// millions of them.
#ifndef OVRA_TOOLS_JSONTEXT_H
#define OVRA_TOOLS_JSONTEXT_H

#include <concepts>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tool {

using json = nlohmann::ordered_json; // members in the order in which they are written here

// A value as dump(2) writes it, with `indent` blanks in front of all lines but the first, and escaped as
// escaped_in_json says.
void append_json(const json &value, size_t indent, std::string *to);
void append_json(std::string_view text, std::string *to);
std::string in_one_line(const json &value);

// An object, to which members are added. Where members are listed for either, this one stands for a value and
// json_members for text.
class json_value {
public:
    explicit json_value(json *object) : to(object) {}

    template <typename value>
    void member(const char *name, const value &of)
    {
        (*to)[name] = of;
    }
    template <typename value>
    void member(const char *name, const std::optional<value> &of)
    {
        (*to)[name] = of ? json(*of) : json(nullptr);
    }
    // A list of objects; `put` adds the members of one.
    template <typename list, typename putting>
    void list_of(const char *name, const list &all, putting put)
    {
        json &objects = (*to)[name] = json::array();
        for (const auto &each : all) {
            json_value one(&objects.emplace_back(json::object()));
            put(one, each);
        }
    }

private:
    json *to;
};

// An object's members, appended to a text of JSON. There is at least one.
class json_members {
public:
    // `depth` blanks stand in front of the object's line.
    json_members(std::string *text, size_t depth)
        : to(text), indent(depth + 2), before(",\n" + std::string(indent, ' ') + '"')
    {
        *to += '{';
    }
    json_members(const json_members &) = delete;
    json_members &operator=(const json_members &) = delete;
    // To be called once, after the last member.
    void end() { end_line(indent - 2) += '}'; }

    void member(const char *name, std::string_view text) { append_json(text, &begin(name)); }
    void member(const char *name, const std::string &text) { member(name, std::string_view(text)); }
    void member(const char *name, std::nullptr_t) { begin(name) += "null"; }
    template <std::same_as<bool> truth>
    void member(const char *name, truth value)
    {
        begin(name) += value ? "true" : "false";
    }
    template <std::unsigned_integral number>
    requires(!std::same_as<number, bool>) void member(const char *name, number value)
    {
        begin(name) += std::to_string(value);
    }
    template <typename value>
    void member(const char *name, const std::optional<value> &of)
    {
        if (of)
            member(name, *of);
        else
            member(name, nullptr);
    }
    template <typename list, typename putting>
    void list_of(const char *name, const list &all, putting put)
    {
        begin(name) += '[';
        bool first = true;
        for (const auto &each : all) {
            *to += first ? "" : ",";
            first = false;
            end_line(indent + 2);
            json_members one(to, indent + 2);
            put(one, each);
            one.end();
        }
        if (!first)
            end_line(indent);
        *to += ']';
    }

private:
    // What stands in front of a member's value.
    std::string &begin(std::string_view name)
    {
        to->append(before, is_first ? 1 : 0);
        is_first = false;
        return to->append(name).append("\": ", 3);
    }
    std::string &end_line(size_t blanks) { return (*to += '\n').append(blanks, ' '); }

    std::string *to;
    size_t indent;
    std::string before; // a member; the first one has no comma
    bool is_first = true;
};

} // namespace tool

#endif
