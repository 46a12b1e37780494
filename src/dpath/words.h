/* SPDX-License-Identifier: MIT */
/* Word lists: read forwards by the encoders and backwards by the printer, so that the two cannot differ. */
#ifndef SRC_DPATH_WORDS_H
#define SRC_DPATH_WORDS_H

#include <cstdint>
#include <span>

namespace ovra {

struct word {
    const char *text;
    uint16_t value;
};

/* The entry of a text, ignoring case; null when it is not a word of the list. */
const word *by_text(std::span<const word> words, const char *text);

/* The first entry of a value; null when no word stands for it. */
const word *by_value(std::span<const word> words, unsigned value);

inline constexpr word ata_channels[] = {{"Primary", 0}, {"Secondary", 1}};
inline constexpr word ata_drives[] = {{"Master", 0}, {"Slave", 1}};
inline constexpr word uart_parities[] = {{"D", 0}, {"N", 1}, {"E", 2}, {"O", 3}, {"M", 4}, {"S", 5}};
inline constexpr word uart_stop_bits[] = {{"D", 0}, {"1", 1}, {"1.5", 2}, {"2", 3}};
inline constexpr word uart_flow_controls[] = {{"None", 0}, {"Hardware", 1}, {"XonXoff", 2}};
inline constexpr word partition_formats[] = {{"MBR", 1}, {"GPT", 2}};
inline constexpr word bbs_device_types[] = {{"Floppy", 1}, {"HD", 2},  {"CDROM", 3},
                                            {"PCMCIA", 4}, {"USB", 5}, {"Network", 6}};

} // namespace ovra

#endif
