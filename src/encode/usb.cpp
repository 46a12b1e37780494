// SPDX-License-Identifier: MIT
#include "src/dpath/build.h"
#include "src/encode/fields.h"
#include "src/encode/get.h"
#include "src/rt/diag.h"

using namespace ovra;

int encode_usb(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    using rec = uefi_usb_device_path_t;
    static constexpr field fields[] = {
        need("port", AT(port)),
        need("interface", AT(interface)),
    };
    return encode_fields<rec>(args, out, fields, "unable to allocate usb_dpath\n");
}

namespace {

// All ones match any device.
constexpr uint16_t any_id = 0xffff;
constexpr uint8_t any_byte = 0xff;

// A byte that the keyword fixes, or that an argument gives.
struct class_byte {
    const char *argument;
    uint8_t value;
};
constexpr class_byte given_by(const char *argument)
{
    return {argument, any_byte};
}
constexpr class_byte fixed(uint16_t value)
{
    return {nullptr, static_cast<uint8_t>(value)};
}

int encode_class(uefi_arg_list_t *args, class_byte dev_class, class_byte dev_sub_class,
                 uefi_device_path_t **out)
{
    auto node = new_node<uefi_usb_class_device_path_t>();
    if (!node)
        return fail("unable to allocate usb_class dpath\n");
    uint16_t vendor_id = any_id;
    uint16_t product_id = any_id;
    uint8_t protocol = any_byte;
    const auto get_class_byte = [args](class_byte &byte) {
        return !byte.argument || get_if_given(args, byte.argument, &byte.value);
    };
    if (!get_if_given(args, "VID", &vendor_id) || !get_if_given(args, "PID", &product_id) ||
        !get_class_byte(dev_class) || !get_class_byte(dev_sub_class) ||
        !get_if_given(args, "Protocol", &protocol))
        return -1;
    node->vendor_id = vendor_id;
    node->product_id = product_id;
    node->dev_class = dev_class.value;
    node->dev_sub_class = dev_sub_class.value;
    node->protocol = protocol;
    return hand_over(std::move(node), out);
}

} // namespace

int encode_usbclass(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    return encode_class(args, given_by("Class"), given_by("SubClass"), out);
}

int encode_usbclass_common(uefi_arg_list_t *args, uint16_t dev_class, uefi_device_path_t **out)
{
    return encode_class(args, fixed(dev_class), given_by("SubClass"), out);
}

int encode_usbsubclass_common(uefi_arg_list_t *args, uint16_t dev_class, uint16_t dev_sub_class,
                              uefi_device_path_t **out)
{
    return encode_class(args, fixed(dev_class), fixed(dev_sub_class), out);
}

#define USB_CLASS(name, dev_class)                                                                           \
    int name(uefi_arg_list_t *args, uefi_device_path_t **out)                                                \
    {                                                                                                        \
        return encode_usbclass_common(args, dev_class, out);                                                 \
    }
USB_CLASS(encode_usbaudio, 0x01)
USB_CLASS(encode_usbcdccontrol, 0x02)
USB_CLASS(encode_usbhid, 0x03)
USB_CLASS(encode_usbimage, 0x06)
USB_CLASS(encode_usbprinter, 0x07)
USB_CLASS(encode_usbmassstorage, 0x08)
USB_CLASS(encode_usbhub, 0x09)
USB_CLASS(encode_usbcdcdata, 0x0a)
USB_CLASS(encode_usbsmartcard, 0x0b)
USB_CLASS(encode_usbvideo, 0x0e)
USB_CLASS(encode_usbdiagnostic, 0xdc)
USB_CLASS(encode_usbwireless, 0xe0)

// Kept: a SubClass argument is accepted here and not looked at. [kept_usb*_subclass_is_*]
#define USB_APPLICATION(name, dev_sub_class)                                                                 \
    int name(uefi_arg_list_t *args, uefi_device_path_t **out)                                                \
    {                                                                                                        \
        return encode_usbsubclass_common(args, 0xfe, dev_sub_class, out);                                    \
    }
USB_APPLICATION(encode_usbdevfirm, 0x01)
USB_APPLICATION(encode_usbirdabridge, 0x02)
USB_APPLICATION(encode_usbtestandmeasurement, 0x03)

int encode_usbwwid(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    const char *wwid = ovra_get_arg(args, "WWID");
    if (!wwid)
        return fail("WWID must be present\n");
    const owned<uint16_t> serial(convert_utf8_to_leunicode(wwid));
    if (!serial)
        return fail("unable to convert WWID description string to UCS-2\n");
    const size_t size = unicode_strlen(serial.get());
    // Kept: the node counts one byte more than it has fields; that byte is 0.
    // [kept_usbwwid_length_counts_one_byte_more]
    auto node = new_node<uefi_usb_wwid_device_path_t>(size + 1);
    if (!node)
        return fail("unable to allocate usb_wwid dpath\n");
    memcpy(node->serial, serial.get(), size);

    uint16_t vendor_id = 0;
    uint16_t product_id = 0;
    uint16_t interface_number = 0;
    if (!is_given(args, "VID"))
        return fail("VID is a required argument\n");
    if (!require(args, "VID", &vendor_id))
        return -1;
    if (!is_given(args, "PID"))
        return fail("PID is a required argument\n");
    if (!require(args, "PID", &product_id))
        return -1;
    if (!is_given(args, "InterfaceNumber"))
        return fail("InterfaceNumber is a required argument\n");
    // Kept: the interface number is read from PID again; its own argument must only be there.
    // [kept_usbwwid_interface_number_*, kept_usbwwid_pid_*]
    if (!require(args, "PID", &interface_number))
        return -1;
    if (interface_number > 255)
        return fail("'InterfaceNumber' range is 0 to 255: %d\n", interface_number);
    node->vendor_id = vendor_id;
    node->product_id = product_id;
    node->if_number = interface_number;
    return hand_over(std::move(node), out);
}
