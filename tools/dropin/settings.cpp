// SPDX-License-Identifier: MIT
#include "tools/dropin/settings.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <string_view>

#include "tools/text/output.h"
#include "tools/text/text.h"

namespace tool::dropin {

namespace {

constexpr float hundredths = 100;
constexpr float largest_percentage = 50;

constexpr char letters[] = "AaBb:CcDd:E:e:gH:hi:L:l:M:m:Nn:Oo:p:qrTt:U:uv::Vwy@:";
constexpr std::array<option, 35> long_names = {{
    {"active", no_argument, nullptr, 'a'},
    {"inactive", no_argument, nullptr, 'A'},
    {"bootnum", required_argument, nullptr, 'b'},
    {"delete-bootnum", no_argument, nullptr, 'B'},
    {"create", no_argument, nullptr, 'c'},
    {"create-only", no_argument, nullptr, 'C'},
    {"remove-dups", no_argument, nullptr, 'D'},
    {"disk", required_argument, nullptr, 'd'},
    {"edd-device", required_argument, nullptr, 'E'},
    {"edd30", required_argument, nullptr, 'e'},
    {"gpt", no_argument, nullptr, 'g'},
    {"keep", no_argument, nullptr, 'k'},
    {"iface", required_argument, nullptr, 'i'},
    {"label", required_argument, nullptr, 'L'},
    {"loader", required_argument, nullptr, 'l'},
    {"mirror-above-4G", required_argument, nullptr, 'M'},
    {"mirror-below-4G", required_argument, nullptr, 'm'},
    {"delete-bootnext", no_argument, nullptr, 'N'},
    {"bootnext", required_argument, nullptr, 'n'},
    {"delete-bootorder", no_argument, nullptr, 'O'},
    {"bootorder", required_argument, nullptr, 'o'},
    {"part", required_argument, nullptr, 'p'},
    {"quiet", no_argument, nullptr, 'q'},
    {"driver", no_argument, nullptr, 'r'},
    {"delete-timeout", no_argument, nullptr, 'T'},
    {"timeout", required_argument, nullptr, 't'},
    {"unicode", no_argument, nullptr, 'u'},
    {"UCS-2", no_argument, nullptr, 'u'},
    {"verbose", optional_argument, nullptr, 'v'},
    {"version", no_argument, nullptr, 'V'},
    {"write-signature", no_argument, nullptr, 'w'},
    {"sysprep", no_argument, nullptr, 'y'},
    {"append-binary-args", required_argument, nullptr, '@'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
}};

[[noreturn]] void refuse_value(int status, const char *what, const std::string &value)
{
    throw ended{status, format("invalid %s %s\n\n", what, printable(value).c_str())};
}

// A whole number, as C reads it but for what may follow.
long number_in(const std::string &text, int status, long least, long largest)
{
    char *end = nullptr;
    errno = 0;
    const long value = strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || value < least || value > largest)
        refuse_value(status, "numeric value", text);
    return value;
}

// The number of an option, in hexadecimal.
uint16_t option_in(const std::string &text, const char *name, int status)
{
    char *end = nullptr;
    const unsigned long value = strtoul(text.c_str(), &end, 16);
    if (text.empty() || *end != '\0')
        throw ended{status,
                    marked(format("Invalid %s value", name), text, static_cast<size_t>(end - text.c_str()))};
    if (value > UINT16_MAX ||
        text.find('-') != std::string::npos) // a negative one is counted from the largest
        throw ended{status + 1, format("Invalid %s value: %lX\n\n", name, value)};
    return static_cast<uint16_t>(value);
}

edd edd_in(const std::string &text)
{
    const long version = number_in(text, has_no_edd, INT32_MIN, INT32_MAX);
    if (version != 1 && version != 3 && version != -1)
        throw ended{has_unknown_edd, format("invalid EDD version %ld\n\n", version)};
    return version == 1 ? edd::one : version == 3 ? edd::three : edd::guessed;
}

uint32_t device_in(const std::string &text)
{
    const std::string_view digits = text.starts_with("0x") ? std::string_view(text).substr(2) : text;
    char *end = nullptr;
    const unsigned long value = strtoul(text.c_str(), &end, 16);
    if (digits.empty() || *end != '\0' || text[0] == '-' || value > UINT32_MAX)
        refuse_value(has_no_device, "hex value", text);
    return static_cast<uint32_t>(value);
}

bool boolean_in(const std::string &text)
{
    const bool is_true = !text.empty() && std::string_view("1ty").find(text[0]) != std::string_view::npos;
    if (!is_true && (text.empty() || std::string_view("0fn").find(text[0]) == std::string_view::npos))
        refuse_value(has_no_boolean, "boolean value", text);
    return is_true;
}

uint16_t percentage_in(const std::string &text)
{
    char *end = nullptr;
    const float value = strtof(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(value >= 0 && value <= largest_percentage))
        refuse_value(has_no_percentage, "numeric value", text);
    return static_cast<uint16_t>(value * hundredths);
}

struct flag {
    int letter;
    bool settings::*is_given;
};
constexpr std::array<flag, 8> flags = {{
    {'B', &settings::deletes},
    {'D', &settings::removes_duplicates},
    {'N', &settings::deletes_next},
    {'O', &settings::deletes_order},
    {'T', &settings::deletes_timeout},
    {'q', &settings::quiet},
    {'u', &settings::unicode},
    {'v', &settings::verbose},
}};

bool take_flag(settings *given, int letter)
{
    for (const flag &each : flags) {
        if (each.letter == letter)
            given->*each.is_given = true;
    }
    if (letter == 'a' || letter == 'A')
        given->active = letter == 'a';
    if (letter == 'c' || letter == 'C')
        given->creates = true;
    if (letter == 'C')
        given->in_order = false;
    // A GPT is read whatever the MBR in front of it says; a disk whose MBR has no signature is refused.
    return std::string_view("aAcCgkwBDNOTquv").find(static_cast<char>(letter)) != std::string_view::npos;
}

void take_number(settings *given, int letter, const std::string &value)
{
    constexpr long largest = UINT16_MAX;
    if (letter == 'b')
        given->number = option_in(value, "bootnum", has_no_hex);
    if (letter == 'n')
        given->next = option_in(value, "BootNext", has_no_next_hex);
    if (letter == 't') // -1 is the largest: the menu waits for somebody
        given->timeout = static_cast<uint16_t>(number_in(value, has_no_seconds, -1, largest));
    if (letter == 'p') {
        const long part = number_in(value, has_no_part, -1, largest);
        given->part = part < 0 ? std::nullopt : std::optional(static_cast<unsigned>(part));
    }
    if (letter == 'E')
        given->edd_device = device_in(value);
    if (letter == 'e')
        given->form = edd_in(value);
    if (letter == 'M')
        given->mirror_above = percentage_in(value);
    if (letter == 'm')
        given->mirror_below = boolean_in(value);
}

bool take_text(settings *given, int letter, const std::string &value)
{
    switch (letter) {
    case 'd':
        given->disk = value;
        return true;
    case 'i':
        given->interface = value;
        return true;
    case 'L':
        given->label = value;
        return true;
    case 'l':
        given->loader = value;
        return true;
    case 'o':
        given->order = value;
        return true;
    case '@':
        given->arguments_file = value;
        return true;
    default:
        return false;
    }
}

// One option; false for help and the version, which are printed then.
bool take(settings *given, int letter, const std::string &value)
{
    if (letter == 'V') {
        print("version 17\n");
        return false;
    }
    if (letter == 'h') {
        print_usage();
        return false;
    }
    if (take_flag(given, letter) || take_text(given, letter, value))
        return true;
    if (std::string_view("bntpEeMm").find(static_cast<char>(letter)) == std::string_view::npos) {
        print_usage();
        throw ended{is_misused};
    }
    take_number(given, letter, value);
    return true;
}

// Options of boot options alone, with another kind.
void check_kind(const settings &given)
{
    if (given.kind == "Boot")
        return;
    const std::string mode =
        given.program + ": --" + (given.kind == "Driver" ? "driver" : "sysprep") + " mode does not support ";
    if (given.next || given.deletes_next)
        throw ended{has_no_next, mode + "BootNext options.\n"};
    if (given.timeout || given.deletes_timeout)
        throw ended{has_no_timeout, mode + "timeout options.\n"};
}

} // namespace

std::string marked(const std::string &complaint, const std::string &value, size_t at)
{
    constexpr size_t indent = 2; // the mark stood under a value behind a colon once
    return complaint + printable(value) + '\n' +
           std::string(complaint.size() + columns(printable(value.substr(0, at))) + indent, ' ') + "^\n";
}

std::optional<settings> read_settings(int argc, char **argv)
{
    settings given;
    given.program = argv[0];
    bool drivers = false;
    bool preparations = false;
    for (;;) {
        const int letter = getopt_long(argc, argv, letters, long_names.data(), nullptr);
        if (letter == -1)
            break;
        drivers = drivers || letter == 'r';
        preparations = preparations || letter == 'y';
        if (letter != 'r' && letter != 'y' && !take(&given, letter, optarg ? optarg : ""))
            return std::nullopt;
    }
    if (drivers && preparations)
        throw ended{has_two_kinds, given.program + ": --sysprep and --driver may not be used together.\n"};
    if (drivers || preparations)
        given.kind = drivers ? "Driver" : "SysPrep";
    check_kind(given);
    given.arguments.assign(argv + optind, argv + argc);
    return given;
}

} // namespace tool::dropin
