// SPDX-License-Identifier: MIT
#include "tests/fakes/driver.h"

#include <algorithm>

#include "tests/fakes/driver_state.h"

namespace fakes {

var_name::var_name(const std::string &text)
{
    for (const char c : text)
        push_back(static_cast<unsigned char>(c));
}

std::string var_name::narrow() const
{
    std::string text;
    for (const char16_t unit : *this)
        text += unit < 0x80 ? static_cast<char>(unit) : '?';
    return text;
}

driver_state *the_driver()
{
    static driver_state state;
    return &state;
}

void erase_variable(driver_state &driver, std::map<variable_key, std::list<stored>::iterator>::iterator found)
{
    driver.store_size -= found->second->data.size();
    driver.store.erase(found->second);
    driver.index.erase(found);
}

void reset()
{
    *the_driver() = driver_state();
}

void put_variable(const var_name &name, const bytes &data, uint32_t attributes, const EFI_GUID &guid)
{
    driver_state &driver = *the_driver();
    const auto [place, is_new] = driver.index.try_emplace(key_of(name, guid));
    if (is_new)
        place->second = driver.store.insert(driver.store.end(), {name, guid, 0, {}});
    driver.store_size += data.size();
    driver.store_size -= place->second->data.size();
    place->second->attributes = attributes;
    place->second->data = data;
}

void remove_variable(const var_name &name, const EFI_GUID &guid)
{
    driver_state &driver = *the_driver();
    const auto found = driver.index.find(key_of(name, guid));
    if (found != driver.index.end())
        erase_variable(driver, found);
}

std::optional<bytes> variable(const var_name &name, const EFI_GUID &guid)
{
    const auto found = the_driver()->index.find(key_of(name, guid));
    if (found == the_driver()->index.end())
        return std::nullopt;
    return found->second->data;
}

std::optional<uint32_t> variable_attributes(const var_name &name, const EFI_GUID &guid)
{
    const auto found = the_driver()->index.find(key_of(name, guid));
    if (found == the_driver()->index.end())
        return std::nullopt;
    return found->second->attributes;
}

size_t variable_count()
{
    return the_driver()->store.size();
}

void enumerate_first(const std::vector<var_name> &names)
{
    auto &store = the_driver()->store;
    for (auto name = names.rbegin(); name != names.rend(); ++name)
        for (auto variable = store.begin(); variable != store.end();) {
            const auto here = variable++;
            if (here->name == *name)
                store.splice(store.begin(), store, here);
        }
}

void set_capacity(uint64_t store, uint64_t single_variable)
{
    the_driver()->store_capacity = store;
    the_driver()->single_capacity = single_variable;
}

void set_absent(int error)
{
    the_driver()->absent = error;
}

void set_present()
{
    the_driver()->absent = 0;
}

void set_errno_of_close(int error)
{
    the_driver()->errno_of_close = error;
}

void add_rule(const rule &rule)
{
    the_driver()->rules.push_back(rule);
}

void fail_call(unsigned n, int error)
{
    add_rule({.skip = n, .error = error});
}

void fail_command(int command, int error, unsigned skip, unsigned times)
{
    add_rule({.command = command, .skip = skip, .times = times, .error = error});
}

void fail_variable(int command, const var_name &name, int error, unsigned skip, unsigned times)
{
    add_rule({.command = command, .name = name, .skip = skip, .times = times, .error = error});
}

void answer_call(unsigned n, EFI_STATUS status)
{
    add_rule({.skip = n, .status = status});
}

void answer_command(int command, EFI_STATUS status, unsigned skip, unsigned times)
{
    add_rule({.command = command, .skip = skip, .times = times, .status = status});
}

void answer_variable(int command, const var_name &name, EFI_STATUS status, unsigned skip, unsigned times)
{
    add_rule({.command = command, .name = name, .skip = skip, .times = times, .status = status});
}

void script_enumeration(const std::vector<enumeration_step> &steps, bool repeat_last)
{
    the_driver()->script = steps;
    the_driver()->script_position = 0;
    the_driver()->repeat_last = repeat_last;
}

void set_clock(const EFI_TIME &time, const EFI_TIME_CAPABILITIES &capabilities)
{
    the_driver()->clock = time;
    the_driver()->capabilities = capabilities;
}

EFI_TIME clock()
{
    return the_driver()->clock;
}

void set_alarm(const alarm &alarm)
{
    the_driver()->alarm = alarm;
}

alarm current_alarm()
{
    return the_driver()->alarm;
}

void set_monotonic_count(UINT32 high)
{
    the_driver()->high_count = high;
}

void set_storage_info(const storage_info &info)
{
    the_driver()->info = info;
}

const std::vector<request> &requests()
{
    return the_driver()->requests;
}

void forget_requests()
{
    the_driver()->requests.clear();
}

size_t requests_of(int command)
{
    const auto &all = requests();
    return static_cast<size_t>(
        std::count_if(all.begin(), all.end(), [&](const request &one) { return one.command == command; }));
}

void before_each(std::function<void(const request &)> hook)
{
    the_driver()->hook = std::move(hook);
}

const std::vector<opening> &openings()
{
    return the_driver()->openings;
}

unsigned closings()
{
    return the_driver()->closings;
}

unsigned open_descriptors()
{
    return static_cast<unsigned>(the_driver()->open.size());
}

unsigned wrong_descriptors()
{
    return the_driver()->wrong_descriptors;
}

void put_link(const std::string &path, const std::string &target)
{
    the_driver()->links[path] = target;
}

} // namespace fakes
