// SPDX-License-Identifier: MIT
#include "platform/include/devns.h"

#include "platform/machine/shared.h"

#pragma GCC visibility push(default)

void devns_begin(void)
{
    machine::begin_picture();
}

void devns_end(void)
{
    machine::end_picture();
}

void *devns_shared(unsigned long layout)
{
    return layout == machine::layout_of_shared_state ? &machine::own_shared_state() : nullptr;
}

#pragma GCC visibility pop
