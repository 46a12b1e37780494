/* SPDX-License-Identifier: MIT */
/* Texts without number or end: only what becomes of them counts. */
#ifndef TESTS_ENCODE_HOSTILE_H
#define TESTS_ENCODE_HOSTILE_H

#include <string>

#include "tests/encode/encoding.h"
#include "tests/support/sweep.h"

namespace ovra::test {

inline constexpr const char *encode_error = "error with encode_uefipath\n";

/* Length of the packed path, or -1; both switches off. */
inline int encoded_length(const std::string &text)
{
    text_path path{{text}};
    const messages silent(0, 0);
    int length = -1;
    ovra_epath_t packed = nullptr;
    if (ovra_epath_encode(nullptr, path.get(), 0, &packed, &length) != 0)
        return -1;
    free(packed);
    return length;
}

/* Whether the blocks made meanwhile have been given back. */
class no_leak {
public:
    no_leak()
    {
        encoded_length("UsbWwid(1,2,3,x)"); // what is made once for the process does not count
        count_blocks();
    }
    ~no_leak()
    {
        EXPECT_EQ(live_blocks(), 0);
        stop_counting();
    }
    no_leak(const no_leak &) = delete;
    no_leak &operator=(const no_leak &) = delete;
};

} // namespace ovra::test

#endif
