// SPDX-License-Identifier: MIT
/*
 * A program in C11 that uses each exported function, on the machine that HWPLAT_ROOT names: a folder with the
 * one variable BootCurrent, which says Boot0003. What it leaves behind is looked at by consumer.py.
 */
#include <ovra/log.h>
#include <ovra/ovra.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CHECK(condition) check((condition) != 0, #condition, __LINE__)

static void check(int holds, const char *condition, int line)
{
    if (!holds) {
        fprintf(stderr, "consumer.c:%d: %s\n", line, condition);
        exit(1);
    }
}

static uint8_t path[] = {
    0x04, 0x04, 0x0c, 0x00, '\\', 0, 'x', 0, 'y', 0, 0, 0, /* file path "\xy" */
    0x7f, 0xff, 0x04, 0x00,                                /* end */
};

/* Whether the machine's folder holds a global variable: what stands there can only have come through libovra.
 */
static int is_in_folder(const char *name)
{
    const char *root = getenv("HWPLAT_ROOT");
    char file[4096];
    FILE *stream;

    if (root == NULL || root[0] == '\0' || strcmp(root, "/") == 0)
        return 0;
    snprintf(file, sizeof file, "%s/sys/firmware/efi/efivars/%s-8be4df61-93ca-11d2-aa0d-00e098032b8c", root,
             name);
    stream = fopen(file, "rb");
    if (stream != NULL)
        fclose(stream);
    return stream != NULL;
}

static void use_variables(ovra_hdl_t hdl)
{
    CHAR16 name[] = {'E', 'x', 'a', 'm', 'p', 'l', 'e', 0};
    EFI_GUID vendor = {0x12345678, 0x1234, 0x5678, {1, 2, 3, 4, 5, 6, 7, 8}};
    uint8_t data[3] = {1, 2, 3};
    uint8_t back[8] = {0};
    UINTN size = 0;
    UINT32 attributes = 0;
    EFI_STATUS status = -1;
    UINT64 storage = 0, remaining = 0, largest = 0;
    CHAR16 next[256] = {0};
    EFI_GUID next_vendor = {0};
    int found = 0;

    CHECK(ovra_set_variable(hdl, name, &vendor, 7, sizeof data, data, &status) == 0 && status == EFI_SUCCESS);
    CHECK(ovra_get_variable(hdl, name, &vendor, NULL, &size, NULL, &status) == 0);
    CHECK(status == EFI_BUFFER_TOO_SMALL && size == sizeof data);
    size = sizeof back;
    CHECK(ovra_get_variable(hdl, name, &vendor, &attributes, &size, back, &status) == 0 &&
          status == EFI_SUCCESS);
    CHECK(size == sizeof data && attributes == 7 && memcmp(back, data, sizeof data) == 0);

    for (;;) {
        size = sizeof next;
        CHECK(ovra_get_next_variable_name(hdl, &size, next, &next_vendor, &status) == 0);
        if (status == EFI_NOT_FOUND)
            break;
        CHECK(status == EFI_SUCCESS);
        if (size == sizeof name && memcmp(next, name, size) == 0 && memcmp(&next_vendor, &vendor, 16) == 0)
            found++;
    }
    CHECK(found == 1);

    CHECK(ovra_query_variable_info(hdl, 7, &storage, &remaining, &largest, &status) == 0 &&
          status == EFI_SUCCESS);
    CHECK(remaining < storage && largest > 0 && largest <= storage);
}

static void use_clock(ovra_hdl_t hdl)
{
    EFI_TIME time = {0};
    EFI_TIME set = {0};
    EFI_TIME_CAPABILITIES capabilities = {0};
    EFI_STATUS status = -1;
    BOOLEAN enabled = B_FALSE, pending = B_TRUE;
    UINT32 first = 0, second = 0;

    set.year = 2031;
    set.month = 2;
    set.day = 3;
    set.hour = 4;
    set.minute = 5;
    set.second = 6;
    set.timezone = 0x7ff;
    CHECK(ovra_set_time(hdl, &set, &status) == 0 && status == EFI_SUCCESS);
    CHECK(ovra_get_time(hdl, &time, &capabilities, &status) == 0 && status == EFI_SUCCESS);
    CHECK(time.year == 2031 && time.month == 2 && time.day == 3 && time.hour == 4);
    CHECK(time.minute == 5 || time.minute == 6);
    CHECK(capabilities.resolution > 0);

    set.hour = 7;
    CHECK(ovra_set_wakeup_time(hdl, B_TRUE, &set, &status) == 0 && status == EFI_SUCCESS);
    CHECK(ovra_get_wakeup_time(hdl, &enabled, &pending, &time, &status) == 0 && status == EFI_SUCCESS);
    CHECK(enabled == B_TRUE && pending == B_FALSE);
    CHECK(time.year == 2031 && time.hour == 7 && time.minute == 5 && time.second == 6);

    CHECK(ovra_get_next_high_monotonic_count(hdl, &first, &status) == 0 && status == EFI_SUCCESS);
    CHECK(ovra_get_next_high_monotonic_count(hdl, &second, &status) == 0 && status == EFI_SUCCESS);
    CHECK(second > first);
}

