// SPDX-License-Identifier: MIT
#include "tools/exchange/store.h"

#include <cstring>

#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

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
    store->of_firmware[name] = parts && option_kinds.back().number_in(name)
                                   ? quoted_description(description_of_units(parts->description))
                                   : hex(is.data);
}

} // namespace

const option_kind *family_of(std::string_view name)
{
    for (const option_kind &family : families) {
        if (family.number_in(name))
            return &family;
    }
    return nullptr;
}

std::vector<std::string> ordered_names(const option_kind &family, byte_view order)
{
    std::vector<std::string> names;
    for (size_t at = 0; at < ovra::unit_count(order); ++at)
        names.push_back(family.name(ovra::unit_at(order, at)));
    return names;
}

boot_store read_boot_store(firmware &machine)
{
    boot_store store;
    for (const char *name : settings)
        add(machine, name, &store);
    for (const uint16_t number : machine.options()) // also those that are damaged
        add(machine, boot_options.name(number), &store);
    for (const variable_id &id : machine.variables()) {
        const std::string name = to_utf8(id.name);
        if (!ovra::same_guid(id.guid, ovra::global_variable_guid))
            continue;
        if (const option_kind *family = family_of(name); family && !family->is_boot())
            add(machine, name, &store);
        else if (name == "OsIndications" || option_kinds.back().number_in(name))
            add_remark(machine, name, &store);
    }
    return store;
}

} // namespace tool
