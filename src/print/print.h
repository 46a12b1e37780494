/* SPDX-License-Identifier: MIT */
/*
 * Device paths as text. A text accumulator is a null-terminated string of the malloc family that the caller
 * owns, null until its first piece. A node's text is at most 1023 bytes; what goes beyond is cut.
 * Nothing here writes a message, and a piece for which there is no memory is left out.
 */
#ifndef SRC_PRINT_PRINT_H
#define SRC_PRINT_PRINT_H

#include <ovra/ovra.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Appends the text of a node. Its header and its `len` bytes must be readable. A node that is too short for
 * its kind, or of no kind known here, prints its type, its subtype and its bytes.
 */
void print_device_path(const uefi_device_path_t *node, char **to);

/* The same for a node of the type that the name says; one of another type prints in the generic form. */
void print_hardware_path(const uefi_device_path_t *node, char **to);
void print_acpi_path(const uefi_device_path_t *node, char **to);
void print_messaging_path(const uefi_device_path_t *node, char **to);
void print_media_path(const uefi_device_path_t *node, char **to);
void print_bios_path(const uefi_device_path_t *node, char **to);

/*
 * The bytes of a node after type and subtype as lower-case digits: a new string of 2 * len - 3 bytes, which
 * the caller frees; null without memory. A node that claims less than those two bytes gives the empty text.
 */
void device_path_hexdump(const uefi_device_path_t *node, char **hex);

/* Appends `piece`. Without memory *to is as it was. */
void append_uefi_path(const char *piece, char **to);

/*
 * Writes a GUID in upper case, such as "8BE4DF61-93CA-11D2-AA0D-00E098032B8C": 37 bytes with the terminator.
 */
void print_guid(const EFI_GUID *guid, char *out);

/*
 * Appends an instance with copies of both texts to *list, a null-terminated array that the handle owns (null:
 * none yet). A null `device` counts as ""; a null `file` stays null. 0, or -1 with *list as it was.
 */
int add_path(ovra_hdl_t hdl, const char *device, const char *file, ovra_path_t ***list);

#ifdef __cplusplus
}
#endif

#endif
