// SPDX-License-Identifier: MIT
#include "tools/exchange/editor.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/exchange/boottext.h"
#include "tools/exchange/outfile.h"
#include "tools/machine/files.h"
#include "tools/text/failure.h"
#include "tools/text/text.h"

namespace tool {

namespace {

// As a shell takes it: the name may be followed by options.
std::string editor_command()
{
    for (const char *variable : {"VISUAL", "EDITOR"}) {
        const char *command = secure_getenv(variable);
        if (command && *command != '\0')
            return command;
    }
    return "editor"; // Debian's name of the usual one
}

// A key that ends the editor is not to end this program.
class signals_for_child {
public:
    signals_for_child()
    {
        struct sigaction ignored = {};
        ignored.sa_handler = SIG_IGN;
        sigaction(SIGINT, &ignored, &interrupt);
        sigaction(SIGQUIT, &ignored, &quit);
        posix_spawnattr_init(&attributes);
        sigset_t defaults = {};
        sigemptyset(&defaults);
        for (const int signal : {SIGINT, SIGQUIT, SIGPIPE})
            sigaddset(&defaults, signal);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    }
    ~signals_for_child()
    {
        posix_spawnattr_destroy(&attributes);
        sigaction(SIGINT, &interrupt, nullptr);
        sigaction(SIGQUIT, &quit, nullptr);
    }
    signals_for_child(const signals_for_child &) = delete;
    signals_for_child &operator=(const signals_for_child &) = delete;

    posix_spawnattr_t attributes = {};

private:
    struct sigaction interrupt = {};
    struct sigaction quit = {};
};

// Its exit status; throws when there is none.
int run_editor(const std::string &command, const std::string &file)
{
    const signals_for_child signals;
    std::string words[] = {"sh", "-c", command + " \"$1\"", "sh", file};
    char *arguments[] = {words[0].data(), words[1].data(), words[2].data(),
                         words[3].data(), words[4].data(), nullptr};
    pid_t child = 0;
    const int error = posix_spawn(&child, "/bin/sh", nullptr, &signals.attributes, arguments, environ);
    if (error != 0)
        throw failure("cannot start a shell for the editor: " + std::string(strerror(error)));
    int status = 0;
    while (waitpid(child, &status, 0) == -1) {
        if (errno != EINTR)
            throw failure("cannot wait for the editor: " + std::string(strerror(errno)));
    }
    if (!WIFEXITED(status))
        throw failure("the editor was ended by a signal", "Nothing is changed.");
    return WEXITSTATUS(status);
}

} // namespace

edited_file::edited_file(const std::string &text) : name(write_temporary_file(text)) {}

edited_file::~edited_file()
{
    if (!stays)
        unlink(name.c_str());
}

std::string edited_file::edit()
{
    const std::string command = editor_command();
    if (const int status = run_editor(command, name); status != 0)
        throw failure("the editor failed: " + in_quotes(command) + format(" ended with status %d", status),
                      "Nothing is changed. VISUAL or EDITOR in the environment names another one.");
    const bytes text = contents(name, boot_text_limit, "it is longer than any text of boot variables");
    return {text.begin(), text.end()};
}

std::string edited_file::keep()
{
    stays = true;
    return "Your text is kept: 'ovra import " + name + "' takes it.";
}

} // namespace tool
