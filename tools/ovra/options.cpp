// SPDX-License-Identifier: MIT
#include "tools/ovra/options.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <set>

#include <CLI/CLI.hpp>

#include "tools/ovra/clock.h"
#include "tools/ovra/commandline.h"
#include "tools/ovra/devicepaths.h"
#include "tools/ovra/failure.h"
#include "tools/ovra/loadoption.h"
#include "tools/ovra/output.h"

namespace tool {

namespace {

uint16_t option_argument(const std::string &text)
{
    const auto number = parse_option(text);
    if (!number)
        throw usage_error(in_quotes(text) + " is no boot option: Boot and four hex digits, as Boot001F");
    return *number;
}

// Programs read it as octal or as decimal: nobody can tell which is meant. (In the names of options all
// digits are hexadecimal.)
void refuse_leading_zero(const std::string &text)
{
    const size_t sign = text.starts_with('-') ? 1 : 0;
    if (text.size() > sign + 1 && text[sign] == '0' && text[sign + 1] >= '0' && text[sign + 1] <= '9')
        throw usage_error(in_quotes(text) + " has a leading zero, which may mean octal: leave it out");
}

int position_argument(const std::string &text)
{
    refuse_leading_zero(text);
    int position = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), position);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        throw usage_error(in_quotes(text) + " is no position: a whole number is needed");
    return position;
}

// A list separated by commas, in any number of arguments.
std::vector<uint16_t> order_argument(const std::vector<std::string> &lists)
{
    std::vector<uint16_t> order;
    std::set<uint16_t> seen;
    for (const std::string &list : lists) {
        for (size_t begin = 0; begin <= list.size();) {
            const size_t end = std::min(list.find(',', begin), list.size());
            const uint16_t number = option_argument(list.substr(begin, end - begin));
            if (!seen.insert(number).second)
                throw usage_error(option_name(number) + " is named twice");
            order.push_back(number);
            begin = end + 1;
        }
    }
    return order;
}

using texts = std::vector<std::string>;

constexpr int many = CLI::detail::expected_max_vector_size;

// An option or a positional argument with one value, handed to `take`, which may throw a usage_error.
template <typename taker>
CLI::Option *value(CLI::App &verb, const char *name, const char *shown, const char *help, taker take)
{
    auto *option = verb.add_option(
        name,
        [take](const texts &values) {
            take(values.front());
            return true;
        },
        help);
    return option->type_name(shown)->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::Throw);
}

// The options that a verb works on.
CLI::Option *named_options(CLI::App &verb, arguments &args, bool several, const char *help)
{
    auto *option = verb.add_option(
        "option",
        [&args](const texts &values) {
            for (const std::string &text : values)
                args.options.push_back(option_argument(text));
            return true;
        },
        help);
    return option->type_name("Boot####")->expected(1, several ? many : 1)->allow_extra_args(several);
}

void description_option(CLI::App &verb, arguments &args, bool required)
{
    value(verb, "--desc", "TEXT", "description, as boot menus show it; at most 127 characters",
          [&args](const std::string &text) {
              check_description(text);
              args.description = text;
          })
        ->required(required);
}

CLI::Option *device_text_option(CLI::App &verb, arguments &args)
{
    return value(verb, "--devpath", "TEXT", "the device path as text, as /PciRoot(0)/Pci(0x1F,2)/Sata(0,0,0)",
                 [&args](const std::string &text) {
                     if (text.empty())
                         throw usage_error("--devpath: a device path is needed");
                     args.device_text = text;
                 });
}

CLI::Option *file_option(CLI::App &verb, arguments &args)
{
    return value(verb, "--file", "FILE",
                 "the file to boot from the device, as \\EFI\\BOOT\\BOOTX64.EFI; slashes become backslashes",
                 [&args](const std::string &text) {
                     if (text.empty())
                         throw usage_error("--file: the name of a file is needed");
                     args.file = text;
                 });
}

