// SPDX-License-Identifier: MIT
#include <cstring>

#include "src/base/ids.h"
#include "src/base/number.h"
#include "src/dpath/build.h"
#include "src/encode/get.h"
#include "src/rt/diag.h"

using namespace ovra;

static int encode_acpi_node(uint32_t hid, uint32_t uid, const char *no_memory, uefi_device_path_t **out)
{
    auto node = new_node<uefi_acpi_device_path_t>();
    if (!node)
        return fail("%s", no_memory);
    node->hid = hid;
    node->uid = uid;
    return hand_over(std::move(node), out);
}

int encode_acpi_common(uint32_t hid, uint32_t uid, uefi_device_path_t **out)
{
    // Kept: "apci". [kept_apci_spelling]
    return encode_acpi_node(hid, uid, "unable to allocate apci_dpath\n", out);
}

int encode_hid_common(uint32_t hid, uefi_arg_list_t *args, uefi_device_path_t **out)
{
    uint32_t uid = 0;
    if (!get_or_keep(args, "uid", &uid))
        return -1;
    return encode_acpi_common(hid, uid, out);
}

int encode_acpi(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    uint32_t hid = 0;
    uint32_t uid = 0;
    if (!require_eisaid(args, "HID", &hid) || !get_or_keep(args, "UID", &uid))
        return -1;
    return encode_acpi_common(hid, uid, out);
}

#define FIXED_HID(name, product)                                                                             \
    int name(uefi_arg_list_t *args, uefi_device_path_t **out)                                                \
    {                                                                                                        \
        return encode_hid_common(eisa_id("PNP", product), args, out);                                        \
    }
FIXED_HID(encode_pciroot, product_pci_root)
FIXED_HID(encode_pcieroot, product_pcie_root)
FIXED_HID(encode_floppy, product_floppy)
FIXED_HID(encode_keyboard, product_keyboard)
FIXED_HID(encode_serial, product_serial)
FIXED_HID(encode_parallel, product_parallel_port)

namespace {

struct expanded {
    uint32_t hid = 0;
    uint32_t uid = 0;
    uint32_t cid = 0;
    const char *hidstr = nullptr;
    const char *uidstr = nullptr;
    const char *cidstr = nullptr;
};

int encode_expanded(const expanded &device, uefi_device_path_t **out)
{
    const char *strings[] = {device.hidstr, device.uidstr, device.cidstr};
    size_t size = 0;
    for (const char *&string : strings) {
        if (!string)
            string = "";
        size += strlen(string) + 1;
    }
    auto node = new_node<uefi_acpiex_device_path_t>(size);
    if (!node)
        return fail("unable to allocate acpie dpath\n");
    node->hid = device.hid;
    node->uid = device.uid;
    node->cid = device.cid;
    char *to = node->strings;
    for (const char *string : strings)
        to = stpcpy(to, string) + 1;
    return hand_over(std::move(node), out);
}

// An EISA identifier that may be absent, which is 0.
bool get_optional_eisaid(uefi_arg_list_t *args, const char *name, uint32_t *id)
{
    return !is_given(args, name) || require_eisaid(args, name, id);
}

} // namespace

int encode_acpiex(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    expanded device = {};
    if (!get_optional_eisaid(args, "HID", &device.hid))
        return -1;
    device.hidstr = ovra_get_arg(args, "HIDSTR");
    if ((device.hid != 0) == (device.hidstr != nullptr)) {
        return fail("invalid:  exactly one of HID must be non-0 or HIDSTR non-NULL: hidstr: %s  HID=%d\n",
                    device.hidstr ? device.hidstr : "(null)", static_cast<int>(device.hid));
    }

    // Kept: it is HIDSTR that is compared with "0" here, and UID is an EISA identifier, not a number.
    // [kept_acpiex_*]
    if (!(device.hidstr && strcmp(device.hidstr, "0") == 0) && !get_optional_eisaid(args, "UID", &device.uid))
        return -1;
    device.uidstr = ovra_get_arg(args, "UIDSTR");
    if (device.uidstr && device.uid != 0)
        return fail("invalid: one of UIDSTR or UID must be 0 or NULL\n");

    if (!get_optional_eisaid(args, "CID", &device.cid))
        return -1;
    device.cidstr = ovra_get_arg(args, "CIDSTR");
    if (device.cidstr && device.cid != 0)
        return fail("invalid: one of CIDSTR or CID must be 0 or NULL\n");

    if (device.cid == 0 && !device.hidstr && !device.uidstr && !device.cidstr)
        return encode_acpi_node(device.hid, device.uid, "unable to allocate acpi dpath\n", out);
    return encode_expanded(device, out);
}

int encode_acpiexp(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    if (!is_given(args, "HID"))
        return fail("HID is required\n");
    expanded device = {};
    if (!require_eisaid(args, "HID", &device.hid) || !get_optional_eisaid(args, "CID", &device.cid))
        return -1;
    // Kept: the keyword has no parameter of this name, so the string is always empty; its CIDSTR is ignored.
    // [kept_acpiexp_*]
    device.uidstr = ovra_get_arg(args, "UIDSTR");
    return encode_expanded(device, out);
}

int encode_acpiadr(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    const owned<char> text(strdup(args->arg_str));
    if (!text)
        return fail("Unable to allocate arg_str\n");
    size_t count = 1;
    for (const char *c = text.get(); *c; ++c)
        count += *c == ',';
    auto node = new_node<uefi_acpiadr_device_path_t>(count * sizeof(uint32_t));
    if (!node)
        return fail("unable to allocate acpi_adr dpath\n");

    char *rest = text.get();
    for (size_t i = 0; i < count; ++i) {
        const char *value = strsep(&rest, ",");
        const char *end = nullptr;
        int error = 0;
        const uint64_t number = read_unsigned(value, &end, 0, &error);
        if (error != 0 || *end != '\0' || number > UINT32_MAX)
            return -1;
        const auto adr = static_cast<uint32_t>(number);
        memcpy(reinterpret_cast<uint8_t *>(node.get()) + sizeof(uefi_device_path_t) + i * sizeof adr, &adr,
               sizeof adr);
    }
    return hand_over(std::move(node), out);
}
