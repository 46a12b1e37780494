// SPDX-License-Identifier: MIT
/*
 * usage: startup variable OPTION | media
 *
 * Reads the description of a boot option, or counts the media of the machine, and prints what it gets; then
 * the files that the process has mapped, a line each.
 */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <ovra/ovra.h>

#include "platform/include/volset.h"

static int print_description(char *option)
{
    ovra_hdl_t hdl;
    char *text;
    if (ovra_init(&hdl) != 0 || ovra_bootopt_desc_get(hdl, option, &text) != 0)
        return 1;
    printf("%s\n", text);
    ovra_fini(hdl);
    return 0;
}

static void count_media(void)
{
    int err = 0;
    int count = 0;
    vs_descriptor_t *media = vs_get_descriptors(VS_MEDIA, NULL, &err);
    while (media && media[count] != 0)
        count++;
    vs_free_descriptors(media);
    if (err == ELIBACC)
        printf("a library is missing\n");
    else
        printf("error %d, %d media\n", err, count);
}

int main(int argc, char **argv)
{
    char line[4096];
    if (argc == 3) {
        if (print_description(argv[2]) != 0)
            return 1;
    } else {
        count_media();
    }
    FILE *maps = fopen("/proc/self/maps", "r");
    while (maps && fgets(line, sizeof line, maps)) {
        const char *path = strchr(line, '/');
        if (path)
            printf("%s", path);
    }
    return maps ? fclose(maps) : 1;
}
