/* SPDX-License-Identifier: MIT */
// The command line.
#ifndef OVRA_TOOLS_OPTIONS_H
#define OVRA_TOOLS_OPTIONS_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ovra/uefi.h>

#include "tools/machine/general.h"
#include "tools/text/text.h"

namespace CLI {
class App;
}

namespace tool {

struct arguments : general_options {
    std::optional<std::string> root; // of every verb

    // Of several verbs.
    std::vector<uint16_t> options; // the options named, in their order
    bool verbose = false;
    bool force = false;

    // create and set: the fields of an option.
    std::optional<std::string> description;
    std::optional<bytes> path;
    std::optional<std::string> optional_data_file;
    std::optional<std::string> optional_data_text;
    bool no_optional_data = false;
    std::optional<uint32_t> attributes;
    std::optional<bool> active;

    // Device paths as text, and disks by their names or Linux's.
    enum class path_action { encode, decode } path_action = path_action::encode;
    std::optional<std::string> device_text; // create, set: --devpath; path encode
    std::optional<std::string> file;        // the file on the device
    std::optional<std::string> disk;        // create: --disk; find
    bool full = false;                      // create --disk: with the disk's hardware nodes
    bool raw = false;                       // path encode: bytes instead of digits
    std::string packed;                     // path decode: digits, or "-" for standard input

    // create and order: where in BootOrder, counted from 0; negative counts from the end, -1 is the end.
    std::optional<uint16_t> number;
    std::optional<int> position;

    enum class order_action { show, insert, remove, set } order = order_action::show;

    bool clear = false;            // next --clear, time --wakeup --clear
    std::string name_filter = "*"; // vars
    bool wakeup = false;           // time: the alarm instead of the clock
    std::optional<EFI_TIME> time;  // time --set
    EFI_RESET_TYPE reset = EFI_RESET_COLD;
    bool yes = false;
};

// A verb's options and positional arguments, declared into `verb`, read into `args`.
using declare_options = void (*)(CLI::App &verb, arguments &args);

void list_options(CLI::App &verb, arguments &args);
void show_options(CLI::App &verb, arguments &args);
void create_options(CLI::App &verb, arguments &args);
void set_options(CLI::App &verb, arguments &args);
void remove_options(CLI::App &verb, arguments &args);
void order_options(CLI::App &verb, arguments &args);
void next_options(CLI::App &verb, arguments &args);
void current_options(CLI::App &verb, arguments &args);
void vars_options(CLI::App &verb, arguments &args);
void time_options(CLI::App &verb, arguments &args);
void reset_options(CLI::App &verb, arguments &args);
void path_options(CLI::App &verb, arguments &args);
void disks_options(CLI::App &verb, arguments &args);
void tree_options(CLI::App &verb, arguments &args);
void find_options(CLI::App &verb, arguments &args);

struct verb_options {
    const char *name;
    const char *summary;
    declare_options declare;
};

// Reads the command line into *args. The index of the verb in `verbs`; nothing when help or the version was
// asked for, and printed. Throws a usage_error.
std::optional<size_t> read_command_line(int argc, char **argv, const std::vector<verb_options> &verbs,
                                        arguments *args);

} // namespace tool

#endif
