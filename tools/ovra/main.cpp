// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <span>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <CLI/CLI.hpp>

#include "tools/command/arguments.h"
#include "tools/command/commandline.h"
#include "tools/command/verb.h"
#include "tools/text/failure.h"
#include "tools/text/output.h"

namespace {

struct declared_verb {
    CLI::App *options;
    std::unique_ptr<tool::verb> verb;
};

// Those verbs that are among the words: to declare all of them would be half of the start of each command.
std::vector<declared_verb> declare_verbs(CLI::App &app, std::span<char *const> words)
{
    std::vector<declared_verb> declared;
    for (const auto &[name, make] : tool::known_verbs()) {
        if (std::find(words.begin(), words.end(), std::string_view(name)) == words.end())
            continue;
        auto verb = make();
        CLI::App *options = app.add_subcommand(name, verb->summary());
        verb->declare(*options);
        declared.push_back({options, std::move(verb)});
    }
    return declared;
}

void declare_general(CLI::App &app, tool::general_options &general)
{
    app.formatter(tool::help_format());
    app.fallthrough(); // options of every verb also after the verb
    app.set_version_flag("--version", "ovra " OVRA_VERSION);
    app.footer("Options are named Boot and four hexadecimal digits; boot1f and 1f are\nBoot001F too.\n"
               "Exit status: 0 done, 1 failed, 2 the command line is wrong.");
    tool::add_value(app, "--root", "DIR", "work on the machine in DIR, a folder laid out like a Linux root",
                    [&general](const std::string &text) { general.root = text; });
    tool::add_value(app, "--vars", "FILE",
                    "work on the variables in FILE, of a virtual machine's firmware or U-Boot",
                    [&general](const std::string &text) { general.vars = text; });
    app.add_flag("--json", general.json, "print JSON");
    app.add_flag("--dry-run", general.dry_run, "change nothing, say what would be written");
    app.require_subcommand(1);
}

// The verb that the command line names, with its values read, and null when help or the version was asked for
// and printed. Throws a usage_error.
std::unique_ptr<tool::verb> read_command_line(int argc, char **argv, tool::general_options &general)
{
    CLI::App app("Reads and changes the boot configuration of UEFI firmware.", "ovra");
    declare_general(app, general);
    std::vector<declared_verb> verbs = declare_verbs(app, {argv, argv + argc});
    try {
        std::vector<std::string> words = tool::words_to_parse(app, argc, argv);
        std::reverse(words.begin(), words.end()); // as CLI11 wants them
        app.parse(std::move(words));
    } catch (const CLI::CallForVersion &version) {
        tool::print(std::string(version.what()) + '\n');
        return nullptr;
    } catch (const CLI::CallForHelp &) {
        tool::print(app.help());
        return nullptr;
    } catch (const CLI::RequiredError &error) {
        throw tool::usage_error(app.get_subcommands().empty() ? "a verb is required" : error.what());
    } catch (const CLI::ParseError &error) {
        throw tool::usage_error(error.what());
    }
    for (declared_verb &each : verbs) {
        if (!each.options->parsed())
            continue;
        each.verb->check();
        return std::move(each.verb);
    }
    throw tool::usage_error("a verb is required");
}

// A file opened later must not become a standard stream that was closed. Writing to a closed standard output
// still fails.
void occupy_standard_streams()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1)
            open("/dev/null", fd == STDERR_FILENO ? O_WRONLY : O_RDONLY);
    }
}

// The absolute path of what an option names, also for the platform libraries, in a variable of the
// environment.
std::string enter(const char *variable, const std::string &named, const std::string &refusal)
{
    char *absolute = realpath(named.c_str(), nullptr);
    if (!absolute)
        throw tool::failure(refusal + tool::in_quotes(named) + ": " + strerror(errno));
    std::string path = absolute;
    free(absolute);
    setenv(variable, path.c_str(), 1);
    return path;
}

std::string enter_root(const std::string &root)
{
    struct stat found = {};
    if (stat(root.c_str(), &found) != 0 || !S_ISDIR(found.st_mode))
        throw tool::failure("--root: there is no folder " + tool::in_quotes(root));
    return enter("HWPLAT_ROOT", root, "--root: cannot enter ");
}

int run(int argc, char **argv)
{
    tool::general_options general;
    const std::unique_ptr<tool::verb> verb = read_command_line(argc, argv, general);
    if (!verb)
        return EXIT_SUCCESS;
    if (general.root)
        general.root = enter_root(*general.root);
    if (general.vars)
        general.vars = enter("HWPLAT_VARS", *general.vars, "--vars: cannot find ");
    verb->run(general);
    return EXIT_SUCCESS;
}

void complain(const std::string &what)
{
    const std::string name = "ovra: ";
    fprintf(stderr, "%s%s\n", name.c_str(), tool::broken(tool::printable(what), name.size()).c_str());
}

std::vector<std::string> printable_lines(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(tool::printable(text.substr(begin, end - begin)));
        begin = end + 1;
    }
    return lines;
}

} // namespace

int main(int argc, char **argv)
{
    constexpr int usage_status = 2;
    occupy_standard_streams();
    signal(SIGPIPE, SIG_IGN);       // a broken pipe is then an error of the write
    setlocale(LC_CTYPE, "C.UTF-8"); // what variables hold is shown as UTF-8
    try {
        return run(argc, argv);
    } catch (const tool::usage_error &error) {
        complain(error.what());
        fputs("  'ovra --help' and 'ovra VERB --help' show what can be given.\n", stderr);
        return usage_status;
    } catch (const tool::nobody_reads &) {
        // As of a program that the pipe's signal ends: whoever closed it has seen enough.
    } catch (const tool::already_told &) {
        // The exit status says it.
    } catch (const tool::failure &error) {
        complain(error.what());
        for (const std::string &line : printable_lines(error.advice))
            fprintf(stderr, "  %s\n", tool::broken(line, 2).c_str());
        for (const std::string &line : printable_lines(error.messages))
            fprintf(stderr, "    %s\n", line.c_str());
    } catch (const std::bad_alloc &) {
        complain("out of memory");
    } catch (const std::exception &error) {
        complain(error.what());
    }
    return EXIT_FAILURE;
}
