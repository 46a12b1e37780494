// SPDX-License-Identifier: MIT
/* Prints what QueryVariableInfo says of variables that stay: the store's size, what is left of it, and the
 * largest variable, in bytes; or the status that is no success. */
#include <inttypes.h>
#include <stdio.h>

#include <ovra/ovra.h>

int main(void)
{
    ovra_hdl_t hdl = NULL;
    UINT64 store = 0;
    UINT64 left = 0;
    UINT64 largest = 0;
    EFI_STATUS status = 0;
    int result = 0;

    if (ovra_init(&hdl) != 0)
        return 1;
    result = ovra_query_variable_info(
        hdl, EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS,
        &store, &left, &largest, &status);
    ovra_fini(hdl);
    if (result == 0)
        printf("%" PRIu64 " %" PRIu64 " %" PRIu64 "\n", store, left, largest);
    else
        printf("status %" PRIx64 "\n", (uint64_t)status);
    return 0;
}
