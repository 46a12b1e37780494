/* SPDX-License-Identifier: MIT */
/* The typed getters for C++: the width comes from the result, and the outcome has to be looked at. */
#ifndef SRC_ENCODE_GET_H
#define SRC_ENCODE_GET_H

#include <concepts>
#include <cstring>

#include "src/encode/encode.h"
#include "src/rt/diag.h"
#include "src/rt/owned.h"

namespace ovra {

enum class [[nodiscard]] got{ok = 0, malformed = -1, absent = -2};

/*
 * The text of an argument as a number of `size` bytes; a failure leaves *out. `name` is what messages call
 * the argument.
 */
got read_integer(const char *name, const char *text, size_t size, uint64_t *out, int base = 0);

/* As a GUID; a failure leaves the fields converted until then. */
got read_guid(const char *text, EFI_GUID *out);

/* What the getters of numbers say of an argument that is not there. */
got number_absent(const char *name);

template <std::unsigned_integral T>
got read(const char *name, const char *text, T *out, int base = 0)
{
    uint64_t value = 0;
    const got result = read_integer(name, text, sizeof *out, &value, base);
    if (result == got::ok)
        *out = static_cast<T>(value);
    return result;
}
inline got read(const char *, const char *text, EFI_GUID *out, int = 0)
{
    return read_guid(text, out);
}

template <std::unsigned_integral T>
got get(uefi_arg_list_t *args, const char *name, T *out, int base = 0)
{
    const char *text = ovra_get_arg(args, name);
    return text ? read(name, text, out, base) : number_absent(name);
}
inline got get(uefi_arg_list_t *args, const char *name, EFI_GUID *out, int = 0)
{
    return static_cast<got>(encode_arg_guid(args, name, out));
}
inline got get_eisaid(uefi_arg_list_t *args, const char *name, uint32_t *out)
{
    return static_cast<got>(encode_arg_eisaid(args, name, out));
}

/*
 * From here on every helper returns true on success: no condition mixes that with the 0 of the C routines.
 */

/* An error message for a helper that fails: always false, to be returned. */
inline bool refuse(const char *message)
{
    say("%s", message);
    return false;
}

/* An argument that must be there. */
template <typename T>
bool require(uefi_arg_list_t *args, const char *name, T *out, int base = 0)
{
    return get(args, name, out, base) == got::ok;
}

/* An argument with a default: *out as it is when it is absent, and the getter says so. */
template <typename T>
bool get_or_keep(uefi_arg_list_t *args, const char *name, T *out, int base = 0)
{
    return get(args, name, out, base) != got::malformed;
}

/* The same, silent about an absent argument. */
template <typename T>
bool get_if_given(uefi_arg_list_t *args, const char *name, T *out, int base = 0)
{
    const char *text = ovra_get_arg(args, name);
    return !text || read(name, text, out, base) == got::ok;
}

inline bool require_eisaid(uefi_arg_list_t *args, const char *name, uint32_t *out)
{
    return get_eisaid(args, name, out) == got::ok;
}

inline bool is_given(uefi_arg_list_t *args, const char *name)
{
    return ovra_get_arg(args, name) != nullptr;
}

/* Bytes of a hexadecimal argument. */
struct hex_bytes {
    owned<void> bytes;
    size_t size = 0;
};

/* True for min to max bytes of it, into *out. */
inline bool require_hex(uefi_arg_list_t *args, const char *name, size_t min, size_t max, hex_bytes *out)
{
    void *bytes = nullptr;
    if (encode_arg_hexdump(args, name, &bytes, &out->size, min, max) != 0)
        return false;
    out->bytes.reset(bytes);
    return true;
}

/* True for exactly the bytes of an array of a record. */
template <size_t size>
bool require_bytes(uefi_arg_list_t *args, const char *name, uint8_t (&out)[size])
{
    hex_bytes hex;
    if (!require_hex(args, name, size, size, &hex))
        return false;
    memcpy(out, hex.bytes.get(), size);
    return true;
}

} // namespace ovra

#endif
