// SPDX-License-Identifier: MIT
#include "src/print/rows.h"

using namespace ovra;

namespace {

void print_pci(const uefi_pci_device_path_t &node, text &to)
{
    to.add("/Pci(0x%x,0x%x)", node.device_number, node.function_number);
}

void print_ctrl(const uefi_ctrl_device_path_t &node, text &to)
{
    to.add("/Ctrl(0x%x)", node.ctrl_number);
}

constexpr printed hardware[] = {
    row<uefi_pci_device_path_t, print_pci>(),
    row<uefi_ctrl_device_path_t, print_ctrl>(),
};
static_assert(distinct_subtypes(hardware));

} // namespace

const printed_rows ovra::hardware_rows = hardware;
