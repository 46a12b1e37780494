// SPDX-License-Identifier: MIT
#include "src/dpath/words.h"

#include "src/base/ascii.h"

const ovra::word *ovra::by_text(std::span<const word> words, const char *text)
{
    for (const word &entry : words) {
        if (alike(entry.text, text))
            return &entry;
    }
    return nullptr;
}

const ovra::word *ovra::by_value(std::span<const word> words, unsigned value)
{
    for (const word &entry : words) {
        if (entry.value == value)
            return &entry;
    }
    return nullptr;
}
