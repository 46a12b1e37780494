// SPDX-License-Identifier: MIT
#include "src/base/ascii.h"
#include "src/base/ids.h"
#include "src/dpath/build.h"
#include "src/encode/get.h"
#include "src/rt/diag.h"

using namespace ovra;

namespace {

// Device and topology information (UEFI 10.3.4.20): bits 0 to 3 how much of it there is, 4 SATA, 5 external,
// 6 and 7 expanded, 8 to 15 the drive bay, one less.
constexpr unsigned sas_device = 0x01;
constexpr unsigned sata_device = 0x11;
constexpr unsigned expanded = 0x40;

// What differs between the two kinds of node in the words of their messages and in the bays they have.
struct dialect {
    const char *location_range;
    const char *bay_range;
    uint16_t least_bay;
};
constexpr dialect sas = {"'location' out of range. can't be > 1: %d\n", "'Drivebay' cannot be > 256: %d\n",
                         0};
constexpr dialect sas_ex = {"'Location' cannot be greater than 1: %d\n", "'Drivebay' range is 1 to 256: %d\n",
                            1};

bool get_device(uefi_arg_list_t *args, unsigned *info)
{
    const char *text = ovra_get_arg(args, "SASSATA");
    if (!text || alike(text, "NoTopology"))
        return true;
    if (alike(text, "SAS")) {
        *info = sas_device;
        return true;
    }
    if (alike(text, "SATA")) {
        *info = sata_device;
        return true;
    }
    // Kept: the number is looked up under this name, which no argument has: only the words work.
    // [kept_sas*_is_looked_up_with_three_s]
    uint16_t number = 0;
    if (!require(args, "SASSSATA", &number))
        return false;
    *info = number;
    return true;
}

bool get_location(uefi_arg_list_t *args, const char *text, const dialect &words, unsigned *info)
{
    if (alike(text, "Internal"))
        return true;
    if (alike(text, "External")) {
        *info |= *info == sas_device ? 0x20 : 0x30;
        return true;
    }
    uint8_t number = 0;
    if (!require(args, "Location", &number))
        return false;
    if (number > 1) {
        say(words.location_range, number); // NOLINT: one of the two literals above
        return false;
    }
    // Kept: a number takes the place of what SASSATA said.
    // [kept_sas*_number_of_location_*, kept_sas*_sas_*, kept_sas*_sata_*]
    *info = static_cast<unsigned>(number) << 4;
    return true;
}

bool get_connection(uefi_arg_list_t *args, const char *text, unsigned *info)
{
    if (alike(text, "Direct"))
        return true;
    if (alike(text, "Expanded")) {
        *info |= expanded;
        return true;
    }
    uint8_t number = 0;
    if (!require(args, "Connect", &number))
        return false;
    if (number > 3) {
        say("'Connect' cannot be > 3: %d\n", number);
        return false;
    }
    *info |= static_cast<unsigned>(number) << 6;
    return true;
}

bool get_drive_bay(uefi_arg_list_t *args, const dialect &words, unsigned *info)
{
    uint16_t bay = 0;
    if (!require(args, "Drivebay", &bay))
        return false;
    if (bay > 256 || bay < words.least_bay) {
        say(words.bay_range, bay); // NOLINT: one of the two literals above
        return false;
    }
    // Kept: of bay 0, which a SAS node may have, all eight bits are set. [kept_sas_bay_0_sets_all_eight_bits]
    *info |= (bay - 1U) << 8;
    return true;
}

bool get_topology(uefi_arg_list_t *args, const dialect &words, uint16_t *sassata)
{
    unsigned info = 0;
    if (!get_device(args, &info))
        return false;
    const char *location = ovra_get_arg(args, "Location");
    const char *connect = ovra_get_arg(args, "Connect");
    const bool bay_given = is_given(args, "Drivebay");
    if (info == 0) {
        if (location || connect || bay_given) {
            // Kept: the wording, with its missing blank. [kept_sas*_in_these_words]
            say("location, connect, drivebay cannot be specifiedwhen SATASATA is not specified OR when it is an int\n");
            return false;
        }
        *sassata = 0;
        return true;
    }
    if (!location || !connect) {
        say("Location and Connect are required when SASSATA is specified\n");
        return false;
    }
    if (!get_location(args, location, words, &info) || !get_connection(args, connect, &info) ||
        (bay_given && !get_drive_bay(args, words, &info)))
        return false;
    *sassata = static_cast<uint16_t>(info);
    return true;
}

struct sas_target {
    uint64_t address = 0;
    uint64_t lun = 0;
    uint16_t rtp = 0;
    uint16_t sassata = 0;
};

bool get_target(uefi_arg_list_t *args, const dialect &words, int base, sas_target *target)
{
    return require(args, "Address", &target->address, base) && get_or_keep(args, "LUN", &target->lun, base) &&
           get_or_keep(args, "RTP", &target->rtp) && get_topology(args, words, &target->sassata);
}

} // namespace

int encode_sas(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    constexpr size_t tail = sizeof(uefi_sas_msg_device_path_t) - kind_of<uefi_venmsg_device_path_t>.size;
    auto vendor = new_node<uefi_venmsg_device_path_t>(tail);
    if (!vendor)
        return fail("unable to allocate sas_msg dpath\n");
    owned<uefi_sas_msg_device_path_t> node(reinterpret_cast<uefi_sas_msg_device_path_t *>(vendor.release()));
    sas_target target;
    uint32_t reserved = 0;
    if (!get_target(args, sas, 0, &target) || !get_if_given(args, "Reserved", &reserved))
        return -1;
    memcpy(node->guid, sas_bytes, sizeof sas_bytes);
    node->reserved = reserved;
    node->address = target.address;
    node->lun = target.lun;
    node->sassata = target.sassata;
    node->rtp = target.rtp;
    return hand_over(std::move(node), out);
}

int encode_sasex(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    auto node = new_node<uefi_sas_ex_device_path_t>();
    if (!node)
        return fail("unable to allocate sas_ex dpath\n");
    sas_target target;
    if (!get_target(args, sas_ex, 16, &target))
        return -1;
    node->address = __builtin_bswap64(target.address);
    node->lun = __builtin_bswap64(target.lun);
    node->sassata = target.sassata;
    node->rtp = target.rtp;
    return hand_over(std::move(node), out);
}
