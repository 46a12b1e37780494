// SPDX-License-Identifier: MIT
#include <algorithm>
#include <iterator>

#include "src/encode/encode.h"

namespace {

// A text as a template argument, so that a row holds its parameters.
template <size_t size>
struct literal {
    char text[size] = {};
    constexpr literal(const char (&from)[size]) { std::copy_n(from, size, text); }
};

template <literal... names>
constexpr const char *const parameters[] = {names.text..., nullptr};

} // namespace

// In the order in which keywords are looked up.
// clang-format off
constexpr uefi_encode_opt_t encode_opt_table[ENCODE_OPT_COUNT] = {
    {"Path", encode_path, parameters<"type", "subtype", "data">},
    {"HardwarePath", encode_hardwarepath, parameters<"subtype", "data">},
    {"Pci", encode_pci, parameters<"Device", "Function">},
    {"pcCard", encode_pccard, parameters<"Function">},
    {"MemoryMapped", encode_memmap, parameters<"EfiMemoryType", "StartingAddress", "EndingAddress">},
    {"VenHw", encode_venhw, parameters<"GUID", "Data">},
    {"Ctrl", encode_ctrl, parameters<"Controller">},
    {"AcpiPath", encode_acpipath, parameters<"subtype", "data">},
    {"Acpi", encode_acpi, parameters<"HID", "UID">},
    {"PciRoot", encode_pciroot, parameters<"UID">},
    {"PcieRoot", encode_pcieroot, parameters<"UID">},
    {"Floppy", encode_floppy, parameters<"UID">},
    {"Keyboard", encode_keyboard, parameters<"UID">},
    {"Serial", encode_serial, parameters<"UID">},
    {"ParallelPort", encode_parallel, parameters<"UID">},
    {"AcpiEx", encode_acpiex, parameters<"HID", "CID", "UID", "HIDSTR", "CIDSTR", "UIDSTR">},
    {"AcpiExp", encode_acpiexp, parameters<"HID", "CID", "CIDSTR">},
    {"AcpiAdr", encode_acpiadr, nullptr}, // reads the text whole
    {"MessagingPath", encode_messagepath, parameters<"subtype", "data">},
    {"Ata", encode_ata, parameters<"Controller", "Drive", "LUN">},
    {"Scsi", encode_scsi, parameters<"PUN", "LUN">},
    {"Fibre", encode_fibre, parameters<"WWN", "LUN">},
    {"FibreEx", encode_fibreex, parameters<"WWN", "LUN">},
    {"I1394", encode_i1394, parameters<"GUID">},
    {"USB", encode_usb, parameters<"Port", "Interface">},
    {"I2O", encode_i2o, parameters<"TID">},
    {"Infiniband", encode_ib, parameters<"Flags", "GUID", "ServiceId", "TargetId", "DeviceId">},
    {"VenMsg", encode_venmsg, parameters<"GUID", "Data">},
    {"VenPcAnsi", encode_venpcansi, parameters<>},
    {"VenVt100", encode_venvt100, parameters<>},
    {"VenVt100Plus", encode_venvt100plus, parameters<>},
    {"VenUtf8", encode_venutf8, parameters<>},
    {"UartFlowCtrl", encode_uartflow, parameters<"Value">},
    {"SAS", encode_sas, parameters<"Address", "LUN", "RTP", "SASSATA", "Location", "Connect", "DriveBay", "Reserved">},
    {"SasEx", encode_sasex, parameters<"Address", "LUN", "RTP", "SASSATA", "Location", "Connect", "DriveBay">},
    {"DebugPort", encode_debugport, parameters<>},
    {"MAC", encode_mac, parameters<"MacAddr", "IfType">},
    {"IPv4", encode_ipv4, parameters<"RemoteIp", "Protocol", "Type", "LocalIp", "GatewayIPAddress", "SubnetMask">},
    {"IPv6", encode_ipv6, parameters<"RemoteIp", "Protocol", "Type", "LocalIp", "GatewayIPAddress">},
    {"Uart", encode_uart, parameters<"Baud", "DataBits", "Parity", "StopBits">},
    {"UsbClass", encode_usbclass, parameters<"VID", "PID", "Class", "SubClass", "Protocol">},
    {"UsbAudio", encode_usbaudio, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbCDCControl", encode_usbcdccontrol, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbHID", encode_usbhid, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbImage", encode_usbimage, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbPrinter", encode_usbprinter, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbMassStorage", encode_usbmassstorage, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbHub", encode_usbhub, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbCDCData", encode_usbcdcdata, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbSmartCard", encode_usbsmartcard, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbVideo", encode_usbvideo, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbDiagnostic", encode_usbdiagnostic, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbWireless", encode_usbwireless, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbDeviceFirmwareUpdate", encode_usbdevfirm, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbIrdaBridge", encode_usbirdabridge, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbTestAndMeasurement", encode_usbtestandmeasurement, parameters<"VID", "PID", "SubClass", "Protocol">},
    {"UsbWwid", encode_usbwwid, parameters<"VID", "PID", "InterfaceNumber", "WWID">},
    {"Unit", encode_unit, parameters<"LUN">},
    {"Sata", encode_sata, parameters<"HPN", "PMPN", "LUN">},
    {"iSCSI", encode_iscsi, parameters<"TargetName", "PortalGroup", "LUN", "HeaderDigest", "DataDigest", "Authentication", "Protocol">},
    {"Vlan", encode_vlan, parameters<"VlanId">},
    {"MediaPath", encode_mediapath, parameters<"subtype", "data">},
    {"HD", encode_hd, parameters<"Partition", "Type", "Signature", "Start", "Size">},
    {"CDROM", encode_cdrom, parameters<"Entry", "Start", "Size">},
    {"VenMedia", encode_venmedia, parameters<"GUID", "Data">},
    {"Media", encode_media, parameters<"GUID">},
    {"Offset", encode_offset, parameters<"StartingOffset", "EndingOffset">},
    {"BbsPath", encode_bbspath, parameters<"subtype", "data">},
    {"BBS", encode_bbs, parameters<"Type", "Id", "Flags">},
};
// clang-format on
static_assert(std::size(encode_opt_table) == ENCODE_OPT_COUNT &&
              encode_opt_table[ENCODE_OPT_COUNT - 1].opt_name);
