/* SPDX-License-Identifier: MIT */
// The command line of efibootmgr 17, for scripts that call the command by that name.
#ifndef OVRA_TOOLS_DROPIN_SETTINGS_H
#define OVRA_TOOLS_DROPIN_SETTINGS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool::dropin {

// The exit statuses that scripts may know.
enum status : int {
    is_done = 0,
    is_misused = 1,
    has_no_firmware = 2,
    needs_number_to_delete = 3,
    needs_number_to_activate = 4,
    is_not_made = 5,
    has_wrong_order = 8,
    keeps_order = 9,
    keeps_next = 10,
    keeps_timeout = 11,
    has_wrong_next = 12,
    has_wrong_timeout = 13,
    is_not_deleted = 15,
    is_not_activated = 16,
    is_not_listed = 18,
    has_two_kinds = 25,
    has_no_next = 26,
    has_no_timeout = 27,
    has_no_hex = 28,
    has_large_number = 29,
    has_no_edd = 30,
    has_unknown_edd = 31,
    has_no_device = 32,
    has_no_boolean = 33,
    has_no_percentage = 34,
    has_no_next_hex = 35,
    has_large_next = 36,
    has_no_part = 37,
    has_no_seconds = 38,
    is_there_already = 40,
};

// Ends the command: its exit status, and what is written on standard error, as it stands.
struct ended {
    int status = is_done;
    std::string said = {};
};

enum class edd { guessed, one, three };

struct settings {
    std::string program; // as it was called
    std::string kind = "Boot";
    std::optional<uint16_t> number;
    std::optional<bool> active; // what it is set to
    bool deletes = false;
    bool creates = false;
    bool in_order = true; // what is created
    bool deletes_order = false;
    bool removes_duplicates = false;
    bool deletes_next = false;
    bool deletes_timeout = false;
    bool unicode = false;
    bool verbose = false;
    bool quiet = false;
    std::optional<std::string> order;
    std::optional<uint16_t> next;
    std::optional<uint16_t> timeout; // seconds
    std::optional<bool> mirror_below;
    std::optional<uint16_t> mirror_above; // hundredths of a percent

    std::string disk = "/dev/sda";
    std::optional<unsigned> part; // 0: the whole disk
    edd form = edd::guessed;
    uint32_t edd_device = 0x80;
    std::optional<std::string> interface;
    std::string label = "Linux";
    std::string loader = "\\EFI\\debian\\grub.efi";
    std::optional<std::string> arguments_file; // "-": standard input
    std::vector<std::string> arguments;
};

// What the words say; nothing when help or the version was asked for and printed. Throws an `ended`.
std::optional<settings> read_settings(int argc, char **argv);

// "Invalid bootnum value2x", and below it a mark at the character `at` of the value.
std::string marked(const std::string &complaint, const std::string &value, size_t at);

void print_usage();

} // namespace tool::dropin

#endif
