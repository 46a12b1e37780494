// SPDX-License-Identifier: MIT
#include "src/base/ids.h"
#include "src/print/rows.h"

using namespace ovra;

namespace {

void print_atapi(const uefi_atapi_device_path_t &node, text &to)
{
    // Kept: every value but 0 is the second of the two.
    const word *channel = by_value(ata_channels, node.channel != 0);
    const word *drive = by_value(ata_drives, node.drive != 0);
    to.add("/Ata(%s,%s,%d)", channel->text, drive->text, node.lun);
}

void print_mac_address(const uefi_macaddr_device_path_t &node, text &to)
{
    // Kept: the interface type only says how many bytes count; it is not printed itself.
    const size_t count = node.iff_type <= 1 ? 6 : sizeof node.mac_addr;
    char digits[2 * sizeof node.mac_addr];
    const char *end = write_hex({node.mac_addr, count}, digits);
    to.put("/MAC(");
    to.put({digits, static_cast<size_t>(end - digits)});
    to.put(")");
}

void print_uart(const uefi_uart_device_path_t &node, text &to)
{
    // Kept: both numbers are signed, so that 200 data bits print as -56.
    to.add("/Uart(%ld,%hhd,", static_cast<int64_t>(node.baud), static_cast<int8_t>(node.databits));
    add_word(to, uart_parities, node.parity);
    to.put(",");
    add_word(to, uart_stop_bits, node.stopbits);
    to.put(")");
}

constexpr printed rows[] = {
    row<uefi_atapi_device_path_t>([](auto &n, text &t) { print_atapi(n, t); }),
    row<uefi_scsi_device_path_t>([](auto &n, text &t) { t.add("/Scsi(0x%x,0x%x)", n.target, n.lun); }),
    row<uefi_fibre_device_path_t>([](auto &n, text &t) { t.add("/Fibre(0x%lx,0x%lx)", n.wwn, n.lun); }),
    row<uefi_usb_device_path_t>([](auto &n, text &t) { t.add("/USB(0x%x,0x%x)", n.port, n.interface); }),
    row<uefi_macaddr_device_path_t>([](auto &n, text &t) { print_mac_address(n, t); }),
    row<uefi_uart_device_path_t>([](auto &n, text &t) { print_uart(n, t); }),
    row<uefi_sata_device_path_t>(
        [](auto &n, text &t) { t.add("/Sata(0x%x,0x%x,0x%x)", n.port, n.port_mult, n.lun); }),
};
static_assert(distinct_subtypes(rows));

struct vendor_kind {
    EFI_GUID guid;
    const char *text;
};

// Kept: these GUIDs decide alone; data behind them is not printed.
constexpr vendor_kind vendor_kinds[] = {
    {pc_ansi, "/VenPcAnsi()"}, {vt100, "/VenVt100()"},     {vt100_plus, "/VenVt100Plus()"},
    {vt_utf8, "/VenUtf8()"},   {debug_port, "/DebugPort"}, // Kept: no parentheses.
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
    // Kept: a value without a word is not printed.
    to.add("/UartFlowCtrl(%s)", control ? control->text : "Invalid arg");
    return true;
}

} // namespace

bool ovra::messaging_text(const uefi_device_path_t *node, text &to)
{
    const auto *vendor = as<uefi_venmsg_device_path_t>(node);
    if (vendor && print_vendor(*vendor, to))
        return true;
    return print_row(rows, node, to) || print_generic(node, to, [](auto &n, const char *hex, text &t) {
               // Kept: in decimal, unlike the other generic forms.
               t.add("/MessagingPath(%u,%s)", n.subtype, hex);
           });
}

void print_messaging_path(const uefi_device_path_t *node, char **to)
{
    append_node_text(messaging_text, node, to);
}
