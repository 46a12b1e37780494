// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <span>

#include "src/base/number.h"
#include "src/boot/boot.h"
#include "src/rt/diag.h"
#include "src/rt/strarray.h"

using ovra::fail;
using ovra::owned;
using ovra::say;
using ovra::trace;

static constexpr char order_variable[] = "BootOrder";

bool ovra::parse_option_number(const char *name, uint16_t *number)
{
    const char *digits = behind_prefix(name, "Boot");
    uint64_t value = 0;
    if (!digits || !scan_number(&digits, 16, &value))
        return false;
    *number = static_cast<uint16_t>(value);
    return true;
}

namespace {

// BootOrder as it was read.
struct boot_order {
    owned<uint16_t> entries;
    size_t count = 0;

    std::span<const uint16_t> view() const { return {entries.get(), count}; }
};

// Asks for the size of BootOrder in bytes. The firmware's status; *size is 0 when it gave none.
EFI_STATUS size_boot_order(ovra_hdl_t hdl, UINTN *size)
{
    *size = 0;
    return get_variable(hdl, order_variable, size, nullptr);
}

// Reads BootOrder, of `size` bytes when it was asked. An odd last byte is no entry. 0; -1 with a message, of
// which `no_memory` is one.
int read_boot_order(ovra_hdl_t hdl, UINTN size, const char *no_memory, boot_order *order)
{
    order->entries.reset(static_cast<uint16_t *>(malloc(size)));
    if (!order->entries)
        return fail("%s", no_memory);
    UINTN read = size;
    if (get_variable(hdl, order_variable, &read, order->entries.get()) != EFI_SUCCESS)
        return fail("unable to read BootOrder\n");
    order->count = std::min(read, size) / sizeof(uint16_t);
    return 0;
}

// The same for a caller to whom an absent BootOrder is a failure.
int read_existing_boot_order(ovra_hdl_t hdl, const char *no_memory, boot_order *order)
{
    UINTN size = 0;
    if (size_boot_order(hdl, &size) == EFI_NOT_FOUND)
        return fail("BootOrder doesn't exist\n");
    return read_boot_order(hdl, size, no_memory, order);
}

EFI_STATUS write_boot_order(ovra_hdl_t hdl, uint16_t *entries, size_t count)
{
    return set_variable(hdl, order_variable, count * sizeof(uint16_t), entries);
}

int create_boot_order(ovra_hdl_t hdl, uint16_t number)
{
    const EFI_STATUS status = write_boot_order(hdl, &number, 1);
    if (status != EFI_SUCCESS)
        return fail("unable to write new BootOrder: %lx\n", status);
    return 0;
}

} // namespace

int ovra_bootorder_insert(ovra_hdl_t hdl, char *bootname, int position)
{
    uint16_t number = 0;
    if (!ovra::parse_option_number(bootname, &number))
        return -1;
    UINTN size = 0;
    const EFI_STATUS sized = size_boot_order(hdl, &size);
    if (sized == EFI_NOT_FOUND)
        return create_boot_order(hdl, number);
    // An order that exists answers that it is larger than nothing. Any other answer leaves it unknown, and
    // an order that could not be read is not written over.
    if (sized != EFI_BUFFER_TOO_SMALL && sized != EFI_SUCCESS)
        return fail("unable to read BootOrder\n");
    if (size == 0)
        return create_boot_order(hdl, number);

    boot_order order;
    if (read_boot_order(hdl, size, "unable to read BootOrder\n", &order) != 0)
        return -1;
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

    // Kept: the second number is always 0. [kept_trace_of_the_new_count_ends_in_a_0]
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
    if (size_boot_order(hdl, &size) == EFI_NOT_FOUND) {
        // Kept: told as an error, and no failure. [kept_remove_from_a_missing_order_succeeds_and_says_so]
        say("BootOrder doesn't exist\n");
        return 0;
    }
    boot_order order;
    if (read_boot_order(hdl, size, "unable to malloc boot_num\n", &order) != 0)
        return -1;
    uint16_t *begin = order.entries.get();
    const uint16_t *end = std::remove(begin, begin + order.count, number);
    // Kept: written back also when nothing was removed, and empty when nothing is left, which deletes it.
    // [kept_remove_of_*, kept_remove_writes_an_order_of_one_byte_empty]
    if (write_boot_order(hdl, begin, static_cast<size_t>(end - begin)) != EFI_SUCCESS)
        return fail("unable to set BootOrder\n");
    return 0;
}

int ovra_bootorder_get_position(ovra_hdl_t hdl, char *bootname, int *position)
{
    uint16_t number = 0;
    if (!ovra::parse_option_number(bootname, &number))
        return -1;
    boot_order order;
    if (read_existing_boot_order(hdl, "unable to malloc boot_order\n", &order) != 0)
        return -1;
    const auto entries = order.view();
    const auto found = std::find(entries.begin(), entries.end(), number);
    if (found == entries.end())
        return -1;
    *position = static_cast<int>(found - entries.begin());
    return 0;
}

int ovra_bootorder_get_bootname(ovra_hdl_t hdl, int position, char **bootname)
{
    boot_order order;
    if (read_existing_boot_order(hdl, "unable to malloc boot_num\n", &order) != 0)
        return -1;
    if (position < 0 || static_cast<size_t>(position) >= order.count) {
        return fail("index position %d out of range.  size is %d\n", position, static_cast<int>(order.count));
    }
    const ovra::option_name name(order.view()[static_cast<size_t>(position)]);
    auto copy = ovra::copy_string(hdl, name);
    if (!copy)
        return -1;
    *bootname = copy.release();
    return 0;
}

int ovra_bootopt_remove(ovra_hdl_t hdl, char *bootname)
{
    if (set_variable(hdl, bootname, 0, nullptr) != EFI_SUCCESS)
        return fail("unable to remove %s\n", bootname);
    return ovra_bootorder_remove(hdl, bootname);
}
