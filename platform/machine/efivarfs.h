/* SPDX-License-Identifier: MIT */
/* Changes on an efivarfs. The firmware itself keeps each value whole. */
#ifndef HWPLAT_MACHINE_EFIVARFS_H
#define HWPLAT_MACHINE_EFIVARFS_H

#include <ovra/uefi.h>

#include "platform/machine/files.h"

namespace machine {

/* One write of attributes and data. The file's immutable flag is lifted for it and put back. */
EFI_STATUS write_efivarfs(int folder, const char *file_name, byte_view contents);

/* Removes a variable. `attributes` are those it has now. */
EFI_STATUS remove_efivarfs(int folder, const char *file_name, UINT32 attributes);

/* The answers of QueryVariableInfo, in bytes. */
struct variable_space {
    UINT64 store = 0;     /* in all */
    UINT64 remaining = 0; /* free */
    UINT64 variable = 0;  /* the most that one variable may have */
};

/* EFI_UNSUPPORTED on a kernel that does not report it. */
EFI_STATUS efivarfs_space(int folder, variable_space *space);

} // namespace machine

#endif
