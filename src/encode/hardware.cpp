// SPDX-License-Identifier: MIT
#include "src/encode/fields.h"
#include "src/encode/vendor.h"

using namespace ovra;

int encode_pci(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    using rec = uefi_pci_device_path_t;
    static constexpr field fields[] = {
        need("device", AT(device_number)).max(31, "'device' cannot be greater than 31:  %d\n"),
        // Kept: the message lacks its opening quote. [kept_pci_function_8_without_the_opening_quote]
        need("function", AT(function_number)).max(7, "function' is greater than 7:  %d\n"),
    };
    return encode_fields<rec>(args, out, fields, "unable to allocate pci_dpath\n");
}

int encode_pccard(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    using rec = uefi_pccard_device_path_t;
    static constexpr field fields[] = {
        need("function", AT(function)),
    };
    return encode_fields<rec>(args, out, fields, "unable to allocate pccard\n");
}

int encode_memmap(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    using rec = uefi_memmap_device_path_t;
    static constexpr field fields[] = {
        need("EfiMemoryType", AT(memory_type)),
        need("StartingAddress", AT(start)),
        need("EndingAddress", AT(end)),
    };
    // Kept: "memap". [kept_memap_spelling]
    return encode_fields<rec>(args, out, fields, "unable to allocate memap_dpath\n");
}

int encode_venhw(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    return encode_vendor<uefi_venhw_device_path_t>(args, out, "unable to allocate venhw dpath\n");
}

int encode_ctrl(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    using rec = uefi_ctrl_device_path_t;
    static constexpr field fields[] = {
        need("Controller", AT(ctrl_number)),
    };
    return encode_fields<rec>(args, out, fields, "unable to allocate controller dpath\n");
}
