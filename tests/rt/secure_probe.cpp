// SPDX-License-Identifier: MIT
// A program that says what the libraries made of its environment: whether variables are files, whether they
// write errors and traces, whether the machine is that of the system. secure_test.cpp runs it as it is and as
// a set-group-ID program.
#include <cstdio>
#include <sys/auxv.h>
#include <unistd.h>

#include "platform/machine/debug.h"
#include "platform/machine/root.h"
#include "src/rt/diag.h"
#include "src/rt/rt.h"

int main()
{
    uint8_t data[] = {1};
    set_variable(nullptr, "Probe", sizeof data, data);
    ovra::say("error ");
    ovra::trace("trace ");
    ovra_hdl_t hdl = nullptr;
    const bool opened = ovra_init(&hdl) == 0;
    machine::debug("debug");
    printf("secure %lu: file %d, driver %d, errors %d, traces %d, live %d, vars %d\n", getauxval(AT_SECURE),
           access("Probe", F_OK) == 0, opened && hdl->ovra_fd != -1, ovra_path_eprint, ovra_path_debug,
           machine::open_root().live, !machine::open_root_of_variables().image.empty());
    fflush(stdout);
    _exit(0); // nobody may look into such a program at its end for leaks
}
