// SPDX-License-Identifier: MIT
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/ovra/failure.h"
#include "tools/ovra/firmware.h"
#include "tools/ovra/options.h"
#include "tools/ovra/verbs.h"

namespace {

struct verb {
    tool::verb_options options;
    void (*run)(tool::firmware &machine, const tool::arguments &args);
    // Instead of that: works without firmware variables too.
    void (*run_without_firmware)(const std::string &folder, const tool::arguments &args) = nullptr;
    bool needs_sys = false; // it shows what is in sysfs
};

constexpr verb verbs[] = {
    {{"list", "the boot options, in boot order", tool::list_options}, tool::run_list},
    {{"show", "one boot option", tool::show_options}, tool::run_show},
    {{"create", "make a boot option and put it into BootOrder", tool::create_options}, tool::run_create},
    {{"set", "change fields of a boot option", tool::set_options}, tool::run_set},
    {{"remove", "remove boot options, also from BootOrder", tool::remove_options}, tool::run_remove},
    {{"order", "show or change BootOrder", tool::order_options}, tool::run_order},
    {{"next", "show or set the option to boot once, at the next start", tool::next_options}, tool::run_next},
    {{"current", "the option that was booted", tool::current_options}, tool::run_current},
    {{"find", "the boot options that boot from a disk", tool::find_options}, tool::run_find},
    {{"disks", "the disks, and which boot options use them", tool::disks_options},
     nullptr,
     tool::run_disks,
     true},
    {{"tree", "the device tree", tool::tree_options}, nullptr, tool::run_tree, true},
    {{"path", "device paths between text and packed form", tool::path_options}, nullptr, tool::run_path},
    {{"vars", "the firmware's variables", tool::vars_options}, tool::run_vars},
    {{"time", "show or set the firmware's clock", tool::time_options}, tool::run_time},
    {{"reset", "reset the machine", tool::reset_options}, nullptr, tool::run_reset},
};

// A file opened later must not become a standard stream that was closed. Writing to a closed standard output
// still fails.
void occupy_standard_streams()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1)
            open("/dev/null", fd == STDERR_FILENO ? O_WRONLY : O_RDONLY);
    }
}

// The machine's folder for the platform libraries. Its absolute path.
std::string enter_root(const std::string &root)
{
    struct stat found = {};
    if (stat(root.c_str(), &found) != 0 || !S_ISDIR(found.st_mode))
        throw tool::failure("--root: there is no folder " + tool::in_quotes(root));
    char *absolute = realpath(root.c_str(), nullptr);
    if (!absolute)
        throw tool::failure("--root: cannot enter " + tool::in_quotes(root));
    std::string folder = absolute;
    free(absolute);
    setenv("HWPLAT_ROOT", folder.c_str(), 1);
    return folder;
}

// A system without sysfs has not "no disks": nobody can tell.
void require_sys(const std::string &folder)
{
    const char *given = secure_getenv("HWPLAT_ROOT");
    const std::string sys = (!folder.empty() ? folder : given ? given : "") + "/sys";
    std::error_code error;
    if (std::filesystem::directory_iterator(sys, error) != std::filesystem::directory_iterator() && !error)
        return;
    if (error && error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory)
        throw tool::failure("cannot read " + tool::printable(sys) + ": " + error.message());
    throw tool::failure("there is nothing in " + tool::printable(sys),
                        folder.empty()
                            ? "'mount -t sysfs sysfs /sys' mounts what the kernel tells of its devices."
                            : "A machine's folder is laid out like a Linux root.");
}

int run(int argc, char **argv)
{
    std::vector<tool::verb_options> options;
    for (const verb &verb : verbs)
        options.push_back(verb.options);
    tool::arguments args;
    const auto chosen = tool::read_command_line(argc, argv, options, &args);
    if (!chosen)
        return EXIT_SUCCESS;
    std::string folder;
    if (args.root)
        folder = enter_root(*args.root);
    if (verbs[*chosen].run_without_firmware) {
        if (verbs[*chosen].needs_sys)
            require_sys(folder);
        verbs[*chosen].run_without_firmware(folder, args);
        return EXIT_SUCCESS;
    }
    tool::firmware machine(folder);
    verbs[*chosen].run(machine, args);
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
