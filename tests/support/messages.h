/* SPDX-License-Identifier: MIT */
/* What the library says. */
#ifndef TESTS_SUPPORT_MESSAGES_H
#define TESTS_SUPPORT_MESSAGES_H

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "src/rt/diag.h"

namespace ovra::test {

/*
 * Sets both switches (1 on, 0 off, -1 to be settled by the environment) and collects what is written to
 * stderr until it goes out of scope; then both are as before. The stream is exchanged, not the descriptor, so
 * that a sanitizer's report still comes through.
 */
class messages {
public:
    explicit messages(int eprint = 1, int debug = 1)
    {
        stream = open_memstream(&buffer, &size);
        if (!stream)
            throw std::bad_alloc();
        stderr = stream;
        ovra_path_eprint = eprint;
        ovra_path_debug = debug;
    }
    ~messages()
    {
        stderr = stderr_before;
        ovra_path_eprint = eprint_before;
        ovra_path_debug = debug_before;
        fclose(stream);
        free(buffer);
    }
    messages(const messages &) = delete;
    messages &operator=(const messages &) = delete;

    /* Everything so far. */
    std::string text() const
    {
        fflush(stream);
        return {buffer, size};
    }

    /* What came since the last take(). */
    std::string take()
    {
        std::string all = text();
        std::string fresh = all.substr(taken);
        taken = all.size();
        return fresh;
    }

private:
    FILE *stderr_before = stderr;
    int eprint_before = ovra_path_eprint;
    int debug_before = ovra_path_debug;
    FILE *stream = nullptr;
    char *buffer = nullptr;
    size_t size = 0;
    size_t taken = 0;
};

} // namespace ovra::test

#endif
