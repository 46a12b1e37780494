// SPDX-License-Identifier: MIT
#include "tools/dropin/store.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

#include "src/base/whole_number.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"

namespace tool::dropin {

namespace {

constexpr size_t digits = 4;

std::vector<uint16_t> numbers_in(const bytes &data)
{
    std::vector<uint16_t> numbers(data.size() / sizeof(uint16_t)); // half a number at the end is none
    if (!numbers.empty())
        memcpy(numbers.data(), data.data(), numbers.size() * sizeof(uint16_t));
    return numbers;
}

} // namespace

std::optional<uint16_t> number_of(const std::string &kind, const std::string &name)
{
    if (!name.starts_with(kind) || name.size() != kind.size() + digits)
        return std::nullopt;
    return ovra::whole_number<uint16_t>(std::string_view(name).substr(kind.size()), 16);
}

bool is_active(const bytes &option)
{
    return !option.empty() && (option[0] & LOAD_OPTION_ACTIVE) != 0;
}

store::store(firmware &machine, std::string kind, const general_options &options)
    : machine_(machine), kind_(std::move(kind)), general(options)
{
    read(true);
}

void store::read(bool tells)
{
    found.clear();
    for (const variable_id &id : machine_.variables()) {
        const std::string name = to_utf8(id.name);
        if (!ovra::same_guid(id.guid, ovra::global_variable_guid) || !number_of(kind_, name))
            continue;
        variable is = machine_.read(id);
        if (is.status == EFI_NOT_FOUND)
            continue; // gone meanwhile
        if (is.status != EFI_SUCCESS) {
            if (tells)
                print("Skipping unreadable variable \"" + name +
                      "\": " + (is.error != 0 ? strerror(is.error) : status_name(is.status)) + '\n');
            continue;
        }
        found[name] = std::move(is.data);
    }
}

std::optional<std::string> store::name_of(uint16_t number) const
{
    for (const auto &[name, data] : found) {
        if (number_of(kind_, name) == number)
            return name;
    }
    return std::nullopt;
}

std::string store::new_name(uint16_t number) const
{
    return kind_ + format("%04X", number);
}

bool store::is_taken(uint16_t number) const
{
    if (name_of(number))
        return true;
    // What cannot be read may be in no list: each letter is tried in both cases.
    std::vector<std::string> names = {new_name(number)};
    for (size_t at = kind_.size(); at < kind_.size() + digits; ++at) {
        const char digit = names.front()[at];
        const size_t count = digit >= 'A' ? names.size() : 0;
        for (size_t i = 0; i < count; ++i) {
            std::string other = names[i];
            other[at] = static_cast<char>(digit - 'A' + 'a');
            names.push_back(std::move(other));
        }
    }
    return std::any_of(names.begin(), names.end(),
                       [this](const std::string &name) { return machine_.exists_global(name); });
}

uint16_t store::free_number() const
{
    // An option that is gone may still be named: what names it would name the new one.
    const std::vector<uint16_t> named = order().value_or(std::vector<uint16_t>());
    const auto next = kind_ == "Boot" ? number_in("BootNext") : std::nullopt;
    for (unsigned number = 0; number <= UINT16_MAX; ++number) {
        const auto candidate = static_cast<uint16_t>(number);
        if (next != candidate && std::find(named.begin(), named.end(), candidate) == named.end() &&
            !is_taken(candidate))
            return candidate;
    }
    throw failure("no number is free");
}

std::optional<bytes> store::data_of(const std::string &variable) const
{
    tool::variable is = machine_.read_global(variable);
    if (is.status == EFI_NOT_FOUND)
        return std::nullopt;
    if (is.status != EFI_SUCCESS)
        throw failure("cannot read " + variable + ": " +
                      (is.error != 0 ? strerror(is.error) : status_name(is.status)));
    return std::move(is.data);
}

std::optional<uint16_t> store::number_in(const std::string &variable) const
{
    const tool::variable is = machine_.read_global(variable);
    if (is.status != EFI_SUCCESS || is.data.size() != sizeof(uint16_t))
        return std::nullopt;
    return numbers_in(is.data).front();
}

std::optional<std::vector<uint16_t>> store::order() const
{
    const auto data = data_of(kind_ + "Order");
    return data ? std::optional(numbers_in(*data)) : std::nullopt;
}

void store::write(const std::string &variable, const bytes &data)
{
    apply({writes(variable, data, hex(data))});
}

void store::remove(const std::string &variable)
{
    apply({deletes(variable)});
}

change store::order_change(const std::vector<uint16_t> &order) const
{
    const std::string variable = kind_ + "Order";
    if (machine_.read_global(variable).data.size() % sizeof(uint16_t) != 0)
        fprintf(stderr, "** Warning ** : %s ends in half a number, which is dropped\n", variable.c_str());
    return order.empty() ? deletes(variable) : writes(variable, stored(order), hex(stored(order)));
}

void store::write_order(const std::vector<uint16_t> &order)
{
    apply({order_change(order)});
}

void store::make(const std::string &variable, const bytes &data,
                 const std::optional<std::vector<uint16_t>> &order)
{
    std::vector<change> all = {writes(variable, data, hex(data))};
    if (order && this->order() != order)
        all.push_back(order_change(*order));
    try {
        apply(all);
        newest = variable;
    } catch (not_changed &reason) {
        if (found.contains(variable) && !reason.done_anyway)
            reason.advise(take_back(variable));
        throw;
    }
}

std::string store::take_back(const std::string &variable)
{
    try {
        machine_.change_global(variable, {});
    } catch (const not_changed &reason) {
        return variable + " stays: taking it back failed as well, " + reason.what() + '.';
    }
    return variable + " is taken back.";
}

void store::apply(const std::vector<change> &all)
{
    changes together(machine_, general);
    together.prepare(all);
    try {
        for (const change &each : all)
            together.attempt(each);
    } catch (...) {
        read();
        throw;
    }
    read();
}

} // namespace tool::dropin
