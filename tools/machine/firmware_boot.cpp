// SPDX-License-Identifier: MIT
// Load options and the variables that name them.
#include <cstring>
#include <filesystem>
#include <set>

#include "tools/machine/firmware.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"

namespace tool {

std::vector<uint16_t> firmware::options()
{
    std::set<uint16_t> numbers;
    for (const variable_id &id : variables()) {
        const std::string name = to_utf8(id.name);
        const auto number = ovra::option_number(name);
        // Firmware boots only options of its own vendor, and of the one spelling.
        if (number && ovra::same_guid(id.guid, ovra::global_variable_guid))
            numbers.insert(*number);
    }
    if (!image.empty())
        return {numbers.begin(), numbers.end()};
    // What is damaged is not enumerated; where variables are files it is there all the same.
    std::error_code ignored;
    for (std::filesystem::directory_iterator file(variables_folder(), ignored), end; !ignored && file != end;
         file.increment(ignored)) {
        const std::string name = file->path().filename().string().substr(0, option_name(0).size());
        const auto number = parse_option(name);
        if (number && !numbers.contains(*number) && file->path() == file_of(option_name(*number)) &&
            option_exists(*number))
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

void firmware::require_sound_option(uint16_t number)
{
    require_option(number);
    try {
        read_option(number);
    } catch (unreadable &reason) {
        if (reason.why != "damaged")
            return;
        reason.advice += "\n--force names it all the same.";
        throw;
    }
}

unreadable firmware::why_unreadable(const std::string &name)
{
    const std::string said = messages;
    const auto because = [&](const std::string &why, const std::string &advice) {
        return unreadable("cannot read " + name + ": " + why, advice, said, why);
    };
    const variable is = read_global(name);
    if (is_refusal(is.status))
        return because("no permission", permission_advice());
    const auto parts = split(is.data);
    const std::string bytes_advice = "'ovra vars -v " + name + "' shows its bytes.";
    std::error_code ignored;
    if (is_damaged(is) && std::filesystem::is_directory(file_of(name), ignored))
        return because("damaged", "A folder is in its place: remove " + file_of(name) + '.');
    if (is_damaged(is) || (is.status == EFI_SUCCESS && !parts))
        return because("damaged", (is_damaged(is) ? "" : bytes_advice + '\n') + "'ovra remove " + name +
                                      "' removes it.");
    if (is.status != EFI_SUCCESS)
        return because(is.error != 0 ? strerror(is.error) : status_name(is.status), {});
    if (parts->description.size() > ovra::description_limit)
        return because("its description is longer than 127 characters", bytes_advice);
    return because("the library cannot read it", bytes_advice);
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
        throw why_unreadable(name);
    option.description = description;
    option.path.assign(path, path + path_size);
    if (const auto *data = static_cast<const uint8_t *>(optional_data))
        option.optional_data.assign(data, data + optional_size);
    return option;
}

std::vector<std::string> firmware::disks_of(uint16_t number)
{
    std::string name = option_name(number);
    char **names = nullptr;
    // An option that is for no disk, or for an absent one, is no failure of the question.
    if (call([&] { return ovra_bootopt_logdev(handle, name.data(), &names); }) != 0 || !names)
        return {};
    std::vector<std::string> disks;
    for (char **disk = names; *disk; ++disk)
        disks.emplace_back(*disk);
    free_str_array(handle, names);
    return disks;
}

std::vector<uint16_t> firmware::order()
{
    const variable is = read_global("BootOrder");
    if (is.status == EFI_NOT_FOUND)
        return {};
    std::error_code ignored;
    const std::string path = file_of("BootOrder");
    require_read("BootOrder", is,
                 std::filesystem::is_directory(path, ignored)
                     ? "A folder is in its place: remove " + path + '.'
                     : "'ovra order set' writes a new one.");
    // The firmware does not look at half an entry either.
    if (is.data.size() % sizeof(uint16_t) != 0)
        warn(format("BootOrder has %zu bytes: the last one is half an entry", is.data.size()),
             "It is lost when BootOrder is written.");
    std::vector<uint16_t> numbers(is.data.size() / sizeof(uint16_t));
    if (!numbers.empty())
        memcpy(numbers.data(), is.data.data(), numbers.size() * sizeof(uint16_t));
    return numbers;
}

std::optional<uint16_t> firmware::named_option(const char *name)
{
    const variable is = read_global(name);
    if (is.status == EFI_NOT_FOUND)
        return std::nullopt;
    require_read(name, is);
    uint16_t number = 0;
    if (is.data.size() != sizeof number)
        throw damaged(format("%s is damaged: it has %zu bytes instead of 2", name, is.data.size()));
    memcpy(&number, is.data.data(), sizeof number);
    return number;
}

// As the machine itself chooses: what BootNext names, though it be inactive, else the first active option of
// BootOrder. What is damaged starts nothing; what cannot be read might.
std::optional<uint16_t> firmware::booted_next()
{
    const auto read_if_sound = [this](const std::string &name) {
        variable is = read_global(name);
        if (is.status == EFI_NOT_FOUND || is_damaged(is))
            return bytes{};
        check("cannot read " + name, is.status);
        return std::move(is.data);
    };
    const auto first_of = [&](const bytes &options, uint32_t wanted) -> std::optional<uint16_t> {
        for (size_t at = 0; at + sizeof(uint16_t) <= options.size(); at += sizeof(uint16_t)) {
            uint16_t number = 0;
            memcpy(&number, options.data() + at, sizeof number);
            const bytes variable = read_if_sound(option_name(number));
            const auto option = ovra::split_load_option(variable);
            if (option && (option->attributes & wanted) == wanted)
                return number;
        }
        return std::nullopt;
    };
    const bytes next = read_if_sound("BootNext");
    const auto once = next.size() == sizeof(uint16_t) ? first_of(next, 0) : std::nullopt;
    return once ? once : first_of(read_if_sound("BootOrder"), LOAD_OPTION_ACTIVE);
}

std::optional<uint16_t> firmware::current()
{
    return named_option("BootCurrent");
}

std::optional<uint16_t> firmware::next()
{
    return named_option("BootNext");
}

} // namespace tool
