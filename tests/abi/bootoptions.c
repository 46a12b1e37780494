// SPDX-License-Identifier: MIT
/*
 * Lists and changes boot options, as a program written elsewhere does: it knows <ovra/ovra.h> and what
 * pkg-config or CMake says of an installation, nothing else. Built by install.py against an installation
 * prefix.
 */
#include <ovra/ovra.h>

#include <stdio.h>
#include <string.h>

static uint8_t path[] = {
    UEFI_MEDIA, 4,    0x0c, 0x00, '\\', 0, 'x', 0, 'y', 0, 0, 0, /* file path "\xy" */
    UEFI_END,   0xff, 0x04, 0x00,
};

static int list(ovra_hdl_t hdl)
{
    char **names;

    if (ovra_bootopt_list(hdl, &names) != 0)
        return -1;
    for (char **name = names; *name != NULL; name++) {
        char *desc;
        int position = -1;
        if (ovra_bootopt_get(hdl, *name, NULL, NULL, &desc, NULL, NULL, NULL) != 0)
            return -1;
        if (ovra_bootorder_get_position(hdl, *name, &position) != 0)
            position = -1;
        printf("%s %d %s\n", *name, position, desc);
        memlist_free(hdl, desc);
    }
    free_str_array(hdl, names);
    return 0;
}

static int create(ovra_hdl_t hdl, char *desc)
{
    char *name;

    if (ovra_bootopt_unused(hdl, &name) != 0 ||
        ovra_bootopt_set(hdl, name, path, sizeof path, desc, LOAD_OPTION_ACTIVE, NULL, 0) != 0 ||
        ovra_bootorder_insert(hdl, name, -1) != 0)
        return -1;
    puts(name);
    return 0;
}

static int current(ovra_hdl_t hdl)
{
    char *name;

    if (ovra_bootcurrent_get(hdl, &name) != 0)
        return -1;
    puts(name);
    return 0;
}

int main(int argc, char **argv)
{
    const char *verb = argc > 1 ? argv[1] : "list";
    char *what = argc > 2 ? argv[2] : "";
    ovra_hdl_t hdl;
    int result = -1;

    if (ovra_init(&hdl) != 0) {
        perror("ovra_init");
        return 1;
    }
    if (strcmp(verb, "list") == 0)
        result = list(hdl);
    else if (strcmp(verb, "create") == 0)
        result = create(hdl, what);
    else if (strcmp(verb, "first") == 0)
        result = ovra_bootorder_insert(hdl, what, 0);
    else if (strcmp(verb, "next") == 0)
        result = ovra_bootnext_set(hdl, what);
    else if (strcmp(verb, "remove") == 0)
        result = ovra_bootopt_remove(hdl, what);
    else if (strcmp(verb, "current") == 0)
        result = current(hdl);
    ovra_fini(hdl);
    if (result != 0)
        fprintf(stderr, "%s %s: failed\n", verb, what);
    return result == 0 ? 0 : 1;
}