static void use_paths(ovra_hdl_t hdl)
{
    ovra_path_t instance = {"/Pci(0x1f,0x2)", "\\xy"};
    ovra_path_t *paths[] = {&instance, NULL};
    const uint8_t node[] = {0x01, 0x01, 0x06, 0x00, 0x02, 0x1f};
    ovra_path_t **decoded = NULL;
    ovra_epath_t packed = NULL;
    int len = 0;

    CHECK(ovra_epath_encode(hdl, paths, 0, &packed, &len) == 0);
    CHECK(len == (int)(sizeof node + sizeof path) && memcmp(packed, node, sizeof node) == 0);
    CHECK(memcmp(packed + sizeof node, path, sizeof path) == 0);
    CHECK(ovra_epath_decode_to_uefi(hdl, packed, len, &decoded) == 0);
    CHECK(strcmp(decoded[0]->device_path, "/Pci(0x1f,0x2)") == 0 && decoded[1] == NULL);
    CHECK(strcmp(decoded[0]->file_path, "\\xy") == 0);
    free_dpath(hdl, decoded);
    free(packed);
    /* A machine without disks: the root of the tree is all there is. */
    CHECK(ovra_epath_decode_to_devices(hdl, path, sizeof path, &decoded) == 0);
    CHECK(strcmp(decoded[0]->device_path, "/") == 0 && strcmp(decoded[0]->file_path, "\\xy") == 0);
    free_dpath(hdl, decoded);
}

static void use_fields(ovra_hdl_t hdl)
{
    uint8_t optdata[] = {0xcc};
    char *text = NULL;
    uint32_t attr = 0;
    void *data = NULL;
    size_t data_len = 0;

    CHECK(ovra_bootopt_desc_set(hdl, "Boot0001", "Second") == 0);
    CHECK(ovra_bootopt_desc_get(hdl, "Boot0001", &text) == 0 && strcmp(text, "Second") == 0);
    CHECK(ovra_bootopt_attr_set(hdl, "Boot0001", 9) == 0);
    CHECK(ovra_bootopt_attr_get(hdl, "Boot0001", &attr) == 0 && attr == 9);
    CHECK(ovra_bootopt_attr_set(hdl, "Boot0001", LOAD_OPTION_ACTIVE) == 0);
    CHECK(ovra_bootopt_optdata_set(hdl, "Boot0001", optdata, sizeof optdata) == 0);
    CHECK(ovra_bootopt_optdata_get(hdl, "Boot0001", &data, &data_len) == 0);
    CHECK(data_len == 1 && memcmp(data, optdata, 1) == 0);
    CHECK(ovra_bootopt_devpath_get(hdl, "Boot0001", &text) == 0 && strcmp(text, "") == 0);
    CHECK(ovra_bootopt_devpath_set(hdl, "Boot0001", "/Pci(0x1,0x0)") == 0);
    CHECK(ovra_bootopt_devpath_get(hdl, "Boot0001", &text) == 0 && strcmp(text, "/Pci(0x1,0x0)") == 0);
    CHECK(ovra_bootopt_bootpath_set(hdl, "Boot0001", "\\z") == 0);
    CHECK(ovra_bootopt_bootpath_get(hdl, "Boot0001", &text) == 0 && strcmp(text, "\\z") == 0);
    CHECK(ovra_bootopt_encoded_path_set(hdl, "Boot0001", path, sizeof path) == 0);
    CHECK(ovra_bootopt_bootpath_get(hdl, "Boot0001", &text) == 0 && strcmp(text, "\\xy") == 0);
    CHECK(ovra_bootopt_desc_set(hdl, "Boot0001", "Two") == 0);
    CHECK(ovra_bootopt_optdata_set(hdl, "Boot0001", NULL, 0) == 0);
}

