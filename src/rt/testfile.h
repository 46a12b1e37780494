/* SPDX-License-Identifier: MIT */
/* Which of the two holds the variables: the firmware, or plain files. */
#ifndef SRC_RT_TESTFILE_H
#define SRC_RT_TESTFILE_H

namespace ovra {

/* Whether OVRA_TEST_FILE exists, with any value. */
bool test_file_mode();

} // namespace ovra

#endif
