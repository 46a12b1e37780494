/* SPDX-License-Identifier: MIT */
/* What the platform libraries say about a whole machine, and how much of it a failure may change. */
#ifndef TESTS_DEVICES_PROCESS_OUTCOMES_H
#define TESTS_DEVICES_PROCESS_OUTCOMES_H

#include <string>
#include <vector>

#include "tests/devices/failing_calls.h"
#include "tests/devices/sample.h"

namespace devices_test {

/* The name and attributes of a descriptor, without the checks that the functions of sample.h make. */
outcome said_of(vs_descriptor_t descriptor);

outcome all_of_kind(vs_kind_t kind);

/* A line for each drive: its medium, or why it cannot be read. */
outcome media_of_each_drive();

outcome whole_tree();

std::vector<std::string> lines(const std::string &text);

/*
 * Judgements. The lines of the undisturbed outcome except those of one drive, which cannot be read itself: a
 * shortage of the process is not the drive's fault.
 */
bool same_but_for_one_drive(const outcome &found, const outcome &undisturbed, int injected);

/* The lines of the undisturbed outcome, one of them replaced by the error. */
bool same_but_for_an_error_line(const outcome &found, const outcome &undisturbed, int injected);

} // namespace devices_test

#endif
