/* SPDX-License-Identifier: MIT */
#ifndef HWPLAT_DEVNS_RUNTIME_H
#define HWPLAT_DEVNS_RUNTIME_H

#include "platform/machine/services.h"

/* The kernel's answer to a null pointer, which the C library's headers do not allow to pass: -1 and EFAULT.
 */
int bad_address();

/*
 * Carries out one command of the pseudo-device. 0, or -1 with errno, as devns_ioctl. Throws std::bad_alloc.
 */
int serve_runtime_command(const machine::runtime_services &services, int command, void *record);

#endif
