// SPDX-License-Identifier: MIT
// A program that sets its locale before it uses the library, as most do: the one that OVRA_TEST_LOCALE names.
// In every test program, so that all cases can be run once more under a locale whose letters differ.
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <strings.h>

[[gnu::constructor]] static void set_callers_locale()
{
    const char *name = getenv("OVRA_TEST_LOCALE");
    if (!name)
        return;
    // One that could not be set, or in which an I is an i after all, would prove nothing.
    if (!setlocale(LC_ALL, name) || strcasecmp("I", "i") == 0) {
        fprintf(stderr, "OVRA_TEST_LOCALE: %s is no locale here in which an I is not an i\n", name);
        exit(1);
    }
    setlocale(LC_MESSAGES, "C"); // strerror may speak the caller's language; the cases expect its own
}
