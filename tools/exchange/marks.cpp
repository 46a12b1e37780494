// SPDX-License-Identifier: MIT
#include "tools/exchange/marks.h"

#include <algorithm>
#include <functional>

#include "src/base/ascii.h"
#include "src/base/crc32.h"
#include "src/base/hard_drive.h"
#include "tools/machine/drives.h"
#include "tools/machine/machinefiles.h"
#include "tools/machine/sysfs.h"
#include "tools/text/failure.h"
#include "tools/text/loadoption.h"

namespace tool {

namespace {

uint32_t sum_of(const std::string &text)
{
    return ovra::crc32({reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

std::optional<uint32_t> sum_of_product()
{
    constexpr size_t longest = 128;
    std::string digits;
    try {
        const auto text = machine_files().text("/sys/class/dmi/id/product_uuid", longest);
        for (const char c : text.value_or("")) {
            if (ovra::digit_value(c) < 16)
                digits += ovra::ascii_lower(c);
        }
    } catch (const failure &) { // not root
        return std::nullopt;
    }
    // Makers that give no UUID leave all digits alike.
    if (std::adjacent_find(digits.begin(), digits.end(), std::not_equal_to<>()) == digits.end())
        return std::nullopt;
    return sum_of(digits);
}

void add_disks(std::set<uint32_t> *sums)
{
    try {
        for (const drive &drive : read_drives({.media = of_every_drive})) {
            for (const volume &volume : drive.volumes) {
                if (volume.guid.size() == sizeof(EFI_GUID))
                    sums->insert(ovra::crc32(volume.guid));
            }
        }
    } catch (const failure &) { // a machine without disks that can be read is told by the rest
        return;
    }
}

void add_options(const variable_values &values, std::set<uint32_t> *sums)
{
    for (const auto &[name, value] : values) {
        const auto parts = family_of(name) ? split(value) : std::nullopt;
        const byte_view node = parts ? first_hard_drive(parts->path) : byte_view();
        const auto *drive = ovra::as<uefi_hard_drive_path_t>(node);
        if (drive && drive->sig_type == ovra::signature_guid)
            sums->insert(ovra::crc32(byte_view(drive->part_sig)));
    }
}

} // namespace

machine_marks marks_of(const boot_store &store)
{
    machine_marks marks;
    add_options(store.values, &marks.partitions);
    if (has_devices()) {
        marks.product = sum_of_product();
        add_disks(&marks.partitions);
    }
    return marks;
}

std::string why_other(const machine_marks &text, const machine_marks &here)
{
    if (text.product && here.product)
        return text.product == here.product ? "" : "the machine has another UUID than that of the text";
    if (text.partitions.empty() && here.partitions.empty() && !text.product && !here.product)
        return "";
    if (std::any_of(text.partitions.begin(), text.partitions.end(),
                    [&here](uint32_t sum) { return here.partitions.contains(sum); }))
        return "";
    return text.partitions.empty() && !text.product ? "the text does not say which machine it is of"
                                                    : "no partition of that machine is on this one";
}

} // namespace tool