CLI::Option *optional_data_options(CLI::App &verb, arguments &args)
{
    auto *file = value(verb, "--optdata-file", "FILE", "optional data: the contents of FILE",
                       [&args](const std::string &text) { args.optional_data_file = text; });
    return value(verb, "--optdata-text", "TEXT",
                 "optional data: TEXT as null-terminated UCS-2, which a kernel takes as its command line",
                 [&args](const std::string &text) {
                     if (!to_ucs2(text))
                         throw usage_error("--optdata-text: " + in_quotes(text) +
                                           " is no UTF-8 text of characters up to U+FFFF");
                     args.optional_data_text = text;
                 })
        ->excludes(file);
}

// A text that ends in a file names one, and firmware separates folders by "\\".
void settle_file(arguments *args)
{
    if (args->device_text && !is_device_name(*args->device_text)) {
        const path_text given = split_file(*args->device_text);
        if (given.file && args->file)
            throw usage_error("the path names a file, " + in_quotes(*given.file) + ", and --file another");
        // Further nodes, another instance or quotes would become part of the file's name.
        if (given.file && given.file->find_first_of("()\"") != std::string::npos)
            throw usage_error("what follows the devices is no plain file, " + in_quotes(*given.file) +
                              "; --file takes any name");
        args->device_text = given.device;
        if (given.file)
            args->file = given.file;
    }
    if (!args->file || firmware_file(*args->file) == *args->file)
        return;
    args->file = firmware_file(*args->file);
    fprintf(stderr, "The file is named as firmware does, %s.\n", printable(*args->file).c_str());
}

} // namespace

void list_options(CLI::App &verb, arguments &args)
{
    verb.add_flag("-v,--verbose", args.verbose, "also paths, attributes and optional data");
}

void show_options(CLI::App &verb, arguments &args)
{
    named_options(verb, args, false, "the option to show")->required();
}

void create_options(CLI::App &verb, arguments &args)
{
    description_option(verb, args, true);
    auto *digits = value(verb, "--path-hex", "HEX", "the packed device path, as hexadecimal digits",
                         [&args](const std::string &text) {
                             args.path = parse_hex(text);
                             if (!args.path)
                                 throw usage_error("--path-hex: pairs of hexadecimal digits are needed");
                         });
    auto *devices = device_text_option(verb, args);
    auto *disk =
        value(verb, "--disk", "DISK",
              "the path of a disk's slice or partition, by its name (c0t0d0s0), Linux's (/dev/sda1) or "
              "PARTUUID=...",
              [&args](const std::string &name) { args.disk = name; });
    digits->excludes(devices)->excludes(disk);
    devices->excludes(disk);
    file_option(verb, args)->excludes(digits);
    verb.add_flag("--full", args.full,
                  "with --disk: the path begins with the hardware that leads to the disk")
        ->needs(disk);
    optional_data_options(verb, args);
    value(verb, "--number", "####", "hexadecimal number of the option; else the lowest that is not in use",
          [&args](const std::string &text) { args.number = option_argument(text); });
    value(verb, "--position", "N",
          "place in BootOrder: 0 is first, -1 (which is also the default) last, -2 before the last;\n"
          "counted before the option is taken out of its old place",
          [&args](const std::string &text) { args.position = position_argument(text); });
    verb.add_flag("--force", args.force,
                  "overwrite an option that --number names, take a path that is not well-formed");
    verb.final_callback([&args] {
        if (!args.path && !args.device_text && !args.disk)
            throw usage_error("create: one of --path-hex, --devpath and --disk is required");
    });
}

