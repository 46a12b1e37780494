// SPDX-License-Identifier: MIT
#include "src/print/rows.h"

using namespace ovra;

static constexpr printed rows[] = {
    row<uefi_pci_device_path_t>(
        [](auto &n, text &t) { t.add("/Pci(0x%x,0x%x)", n.device_number, n.function_number); }),
    row<uefi_ctrl_device_path_t>([](auto &n, text &t) { t.add("/Ctrl(0x%x)", n.ctrl_number); }),
};
static_assert(distinct_subtypes(rows));

bool ovra::hardware_text(const uefi_device_path_t *node, text &to)
{
    return print_row(rows, node, to) || print_generic(node, to, [](auto &n, const char *hex, text &t) {
               t.add("/HardwarePath(0x%x,%s)", n.subtype, hex);
           });
}

void print_hardware_path(const uefi_device_path_t *node, char **to)
{
    append_node_text(hardware_text, node, to);
}
