// SPDX-License-Identifier: MIT
/*
 * usage: usage COMMAND [ARGUMENT ...]
 *
 * What does a command take? Prints its processor time in seconds and its greatest size in memory in
 * megabytes. (A process begins with the size of the one that makes it: it has to be a small one.)
 */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/personality.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

static double seconds(struct timeval time)
{
    return (double)time.tv_sec + (double)time.tv_usec / 1e6;
}

int main(int argc, char **argv)
{
    if (argc < 2)
        return 2;
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        if (nowhere == -1 || dup2(nowhere, STDOUT_FILENO) == -1)
            _exit(EXIT_FAILURE);
        personality(ADDR_NO_RANDOMIZE); /* as many pages in each run, where that is allowed */
        execvp(argv[1], argv + 1);
        _exit(EXIT_FAILURE);
    }
    int status = 0;
    struct rusage usage;
    if (child == -1 || wait4(child, &status, 0, &usage) != child || status != 0)
        return EXIT_FAILURE;
    printf("%f %f\n", seconds(usage.ru_utime) + seconds(usage.ru_stime), (double)usage.ru_maxrss / 1024);
    return 0;
}
