/* SPDX-License-Identifier: MIT */
/* GUID partition tables made by hand, as 'ovra machine create' makes them. */
#ifndef TESTS_SUPPORT_GPT_H
#define TESTS_SUPPORT_GPT_H

#include "tools/layout/gpt.h"

namespace ovra::test {

using layout::crc32;
using layout::gpt_bytes;
using layout::gpt_entry;
using layout::make_gpt;
using layout::put_number;
using layout::write_gpt;

} // namespace ovra::test

#endif
