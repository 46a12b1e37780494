// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <cstring>

#include "src/base/guid.h"
#include "src/base/number.h"
#include "src/encode/encode.h"
#include "src/encode/get.h"
#include "src/rt/diag.h"
#include "src/rt/owned.h"

using ovra::fail;
using ovra::got;
using ovra::owned;
using ovra::say;

static constexpr int absent = static_cast<int>(got::absent);

got ovra::number_absent(const char *name)
{
    say("failed to get variable '%s'\n", name);
    return got::absent;
}

// *out is written before anything is looked at.
static got read_any_integer(const char *name, const char *text, uint64_t *out, int base)
{
    const char *end = nullptr;
    int error = 0;
    *out = ovra::read_unsigned(text, &end, base, &error);
    if (error != 0) {
        say("error converting %s = '%s': %s\n", name, text, strerror(error));
        return got::malformed;
    }
    if (*end != '\0') {
        say("strtoull has endptr: arg_name: %s value: %s: end_ptr:%s\n", name, text, end);
        return got::malformed;
    }
    return got::ok;
}

static int refuse_beyond(size_t size, uint64_t value)
{
    switch (size) {
    case sizeof(uint8_t):
        return fail("encode_arg_uint8: value out of range: %lu\n", value);
    case sizeof(uint16_t):
        return fail("encode_arg_uint16: value out of range: %lu\n", value);
    default:
        return fail("encode_arg_uint32: value out of range: %lu\n", value);
    }
}

got ovra::read_integer(const char *name, const char *text, size_t size, uint64_t *out, int base)
{
    uint64_t value = 0;
    const got result = read_any_integer(name, text, &value, base);
    if (result != got::ok)
        return result;
    if (value > UINT64_MAX >> (64 - 8 * size))
        return static_cast<got>(refuse_beyond(size, value));
    *out = value;
    return got::ok;
}

uint64_t encode_arg_uint_common(uefi_arg_list_t *list, const char *name, uint64_t *out, int base)
{
    const char *text = ovra_get_arg(list, name);
    const got result = text ? read_any_integer(name, text, out, base) : ovra::number_absent(name);
    return static_cast<uint64_t>(result);
}

int encode_arg_uint64(uefi_arg_list_t *list, const char *name, uint64_t *out, int base)
{
    return static_cast<int>(ovra::get(list, name, out, base));
}

int encode_arg_uint32(uefi_arg_list_t *list, const char *name, uint32_t *out, int base)
{
    return static_cast<int>(ovra::get(list, name, out, base));
}

int encode_arg_uint16(uefi_arg_list_t *list, const char *name, uint16_t *out, int base)
{
    return static_cast<int>(ovra::get(list, name, out, base));
}

int encode_arg_uint8(uefi_arg_list_t *list, const char *name, uint8_t *out, int base)
{
    return static_cast<int>(ovra::get(list, name, out, base));
}

int encode_arg_eisaid(uefi_arg_list_t *list, const char *name, uint32_t *out)
{
    const char *value = ovra_get_arg(list, name);
    if (!value) {
        say("encode_arg_eisaid: argument not found %s\n", name);
        return absent;
    }
    *out = 0;
    if (strcmp(value, "0") == 0)
        return 0;
    // Kept: these messages, and those of a GUID's form, have no line end.
    // [kept_eisaid_messages_have_no_line_end, kept_guid_messages_*]
    if (strlen(value) != 7)
        return fail("eisaid should be 7 characters");
    for (int i = 0; i < 3; ++i) {
        if (value[i] < 'A' || value[i] > 'Z')
            return fail("first 3 characters of EISAID should be upper case alpha");
        *out = *out << 5 | static_cast<uint32_t>(value[i] - 0x40);
    }
    const char *product = value + 3;
    int error = 0;
    // Kept: the first character that is no digit ends the number, without an error.
    // [kept_eisaid_number_*, kept_acpi_number_*]
    const auto number = static_cast<uint32_t>(ovra::read_unsigned(product, nullptr, 16, &error));
    if (error != 0)
        return fail("unable to strtolu numeric part of EISAIDID: %s\n", product);
    *out |= number << 16;
    return 0;
}

