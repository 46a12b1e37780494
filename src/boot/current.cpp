// SPDX-License-Identifier: MIT
#include "src/boot/boot.h"

// The option that a two-byte variable names, for the caller; `what` names the caller in messages.
static int get_named_option(ovra_hdl_t hdl, const char *variable, const char *what, char **bootname)
{
    uint16_t number = 0;
    UINTN size = sizeof number;
    if (get_variable(hdl, variable, &size, &number) != EFI_SUCCESS || size != sizeof number)
        return -1;
    const ovra::option_name name(number);
    auto copy = ovra::tracked_malloc<ovra::option_name>(hdl, sizeof name, what);
    if (!copy)
        return -1;
    *copy = name;
    *bootname = copy.release()->text;
    return 0;
}

int ovra_bootcurrent_get(ovra_hdl_t hdl, char **bootname)
{
    return get_named_option(hdl, "BootCurrent", "bootcurrent_get", bootname);
}

int ovra_bootnext_get(ovra_hdl_t hdl, char **bootname)
{
    return get_named_option(hdl, "BootNext", "bootnext_get", bootname);
}

int ovra_bootnext_set(ovra_hdl_t hdl, char *bootname)
{
    uint16_t number = 0;
    if (!ovra::parse_option_number(bootname, &number))
        return -1;
    return set_variable(hdl, "BootNext", sizeof number, &number) == EFI_SUCCESS ? 0 : -1;
}
