// Load options and the variables that name them: the part of firmware.h that libovra has routines for.
#include <cstring>
#include <set>

#include "tools/ovra/failure.h"
#include "tools/ovra/firmware.h"

namespace tool {

std::vector<uint16_t> firmware::options()
{
    char **names = nullptr;
    if (call([&] { return ovra_bootopt_list(handle, &names); }) != 0)
        throw failure("cannot list the boot options", {}, messages);
    std::set<uint16_t> numbers;
    for (char **name = names; *name; ++name) {
        const auto number = parse_option(*name);
        // The list has the options of all vendors; firmware boots only those of its own.
        if (number && option_exists(*number))
            numbers.insert(*number);
    }
    return {numbers.begin(), numbers.end()};
}

bool firmware::option_exists(uint16_t number)
{
    return exists_global(option_name(number));
}

void firmware::require_option(uint16_t number)
{
    if (!option_exists(number))
        throw failure("no such option: " + option_name(number), "'ovra list' shows the options.");
}

uint16_t firmware::unused_option()
{
    char *name = nullptr;
    if (call([&] { return ovra_bootopt_unused(handle, &name); }) != 0)
        throw failure("no option number is free", "Remove options that are not needed.", messages);
    return parse_option(name).value();
}

load_option firmware::read_option(uint16_t number)
{
    std::string name = option_name(number);
    load_option option;
    ovra_epath_t path = nullptr;
    int path_size = 0;
    char *description = nullptr;
    void *optional_data = nullptr;
    size_t optional_size = 0;
    if (call([&] {
            return ovra_bootopt_get(handle, name.data(), &path, &path_size, &description, &option.attributes,
                                    &optional_data, &optional_size);
        }) != 0)
        throw failure("cannot read " + name,
                      "It is damaged, or is no load option that the library can read.\n"
                      "'ovra vars -v " +
                          name + "' shows its bytes.",
                      messages);
    option.description = description;
    option.path.assign(path, path + path_size);
    if (const auto *data = static_cast<const uint8_t *>(optional_data))
        option.optional_data.assign(data, data + optional_size);
    return option;
}

void firmware::write_option(uint16_t number, load_option option)
{
    std::string name = option_name(number);
    if (call([&] {
            return ovra_bootopt_set(handle, name.data(), option.path.data(),
                                    static_cast<int>(option.path.size()), option.description.data(),
                                    option.attributes, option.optional_data.data(),
                                    option.optional_data.size());
        }) != 0)
        cannot_change("cannot write " + name, EFI_SUCCESS, as_stored(option).size());
}

void firmware::write_path(uint16_t number, const load_option &option)
{
    std::string name = option_name(number);
    bytes path = option.path;
    if (call([&] {
            return ovra_bootopt_encoded_path_set(handle, name.data(), path.data(),
                                                 static_cast<int>(path.size()));
        }) != 0)
        cannot_change("cannot write " + name, EFI_SUCCESS, as_stored(option).size());
}

std::vector<std::string> firmware::disks_of(uint16_t number)
{
    std::string name = option_name(number);
    char **names = nullptr;
    // An option that is for no disk, or for one that is not there, is no failure of the question.
    if (call([&] { return ovra_bootopt_logdev(handle, name.data(), &names); }) != 0 || !names)
        return {};
    std::vector<std::string> disks;
    for (char **disk = names; *disk; ++disk)
        disks.emplace_back(*disk);
    free_str_array(handle, names);
    return disks;
}

std::vector<uint16_t> firmware::options_on(const std::string &disk)
{
    std::string name = disk;
    char **names = nullptr;
    if (call([&] { return ovra_bootopt_find(handle, name.data(), &names); }) != 0)
        throw failure("cannot look for options that boot from " + in_quotes(disk),
                      "'ovra disks' shows the disks.", messages);
    std::set<uint16_t> numbers;
    for (char **option = names; option && *option; ++option) {
        const auto number = parse_option(*option);
        if (number && option_exists(*number))
            numbers.insert(*number);
    }
    free_str_array(handle, names);
    return {numbers.begin(), numbers.end()};
}

void firmware::remove_option(uint16_t number)
{
    std::string name = option_name(number);
    if (call([&] { return ovra_bootopt_remove(handle, name.data()); }) == 0)
        return;
    const int reason = error;
    const std::string said = messages;
    if (option_exists(number)) {
        error = reason;
        messages = said;
        cannot_change("cannot remove " + name, EFI_SUCCESS, 0);
    }
    throw failure(name + " is removed, but BootOrder still names it",
                  "'ovra order remove " + name + "' takes it out.", said);
}

std::vector<uint16_t> firmware::order()
{
    const variable stored_order = read_global("BootOrder");
    if (stored_order.status == EFI_NOT_FOUND)
        return {};
    if (stored_order.status == EFI_DEVICE_ERROR)
        throw damaged("BootOrder is damaged", "'ovra order set' writes a new one.", messages);
    check("cannot read BootOrder", stored_order.status);
    std::vector<uint16_t> numbers(stored_order.data.size() / 2);
    if (!numbers.empty())
        memcpy(numbers.data(), stored_order.data.data(), numbers.size() * 2);
    return numbers;
}

void firmware::insert_into_order(uint16_t number, int position)
{
    std::string name = option_name(number);
    if (call([&] { return ovra_bootorder_insert(handle, name.data(), position); }) != 0)
        cannot_change("cannot put " + name + " into BootOrder", EFI_SUCCESS, 2);
}

void firmware::remove_from_order(uint16_t number)
{
    std::string name = option_name(number);
    if (call([&] { return ovra_bootorder_remove(handle, name.data()); }) != 0)
        cannot_change("cannot take " + name + " out of BootOrder", EFI_SUCCESS, 0);
}

std::optional<uint16_t> firmware::named_option(const char *variable, int (*get)(ovra_hdl_t, char **))
{
    char *name = nullptr;
    if (call([&] { return get(handle, &name); }) == 0)
        return parse_option(name);
    const std::string said = messages;
    const auto [status, attributes, data] = read_global(variable);
    if (status == EFI_NOT_FOUND)
        return std::nullopt;
    check(std::string("cannot read ") + variable, status);
    throw damaged(format("%s is damaged: it has %zu bytes instead of 2", variable, data.size()), {}, said);
}

std::optional<uint16_t> firmware::current()
{
    return named_option("BootCurrent", ovra_bootcurrent_get);
}

std::optional<uint16_t> firmware::next()
{
    return named_option("BootNext", ovra_bootnext_get);
}

void firmware::set_next(uint16_t number)
{
    std::string name = option_name(number);
    if (call([&] { return ovra_bootnext_set(handle, name.data()); }) != 0)
        cannot_change("cannot write BootNext", EFI_SUCCESS, 2);
}

} // namespace tool
