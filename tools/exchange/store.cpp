// SPDX-License-Identifier: MIT
#include "tools/exchange/store.h"

#include <algorithm>
#include <cstring>

#include "src/base/ascii.h"
#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

constexpr size_t number_digits = 4;

bool has_number(std::string_view name, std::string_view prefix)
{
    if (name.size() != prefix.size() + number_digits || !name.starts_with(prefix))
        return false;
    const std::string_view number = name.substr(prefix.size());
    return std::all_of(number.begin(), number.end(),
                       [](char c) { return ovra::is_ascii_digit(c) || (c >= 'A' && c <= 'F'); });
}

void add(firmware &machine, const std::string &name, boot_store *store)
{
    variable is = machine.read_global(name);
    if (is.status == EFI_NOT_FOUND)
        return;
    if (is_damaged(is)) {
        store->unread[name] = "damaged";
        return;
    }
    if (is.status != EFI_SUCCESS)
        throw failure("cannot read " + name + ": " +
                          (is_refusal(is.status) ? "no permission"
                           : is.error != 0       ? strerror(is.error)
                                                 : status_name(is.status)),
                      is_refusal(is.status) ? machine.permission_advice() : "");
    if (is.attributes != boot_variable_attributes)
        store->attributes[name] = is.attributes;
    store->values[name] = std::move(is.data);
}

// What a text mentions and no text changes.
void add_remark(firmware &machine, const std::string &name, boot_store *store)
{
    const variable is = machine.read_global(name);
    if (is.status != EFI_SUCCESS)
        return;
    const auto parts = split(is.data);
    store->of_firmware[name] = parts && has_number(name, "PlatformRecovery")
                                   ? quoted_description(description_of_units(parts->description))
                                   : hex(is.data);
}

} // namespace

const option_family *family_of(std::string_view name)
{
    for (const option_family &family : families) {
        if (has_number(name, family.prefix))
            return &family;
    }
    return nullptr;
}

std::string name_in(const option_family &family, uint16_t number)
{
    return std::string(family.prefix) + option_name(number).substr(sizeof "Boot" - 1);
}

std::vector<std::string> ordered_names(const option_family &family, byte_view order)
{
    std::vector<std::string> names;
    for (size_t at = 0; at < ovra::unit_count(order); ++at)
        names.push_back(name_in(family, ovra::unit_at(order, at)));
    return names;
}

boot_store read_boot_store(firmware &machine)
{
    boot_store store;
    for (const char *name : settings)
        add(machine, name, &store);
    for (const uint16_t number : machine.options()) // also those that are damaged
        add(machine, option_name(number), &store);
    for (const variable_id &id : machine.variables()) {
        const std::string name = to_utf8(id.name);
        if (!ovra::same_guid(id.guid, ovra::global_variable_guid))
            continue;
        if (const option_family *family = family_of(name); family && family != families.begin())
            add(machine, name, &store);
        else if (name == "OsIndications" || has_number(name, "PlatformRecovery"))
            add_remark(machine, name, &store);
    }
    return store;
}

} // namespace tool
