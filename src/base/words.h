/* SPDX-License-Identifier: MIT */
/* Word lists, the same for all that read or write the text of nodes. */
#ifndef SRC_BASE_WORDS_H
#define SRC_BASE_WORDS_H

#include <cstdint>
#include <span>

#include "src/base/ascii.h"
#include "src/base/hard_drive.h"

namespace ovra {

struct word {
    const char *text;
    uint16_t value;
};

/* The entry of a text, ignoring case; null when it is not a word of the list. */
constexpr const word *by_text(std::span<const word> words, const char *text)
{
    for (const word &entry : words) {
        if (alike(entry.text, text))
            return &entry;
    }
    return nullptr;
}

/* The first entry of a value; null when no word stands for it. */
constexpr const word *by_value(std::span<const word> words, unsigned value)
{
    for (const word &entry : words) {
        if (entry.value == value)
            return &entry;
    }
    return nullptr;
}

inline constexpr word ata_channels[] = {{"Primary", 0}, {"Secondary", 1}};
inline constexpr word ata_drives[] = {{"Master", 0}, {"Slave", 1}};
inline constexpr word uart_parities[] = {{"D", 0}, {"N", 1}, {"E", 2}, {"O", 3}, {"M", 4}, {"S", 5}};
inline constexpr word uart_stop_bits[] = {{"D", 0}, {"1", 1}, {"1.5", 2}, {"2", 3}};
inline constexpr word uart_flow_controls[] = {{"None", 0}, {"Hardware", 1}, {"XonXoff", 2}};
inline constexpr word partition_formats[] = {{"MBR", format_mbr}, {"GPT", format_gpt}};
inline constexpr word bbs_device_types[] = {{"Floppy", 1}, {"HD", 2},  {"CDROM", 3},
                                            {"PCMCIA", 4}, {"USB", 5}, {"Network", 6}};

} // namespace ovra

#endif
