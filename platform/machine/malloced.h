/* SPDX-License-Identifier: MIT */
/* Texts that the C library allocated. */
#ifndef HWPLAT_MACHINE_MALLOCED_H
#define HWPLAT_MACHINE_MALLOCED_H

#include <cstdlib>
#include <memory>

namespace machine {

struct freed {
    void operator()(char *text) const { std::free(text); }
};
using malloced_text = std::unique_ptr<char, freed>;

} // namespace machine

#endif
