// SPDX-License-Identifier: MIT
#include "tests/tool/support.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <regex>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/captured.h"
#include "tests/support/child_process.h"

namespace tool_test {

namespace fs = std::filesystem;

const std::vector<words> writers_of_variables = {{"create", "--desc", "x", "--path-hex", "7fff0400"},
                                                 {"set", "Boot0000", "--inactive"},
                                                 {"remove", "Boot0000"},
                                                 {"order", "insert", "Boot0000"},
                                                 {"order", "remove", "Boot0000"},
                                                 {"order", "set", "Boot0000"},
                                                 {"next", "Boot0000"},
                                                 {"next", "--clear"}};

const std::vector<words> writers = [] {
    std::vector<words> all = writers_of_variables;
    all.push_back({"time", "--set", "2031-02-03T04:05:06"});
    all.push_back({"time", "--wakeup", "--set", "2099-02-03T04:05:06Z"});
    all.push_back({"time", "--wakeup", "--clear"});
    all.push_back({"reset"});
    return all;
}();

namespace {

constexpr const char *global_guid = "8be4df61-93ca-11d2-aa0d-00e098032b8c";

[[noreturn]] void give_up(const char *what)
{
    perror(what);
    abort();
}

struct pipe_ends {
    int read = -1;
    int write = -1;
};

pipe_ends new_pipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        give_up("pipe2");
    return {ends[0], ends[1]};
}

// The two sides of a terminal.
pipe_ends new_terminal()
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master == -1 || grantpt(master) != 0 || unlockpt(master) != 0)
        give_up("posix_openpt");
    const int slave = open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave == -1)
        give_up("open a terminal");
    return {slave, master};
}

void write_all(int fd, const std::string &text)
{
    if (!text.empty() && write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        give_up("write");
}

// Reads both to their ends.
void drain(int out, std::string *out_text, int err, std::string *err_text)
{
    pollfd ends[] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string *texts[] = {out_text, err_text};
    while (ends[0].fd != -1 || ends[1].fd != -1) {
        if (poll(ends, 2, -1) == -1)
            give_up("poll");
        for (size_t at = 0; at < 2; ++at) {
            if (ends[at].fd == -1 || ends[at].revents == 0)
                continue;
            char part[4096];
            const ssize_t size = read(ends[at].fd, part, sizeof part);
            if (size > 0) {
                texts[at]->append(part, static_cast<size_t>(size));
            } else {
                close(ends[at].fd);
                ends[at].fd = -1;
            }
        }
    }
}

std::string read_file(const fs::path &path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text; // an iterator takes long without optimisation
    text << stream.rdbuf();
    return text.str();
}

// What is said fits into 80 columns, but for what was given: long names, and what stands in quotes.
void expect_narrow(const std::string &said)
{
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words_of_line(line);
        // Also a mark stands where it is below what was given.
        bool is_given =
            line.find('"') != std::string::npos || line.find_first_not_of(" ^") == std::string::npos;
        for (std::string word; words_of_line >> word;)
            is_given = is_given || word.size() > 24 || word.find('/') != std::string::npos;
        EXPECT_TRUE(line.size() <= 80 || is_given) << line;
    }
}

// What the command writes its output to; `out` where nothing else is asked for.
int output_of(const surroundings &around, int out)
{
    if (around.broken_pipe) {
        const pipe_ends broken = new_pipe();
        close(broken.read);
        return broken.write;
    }
    return around.out_file.empty() ? out : open(around.out_file.c_str(), O_WRONLY | O_CLOEXEC);
}

std::vector<char *> pointers(words &texts)
{
    std::vector<char *> all;
    for (std::string &text : texts)
        all.push_back(text.data());
    all.push_back(nullptr);
    return all;
}

// The built command, unless the environment names another one.
std::string command_file()
{
    const char *other = getenv("OVRA_SANITIZED_COMMAND");
    return other ? other : OVRA_TOOL;
}

// The command in a process of its own, with these as its standard input, output and error.
pid_t start(const words &arguments, const surroundings &around, int in, int out, int err)
{
    words command = words{command_file()} + arguments;
    // A finding of a sanitizer must not look like a failure that a test expects.
    // Nor need the sanitizer's library be the first when a test preloads one.
    // Looking for leaks takes a third of a process's time: one in four does.
    static std::atomic<unsigned> started = 0;
    const std::string leaks = started++ % 4 == 0 ? "1" : "0";
    words environment = {"PATH=/usr/bin:/bin",
                         "ASAN_OPTIONS=exitcode=99:verify_asan_link_order=0:malloc_context_size=8:"
                         "quarantine_size_mb=16:thread_local_quarantine_size_kb=256:detect_leaks=" +
                             leaks,
                         "UBSAN_OPTIONS=exitcode=99"};
    for (const auto &[name, value] : around.environment)
        environment.push_back(name + '=' + value);
    const std::vector<char *> argv = pointers(command);
    const std::vector<char *> envp = pointers(environment);

    // What a child writes in its copy of the memory costs more than the command itself. Until it becomes
    // another program it uses ours, but for another user's: the C library keeps that of each thread.
    const pid_t child =
        around.as_nobody ? fork() : vfork(); // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (child == -1)
        give_up("fork");
    if (child != 0)
        return child;
    dup2(in, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    if (around.out_closed)
        close(STDOUT_FILENO);
    if (around.as_nobody && !ovra::test::become_nobody())
        _exit(98);
    for (const auto &[resource, value] : around.limits) {
        const rlimit limit = {value, value};
        if (setrlimit(static_cast<__rlimit_resource_t>(resource), &limit) != 0)
            _exit(96);
    }
    execve(argv[0], argv.data(), envp.data());
    _exit(97);
}

// Waits for its end.
void reap(pid_t child, outcome *result)
{
    int status = 0;
    rusage used = {};
    if (wait4(child, &status, 0, &used) != child)
        give_up("wait4");
    for (const timeval &time : {used.ru_utime, used.ru_stime})
        result->processor_seconds +=
            static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    if (WIFEXITED(status))
        result->status = WEXITSTATUS(status);
}

} // namespace