void set_options(CLI::App &verb, arguments &args)
{
    named_options(verb, args, false, "the option to change")->required();
    description_option(verb, args, false);
    device_text_option(verb, args);
    file_option(verb, args);
    auto *attributes = value(verb, "--attr", "N", "attributes: the whole 32-bit number, as 0x1",
                             [&args](const std::string &text) {
                                 refuse_leading_zero(text);
                                 args.attributes = parse_number(text);
                                 if (!args.attributes)
                                     throw usage_error("--attr: " + in_quotes(text) + " is no 32-bit number");
                             });
    auto *active = verb.add_flag_callback(
        "--active", [&args] { args.active = true; }, "make it active");
    auto *inactive = verb.add_flag_callback(
        "--inactive", [&args] { args.active = false; }, "make it inactive");
    attributes->excludes(active)->excludes(inactive);
    active->excludes(inactive);
    auto *text = optional_data_options(verb, args);
    verb.add_flag("--no-optdata", args.no_optional_data, "remove the optional data")
        ->excludes(text)
        ->excludes(verb.get_option("--optdata-file"));
    verb.final_callback([&args] {
        if (!args.description && !args.device_text && !args.file && !args.attributes && !args.active &&
            !args.optional_data_file && !args.optional_data_text && !args.no_optional_data)
            throw usage_error("set: nothing to change is given");
    });
}

void remove_options(CLI::App &verb, arguments &args)
{
    named_options(verb, args, true, "the options to remove")->required();
}

void order_options(CLI::App &verb, arguments &args)
{
    const char *force = "also options that do not exist";

    auto *insert = verb.add_subcommand("insert", "put an option into BootOrder, out of its old place");
    named_options(*insert, args, false, "the option")->required();
    value(
        *insert, "position", "POSITION",
        "its place in the resulting order: 0 is first, -1 (which is also the default) last. Negative places "
        "are counted before the option is taken out: -2 is before the last for an option that is not in the "
        "order, and last for one that is",
        [&args](const std::string &text) { args.position = position_argument(text); });
    insert->add_flag("--force", args.force, force);
    insert->callback([&args] { args.order = arguments::order_action::insert; });

    auto *remove = verb.add_subcommand("remove", "take an option out of BootOrder; the option itself stays");
    named_options(*remove, args, false, "the option")->required();
    remove->callback([&args] { args.order = arguments::order_action::remove; });

    auto *set = verb.add_subcommand("set", "write a whole new BootOrder");
    set->add_option(
           "order",
           [&args](const texts &values) {
               args.options = order_argument(values);
               return true;
           },
           "the options in their order, separated by commas")
        ->type_name("Boot####,...")
        ->expected(1, many)
        ->allow_extra_args()
        ->required();
    set->add_flag("--force", args.force, force);
    set->callback([&args] { args.order = arguments::order_action::set; });

    verb.require_subcommand(0, 1);
}

void next_options(CLI::App &verb, arguments &args)
{
    auto *option = named_options(verb, args, false, "boot this option at the next start, once");
    verb.add_flag("--clear", args.clear, "boot by BootOrder again")->excludes(option);
    verb.add_flag("--force", args.force, "also an option that does not exist");
}

void current_options(CLI::App &, arguments &) {}

void vars_options(CLI::App &verb, arguments &args)
{
    value(verb, "name", "NAME", "only variables of this name; * and ? stand for any characters",
          [&args](const std::string &text) { args.name_filter = text; });
    verb.add_flag("-v,--verbose", args.verbose, "also the data");
}

void time_options(CLI::App &verb, arguments &args)
{
    verb.add_flag("--wakeup", args.wakeup, "the wake-up alarm instead of the clock");
    auto *set =
        value(verb, "--set", "TIME", "set it, to a time as 2026-01-31T12:00:00, with Z or +02:00 behind it",
              [&args](const std::string &text) { args.time = parse_time(text); });
    verb.add_flag("--clear", args.clear, "with --wakeup: disable the alarm")->excludes(set);
    verb.final_callback([&args] {
        if (args.clear && !args.wakeup)
            throw usage_error("time: --clear needs --wakeup");
    });
}

