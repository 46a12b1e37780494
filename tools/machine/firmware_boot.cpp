// SPDX-License-Identifier: MIT
// Load options and the variables that name them.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string_view>
#include <sys/stat.h>

#include "platform/include/devns.h"
#include "tools/machine/firmware.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"

namespace tool {

namespace {

// By number. Firmware boots only options of its own vendor, and of the one spelling.
using option_set = std::vector<char>;

// The options among the names of all variables; false where these cannot be asked for.
bool find_names(const option_kind &kind, option_set *there)
{
    const std::string after_name = '-' + guid_text(ovra::global_variable_guid);
    const int services = devns_open(DEVNS_RUNTIME_SERVICES, O_RDWR);
    if (services == -1)
        return false;
    const auto release = [](char *block) { free(block); };
    const std::unique_ptr<char, decltype(release)> names(devns_variable_names(services), release);
    devns_close(services);
    if (!names)
        return false;
    there->assign(UINT16_MAX + 1, 0);
    for (const char *at = names.get(); *at != '\0';) {
        const std::string_view name = at;
        const auto number = name.ends_with(after_name)
                                ? kind.number_in(name.substr(0, name.size() - after_name.size()))
                                : std::nullopt;
        if (number)
            (*there)[*number] = 1;
        at += name.size() + 1;
    }
    return true;
}

} // namespace

std::vector<uint16_t> firmware::options()
{
    option_set there;
    if (!find_names(options_kind, &there))
        visit_variables([&there] { there.assign(UINT16_MAX + 1, 0); },
                        [this, &there](const variable_id &id) {
                            const auto number = options_kind.number_in(to_utf8(id.name));
                            if (number && ovra::same_guid(id.guid, ovra::global_variable_guid))
                                there[*number] = 1;
                        });
    std::vector<uint16_t> numbers;
    for (size_t number = 0; number < there.size(); ++number) {
        if (there[number] != 0)
            numbers.push_back(static_cast<uint16_t>(number));
    }
    return numbers;
}

bool firmware::option_exists(uint16_t number)
{
    return exists_global(name_of(number));
}

failure firmware::no_such_option(uint16_t number) const
{
    return failure("no such option: " + name_of(number),
                   "'ovra list" + options_kind.in_advice() + "' shows the options.");
}

void firmware::require_option(uint16_t number)
{
    if (!option_exists(number))
        throw no_such_option(number);
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

// Of a variable that is damaged, or no load option.
std::string firmware::damage_of(const std::string &name, const variable &is) const
{
    if (!is_damaged(is))
        return format("its %zu bytes are no load option", is.data.size());
    struct stat file = {};
    if (!image.empty() || lstat(file_of(name).c_str(), &file) != 0)
        return "its data make no sense";
    switch (file.st_mode & S_IFMT) {
    case S_IFREG:
        return format("its file of %lld bytes is no variable", static_cast<long long>(file.st_size));
    case S_IFDIR:
        return "a folder is in its place";
    case S_IFLNK:
        return "a symbolic link is in its place";
    case S_IFIFO:
        return "a FIFO is in its place";
    default:
        return "a device or a socket is in its place";
    }
}

unreadable firmware::why_unreadable(const std::string &name, const variable &is)
{
    const std::string said = messages;
    const auto because = [&](const std::string &why, const std::string &advice) {
        unreadable reason("cannot read " + name + ": " + why, advice, said, why);
        reason.damage = why == "damaged" ? damage_of(name, is) : "";
        reason.is_gone = is.status == EFI_NOT_FOUND;
        return reason;
    };
    if (is_refusal(is.status))
        return because("no permission", permission_advice());
    const std::string bytes_advice = "'ovra vars -v " + name + "' shows its bytes.";
    std::error_code ignored;
    if (is_damaged(is) && std::filesystem::is_directory(file_of(name), ignored))
        return because("damaged", "A folder is in its place: remove " + file_of(name) + '.');
    if (is_damaged(is) || is.status == EFI_SUCCESS)
        return because("damaged", (is_damaged(is) ? "" : bytes_advice + '\n') + "'ovra remove" +
                                      options_kind.in_advice() + ' ' + name + "' removes it.");
    return because(is.error != 0 ? strerror(is.error) : status_name(is.status), {});
}

bool firmware::find_option(uint16_t number, load_option *found)
{
    constexpr size_t longest_name = 20; // "PlatformRecovery0000"
    CHAR16 asked[longest_name + 1] = {};
    const ovra::option_name name(number);
    CHAR16 *const end = std::copy(options_kind.prefix.begin(), options_kind.prefix.end(), asked);
    std::copy(name.digits().begin(), name.digits().end(), end);
    const buffered is = read_to_buffer(asked, ovra::global_variable_guid);
    if (is.status == EFI_NOT_FOUND)
        return false;
    // Not by the library, which refuses long descriptions and characters beyond U+FFFF.
    if (is.status != EFI_SUCCESS || !take_option(is.data, found))
        throw why_unreadable(name_of(number),
                             {is.status, error, is.attributes, {is.data.begin(), is.data.end()}});
    return true;
}

load_option firmware::read_option(uint16_t number)
{
    load_option found;
    if (!find_option(number, &found))
        throw no_such_option(number);
    return found;
}

std::string firmware::order_name() const
{
    return options_kind.order ? options_kind.order : "an order";
}

std::vector<uint16_t> firmware::order()
{
    if (!options_kind.order)
        return {};
    const std::string name = order_name();
    const variable is = read_global(name);
    if (is.status == EFI_NOT_FOUND)
        return {};
    if (is_damaged(is)) {
        std::error_code ignored;
        const std::string path = file_of(name);
        require_read(name, is,
                     std::filesystem::is_directory(path, ignored)
                         ? "A folder is in its place: remove " + path + '.'
                         : "'ovra order set" + options_kind.in_advice() + "' writes a new one.");
    }
    require_read(name, is);
    // The firmware does not look at half an entry either.
    if (is.data.size() % sizeof(uint16_t) != 0)
        warn(name + format(" has %zu bytes: the last one is half an entry", is.data.size()),
             "It is lost when " + name + " is written.");
    std::vector<uint16_t> numbers(is.data.size() / sizeof(uint16_t));
    if (!numbers.empty())
        memcpy(numbers.data(), is.data.data(), numbers.size() * sizeof(uint16_t));
    return numbers;
}

std::optional<bytes> firmware::read_sized(const std::string &name, size_t size)
{
    variable is = read_global(name);
    if (is.status == EFI_NOT_FOUND)
        return std::nullopt;
    require_read(name, is);
    if (is.data.size() != size)
        throw damaged(
            format("%s is damaged: it has %zu bytes instead of %zu", name.c_str(), is.data.size(), size));
    return std::move(is.data);
}

std::optional<uint16_t> firmware::read_number(const std::string &name)
{
    uint16_t number = 0;
    const auto stored = read_sized(name, sizeof number);
    if (!stored)
        return std::nullopt;
    memcpy(&number, stored->data(), sizeof number);
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
            const bytes variable = read_if_sound(boot_options.name(number));
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
    return options_kind.is_boot() ? read_number("BootCurrent") : std::nullopt;
}

std::optional<uint16_t> firmware::next()
{
    return options_kind.is_boot() ? read_number("BootNext") : std::nullopt;
}

} // namespace tool