bool has_sanitizers()
{
#ifdef OVRA_SANITIZED
    return true;
#else
    return getenv("OVRA_SANITIZED_COMMAND") != nullptr;
#endif
}

std::string whole(const std::string &said)
{
    return std::regex_replace(said, std::regex("\n {6}(?! )"), " ");
}

words operator+(words left, const words &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

outcome run_command(const words &arguments, const surroundings &around)
{
    const pipe_ends in = around.terminal_in.empty() ? new_pipe() : new_terminal();
    const pipe_ends out = new_pipe();
    const pipe_ends err = new_pipe();
    const int out_fd = output_of(around, out.write);
    const pid_t child = start(arguments, around, in.read, out_fd, err.write);
    close(out.write);
    close(err.write);
    if (out_fd != out.write)
        close(out_fd);
    close(in.read);
    write_all(in.write, around.in + around.terminal_in);
    outcome result;
    if (around.terminal_in.empty())
        close(in.write);
    if (around.kill_after != 0) {
        usleep(around.kill_after);
        kill(child, SIGKILL);
    }
    drain(out.read, &result.out, err.read, &result.err);
    if (!around.terminal_in.empty())
        close(in.write);
    reap(child, &result);
    expect_narrow(result.err);
    return result;
}

std::optional<surroundings> as_user_without_rights()
{
    surroundings around;
    around.as_nobody = geteuid() == 0;
    if (run_command({"--version"}, around).status != 0)
        return std::nullopt;
    return around;
}

Machine::Machine()
{
    std::string name = fs::temp_directory_path() / "ovra-tool-XXXXXX";
    if (!mkdtemp(name.data()))
        give_up("mkdtemp");
    folder = name;
    fs::permissions(folder, fs::perms(0755));
    root = folder / "machine";
    variables = root / "sys/firmware/efi/efivars";
    fs::create_directories(root / "var/lib/hwplat"); // which the lock makes otherwise
    ovra::test::unpack_machine("q35", root, "sys/firmware");
}

Machine::~Machine()
{
    std::error_code ignored;
    fs::permissions(variables, fs::perms(0755), ignored);
    fs::remove_all(folder, ignored);
}

outcome Machine::run(const words &arguments, const surroundings &around) const
{
    return run_command(words{"--root", root} + arguments, around);
}

std::string Machine::output(const words &arguments) const
{
    const outcome result = run(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    return result.out;
}

json Machine::parsed(const words &arguments) const
{
    const std::string text = output(arguments + words{"--json"});
    json document = json::parse(text, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << text;
    EXPECT_EQ(document["format"], 1) << text;
    EXPECT_EQ(document["warnings"], json::array()) << text;
    document.erase("format");
    document.erase("warnings");
    return document;
}

std::string Machine::failure(const words &arguments) const
{
    const auto before = snapshot();
    const outcome result = run(arguments);
    EXPECT_EQ(result.status, 1) << result.out << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(snapshot(), before);
    return whole(result.err);
}

fs::path Machine::file(const std::string &variable) const
{
    return variables / (variable + '-' + global_guid);
}

void Machine::put(const std::string &variable, std::string_view data, uint32_t attributes) const
{
    std::ofstream stream(file(variable), std::ios::binary | std::ios::trunc);
    stream.write(reinterpret_cast<const char *>(&attributes), sizeof attributes);
    stream << data;
    ASSERT_TRUE(stream.flush().good());
}

std::string Machine::get(const std::string &variable) const
{
    if (!fs::exists(file(variable)))
        return "(none)";
    return read_file(file(variable)).substr(4);
}

void Machine::put_order(const std::vector<uint16_t> &order) const
{
    put("BootOrder", {reinterpret_cast<const char *>(order.data()), order.size() * 2});
}

std::vector<uint16_t> Machine::order() const
{
    const std::string data = get("BootOrder");
    std::vector<uint16_t> numbers(data == "(none)" ? 0 : data.size() / 2);
    if (!numbers.empty())
        memcpy(numbers.data(), data.data(), numbers.size() * 2);
    return numbers;
}

void Machine::put_state(const std::string &name, const std::string &text) const
{
    std::ofstream(root / "var/lib/hwplat" / name) << text;
}

std::map<std::string, std::string> Machine::snapshot() const
{
    constexpr uintmax_t largest_read = 1 << 20; // images of disks: their size and when they were written
    const size_t above = root.native().size() + 1;
    std::map<std::string, std::string> files;
    for (const auto &entry : fs::recursive_directory_iterator(root)) {
        const std::string name = entry.path().native().substr(above);
        if (name == "var/lib/hwplat/lock")
            continue;
        std::string &contents = files[name];
        if (entry.is_symlink())
            contents = fs::read_symlink(entry.path());
        else if (!entry.is_regular_file())
            continue;
        else if (const uintmax_t size = entry.file_size(); size > largest_read)
            contents = std::to_string(size) + " " +
                       std::to_string(entry.last_write_time().time_since_epoch().count());
        else
            contents = read_file(entry.path());
    }
    return files;
}

} // namespace tool_test
