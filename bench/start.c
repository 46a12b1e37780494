// SPDX-License-Identifier: MIT
/*
 * usage: start
 *
 * What does it cost to load libovra, to open a handle in test-file mode and to close it?
 */
#include <stdlib.h>

#include <ovra/ovra.h>

int main(void)
{
    setenv("OVRA_TEST_FILE", "", 1);
    ovra_hdl_t hdl;
    if (ovra_init(&hdl) != 0)
        return 1;
    ovra_fini(hdl);
    return 0;
}
