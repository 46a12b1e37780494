// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cinttypes>
#include <cstring>

#include "src/base/number.h"
#include "src/boot/boot.h"
#include "src/rt/diag.h"

using ovra::boot_order;
using ovra::fail;
using ovra::order_read;
using ovra::owned;
using ovra::say;
using ovra::trace;

static constexpr char variable[] = "BootOrder";

bool ovra::parse_option_number(const char *name, uint16_t *number)
{
    const char *digits = behind_prefix(name, "Boot");
    uint64_t value = 0;
    if (!digits || !scan_number(&digits, 16, &value))
        return false;
    *number = static_cast<uint16_t>(value);
    return true;
}

char *ovra::hand_out_name(ovra_hdl_t hdl, const option_name &name)
{
    owned<char> copy(strdup(name));
    if (!copy || memlist_add(hdl, copy.get()) != 0)
        return nullptr;
    return copy.release();
}

EFI_STATUS ovra::size_boot_order(ovra_hdl_t hdl, UINTN *size)
{
    *size = 0;
    return get_variable(hdl, variable, size, nullptr);
}

order_read ovra::read_boot_order(ovra_hdl_t hdl, UINTN size, boot_order *order)
{
    order->entries.reset(static_cast<uint16_t *>(malloc(size)));
    if (!order->entries)
        return order_read::no_memory;
    UINTN read = size;
    if (get_variable(hdl, variable, &read, order->entries.get()) != EFI_SUCCESS)
        return order_read::failed;
    order->count = std::min(read, size) / sizeof(uint16_t);
    return order_read::ok;
}

static EFI_STATUS write_boot_order(ovra_hdl_t hdl, uint16_t *entries, size_t count)
{
    return set_variable(hdl, variable, count * sizeof(uint16_t), entries);
}

static int create_boot_order(ovra_hdl_t hdl, uint16_t number)
{
    const EFI_STATUS status = write_boot_order(hdl, &number, 1);
    if (status != EFI_SUCCESS)
        return fail("unable to write new BootOrder: %lx\n", status);
    return 0;
}

int ovra_bootorder_insert(ovra_hdl_t hdl, char *bootname, int position)
{
    uint16_t number = 0;
    if (!ovra::parse_option_number(bootname, &number))
        return -1;
    UINTN size = 0;
    const EFI_STATUS sized = ovra::size_boot_order(hdl, &size);
    if (sized == EFI_NOT_FOUND)
        return create_boot_order(hdl, number);
    // An order that exists answers that it is larger than nothing. Any other answer leaves it unknown, and
    // an order that could not be read is not written over.
    if (sized != EFI_BUFFER_TOO_SMALL && sized != EFI_SUCCESS)
        return fail("unable to read BootOrder\n");
    if (size == 0)
        return create_boot_order(hdl, number);

    boot_order order;
    if (ovra::read_boot_order(hdl, size, &order) != order_read::ok)
        return fail("unable to read BootOrder\n");
    const owned<uint16_t> changed(static_cast<uint16_t *>(malloc((order.count + 1) * sizeof(uint16_t))));
    if (!changed)
        return fail("unable to read BootOrder\n");

    int64_t place = position;
    if (place < 0)
        place = std::max<int64_t>(static_cast<int64_t>(order.count) + place + 1, 0);

    uint16_t *end = changed.get();
    const auto written = [&] { return end - changed.get(); };
    for (const uint16_t entry : order.view()) {
        if (written() == place)
            *end++ = number;
        if (entry != number)
            *end++ = entry;
    }
    if (written() <= place)
        *end++ = number;

    trace("i = %d elem = %d \n", static_cast<int>(written()), 0);
    const EFI_STATUS status = write_boot_order(hdl, changed.get(), static_cast<size_t>(written()));
    if (status != EFI_SUCCESS)
        return fail("unable to set BootOrder: %lx\n", status);
    return 0;
}

int ovra_bootorder_remove(ovra_hdl_t hdl, char *bootname)
{
    uint16_t number = 0;
    if (!ovra::parse_option_number(bootname, &number))
        return -1;
    UINTN size = 0;
    if (ovra::size_boot_order(hdl, &size) == EFI_NOT_FOUND) {
        say("BootOrder doesn't exist\n");
        return 0;
    }
    boot_order order;
    switch (ovra::read_boot_order(hdl, size, &order)) {
    case order_read::ok:
        break;
    case order_read::no_memory:
        return fail("unable to malloc boot_num\n");
    case order_read::failed:
        return fail("unable to read BootOrder\n");
    }
    uint16_t *begin = order.entries.get();
    const uint16_t *end = std::remove(begin, begin + order.count, number);
    // Kept: written back also when nothing was removed, and empty when nothing is left, which deletes it.
    if (write_boot_order(hdl, begin, static_cast<size_t>(end - begin)) != EFI_SUCCESS)
        return fail("unable to set BootOrder\n");
    return 0;
}

int ovra_bootorder_get_position(ovra_hdl_t hdl, char *bootname, int *position)
{
    uint16_t number = 0;
    if (!ovra::parse_option_number(bootname, &number))
        return -1;
    UINTN size = 0;
    if (ovra::size_boot_order(hdl, &size) == EFI_NOT_FOUND)
        return fail("BootOrder doesn't exist\n");
    boot_order order;
    switch (ovra::read_boot_order(hdl, size, &order)) {
    case order_read::ok:
        break;
    case order_read::no_memory:
        return fail("unable to malloc boot_order\n");
    case order_read::failed:
        return fail("unable to read BootOrder\n");
    }
    const auto entries = order.view();
    const auto found = std::find(entries.begin(), entries.end(), number);
    if (found == entries.end())
        return -1;
    *position = static_cast<int>(found - entries.begin());
    return 0;
}

int ovra_bootorder_get_bootname(ovra_hdl_t hdl, int position, char **bootname)
{
    UINTN size = 0;
    if (ovra::size_boot_order(hdl, &size) == EFI_NOT_FOUND)
        return fail("BootOrder doesn't exist\n");
    boot_order order;
    switch (ovra::read_boot_order(hdl, size, &order)) {
    case order_read::ok:
        break;
    case order_read::no_memory:
        return fail("unable to malloc boot_num\n");
    case order_read::failed:
        return fail("unable to read BootOrder\n");
    }
    if (position < 0 || static_cast<size_t>(position) >= order.count) {
        return fail("index position %d out of range.  size is %d\n", position, static_cast<int>(order.count));
    }
    char *name = ovra::hand_out_name(hdl, ovra::option_name(order.view()[static_cast<size_t>(position)]));
    if (!name)
        return -1;
    *bootname = name;
    return 0;
}

int ovra_bootopt_remove(ovra_hdl_t hdl, char *bootname)
{
    if (set_variable(hdl, bootname, 0, nullptr) != EFI_SUCCESS)
        return fail("unable to remove %s\n", bootname);
    return ovra_bootorder_remove(hdl, bootname);
}
