// SPDX-License-Identifier: MIT
/* An EFI program. It says on the console by which option it was started, with which optional data, and from
 * where: <started 0003 marker 02010c00d041030a...> the last is the packed path of the partition, in lines
 * that the console does not break. Then the firmware goes on with the next option of BootOrder, as after
 * every program that fails; with the optional data "off" the machine goes off. */
#include <ovra/uefi.h>

#ifdef __x86_64__
#define CALLED __attribute__((ms_abi))
#else
#define CALLED
#endif

enum { PATHS_BEFORE = 16, LINE = 32, ABORTED = 21, SHUTDOWN = 2 };

struct console {
    void *reset;
    EFI_STATUS(CALLED *write)(struct console *, const CHAR16 *);
};

struct boot_services {
    UINT8 header[24];
    void *before[PATHS_BEFORE];
    EFI_STATUS(CALLED *protocol_of)(void *handle, const EFI_GUID *protocol, void **found);
};

struct runtime_services {
    UINT8 header[24];
    void *before[6];
    EFI_STATUS(CALLED *get_variable)(const CHAR16 *, const EFI_GUID *, UINT32 *, UINTN *, void *);
    void *between[3];
    void(CALLED *reset)(UINT32 type, EFI_STATUS, UINTN, const void *);
};

struct system {
    UINT8 header[24];
    void *before[5];
    struct console *console;
    void *error[2];
    const struct runtime_services *runtime;
    const struct boot_services *boot;
};

struct loaded_image {
    UINT32 revision;
    void *parent;
    void *system;
    void *device;
    void *file;
    void *reserved;
    UINT32 options_size;
    const CHAR16 *options;
};

static const EFI_GUID global = {0x8be4df61, 0x93ca, 0x11d2, {0xaa, 0x0d, 0x00, 0xe0, 0x98, 0x03, 0x2b, 0x8c}};
static const EFI_GUID loaded = {0x5b1b31a1, 0x9562, 0x11d2, {0x8e, 0x3f, 0x00, 0xa0, 0xc9, 0x69, 0x72, 0x3b}};
static const EFI_GUID device_path = {
    0x09576e91, 0x6d3f, 0x11d2, {0x8e, 0x39, 0x00, 0xa0, 0xc9, 0x69, 0x72, 0x3b}};

static struct console *console;

static void put(CHAR16 unit)
{
    const CHAR16 text[] = {unit, 0};
    console->write(console, text);
}

static void put_text(const CHAR16 *text, UINTN length)
{
    for (UINTN at = 0; at < length && text[at] != 0; ++at)
        put(text[at]);
}

static void put_byte(UINT8 byte)
{
    const CHAR16 *const digits = u"0123456789abcdef";
    put(digits[byte >> 4]);
    put(digits[byte & 15]);
}

static void put_path(const UINT8 *path)
{
    UINTN size = 0;
    while (path[size] != 0x7f)
        size += path[size + 2] + 256U * path[size + 3];
    for (UINTN at = 0; at < size + 4; ++at) {
        if (at % LINE == 0)
            put_text(u"\r\n", 2);
        put_byte(path[at]);
    }
}

static int is_off(const CHAR16 *text, UINTN length)
{
    return length >= 3 && text[0] == u'o' && text[1] == u'f' && text[2] == u'f';
}

EFI_STATUS CALLED start(void *image, const struct system *system);

EFI_STATUS CALLED start(void *image, const struct system *system)
{
    void *found = NULL;
    UINT16 current = 0;
    UINTN size = sizeof(current);

    console = system->console;
    if (system->boot->protocol_of(image, &loaded, &found) != EFI_SUCCESS)
        return EFI_ERROR_CODE(ABORTED);
    const struct loaded_image *const own = found;
    if (system->boot->protocol_of(own->device, &device_path, &found) != EFI_SUCCESS ||
        system->runtime->get_variable(u"BootCurrent", &global, NULL, &size, &current) != EFI_SUCCESS)
        return EFI_ERROR_CODE(ABORTED);
    put_text(u"<started ", 9);
    put_byte((UINT8)(current >> 8));
    put_byte((UINT8)(current & 255));
    put(u' ');
    put_text(own->options, own->options_size / sizeof(CHAR16));
    put_path(found);
    put_text(u">\r\n", 3);
    if (is_off(own->options, own->options_size / sizeof(CHAR16)))
        system->runtime->reset(SHUTDOWN, EFI_SUCCESS, 0, NULL);
    return EFI_ERROR_CODE(ABORTED);
}
