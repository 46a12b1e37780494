/* SPDX-License-Identifier: MIT */
/*
 * libkvlist: lists of typed values by name. libvolset gives attributes in this form.
 *
 *     kvlist_t *list = vs_get_attributes(drive, &err);
 *     uint64_t blocks;
 *     if (list && kvlist_lookup_uint64(list, "nblocks", &blocks) == 0)
 *         printf("%" PRIu64 " blocks\n", blocks);
 *     kvlist_free(list);
 *
 * A list belongs to its receiver, who releases it with kvlist_free. Names are ASCII text and compared
 * exactly. A list is used by one thread at a time; separate lists are independent.
 */
#ifndef HWPLAT_KVLIST_H
#define HWPLAT_KVLIST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kvlist kvlist_t;

/*
 * Look up a number. Returns 0 and writes `*value`; or ENOENT, with `*value` unchanged, when the list is null
 * or has no value of that name and type. Callers test for 0 and nonzero only.
 */
int kvlist_lookup_uint32(kvlist_t *list, const char *name, uint32_t *value);
int kvlist_lookup_uint64(kvlist_t *list, const char *name, uint64_t *value);

/*
 * Looks up bytes. Returns 0, with `*array` pointing at `*count` bytes inside the list; or ENOENT, with both
 * unchanged, in the cases above. The bytes are valid until kvlist_free and must not be written to.
 */
int kvlist_lookup_uint8_array(kvlist_t *list, const char *name, uint8_t **array, unsigned int *count);

/*
 * Makes an empty list, as libvolset does. Returns it, to be released with kvlist_free; or null with errno
 * ENOMEM.
 */
kvlist_t *kvlist_alloc(void);

/*
 * Add a value. The name and the value are copied; `count` is in bytes. Return 0; or ENOMEM with the list
 * unchanged. If several values have one name and type, look-ups find the first.
 */
int kvlist_add_uint32(kvlist_t *list, const char *name, uint32_t value);
int kvlist_add_uint64(kvlist_t *list, const char *name, uint64_t value);
int kvlist_add_uint8_array(kvlist_t *list, const char *name, const uint8_t *array, unsigned int count);

/* Releases a list with all its values. `list` may be null. */
void kvlist_free(kvlist_t *list);

#ifdef __cplusplus
}
#endif

#endif
