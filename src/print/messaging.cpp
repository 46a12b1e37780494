// SPDX-License-Identifier: MIT
#include "src/base/ids.h"
#include "src/print/rows.h"

using namespace ovra;

namespace {

void print_atapi(const uefi_atapi_device_path_t &node, text &to)
{
    // Kept: every value but 0 is the second of the two. [kept_atapi_words_of_values_beyond_1]
    const word *channel = by_value(ata_channels, node.channel != 0);
    const word *drive = by_value(ata_drives, node.drive != 0);
    to.add("/Ata(%s,%s,%d)", channel->text, drive->text, node.lun);
}

void print_mac_address(const uefi_macaddr_device_path_t &node, text &to)
{
    // Kept: the interface type only says how many bytes count; it is not printed itself.
    // [kept_mac_interface_type_is_not_printed]
    const size_t count = node.iff_type <= 1 ? 6 : sizeof node.mac_addr;
    char digits[2 * sizeof node.mac_addr];
    const char *end = write_hex({node.mac_addr, count}, digits);
    to.put("/MAC(");
    to.put({digits, static_cast<size_t>(end - digits)});
    to.put(")");
}

void print_uart(const uefi_uart_device_path_t &node, text &to)
{
    // Kept: both numbers are signed: 200 data bits print as -56. [kept_uart_numbers_are_signed]
    to.add("/Uart(%ld,%hhd,", static_cast<int64_t>(node.baud), static_cast<int8_t>(node.databits));
    add_word(to, uart_parities, node.parity);
    to.put(",");
    add_word(to, uart_stop_bits, node.stopbits);
    to.put(")");
}

void print_scsi(const uefi_scsi_device_path_t &node, text &to)
{
    to.add("/Scsi(0x%x,0x%x)", node.target, node.lun);
}

void print_fibre(const uefi_fibre_device_path_t &node, text &to)
{
    to.add("/Fibre(0x%lx,0x%lx)", node.wwn, node.lun);
}

void print_usb(const uefi_usb_device_path_t &node, text &to)
{
    to.add("/USB(0x%x,0x%x)", node.port, node.interface);
}

void print_sata(const uefi_sata_device_path_t &node, text &to)
{
    to.add("/Sata(0x%x,0x%x,0x%x)", node.port, node.port_mult, node.lun);
}

struct vendor_kind {
    EFI_GUID guid;
    const char *text;
};

// Kept: these GUIDs decide alone; data after them is not printed. [kept_vendor_data_is_not_printed]
// Kept: the debug port has no parentheses. [kept_debug_port_has_no_parentheses]
constexpr vendor_kind vendor_kinds[] = {
    {pc_ansi, "/VenPcAnsi()"}, {vt100, "/VenVt100()"},     {vt100_plus, "/VenVt100Plus()"},
    {vt_utf8, "/VenUtf8()"},   {debug_port, "/DebugPort"},
};

bool has_guid(const uefi_venmsg_device_path_t &node, const EFI_GUID &guid)
{
    return memcmp(reinterpret_cast<const uint8_t *>(&node) + offsetof(uefi_venmsg_device_path_t, guid), &guid,
                  sizeof guid) == 0;
}

// A vendor-defined node of a GUID that has a name; false: none, or it lacks the value that the name shows.
bool print_vendor(const uefi_venmsg_device_path_t &node, text &to)
{
    for (const vendor_kind &kind : vendor_kinds) {
        if (has_guid(node, kind.guid)) {
            to.put(kind.text);
            return true;
        }
    }
    const std::span<const uint8_t> data = tail(node);
    if (!has_guid(node, uart_flow_control) || data.empty())
        return false;
    const word *control = by_value(uart_flow_controls, data[0]);
    // Kept: a value without a word is not printed. [kept_flow_control_of_another_value]
    to.add("/UartFlowCtrl(%s)", control ? control->text : "Invalid arg");
    return true;
}

constexpr printed messaging[] = {
    row<uefi_atapi_device_path_t, print_atapi>(),   row<uefi_scsi_device_path_t, print_scsi>(),
    row<uefi_fibre_device_path_t, print_fibre>(),   row<uefi_usb_device_path_t, print_usb>(),
    row<uefi_venmsg_device_path_t, print_vendor>(), row<uefi_macaddr_device_path_t, print_mac_address>(),
    row<uefi_uart_device_path_t, print_uart>(),     row<uefi_sata_device_path_t, print_sata>(),
};
static_assert(distinct_subtypes(messaging));

} // namespace

const printed_rows ovra::messaging_rows = messaging;
