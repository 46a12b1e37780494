// SPDX-License-Identifier: MIT
/*
 * A thread that was cancelled before it calls the library: each exported function runs to its end, and only
 * then, at a call of the thread's own, the thread ends. The machine that HWPLAT_ROOT names is a captured one;
 * messages are on.
 */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>

#include <ovra/log.h>
#include <ovra/ovra.h>

static int done;     /* calls that came back */
static int wrong;    /* the first whose result is not the one expected */
static int finished; /* the last one came back */

/* What the next call gives where it is known: none of the calls may be cut short in silence either. */
static void expect(int result, int expected)
{
    done++;
    if (result != expected && wrong == 0)
        wrong = done;
}

static void use_services(ovra_hdl_t hdl)
{
    CHAR16 name[8] = {'E', 'x', 0};
    CHAR16 next[256] = {0};
    EFI_GUID vendor = {1, 2, 3, {4}};
    EFI_GUID next_vendor = {0};
    EFI_TIME time = {0};
    EFI_TIME_CAPABILITIES capabilities;
    EFI_STATUS status;
    BOOLEAN enabled, pending;
    UINT64 storage, remaining, largest;
    UINT32 attributes, count;
    uint8_t data[8] = {1};
    UINTN size = sizeof data;

    expect(ovra_set_variable(hdl, name, &vendor, 7, 1, data, &status), 0);
    expect(ovra_get_variable(hdl, name, &vendor, &attributes, &size, data, &status), 0);
    size = sizeof next;
    expect(ovra_get_next_variable_name(hdl, &size, next, &next_vendor, &status), 0);
    expect(ovra_query_variable_info(hdl, 7, &storage, &remaining, &largest, &status), 0);
    expect(ovra_get_time(hdl, &time, &capabilities, &status), 0);
    expect(ovra_set_time(hdl, &time, &status), 0);
    expect(ovra_set_wakeup_time(hdl, B_TRUE, &time, &status), 0);
    expect(ovra_get_wakeup_time(hdl, &enabled, &pending, &time, &status), 0);
    expect(ovra_get_next_high_monotonic_count(hdl, &count, &status), 0);
}

static void use_disks(ovra_hdl_t hdl, char *disk)
{
    ovra_path_t instance = {disk, "\\x"};
    ovra_path_t *paths[] = {&instance, NULL};
    ovra_path_t **decoded = NULL;
    ovra_epath_t packed = NULL;
    char **names = NULL;
    int len = 0;

    expect(ovra_epath_encode(hdl, paths, 1, &packed, &len), 0);
    expect(ovra_epath_decode_to_uefi(hdl, packed, len, &decoded), 0);
    expect(ovra_epath_decode_to_devices(hdl, packed, len, &decoded), -1); /* a disk has no children */
    expect(ovra_epath_encode(hdl, paths, 0, &packed, &len), 0);
    expect(ovra_epath_decode_to_devices(hdl, packed, len, &decoded), 0);
    expect(ovra_bootopt_set(hdl, "BootABC0", packed, len, "One", 1, NULL, 0), 0);
    expect(ovra_bootopt_find(hdl, disk, &names), 0);
    expect(ovra_bootopt_logdev(hdl, "BootABC0", &names), 0);
    free_dpath(hdl, decoded);
    instance.device_path = "Foo(1)";
    expect(ovra_epath_encode(hdl, paths, 0, &packed, &len), -1);
    instance.device_path = "/dev/none";
    expect(ovra_epath_encode(hdl, paths, 0, &packed, &len), -1);
}

static void use_options(ovra_hdl_t hdl, char *disk)
{
    ovra_epath_t path = NULL;
    char **names = NULL;
    char *text = NULL;
    void *data = NULL;
    size_t data_len = 0;
    uint32_t attributes = 0;
    int len = 0;
    int position = 0;

    expect(ovra_bootopt_unused(hdl, &text), 0);
    expect(ovra_bootopt_list(hdl, &names), 0);
    expect(ovra_bootopt_get(hdl, "BootABC0", &path, &len, &text, &attributes, &data, &data_len), 0);
    expect(ovra_bootopt_get(hdl, "BootABC1", &path, &len, &text, &attributes, &data, &data_len), -1);
    expect(ovra_bootopt_devpath_get(hdl, "BootABC0", &text), 0);
    expect(ovra_bootopt_devpath_set(hdl, "BootABC0", disk), 0);
    expect(ovra_bootopt_bootpath_get(hdl, "BootABC0", &text), 0);
    expect(ovra_bootopt_bootpath_set(hdl, "BootABC0", "\\y"), 0);
    expect(ovra_bootopt_encoded_path_set(hdl, "BootABC0", path, len), 0);
    expect(ovra_bootopt_desc_get(hdl, "BootABC0", &text), 0);
    expect(ovra_bootopt_desc_set(hdl, "BootABC0", "Two"), 0);
    expect(ovra_bootopt_desc_set(hdl, "BootABC0", "\xff"), -1);
    expect(ovra_bootopt_attr_get(hdl, "BootABC0", &attributes), 0);
    expect(ovra_bootopt_attr_set(hdl, "BootABC0", 0), 0);
    expect(ovra_bootopt_optdata_get(hdl, "BootABC0", &data, &data_len), 0);
    expect(ovra_bootopt_optdata_set(hdl, "BootABC0", "x", 1), 0);
    expect(ovra_bootorder_insert(hdl, "BootABC0", 0), 0);
    expect(ovra_bootorder_get_position(hdl, "BootABC0", &position), 0);
    expect(ovra_bootorder_get_bootname(hdl, 0, &text), 0);
    expect(ovra_bootnext_set(hdl, "BootABC0"), 0);
    expect(ovra_bootnext_get(hdl, &text), 0);
    expect(ovra_bootorder_remove(hdl, "BootABC0"), 0);
    expect(ovra_bootopt_remove(hdl, "BootABC0"), 0);
    memlist_free(hdl, path);
    free_str_array(hdl, names);
}

static void receive(void *arg, int kind, const char *text)
{
    (void)kind;
    (void)text;
    pthread_testcancel(); /* not inside a call */
    *(int *)arg = 1;
}

static void *use_everything(void *disk)
{
    ovra_hdl_t hdl;
    char *text = NULL;
    int received = 0;

    ovra_log_to(receive, &received);
    pthread_cancel(pthread_self());
    expect(ovra_init(&hdl), 0);
    if (wrong == 0) {
        use_services(hdl);
        use_services(NULL); /* each call opens the services for itself */
        use_disks(hdl, disk);
        use_options(hdl, disk);
        expect(ovra_reset_system(hdl, EFI_RESET_COLD, EFI_SUCCESS, 0, NULL), 0);
        expect(ovra_bootcurrent_get(hdl, &text), 0);
        ovra_fini(hdl);
        expect(received, 1);
        finished = 1;
    }
    pthread_testcancel();
    return NULL; /* the cancellation was lost */
}

int main(int argc, char **argv)
{
    pthread_t thread;
    void *result = NULL;

    if (argc != 2 || pthread_create(&thread, NULL, use_everything, argv[1]) != 0 ||
        pthread_join(thread, &result) != 0)
        return 2;
    printf("%s after %d calls; wrong: %d; %s\n", finished ? "finished" : "ended", done, wrong,
           result == PTHREAD_CANCELED ? "cancelled" : "not cancelled");
    return 0;
}
