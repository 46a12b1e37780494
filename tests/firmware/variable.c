// SPDX-License-Identifier: MIT
/* Sets a variable, or reads one, and prints the firmware's status in hexadecimal; for a read also its size.
 *     variable set NAME VENDOR ATTRIBUTES SIZE     `size` bytes of zero
 *     variable get NAME VENDOR
 * VENDOR is "global" or "other". The name is UTF-8 of at most 2 bytes a character. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <ovra/ovra.h>

enum { LARGEST = 1 << 20, LONGEST_NAME = 200 };

static void to_ucs2(const char *text, CHAR16 *name)
{
    size_t length = 0;
    while (*text != '\0' && length < LONGEST_NAME) {
        unsigned unit = (unsigned char)*text++;
        if (unit >= 0xc0 && *text != '\0')
            unit = (unit & 0x1fU) << 6 | ((unsigned char)*text++ & 0x3fU);
        name[length++] = (CHAR16)unit;
    }
    name[length] = 0;
}

int main(int argc, char **argv)
{
    EFI_GUID global = {0x8be4df61, 0x93ca, 0x11d2, {0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c}};
    EFI_GUID other = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}};
    CHAR16 name[LONGEST_NAME + 1];
    ovra_hdl_t hdl = NULL;
    UINT32 attributes = 0;
    UINTN size = LARGEST;
    EFI_STATUS status = 0;
    int result = -1;
    int setting = argc == 6 && strcmp(argv[1], "set") == 0;
    EFI_GUID *vendor = NULL;
    void *data = calloc(1, LARGEST);

    if (data == NULL || (!setting && argc != 4) || ovra_init(&hdl) != 0)
        return 2;
    to_ucs2(argv[2], name);
    vendor = strcmp(argv[3], "global") == 0 ? &global : &other;
    if (setting) {
        attributes = (UINT32)strtoul(argv[4], NULL, 0);
        size = strtoul(argv[5], NULL, 0);
        if (size <= LARGEST)
            result = ovra_set_variable(hdl, name, vendor, attributes, size, data, &status);
    } else {
        result = ovra_get_variable(hdl, name, vendor, &attributes, &size, data, &status);
    }
    if (result == 0)
        printf("%" PRIx64, (uint64_t)status);
    if (result == 0 && !setting && status == EFI_SUCCESS)
        printf(" %" PRIu64, (uint64_t)size);
    printf("\n");
    ovra_fini(hdl);
    free(data);
    return result == 0 ? 0 : 1;
}
