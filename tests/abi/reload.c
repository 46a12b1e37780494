// SPDX-License-Identifier: MIT
/*
 * usage: reload LIBOVRA
 *
 * Loads the library, uses it and closes it, again and again: the process must not grow.
 */
#include <dlfcn.h>
#include <malloc.h>
#include <stdio.h>

#include <ovra/ovra.h>

typedef int (*init_t)(ovra_hdl_t *);
typedef void (*fini_t)(ovra_hdl_t);
typedef int (*encode_t)(ovra_hdl_t, ovra_path_t **, int, ovra_epath_t *, int *);

/* A path with a file name, whose text goes through the conversion. 0, or the line that failed. */
static int use(const char *library)
{
    ovra_path_t instance = {"/Pci(0x1,0x0)", "\\x"};
    ovra_path_t *paths[] = {&instance, NULL};
    ovra_hdl_t hdl;
    int len = 0;
    void *loaded = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    init_t init;
    fini_t fini;
    encode_t encode;

    if (loaded == NULL)
        return __LINE__;
    *(void **)&init = dlsym(loaded, "ovra_init");
    *(void **)&fini = dlsym(loaded, "ovra_fini");
    *(void **)&encode = dlsym(loaded, "ovra_epath_encode");
    if (init == NULL || fini == NULL || encode == NULL)
        return __LINE__;
    if (init(&hdl) != 0 || encode(hdl, paths, 0, NULL, &len) != 0 || len != 20)
        return __LINE__;
    fini(hdl);
    return dlclose(loaded) == 0 ? 0 : __LINE__;
}

int main(int argc, char **argv)
{
    enum { settling = 5, cycles = 200 };
    size_t before = 0;
    int line = argc == 2 ? 0 : __LINE__;

    for (int i = 0; line == 0 && i < settling + cycles; i++) {
        if (i == settling)
            before = mallinfo2().uordblks;
        line = use(argv[1]);
    }
    if (line != 0) {
        const char *error = dlerror();
        fprintf(stderr, "reload.c:%d: %s\n", line, error ? error : "failed");
        return 1;
    }
    const size_t grown = mallinfo2().uordblks - before;
    printf("%zu bytes more after %d cycles\n", grown, cycles);
    return grown < 4096 ? 0 : 1;
}
