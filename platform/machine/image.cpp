// SPDX-License-Identifier: MIT
#include "platform/machine/image.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "platform/machine/debug.h"
#include "platform/machine/names.h"
#include "src/base/guid.h"

namespace machine {

namespace {

struct stored_key {
    const EFI_GUID &guid;
    byte_view name; // with the terminator
};

// A unit as the services see it, who write "/" and "!" alike (names.h).
int unit_at(byte_view name, std::size_t at)
{
    std::uint16_t unit = 0;
    std::memcpy(&unit, name.data() + at, sizeof unit);
    return unit == '!' ? '/' : unit;
}

// Below, at or above 0, in some order of names; those that are one to the services are equal.
int compare(const stored_key &a, const stored_key &b)
{
    if (const int order = std::memcmp(&a.guid, &b.guid, sizeof a.guid); order != 0)
        return order;
    if (a.name.size() != b.name.size())
        return a.name.size() < b.name.size() ? -1 : 1;
    for (std::size_t at = 0; at + sizeof(CHAR16) <= a.name.size(); at += sizeof(CHAR16)) {
        const int order = unit_at(a.name, at) - unit_at(b.name, at);
        if (order != 0)
            return order;
    }
    return 0;
}

// The name that the services have for a stored one; empty when there is none.
std::string file_name_in_image(byte_view name, const EFI_GUID &guid)
{
    std::vector<CHAR16> units(name.size() / sizeof(CHAR16));
    if (units.empty() || name.size() % sizeof(CHAR16) != 0)
        return {};
    std::memcpy(units.data(), name.data(), name.size());
    if (units.back() != 0)
        return {};
    units.pop_back();
    return file_name_of(units, guid).value_or(std::string()); // which takes no 0 within a name
}

} // namespace

void variable_image::set_live(std::vector<image_variable> counting)
{
    live = std::move(counting);
    by_name.resize(live.size());
    std::iota(by_name.begin(), by_name.end(), 0u);
    std::ranges::sort(by_name, [this](std::uint32_t a, std::uint32_t b) {
        const int order = compare({live[a].guid, name_of(live[a])}, {live[b].guid, name_of(live[b])});
        return order != 0 ? order < 0 : a < b;
    });
}

const image_variable *variable_image::first_named(const std::string &file_name) const
{
    auto identity = identity_of(file_name);
    if (!identity)
        return nullptr;
    identity->name.push_back(0);
    const stored_key wanted = {identity->guid, std::as_bytes(std::span(identity->name))};
    const auto order = [&](std::uint32_t each) {
        return compare({live[each].guid, name_of(live[each])}, wanted);
    };
    const auto found =
        std::ranges::partition_point(by_name, [&](std::uint32_t each) { return order(each) < 0; });
    return found != by_name.end() && order(*found) == 0 ? &live[*found] : nullptr;
}

const image_variable *variable_image::find(const std::string &file_name) const
{
    const image_variable *found = first_named(file_name);
    return found != nullptr && found->data_size != 0 ? found : nullptr;
}

std::vector<std::string> variable_image::file_names() const
{
    std::vector<std::string> names;
    const image_variable *previous = nullptr;
    for (const std::uint32_t index : by_name) {
        const image_variable &each = live[index];
        const bool is_first = previous == nullptr ||
                              compare({previous->guid, name_of(*previous)}, {each.guid, name_of(each)}) != 0;
        previous = &each;
        std::string name = file_name_in_image(name_of(each), each.guid);
        if (name.empty())
            debug("skipped a variable at byte %zu of the store: its name cannot be a file's", each.begin);
        else if (is_first && each.data_size != 0)
            names.push_back(std::move(name));
    }
    return names;
}

bytes variable_image::spelt_name(const std::string &file_name, EFI_GUID *guid) const
{
    auto identity = identity_of(file_name);
    if (!identity)
        return {};
    *guid = identity->guid;
    if (const image_variable *found = first_named(file_name); found != nullptr) {
        const byte_view name = name_of(*found);
        return {name.begin(), name.end()};
    }
    identity->name.push_back(0);
    const auto stored = std::as_bytes(std::span(identity->name));
    return {stored.begin(), stored.end()};
}

bool variable_image::is_named(const image_variable &variable, byte_view name, const EFI_GUID &guid) const
{
    return ovra::same_guid(variable.guid, guid) && std::ranges::equal(name_of(variable), name);
}

} // namespace machine
