// SPDX-License-Identifier: MIT
#include <cctype>

#include "src/base/ids.h"
#include "src/base/words.h"
#include "src/encode/fields.h"
#include "src/encode/vendor.h"

using namespace ovra;

// Only the first letter counts, in any case: "Even" and "e" are both even.
static bool get_parity(uefi_arg_list_t *args, uint8_t *parity)
{
    const char *text = ovra_get_arg(args, "parity");
    if (!text)
        return true;
    const char letter[] = {text[0], '\0'};
    if (const word *word = by_text(uart_parities, letter)) {
        *parity = static_cast<uint8_t>(word->value);
        return true;
    }
    return require(args, "parity", parity);
}

static bool get_stop_bits(uefi_arg_list_t *args, uint8_t *stop_bits)
{
    const char *text = ovra_get_arg(args, "stopbits");
    if (!text)
        return true;
    for (const word &word : uart_stop_bits) {
        // Kept: case counts here, unlike for the parity. [kept_uart_stop_bits_d_in_lower_case_is_no_word]
        if (strcmp(word.text, text) == 0) {
            *stop_bits = static_cast<uint8_t>(word.value);
            return true;
        }
    }
    return require(args, "stopbits", stop_bits);
}

int encode_uart(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    uint64_t baud = 115200;
    uint8_t databits = 8;
    uint8_t parity = 0;
    uint8_t stopbits = 0;
    if (!get_or_keep(args, "baud", &baud) || !get_or_keep(args, "databits", &databits) ||
        !get_parity(args, &parity) || !get_stop_bits(args, &stopbits))
        return -1;
    auto node = new_node<uefi_uart_device_path_t>();
    if (!node)
        return fail("unable to allocate uart dpath\n");
    node->baud = baud;
    node->databits = databits;
    node->parity = parity;
    node->stopbits = stopbits;
    return hand_over(std::move(node), out);
}

int encode_uartflow(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    uint8_t value = 0;
    if (const char *text = ovra_get_arg(args, "Value")) {
        if (const word *word = by_text(uart_flow_controls, text))
            value = static_cast<uint8_t>(word->value);
        else if (!require(args, "Value", &value))
            return -1;
    }
    // Kept: 21 bytes with one byte of value, where UEFI has four; firmware and printer accept that length.
    // [kept_uartflowctrl_node_of_21_bytes]
    auto node = new_node<uefi_venmsg_device_path_t>(sizeof value);
    if (!node)
        return fail("unable to allocate uart flow dpath\n");
    node->guid = uart_flow_control;
    node->data[0] = value;
    return hand_over(std::move(node), out);
}

int encode_venmsg(uefi_arg_list_t *args, uefi_device_path_t **out)
{
    return encode_vendor<uefi_venmsg_device_path_t>(args, out, "unable to allocate venmsg dpath\n");
}

static int encode_fixed_guid(const EFI_GUID &guid, const char *no_memory, uefi_device_path_t **out)
{
    auto node = new_node<uefi_venmsg_device_path_t>();
    if (!node)
        return fail("%s", no_memory);
    node->guid = guid;
    return hand_over(std::move(node), out);
}

#define FIXED_GUID(name, guid, no_memory)                                                                    \
    int name(uefi_arg_list_t *, uefi_device_path_t **out)                                                    \
    {                                                                                                        \
        return encode_fixed_guid(guid, no_memory, out);                                                      \
    }
FIXED_GUID(encode_venpcansi, pc_ansi, "unable to allocate uart ansi dpath\n")
FIXED_GUID(encode_venvt100, vt100, "unable to allocate uart vt100 dpath\n")
FIXED_GUID(encode_venvt100plus, vt100_plus, "unable to allocate uart 100plus dpath\n")
// Kept: the message is that of VenVt100Plus. [kept_venutf8_speaks_of_vt100plus]
FIXED_GUID(encode_venutf8, vt_utf8, "unable to allocate uart 100plus dpath\n")
FIXED_GUID(encode_debugport, debug_port, "unable to allocate uart debugport dpath\n")