void reset_options(CLI::App &verb, arguments &args)
{
    auto *cold = verb.add_flag_callback(
        "--cold", [&args] { args.reset = EFI_RESET_COLD; }, "as by power-on (default)");
    auto *warm = verb.add_flag_callback(
        "--warm", [&args] { args.reset = EFI_RESET_WARM; }, "processor only");
    auto *off = verb.add_flag_callback(
        "--shutdown", [&args] { args.reset = EFI_RESET_SHUTDOWN; }, "power off");
    cold->excludes(warm)->excludes(off);
    warm->excludes(off);
    verb.add_flag("--yes", args.yes, "do not ask for confirmation");
}

void path_options(CLI::App &verb, arguments &args)
{
    auto *encode = verb.add_subcommand("encode", "pack a device path that is given as text");
    value(*encode, "text", "TEXT", "the device path", [&args](const std::string &text) {
        args.device_text = text;
    })->required();
    file_option(*encode, args);
    encode->add_flag("--raw", args.raw, "print the bytes themselves instead of hexadecimal digits");
    encode->callback([&args] { args.path_action = arguments::path_action::encode; });

    auto *decode = verb.add_subcommand("decode", "show a packed device path as text");
    value(*decode, "path", "HEX", "hexadecimal digits, or - to read them from standard input",
          [&args](const std::string &text) {
              if (text != "-" && !parse_hex(text))
                  throw usage_error("path decode: pairs of hexadecimal digits are needed");
              args.packed = text;
          })
        ->required();
    decode->callback([&args] { args.path_action = arguments::path_action::decode; });

    verb.require_subcommand(1);
}

void disks_options(CLI::App &, arguments &) {}

void tree_options(CLI::App &, arguments &) {}

void find_options(CLI::App &verb, arguments &args)
{
    value(verb, "disk", "DISK",
          "a disk's slice or partition, by its name (c0t0d0s0), Linux's (/dev/sda1) or PARTUUID=...",
          [&args](const std::string &name) { args.disk = name; })
        ->required();
}

std::optional<size_t> read_command_line(int argc, char **argv, const std::vector<verb_options> &verbs,
                                        arguments *args)
{
    CLI::App app("Reads and changes the boot configuration of UEFI firmware.", "ovra");
    app.formatter(help_format());
    app.fallthrough(); // global options also behind the verb
    app.set_version_flag("--version", "ovra " OVRA_VERSION);
    app.footer("Options are named Boot and four hexadecimal digits; boot1f and 1f are\nBoot001F too.\n"
               "Exit status: 0 done, 1 failed, 2 the command line is wrong.");
    value(app, "--root", "DIR", "work on the machine in DIR, a folder laid out like a Linux root",
          [args](const std::string &text) { args->root = text; });
    app.add_flag("--json", args->json, "print JSON");
    app.add_flag("--dry-run", args->dry_run, "change nothing, say what would be written");
    app.require_subcommand(1);

    std::vector<CLI::App *> declared;
    for (const verb_options &verb : verbs) {
        declared.push_back(app.add_subcommand(verb.name, verb.summary));
        verb.declare(*declared.back(), *args);
    }
    try {
        std::vector<std::string> words = words_to_parse(app, argc, argv);
        std::reverse(words.begin(), words.end()); // as CLI11 wants them
        app.parse(std::move(words));
        settle_file(args);
    } catch (const CLI::CallForVersion &version) {
        print(std::string(version.what()) + '\n');
        return std::nullopt;
    } catch (const CLI::CallForHelp &) {
        print(app.help());
        return std::nullopt;
    } catch (const CLI::RequiredError &error) {
        throw usage_error(app.get_subcommands().empty() ? "a verb is required" : error.what());
    } catch (const CLI::ParseError &error) {
        throw usage_error(error.what());
    }
    for (size_t at = 0; at < declared.size(); ++at) {
        if (declared[at]->parsed())
            return at;
    }
    throw usage_error("a verb is required");
}

} // namespace tool
