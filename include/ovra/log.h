/* SPDX-License-Identifier: MIT */
/*
 * libovra's messages, handed to the program.
 *
 * The functions of ovra.h answer 0 or -1. Why a call failed is in the messages that it gave on the way:
 * without a receiver they are seen only on standard error, and only where the environment asks for them
 * (OVRA_PATH_EPRINT, OVRA_PATH_DEBUG). A receiver changes nothing there.
 *
 *     static void show(void *arg, int kind, const char *text)
 *     {
 *         if (kind == OVRA_LOG_ERROR)
 *             fprintf(arg, "libovra: %s\n", text);
 *     }
 *
 *     ovra_log_to(show, stdout);
 *     if (ovra_bootopt_desc_get(hdl, "Boot0003", &text) != 0)
 *         ...
 *     ovra_log_to(NULL, NULL);
 */
#ifndef OVRA_LOG_H
#define OVRA_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

/* What a message is. */
enum {
    OVRA_LOG_ERROR = 0, /* an error, or a remark of a call that goes on */
    OVRA_LOG_TRACE = 1  /* a trace message; given only while OVRA_PATH_DEBUG turns traces on */
};

/*
 * Receives one message. `text` is null-terminated and valid during the call. It is what would go to standard
 * error: it may lack a line end, hold several, or hold any byte of a name that the library was given. One of
 * more than 4095 bytes is cut to that length.
 *
 * The receiver runs in the middle of the call that gave the message. It must return, without longjmp or a C++
 * exception, and must not call the library: a call inside a call would work with the outer one's machine.
 */
typedef void ovra_log_fn(void *arg, int kind, const char *text);

/*
 * From now on hands every message of the calling thread's calls to `fn`, with `arg`; a null `fn` ends that.
 * Other threads are not touched: each has its own receiver, at first none. Nothing is kept but the two
 * pointers, nothing is allocated and nothing can fail.
 */
#pragma GCC visibility push(default)
void ovra_log_to(ovra_log_fn *fn, void *arg);
#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
