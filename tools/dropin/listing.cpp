// SPDX-License-Identifier: MIT
#include "tools/dropin/listing.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tools/dropin/mirror.h"
#include "tools/machine/devicepaths.h"
#include "tools/text/failure.h"
#include "tools/text/numbers.h"
#include "tools/text/output.h"

namespace tool::dropin {

namespace {

bool has_lower_case(const std::string &name, const std::string &kind)
{
    return std::any_of(name.begin() + static_cast<ptrdiff_t>(kind.size()), name.end(),
                       [](char c) { return c >= 'a' && c <= 'f'; });
}

void warn_of_names(const store &store)
{
    bool any = false;
    for (const auto &[name, data] : store.options()) {
        if (!has_lower_case(name, store.kind()))
            continue;
        fprintf(stderr, "** Warning ** : %s is not UEFI Spec compliant (lowercase hex in name)\n",
                name.c_str());
        any = true;
    }
    if (any)
        print("** Warning ** : please recreate these using efibootmgr to remove this warning.\n");
}

std::string order_line(const store &store)
{
    const std::string variable = store.kind() + "Order";
    const auto order = store.order();
    if (!order)
        return "No " + variable + " is set" +
               (store.kind() == "Boot" ? "; firmware will attempt recovery\n" : "\n");
    std::vector<std::string> numbers;
    for (const uint16_t number : *order)
        numbers.push_back(format("%04X", number));
    return numbers.empty() ? "" : variable + ": " + join(numbers, ",") + '\n';
}

std::string boot_lines(const store &store)
{
    std::string lines;
    for (const char *variable : {"BootNext", "BootCurrent"}) {
        if (const auto number = store.number_in(variable))
            lines += format("%s: %04X\n", variable, *number);
    }
    if (const auto seconds = store.number_in("Timeout"))
        lines += format("Timeout: %u seconds\n", *seconds);
    return lines;
}

std::string instance_text(const path_text &instance)
{
    std::string text = instance.uefi;
    if (text.empty() && instance.file)
        text = instance.device + "/File(" + *instance.file + ')';
    else if (text.empty())
        text = instance.device;
    return printable(text.starts_with('/') ? text.substr(1) : text);
}

std::string path_of(device_paths &paths, byte_view packed)
{
    if (packed.empty())
        return {};
    const decoded_path path = paths.decode(packed);
    if (!path.error.empty())
        return hex(packed);
    std::vector<std::string> texts;
    for (const path_text &each : path.instances)
        texts.push_back(instance_text(each));
    return join(texts, ",");
}

std::string text_of_units(byte_view data)
{
    std::vector<CHAR16> units(data.size() / sizeof(CHAR16));
    if (!units.empty())
        memcpy(units.data(), data.data(), units.size() * sizeof(CHAR16));
    return printable(to_utf8(units));
}

// The optional data as letters, with points for what is none.
std::string data_text(byte_view data, bool unicode)
{
    if (unicode)
        return text_of_units(data);
    std::string text;
    for (const uint8_t byte : data)
        text += byte >= ' ' && byte < 0x7f ? static_cast<char>(byte) : '.';
    return text;
}

std::string option_line(device_paths *paths, const std::string &name, const bytes &data,
                        const settings &given)
{
    std::string line = name + (is_active(data) ? '*' : ' ') + ' ';
    const auto option = ovra::split_load_option(data);
    if (!option)
        return line + '\n'; // damaged: the next options are listed all the same
    if (!option->has_description())
        return line + text_of_units(byte_view(data).subspan(sizeof(ovra::load_option_header))) + '\n';
    line += text_of_units(option->description);
    if (paths)
        line += '\t' + path_of(*paths, option->path) + data_text(option->optional_data, given.unicode);
    return line + '\n';
}

} // namespace

std::string print_listing(const store &store, const settings &given)
{
    warn_of_names(store);
    const bool boots = store.kind() == "Boot";
    if (boots)
        print(boot_lines(store));
    std::string order;
    std::string unread;
    try {
        order = order_line(store);
    } catch (const failure &reason) { // the options are listed all the same
        unread = reason.what();
    }
    print(order);
    device_paths paths;
    std::string last; // scripts take the last line for the option that was made
    for (const auto &[name, data] : store.options()) {
        const std::string line = option_line(given.verbose ? &paths : nullptr, name, data, given);
        if (name == store.made())
            last = line;
        else
            print(line);
    }
    print(last);
    if (boots)
        print(mirror_lines(store.machine()));
    return unread;
}

} // namespace tool::dropin
