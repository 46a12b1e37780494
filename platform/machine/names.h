/* SPDX-License-Identifier: MIT */
/*
 * A firmware variable's name and vendor GUID, and the name of its file: "<Name>-<guid>", the name in UTF-8,
 * the GUID in lower case. "/" in a name is "!" in the file name, as on an efivarfs (fs/efivarfs/super.c);
 * "a/b" and "a!b" are therefore one variable, listed as "a/b".
 */
#ifndef HWPLAT_MACHINE_NAMES_H
#define HWPLAT_MACHINE_NAMES_H

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <ovra/uefi.h>

namespace machine {

using name_view = std::span<const CHAR16>; /* without a terminator */

struct variable_identity {
    std::vector<CHAR16> name; /* without a terminator, not empty */
    EFI_GUID guid;
};

/*
 * The units before the terminator of a name of at most `size` bytes. Nothing when these contain no terminator
 * or the name is longer than any file name.
 */
std::optional<name_view> terminated_name(const CHAR16 *name, UINTN size);

/* Nothing when the name is empty, contains an unpaired surrogate or makes a file name of over 255 bytes. */
std::optional<std::string> file_name_of(name_view name, const EFI_GUID &guid);

/* The inverse of file_name_of. Nothing for any name that file_name_of does not give. */
std::optional<variable_identity> identity_of(std::string_view file_name);

} // namespace machine

#endif
