// SPDX-License-Identifier: MIT
#include "tools/dropin/mirror.h"

#include <array>

#include "tools/text/output.h"
#include "tools/text/text.h"

namespace tool::dropin {

namespace {

constexpr EFI_GUID vendor = {0x7b9be2e0, 0xe28a, 0x4197, {0xad, 0x3e, 0x32, 0xf0, 0x62, 0xf9, 0x46, 0x2c}};
constexpr uint8_t known_version = 1;
constexpr unsigned percent_parts = 100;

struct mirror {
    uint8_t version = 0;
    bool below = false;    // memory below 4 GiB
    uint16_t above = 0;    // of the memory above, in hundredths of a percent
    uint8_t condition = 0; // why it is not so
};

variable_id id_of(const char *name)
{
    return {to_ucs2(name).value(), vendor};
}

// Nothing without the variable, or with one that is too short.
std::optional<mirror> read_mirror(firmware &machine, const char *name)
{
    constexpr size_t size = 5;
    const variable is = machine.read(id_of(name));
    if (is.status != EFI_SUCCESS || is.data.size() < size)
        return std::nullopt;
    const bytes &data = is.data;
    return mirror{data[0], data[1] != 0, static_cast<uint16_t>(data[2] | data[3] << 8), data[4]};
}

std::string condition_text(uint8_t condition)
{
    constexpr std::array texts = {"OK",
                                  "Platform does not support address range mirror",
                                  "Invalid version number",
                                  "MirroredMemoryAbove4GB > 50.00%",
                                  "DIMM configuration does not allow mirror",
                                  "OEM specific method"};
    return condition < texts.size() ? texts[condition] : std::to_string(condition);
}

std::string lines_of(const mirror &is, const char *prefix)
{
    return format("%sMirroredPercentageAbove4G: %u.%02u\n%sMirrorMemoryBelow4GB: %s\n", prefix,
                  is.above / percent_parts, is.above % percent_parts, prefix, is.below ? "true" : "false");
}

} // namespace

std::string mirror_lines(firmware &machine)
{
    std::string lines;
    const auto current = read_mirror(machine, "MirrorCurrent");
    const auto asked = read_mirror(machine, "MirrorRequest");
    if (current && current->version == known_version && current->condition == 0)
        lines = lines_of(*current, "");
    else if (current && current->version == known_version)
        lines = "MirrorStatus: " + condition_text(current->condition) + '\n' + lines_of(*current, "Desired");
    const bool is_other =
        asked && (!current || asked->above != current->above || asked->below != current->below);
    return is_other ? lines + lines_of(*asked, "Request") : lines;
}

bool ask_for_mirror(firmware &machine, std::optional<bool> below, std::optional<uint16_t> above)
{
    const auto current = read_mirror(machine, "MirrorCurrent");
    if (!current) {
        print("** Warning ** : platform does not support memory mirror\n");
        return false;
    }
    if (current->version != known_version) {
        print("** Warning ** : unrecognised version for memory mirror i/f\n");
        return false;
    }
    const bool wants_below = below.value_or(current->below);
    const uint16_t wants_above = above.value_or(current->above);
    const auto asked = read_mirror(machine, "MirrorRequest");
    const mirror &stands = asked ? *asked : *current;
    if (stands.below == wants_below && stands.above == wants_above)
        return true;
    machine.change(id_of("MirrorRequest"),
                   {known_version, wants_below, static_cast<uint8_t>(wants_above & 0xff),
                    static_cast<uint8_t>(wants_above >> 8), 0});
    return true;
}

} // namespace tool::dropin
