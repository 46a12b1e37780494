/* SPDX-License-Identifier: MIT */
/*
 * libkvlist: lists of typed values by name, the form in which libvolset gives attributes.
 *
 * A list belongs to whoever received it, until kvlist_free. Names are ASCII text and compared exactly. A list
 * is used by one thread at a time; separate lists are independent.
 */
#ifndef HWPLAT_KVLIST_H
#define HWPLAT_KVLIST_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kvlist kvlist_t;

/*
 * Look-ups. 0 with *value written when the list has a value of that name and type; else ENOENT, also for a
 * null list and for a value of another type, and the outputs are as they were. Callers look for 0 and nonzero
 * only.
 */
int kvlist_lookup_uint32(kvlist_t *list, const char *name, uint32_t *value);
int kvlist_lookup_uint64(kvlist_t *list, const char *name, uint64_t *value);

/* *array points at *count bytes inside the list, valid until the list is freed and not to be written. */
int kvlist_lookup_uint8_array(kvlist_t *list, const char *name, uint8_t **array, unsigned int *count);

/*
 * Building a list, which libvolset does. A new empty list, or null with errno. The adders copy the name and
 * the value and return 0, or ENOMEM with the list as it was; of values of one name and type the first is
 * found.
 */
kvlist_t *kvlist_alloc(void);
int kvlist_add_uint32(kvlist_t *list, const char *name, uint32_t value);
int kvlist_add_uint64(kvlist_t *list, const char *name, uint64_t value);
int kvlist_add_uint8_array(kvlist_t *list, const char *name, const uint8_t *array, unsigned int count);

/* Releases a list with all its values. Null is allowed. */
void kvlist_free(kvlist_t *list);

#ifdef __cplusplus
}
#endif

#endif
