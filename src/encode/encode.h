/* SPDX-License-Identifier: MIT */
/*
 * Device paths from text: the arguments of one node, their typed getters, the table of keywords, and the
 * driver for a whole path.
 */
#ifndef SRC_ENCODE_ENCODE_H
#define SRC_ENCODE_ENCODE_H

#include <ovra/ovra.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One argument: its name, as the user wrote it or, of a positional one, that of the table; and its value. */
typedef struct {
    const char *name;
    char *value;
} uefi_nv_pair_t;

#define UEFI_ARGS_MAX 256 /* declared; a list is allocated for its own number of arguments */

/* Lies in one block with the texts that it points to. */
typedef struct {
    char *arg_str; /* the whole text, for a keyword without a parameter list; else null */
    size_t argc;
    uefi_nv_pair_t arg_nv[UEFI_ARGS_MAX];
} uefi_arg_list_t;

/*
 * Splits the argument text of a node. `param_list` is a null-terminated array of the names of positional
 * arguments; null: the text is kept whole. 0 with a new list, or -1 with *out as it was.
 */
int arg_list_init(uefi_arg_list_t **out, const char *arg_text, const char *const *param_list);

/* Releases a list with all that it holds. */
void free_arglist(uefi_arg_list_t *list);

/* The value of the first argument of a name, ignoring case; borrowed from the list. Null: there is none. */
char *ovra_get_arg(uefi_arg_list_t *list, const char *name);

/*
 * Typed getters. 0; -1 for a value that is malformed or out of range; -2 when there is no such argument.
 * `base` as strtoull takes it. The sized ones write their result on success only.
 */
uint64_t encode_arg_uint_common(uefi_arg_list_t *list, const char *name, uint64_t *out, int base);
int encode_arg_uint64(uefi_arg_list_t *list, const char *name, uint64_t *out, int base);
int encode_arg_uint32(uefi_arg_list_t *list, const char *name, uint32_t *out, int base);
int encode_arg_uint16(uefi_arg_list_t *list, const char *name, uint16_t *out, int base);
int encode_arg_uint8(uefi_arg_list_t *list, const char *name, uint8_t *out, int base);

/* "PNP0A03" as a compressed EISA identifier, "0" as 0. A failure may leave a part of the result in *out. */
int encode_arg_eisaid(uefi_arg_list_t *list, const char *name, uint32_t *out);

/* 36 characters as a GUID. A failure leaves the fields converted until then in *out. */
int encode_arg_guid(uefi_arg_list_t *list, const char *name, EFI_GUID *out);

/*
 * Pairs of hexadecimal digits as a new block of *out_size bytes, from min_size to max_size, which the caller
 * frees. 0 or -1, also when there is no such argument; *out_size may then have been written.
 */
int encode_arg_hexdump(uefi_arg_list_t *list, const char *name, void **out, size_t *out_size, size_t min_size,
                       size_t max_size);

/* Builds one node of its arguments. 0 with a new node, or -1 with *out as it was. */
typedef int uefi_encode_fcn_t(uefi_arg_list_t *args, uefi_device_path_t **out);

/* One keyword. */
typedef struct {
    const char *opt_name;
    uefi_encode_fcn_t *opt_encode_fcn;
    const char *const *opt_param_list; /* null-terminated; null: the argument text is kept whole */
} uefi_encode_opt_t;

/* The keywords and their encoders follow from the rows of keywords.def. */
enum {
    ENCODE_OPT_COUNT = 0
#define KEYWORD(keyword, encoder, parameters) +1
#include "src/encode/keywords.def"
#undef KEYWORD
};
extern const uefi_encode_opt_t encode_opt_table[ENCODE_OPT_COUNT];

#define KEYWORD(keyword, encoder, parameters) uefi_encode_fcn_t encoder;
#include "src/encode/keywords.def"
#undef KEYWORD

/* Shared steps of families of keywords. */
int encode_path_common(uint8_t type, uefi_arg_list_t *args, uefi_device_path_t **out);
int encode_acpi_common(uint32_t hid, uint32_t uid, uefi_device_path_t **out);
int encode_hid_common(uint32_t hid, uefi_arg_list_t *args, uefi_device_path_t **out);
int encode_usbclass_common(uefi_arg_list_t *args, uint16_t dev_class, uefi_device_path_t **out);
int encode_usbsubclass_common(uefi_arg_list_t *args, uint16_t dev_class, uint16_t dev_sub_class,
                              uefi_device_path_t **out);

/*
 * Encodes a null-terminated array of instances, as UEFI text, into a new node list that ends with an
 * END-entire node and that the caller frees. 0, or -1 with *list as it was.
 */
int encode_uefipath(ovra_path_t **paths, uefi_device_path_t ***list);

/* The same into a new packed path of *len bytes, which the caller frees. Either output may be null. */
int encode_packed_path(ovra_path_t **paths, ovra_epath_t *out, int *len);

#ifdef __cplusplus
}
#endif

#endif
