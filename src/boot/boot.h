/* SPDX-License-Identifier: MIT */
/* What the files of the boot manager share: option names, and variables read whole. */
#ifndef SRC_BOOT_BOOT_H
#define SRC_BOOT_BOOT_H

#include <span>

#include "src/base/load_option.h"
#include "src/rt/owned.h"
#include "src/rt/rt.h"

extern "C" {

/* 0 for "Boot" and four digits 0-9 or A-F, else -1. */
int validate_bootopt(const char *name);

} // extern "C"

namespace ovra {

/*
 * The number of an option's name as the boot order's routines read it: "Boot" in any case, then a hexadecimal
 * number cut to 16 bits; what follows is not looked at.
 */
bool parse_option_number(const char *name, uint16_t *number);

/* A copy of an option's name for the caller, tracked; null without memory. */
char *hand_out_name(ovra_hdl_t hdl, const option_name &name);

/* BootOrder as it was read. */
struct boot_order {
    owned<uint16_t> entries;
    size_t count = 0;

    std::span<const uint16_t> view() const { return {entries.get(), count}; }
};

/* Asks for the size of BootOrder in bytes. The firmware's status; *size is 0 when it gave none. */
EFI_STATUS size_boot_order(ovra_hdl_t hdl, UINTN *size);

enum class [[nodiscard]] order_read{ok, no_memory, failed};

/* Reads BootOrder, of `size` bytes when it was asked. An odd last byte is no entry. */
order_read read_boot_order(ovra_hdl_t hdl, UINTN size, boot_order *order);

} // namespace ovra

#endif
