// SPDX-License-Identifier: MIT
#include "tools/machine/optionnames.h"

#include <algorithm>

#include "src/base/ascii.h"
#include "tools/machine/devicepaths.h"
#include "tools/text/description.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"

namespace tool {

namespace {

constexpr const char *naming_advice =
    "An option is named by its number, as Boot001F, by its description or the\n"
    "beginning of it, or as @current, @next or @first: 'ovra list' shows them.";

// Firmware ends the names of disks in blanks.
std::string_view without_blanks_at_end(std::string_view text)
{
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

std::string comparable(std::string text)
{
    for (char &c : text)
        c = c == '\\' ? '/' : ovra::ascii_lower(c);
    return text;
}

bool has_part(const decoded_path &path, const std::string &part)
{
    const auto holds = [&part](const path_text &each) {
        const std::string whole = each.device + (each.file ? '/' + *each.file : std::string());
        return comparable(whole).find(part) != std::string::npos ||
               comparable(each.device + each.file.value_or("")).find(part) != std::string::npos ||
               comparable(each.uefi).find(part) != std::string::npos;
    };
    return std::any_of(path.instances.begin(), path.instances.end(), holds) ||
           std::any_of(path.further.begin(), path.further.end(),
                       [&part](const decoded_path &next) { return has_part(next, part); });
}

} // namespace

const std::vector<option_lookup::known_option> &option_lookup::options()
{
    if (known)
        return *known;
    known.emplace();
    for (const uint16_t number : machine.options()) {
        const variable is = machine.read_global(machine.name_of(number));
        // One that is damaged has no description.
        if (const auto parts = split(is.data))
            known->push_back(
                {number, description_of_units(parts->description), {parts->path.begin(), parts->path.end()}});
    }
    return *known;
}

std::vector<std::pair<uint16_t, std::string>> option_lookup::descriptions()
{
    std::vector<std::pair<uint16_t, std::string>> all;
    for (const known_option &each : options())
        all.emplace_back(each.number, each.description);
    return all;
}

std::vector<const option_lookup::known_option *> option_lookup::all_with(const match &matches)
{
    std::vector<const known_option *> found;
    for (const known_option &each : options()) {
        if (matches(each))
            found.push_back(&each);
    }
    return found;
}

uint16_t option_lookup::only(const std::vector<const known_option *> &found, const std::string &what) const
{
    if (found.size() == 1)
        return found.front()->number;
    constexpr size_t most = 20;
    std::string candidates;
    for (size_t at = 0; at < std::min(found.size(), most); ++at)
        candidates += (at == 0 ? "" : "\n") + machine.name_of(found[at]->number) + "  " +
                      shown_description(found[at]->description);
    if (found.size() > most)
        candidates += format("\n... and %zu more", found.size() - most);
    throw failure(what + format(" names %zu options", found.size()), candidates);
}

std::optional<uint16_t> option_lookup::of_variable(const std::string &name)
{
    const auto require = [](std::optional<uint16_t> number, const char *variable) {
        if (!number)
            throw failure(std::string(variable) + " is not set", naming_advice);
        return number;
    };
    const bool is_of_boot = ovra::alike(name, "@current") || ovra::alike(name, "@next");
    if (is_of_boot && !machine.kind().is_boot())
        throw failure(name + " names a boot option, and no other kind");
    if (ovra::alike(name, "@current"))
        return require(machine.current(), "BootCurrent");
    if (ovra::alike(name, "@next"))
        return require(machine.next(), "BootNext");
    if (!ovra::alike(name, "@first"))
        return std::nullopt;
    const std::vector<uint16_t> order = machine.order();
    return require(order.empty() ? std::nullopt : std::optional(order.front()), machine.order_name().c_str());
}

std::vector<const option_lookup::known_option *> option_lookup::described(const std::string &name)
{
    const std::string_view wanted = without_blanks_at_end(name);
    const match by_rank[] = {
        [&](const known_option &each) { return each.description == name; },
        [&](const known_option &each) {
            return ovra::alike(without_blanks_at_end(each.description), wanted);
        },
        [&](const known_option &each) {
            return ovra::alike(std::string_view(each.description).substr(0, name.size()), name);
        },
    };
    for (const match &matches : by_rank) {
        if (auto found = all_with(matches); !found.empty())
            return found;
    }
    return {};
}

uint16_t option_lookup::named(const std::string &name)
{
    if (const auto number = machine.kind().typed_number(name))
        return *number;
    if (const auto number = of_variable(name))
        return *number;
    // As it stands, or as it is shown.
    for (const std::string &each : {name, typed_description(name)}) {
        if (const auto found = described(each); !found.empty())
            return only(found, quoted_description(each));
    }
    for (const option_kind &other : option_kinds) {
        if (const auto number = other.typed_number(name))
            throw failure(other.name(*number) + " is of another kind",
                          "--kind " + std::string(other.word) + " is for these.");
    }
    throw failure("no option is named " + in_quotes(name), naming_advice);
}

uint16_t option_lookup::with_path(const std::string &part)
{
    device_paths paths;
    const std::string wanted = comparable(part);
    const auto found =
        all_with([&](const known_option &each) { return has_part(paths.decode(each.path), wanted); });
    if (found.empty())
        throw failure("no option has " + in_quotes(part) + " in its path", "'ovra list -v' shows the paths.");
    return only(found, in_quotes(part));
}

} // namespace tool
