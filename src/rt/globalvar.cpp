// SPDX-License-Identifier: MIT
#include "src/base/guid.h"
#include "src/base/variable.h"
#include "src/rt/owned.h"
#include "src/rt/rt.h"
#include "src/rt/testfile.h"

using ovra::owned;

EFI_STATUS set_variable(ovra_hdl_t hdl, const char *name, UINTN size, void *data)
{
    if (ovra::test_file_mode())
        return set_variable_to_file(name, size, data);
    const owned<uint16_t> unicode_name(convert_utf8_to_leunicode(name));
    if (!unicode_name)
        return EFI_INVALID_PARAMETER;
    EFI_GUID guid = ovra::global_variable_guid; // the services take one that is not const
    EFI_STATUS status = EFI_SUCCESS;
    if (ovra_set_variable(hdl, unicode_name.get(), &guid, ovra::boot_variable_attributes, size, data,
                          &status) != 0)
        return EFI_ACCESS_DENIED;
    return status;
}

EFI_STATUS get_variable(ovra_hdl_t hdl, const char *name, UINTN *size, void *data)
{
    if (ovra::test_file_mode())
        return get_variable_from_file(name, size, data);
    const owned<uint16_t> unicode_name(convert_utf8_to_leunicode(name));
    if (!unicode_name)
        return EFI_INVALID_PARAMETER;
    EFI_GUID guid = ovra::global_variable_guid; // the services take one that is not const
    EFI_STATUS status = EFI_SUCCESS;
    if (ovra_get_variable(hdl, unicode_name.get(), &guid, nullptr, size, data, &status) != 0)
        return EFI_ACCESS_DENIED;
    return status;
}
