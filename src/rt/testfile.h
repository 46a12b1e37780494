/* SPDX-License-Identifier: MIT */
/* Variables in plain files instead of the firmware (OVRA_TEST_FILE). */
#ifndef SRC_RT_TESTFILE_H
#define SRC_RT_TESTFILE_H

#include <ovra/ovra.h>

extern "C" {

/* Variables as files of their name in the working directory. `size` is in bytes. */
EFI_STATUS set_variable_to_file(const char *path, UINTN size, const void *data);
/* *size as in GetVariable. */
EFI_STATUS get_variable_from_file(const char *path, UINTN *size, void *data);

} // extern "C"

namespace ovra {

/* Whether OVRA_TEST_FILE exists, with any value. */
bool test_file_mode();

} // namespace ovra

#endif
