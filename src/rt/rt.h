/* SPDX-License-Identifier: MIT */
/*
 * Firmware runtime access: the handle and its tracked memory, the runtime services, variables by name, and
 * text conversion. Knows no device paths.
 */
#ifndef SRC_RT_RT_H
#define SRC_RT_RT_H

#include <iconv.h>
#include <stdbool.h>

#include <ovra/ovra.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ovra_hdl {
    size_t memlist_size;                 /* slots allocated */
    size_t memlist_end;                  /* slots in use so far; those that were emptied count */
    void **memlist_addr;                 /* a null slot is free */
    int ovra_fd;                         /* the opened driver, or -1 */
    uint32_t memlist_low;                /* no slot below this one is free; 0 is always a safe value. */
    struct memlist_index *memlist_index; /* of a long list, or null */
};

/* Records `block`. 0, also when either is null; -1 when the list cannot grow. Takes the lowest free slot. */
int memlist_add(ovra_hdl_t hdl, void *block);

/* Empties the first slot that holds `block`, which is not freed. An unknown block is ignored. */
void memlist_remove(ovra_hdl_t hdl, void *block);

/* Whether `block` is recorded. */
bool memlist_holds(ovra_hdl_t hdl, void *block);

/* A new recorded block of `size` bytes, or null. `what` names the caller in messages. */
void *memlist_malloc(ovra_hdl_t hdl, size_t size, const char *what);

/*
 * Resizes a recorded block. A null block is a memlist_malloc; a size of 0 frees and returns null. Null on
 * failure: the old block is then still valid and recorded. When only the recording fails the new block is
 * returned all the same, and belongs to the caller.
 */
void *memlist_realloc(ovra_hdl_t hdl, void *block, size_t size, const char *what);

/*
 * Appends a copy of `str` to *array, a null-terminated array that the handle owns (null: none yet). A null
 * `str` makes the array empty, without freeing the strings it held. 0, or -1 with *array as it was.
 */
int add_str_array(ovra_hdl_t hdl, const char *str, char ***array);

/* Passes a record to the runtime services. 0, or -1 when they could not be reached; errno says why. */
int ovra_common(ovra_hdl_t hdl, int command, void *record);

/* Variables of the global-variable GUID by their UTF-8 name, from the firmware or from files. */
EFI_STATUS set_variable(ovra_hdl_t hdl, const char *name, UINTN size, void *data);
/* *size as in GetVariable: with EFI_BUFFER_TOO_SMALL it receives the size needed. */
EFI_STATUS get_variable(ovra_hdl_t hdl, const char *name, UINTN *size, void *data);

/* Size in bytes of a UCS-2 string, its terminator included. */
size_t unicode_strlen(const uint16_t *s);

/* UTF-8 to UCS-2 through `cd`; a new string that the caller frees, or null. */
uint16_t *convert_utf8_to_ucs2xx(iconv_t cd, const char *s);

/*
 * From now on fork waits for the end of a conversion. ovra_init asks for it: handlers registered during a
 * fork do not apply to it.
 */
void follow_forks(void);

/* UTF-8 to little-endian UCS-2; a new string that the caller frees, or null. */
uint16_t *convert_utf8_to_leunicode(const char *s);

/*
 * UTF-16 of at most `units` units, in host byte order, to UTF-8 of at most `capacity` bytes at `out`, not
 * terminated. Ends at a zero unit, at a surrogate without its partner, and before a character that does not
 * fit whole. Returns the bytes written. The units may stand at any address.
 */
size_t convert_utf16_to_utf8(const void *s, size_t units, char *out, size_t capacity);

#ifdef __cplusplus
}
#endif

#endif
