/* SPDX-License-Identifier: MIT */
// What several verbs take on the command line. Each class declares its options and holds their values.
#ifndef OVRA_TOOLS_ARGUMENTS_H
#define OVRA_TOOLS_ARGUMENTS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/machine/chosendisk.h"
#include "tools/machine/devicepaths.h"
#include "tools/machine/firmware.h"
#include "tools/machine/general.h"
#include "tools/machine/newoption.h"
#include "tools/machine/startable.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace tool {

// An option or a positional argument with one value, shown in help as `shown`. The value is handed to `take`,
// which may throw a usage_error.
CLI::Option *add_value(CLI::App &app, const char *name, const char *shown, const char *help,
                       std::function<void(const std::string &)> take);

// Puts a command line below the verb's help.
void add_example(CLI::App &app, const char *line);

// Programs read such a number as octal or as decimal: nobody can tell which is meant. (In the names of
// options all digits are hexadecimal.) Throws a usage_error.
void refuse_leading_zero(const std::string &text);

// --kind, which is declared before what is read by it.
struct kind_argument {
    const option_kind *kind = &boot_options;

    // Those that only the firmware writes are no kind for a verb that writes.
    void declare(CLI::App &app, bool writes);
};

inline constexpr char option_help[] =
    "Boot####, the description or the beginning of it, @current, @next, @first";

// One boot option, by its name or a part of its path. What that names is looked up when the verb runs.
struct option_argument {
    std::optional<std::string> name;
    std::optional<std::string> path_part;

    // Declares the positional argument and --path; returns the former.
    CLI::Option *declare(CLI::App &app, const char *help);
    bool given() const { return name || path_part; }
    // Throws a usage_error when none is given.
    void require() const;
    // Throws a failure.
    uint16_t find(firmware &machine) const;
};

// One boot option or more, in the order in which they are named.
struct options_argument {
    std::vector<std::string> names;
    std::vector<std::string> path_parts;

    CLI::Option *declare(CLI::App &app, const char *help);
    bool given() const { return !names.empty() || !path_parts.empty(); }
    void require() const;
    std::vector<uint16_t> find(firmware &machine) const;
};

// Throws a usage_error for a name that is empty.
std::string checked_name(const std::string &name);

// A place on the command line. Throws a usage_error.
int position_of(const std::string &text);

// A place in BootOrder, counted from 0; negative counts from the end, -1 is the end.
struct position_argument {
    std::optional<int> place;

    CLI::Option *declare(CLI::App &app, const char *name, const char *shown, const char *help);
};

// --position, --after, --first and --no-order.
struct place_arguments {
    order_place place;

    void declare(CLI::App &app);
};

// --number
struct number_argument {
    std::optional<uint16_t> value;

    void declare(CLI::App &app, const kind_argument &kind);
};

struct description_argument {
    std::optional<std::string> text; // can be stored

    CLI::Option *declare(CLI::App &app);
};

// --optdata-file, --optdata-text and --optdata-ascii.
struct optional_data_arguments {
    std::optional<std::string> file; // "-": standard input
    std::optional<std::string> text;
    std::optional<std::string> ascii;

    void declare(CLI::App &app);
    bool given() const { return file || text || ascii; }
    // The data; nothing when none is given. Throws a failure when the file cannot be read.
    std::optional<bytes> read() const;
};

inline constexpr char disk_help[] =
    "a disk's slice or partition: c0t0d0s0, sda1, /dev/..., PARTUUID=..., UUID=..., LABEL=..., PARTLABEL=..., "
    "or a mount point or file on it";

// A disk's slice or partition.
struct disk_argument {
    std::optional<std::string> name;
    std::optional<unsigned> part; // of the disk that is named

    // Declares the option of the name, and --part.
    CLI::Option *declare(CLI::App &app, const char *option, const char *help);
    // The disk that is named, reported on standard error, except with --json. Throws a failure.
    chosen_disk find(const general_options &general) const;
};

struct given_path {
    bytes packed;
    std::optional<std::string> file = {}; // that was given, or named together with the disk
    json disk = json::object();           // for programs: which disk was taken, if one was
    bool is_removable = false;            // the disk's media
};

// What of a path is packed.
enum class packs { all, devices };

// A path to a device, as text or by the name of a disk, and the file on the device.
struct path_arguments {
    std::optional<std::string> device_text;
    std::optional<std::string> file;
    disk_argument disk;
    bool full = false;    // the path to a disk begins with its hardware nodes
    bool verbose = false; // say how the text was read

    CLI::Option *declare_devpath(CLI::App &app);
    CLI::Option *declare_file(CLI::App &app);
    CLI::Option *declare_verbose(CLI::App &app);
    // Takes a file at the end of the text off it, and says how firmware names the file. Throws a usage_error.
    void settle_file();

    // What they pack to. A disk that is taken, and the file if it was named as the disk, are reported on
    // standard error, except with --json. Throws a failure.
    given_path encode(device_paths &paths, packs what, const general_options &general) const;

private:
    std::optional<std::string> file_of(const chosen_disk &found, const general_options &general) const;
    bytes pack_text(device_paths &paths, const std::optional<std::string> &with_file) const;

    std::string whole_text; // with its file: as it was given
};

// --mac and --uri: what is booted over a network.
struct network_arguments {
    std::optional<bytes> mac;
    std::optional<std::string> uri;

    void declare(CLI::App &app, const std::vector<CLI::Option *> &excluded);
    bool given() const { return mac || uri; }
    // The packed path, behind the devices that are given beside them. Throws a failure.
    bytes encode(const path_arguments &devices, device_paths &paths, const general_options &general) const;
};

} // namespace tool

#endif