// The digits of one field of a GUID. Kept: other characters end the number, without an error;
// parse_guid refuses such a text.
// [kept_guid_fields_*, kept_guid_of_no_digits_is_zeros, kept_hex*_at_the_first_other_character]
static bool convert_hex(const char *digits, uint64_t *out)
{
    int error = 0;
    *out = ovra::read_unsigned(digits, nullptr, 16, &error);
    return error == 0;
}

// The same for the two digits of one byte, which other digits may follow.
static bool convert_hex_pair(const char *digits, uint8_t *out)
{
    const unsigned high = ovra::digit_value(digits[0]);
    const unsigned low = ovra::digit_value(digits[1]);
    if (high < 16 && low < 16) {
        *out = static_cast<uint8_t>(high << 4 | low);
        return true;
    }
    const char pair[3] = {digits[0], digits[1], '\0'};
    uint64_t value = 0;
    if (!convert_hex(pair, &value))
        return false;
    *out = static_cast<uint8_t>(value);
    return true;
}

// A text of the form of a GUID whose digits need not be digits.
static int read_loose_guid(const char *value, EFI_GUID *out)
{
    char text[ovra::guid_length + 1];
    memcpy(text, value, sizeof text);
    for (const size_t dash : ovra::guid_dashes) {
        if (text[dash] != '-')
            return fail("GUID improperly formatted");
        text[dash] = '\0';
    }

    uint64_t number = 0;
    if (!convert_hex(text, &number))
        return fail("can't convert Data1_str: %s %s\n", text, strerror(ERANGE));
    out->Data1 = static_cast<uint32_t>(number);
    if (!convert_hex(text + 9, &number))
        return fail("can't convert Data2_str\n");
    out->Data2 = static_cast<uint16_t>(number);
    if (!convert_hex(text + 14, &number))
        return fail("can't convert Data3_str\n");
    out->Data3 = static_cast<uint16_t>(number);
    for (size_t i = 0; i < sizeof out->Data4; ++i) {
        const size_t digits = i < 2 ? 19 + 2 * i : 20 + 2 * i;
        if (!convert_hex_pair(text + digits, &out->Data4[i]))
            return fail("can't convert Data4_str\n");
    }
    return 0;
}

got ovra::read_guid(const char *text, EFI_GUID *out)
{
    const std::string_view whole = text;
    if (const auto guid = parse_guid(whole)) {
        *out = *guid;
        return got::ok;
    }
    return static_cast<got>(whole.size() == guid_length ? read_loose_guid(text, out)
                                                        : fail("GUID not 36 characters"));
}

int encode_arg_guid(uefi_arg_list_t *list, const char *name, EFI_GUID *out)
{
    const char *text = ovra_get_arg(list, name);
    if (!text) {
        say("encode_arg_guid: argument not found %s\n", name);
        return absent;
    }
    return static_cast<int>(ovra::read_guid(text, out));
}

int encode_arg_hexdump(uefi_arg_list_t *list, const char *name, void **out, size_t *out_size, size_t min_size,
                       size_t max_size)
{
    const char *value = ovra_get_arg(list, name);
    if (!value)
        return fail("encode_arg_hexdump: property not found: %s\n", name);
    const size_t length = strlen(value);
    if (length % 2 != 0)
        return fail("encode_arg_hexdump: val_str needs to be multiple of 2\n");
    const size_t size = length / 2;
    *out_size = size;
    if (size < min_size || size > max_size)
        return fail("data_size = %lu but min is %lu and max is %lu\n", size, min_size, max_size);
    owned<uint8_t> bytes(static_cast<uint8_t *>(malloc(size)));
    if (!bytes)
        return fail("encode_arg_hexdump: malloc failed\n");
    for (size_t i = 0; i < size; ++i) {
        if (!convert_hex_pair(value + 2 * i, &bytes.get()[i]))
            return fail("encode_arg_hexdump: strtoull failed\n");
    }
    *out = bytes.release();
    return 0;
}
