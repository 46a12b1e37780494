// SPDX-License-Identifier: MIT
#include "tools/exchange/reach.h"

#include "tools/text/loadoption.h"

namespace tool {

namespace {

// Nothing for an option that is inactive or damaged: the firmware passes over it.
std::optional<std::string> started_by(byte_view option)
{
    const auto parts = split(option);
    if (!parts || (parts->attributes & LOAD_OPTION_ACTIVE) == 0)
        return std::nullopt;
    std::string all(parts->path.begin(), parts->path.end());
    return all.append(parts->optional_data.begin(), parts->optional_data.end());
}

std::set<std::string> names_in_order(const option_kind &family, const variable_values &values)
{
    const auto order = values.find(family.order);
    if (order == values.end())
        return {};
    const std::vector<std::string> all = ordered_names(family, order->second);
    return {all.begin(), all.end()};
}

} // namespace

std::set<std::string> started_by(const option_kind &family, const variable_values &values)
{
    std::set<std::string> all;
    for (const std::string &name : names_in_order(family, values)) {
        const auto option = values.find(name);
        if (auto started = option == values.end() ? std::nullopt : started_by(option->second))
            all.insert(*std::move(started));
    }
    return all;
}

reach::reach(const option_kind &of, const variable_values &first, const variable_values &last) : family(of)
{
    for (const std::string &started : started_by(family, first))
        places[started].in_first = true;
    for (const std::string &started : started_by(family, last))
        places[started].in_last = true;
    for (const auto &[started, there] : places) {
        missing_of_first += there.in_first;
        missing_of_last += there.in_last;
    }
    set_order(first);
}

void reach::count(const bytes &option, int by)
{
    const auto started = started_by(option);
    if (!started)
        return;
    place &there = places[*started];
    const bool was_there = there.options > 0;
    there.options += by;
    const bool is_there = there.options > 0;
    if (was_there == is_there)
        return;
    const auto change = [is_there](bool counts, size_t *missing) {
        if (counts)
            is_there ? --*missing : ++*missing;
    };
    change(there.in_first, &missing_of_first);
    change(there.in_last, &missing_of_last);
}

void reach::replace(const std::string &name, const bytes &before, const bytes &after)
{
    if (!ordered.contains(name))
        return;
    count(after, 1);
    count(before, -1);
}

void reach::set_order(const variable_values &now)
{
    for (auto &[started, there] : places) {
        if (there.options > 0) {
            missing_of_first += there.in_first;
            missing_of_last += there.in_last;
        }
        there.options = 0;
    }
    ordered = names_in_order(family, now);
    for (const std::string &name : ordered) {
        if (const auto option = now.find(name); option != now.end())
            count(option->second, 1);
    }
}

} // namespace tool