static void use_options(ovra_hdl_t hdl)
{
    uint8_t optdata[] = {0xaa, 0xbb};
    char *name = NULL;
    char *desc = NULL;
    char **names = NULL;
    ovra_epath_t path_back = NULL;
    int path_len = 0;
    uint32_t attr = 0;
    void *optdata_back = NULL;
    size_t optdata_len = 0;

    CHECK(ovra_bootopt_unused(hdl, &name) == 0 && strcmp(name, "Boot0000") == 0);
    CHECK(ovra_bootopt_set(hdl, name, path, sizeof path, "One", LOAD_OPTION_ACTIVE, optdata,
                           sizeof optdata) == 0);
    CHECK(ovra_bootopt_get(hdl, name, &path_back, &path_len, &desc, &attr, &optdata_back, &optdata_len) == 0);
    CHECK(path_len == (int)sizeof path && memcmp(path_back, path, sizeof path) == 0);
    CHECK(strcmp(desc, "One") == 0 && attr == LOAD_OPTION_ACTIVE);
    CHECK(optdata_len == sizeof optdata && memcmp(optdata_back, optdata, sizeof optdata) == 0);
    memlist_free(hdl, path_back);
    CHECK(ovra_bootopt_find(hdl, "c0t0d0s0", &names) == -1);
    CHECK(ovra_bootopt_logdev(hdl, name, &names) == -1);
    memlist_free(hdl, name);

    CHECK(ovra_bootopt_set(hdl, "Boot0001", path, sizeof path, "Two", LOAD_OPTION_ACTIVE, NULL, 0) == 0);
    CHECK(ovra_bootopt_set(hdl, "Boot0002", path, sizeof path, "Three", LOAD_OPTION_ACTIVE, NULL, 0) == 0);
    CHECK(ovra_bootopt_list(hdl, &names) == 0);
    CHECK(names[0] != NULL && names[1] != NULL && names[2] != NULL && names[3] == NULL);
    free_str_array(hdl, names);
}

static void use_order(ovra_hdl_t hdl)
{
    char *name = NULL;
    int position = -1;

    CHECK(ovra_bootorder_insert(hdl, "Boot0000", 0) == 0);
    CHECK(ovra_bootorder_insert(hdl, "Boot0001", 0) == 0);
    CHECK(ovra_bootorder_insert(hdl, "Boot0002", -1) == 0);
    CHECK(ovra_bootorder_get_position(hdl, "Boot0002", &position) == 0 && position == 2);
    CHECK(ovra_bootorder_get_bootname(hdl, 0, &name) == 0 && strcmp(name, "Boot0001") == 0);
    CHECK(ovra_bootorder_remove(hdl, "Boot0000") == 0);
    CHECK(ovra_bootorder_get_position(hdl, "Boot0000", &position) == -1);
    CHECK(ovra_bootopt_remove(hdl, "Boot0002") == 0);

    CHECK(ovra_bootcurrent_get(hdl, &name) == 0 && strcmp(name, "Boot0003") == 0);
    CHECK(ovra_bootnext_get(hdl, &name) == -1);
    CHECK(ovra_bootnext_set(hdl, "Boot0000") == 0);
    CHECK(ovra_bootnext_get(hdl, &name) == 0 && strcmp(name, "Boot0000") == 0);
}

static void count_errors(void *arg, int kind, const char *text)
{
    if (kind == OVRA_LOG_ERROR && text[0] != '\0')
        ++*(int *)arg;
}

static void use_log(ovra_hdl_t hdl)
{
    int errors = 0;
    char *desc = NULL;

    ovra_log_to(count_errors, &errors);
    CHECK(ovra_bootopt_desc_get(hdl, "no option", &desc) == -1);
    CHECK(errors > 0);
    ovra_log_to(NULL, NULL);
}

int main(void)
{
    ovra_hdl_t hdl = NULL;
    char *name = NULL;

    CHECK(ovra_init(&hdl) == 0);
    use_variables(hdl);
    use_clock(hdl);
    use_paths(hdl);
    use_options(hdl);
    use_fields(hdl);
    use_order(hdl);
    use_log(hdl);

    /* A machine made for this program: the one that the program runs on must not be reset. */
    CHECK(is_in_folder("BootNext") && is_in_folder("Boot0001"));
    CHECK(ovra_reset_system(hdl, EFI_RESET_COLD, EFI_SUCCESS, 0, NULL) == 0);
    CHECK(ovra_bootcurrent_get(hdl, &name) == 0 && strcmp(name, "Boot0000") == 0);
    ovra_fini(hdl);
    puts("used");
    return 0;
}
