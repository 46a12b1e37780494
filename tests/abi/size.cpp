// SPDX-License-Identifier: MIT
// Compiled once as it is, and once with each of these set to something else: then it must not compile. The
// checks of <ovra/uefi.h> are what it is about. C++ and C.
#include <ovra/uefi.h>

#ifndef SIZE
#define SIZE 6
#endif
#ifndef OFFSET
#define OFFSET 4
#endif
#ifndef TAIL
#define TAIL 4
#endif
#ifndef PACKING
#define PACKING OVRA_PACKED
#endif

typedef struct {
    uint8_t type, subtype;
    uint16_t len, vlan;
} PACKING six_bytes;
OVRA_RECORD(six_bytes, SIZE);
OVRA_OFFSET(six_bytes, vlan, OFFSET);

typedef struct {
    uint8_t type, subtype;
    uint16_t len, text[9];
} OVRA_PACKED tailed;
OVRA_TAILED_RECORD(tailed, TAIL, text);
