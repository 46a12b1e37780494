// SPDX-License-Identifier: MIT
#include "tests/devices/failing_calls.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

#include <dlfcn.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <gtest/gtest.h>

// The one place from which stopped calls go on to the kernel.
asm(R"(
    .pushsection .text
    .type failing_calls_gate, @function
failing_calls_gate:
    mov %rdi, %rax
    mov %rsi, %rdi
    mov %rdx, %rsi
    mov %rcx, %rdx
    mov %r8, %r10
    mov %r9, %r8
    mov 8(%rsp), %r9
    syscall
failing_calls_gate_end:
    ret
    .size failing_calls_gate, . - failing_calls_gate
    .popsection
)");
extern "C" long failing_calls_gate(long number, long, long, long, long, long, long);
extern "C" const char failing_calls_gate_end[];

namespace devices_test {

namespace {

struct named_call {
    int number;
    const char *name;
};
constexpr std::array stopped = {
    named_call{SYS_open, "open"},           named_call{SYS_openat, "openat"},
    named_call{SYS_read, "read"},           named_call{SYS_pread64, "pread"},
    named_call{SYS_fstat, "fstat"},         named_call{SYS_newfstatat, "fstatat"},
    named_call{SYS_stat, "stat"},           named_call{SYS_lstat, "lstat"},
    named_call{SYS_statx, "statx"},         named_call{SYS_statfs, "statfs"},
    named_call{SYS_fstatfs, "fstatfs"},     named_call{SYS_readlink, "readlink"},
    named_call{SYS_getdents64, "getdents"}, named_call{SYS_readlinkat, "readlinkat"},
    named_call{SYS_ioctl, "ioctl"},         named_call{SYS_lseek, "lseek"},
    named_call{SYS_fcntl, "fcntl"},         named_call{SYS_fadvise64, "fadvise"},
    named_call{SYS_getcwd, "getcwd"},       named_call{SYS_access, "access"},
    named_call{SYS_faccessat, "faccessat"}};
constexpr std::size_t allocation = stopped.size(); // a kind of its own after them

struct {
    bool watching = false;
    long calls = 0;
    long fail_at = -1;
    int error = 0;
    std::size_t failed_kind = 0;
    std::array<long, stopped.size() + 1> of_kind = {};
} state;

// Only what libblkid allocates: other allocations are refused elsewhere, and the tests have some of their
// own.
bool is_in_libblkid(const void *caller)
{
    Dl_info found = {};
    return dladdr(caller, &found) != 0 && found.dli_fname != nullptr &&
           std::strstr(found.dli_fname, "libblkid") != nullptr;
}

// Counts a call. True if it must fail.
bool fails(std::size_t kind)
{
    if (!state.watching)
        return false;
    ++state.of_kind[kind];
    if (state.calls++ != state.fail_at)
        return false;
    state.failed_kind = kind;
    return true;
}

const char *name_of_kind(std::size_t kind)
{
    return kind == allocation ? "allocation" : stopped[kind].name;
}

void on_stopped_call(int, siginfo_t *info, void *context)
{
    const int saved = errno;
    auto &registers = static_cast<ucontext_t *>(context)->uc_mcontext.gregs;
    std::size_t kind = 0;
    while (stopped[kind].number != info->si_syscall)
        ++kind;
    registers[REG_RAX] =
        fails(kind)
            ? -state.error
            : failing_calls_gate(info->si_syscall, registers[REG_RDI], registers[REG_RSI], registers[REG_RDX],
                                 registers[REG_R10], registers[REG_R8], registers[REG_R9]);
    errno = saved;
}

// Stops the calls of this process, for good.
void stop_calls()
{
    struct sigaction action = {};
    action.sa_sigaction = on_stopped_call;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaction(SIGSYS, &action, nullptr);

    const auto gate = reinterpret_cast<std::uintptr_t>(failing_calls_gate_end);
    constexpr auto address = offsetof(seccomp_data, instruction_pointer);
    std::vector<sock_filter> filter = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, address),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(gate), 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, address + 4),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(gate >> 32), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const named_call &call : stopped) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call.number), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        throw std::runtime_error("the kernel has no system call filter");
}

outcome watch(const std::function<outcome()> &body, long fail_at, int error)
{
    state = {true, 0, fail_at, error, 0, {}};
    outcome found = body();
    state.watching = false;
    return found;
}

// The outcome of `body` in a child process.
std::string said_in_child(const std::function<std::string()> &body)
{
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("pipe");
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        std::string said;
        try {
            said = body();
        } catch (const std::exception &failure) {
            said = std::string("! ") + failure.what();
        }
        for (std::size_t at = 0; at < said.size();) {
            const ssize_t written = write(ends[1], said.data() + at, said.size() - at);
            if (written <= 0)
                break;
            at += static_cast<std::size_t>(written);
        }
        _exit(0);
    }
    close(ends[1]);
    std::string said;
    std::array<char, 4096> buffer;
    for (ssize_t count = 0; (count = read(ends[0], buffer.data(), buffer.size())) > 0;)
        said.append(buffer.data(), static_cast<std::size_t>(count));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0)
        said += "! the child ended with status " + std::to_string(status);
    return said;
}

// A summary; a line for each outcome that is not right, "!" in front.
std::string sweep(const std::function<outcome()> &body, const judgement &is_right, long of_tree)
{
    body(); // what a process does once
    const outcome undisturbed = body();
    if (undisturbed.error != 0)
        return "! it fails undisturbed: " + std::to_string(undisturbed.error);
    stop_calls();
    watch(body, -1, 0);
    const long count = state.calls;
    std::string report = std::to_string(count) + " calls:";
    for (std::size_t kind = 0; kind < state.of_kind.size(); ++kind) {
        if (state.of_kind[kind] != 0)
            report += std::string(" ") + name_of_kind(kind) + ' ' + std::to_string(state.of_kind[kind]);
    }
    long runs = 0;
    long errors = 0;
    std::string wrong;
    const bool every_call = std::getenv("OVRA_TEST_EVERY_CALL") != nullptr;
    constexpr std::array errors_tried = {EIO, EMFILE, ENOMEM, EACCES};
    for (long at = 0; at < count; ++at) {
        for (std::size_t i = 0; i < errors_tried.size(); ++i) {
            if (!every_call && at < of_tree &&
                (at % 4 != 0 || i != static_cast<std::size_t>(at) / 4 % errors_tried.size()))
                continue;
            const outcome found = watch(body, at, errors_tried[i]);
            ++runs;
            errors += found.error != 0;
            if (!is_right(found, undisturbed, errors_tried[i]))
                wrong += "! call " + std::to_string(at) + ", " + name_of_kind(state.failed_kind) +
                         ", fails with " + std::to_string(errors_tried[i]) + ": error " +
                         std::to_string(found.error) + ", " + found.text + '\n';
        }
    }
    if (body() != undisturbed)
        wrong += "! something stays behind\n";
    return report + "; " + std::to_string(runs) + " failures, " + std::to_string(errors) + " of them told\n" +
           wrong;
}

} // namespace

bool same_or_error(const outcome &found, const outcome &undisturbed, int)
{
    return found.error != 0 || found == undisturbed;
}

bool same_or_that_error(const outcome &found, const outcome &undisturbed, int injected)
{
    return found.error == injected || found == undisturbed;
}

void expect_each_failure_told(const std::string &name, const std::function<outcome()> &body,
                              const judgement &is_right, long of_tree)
{
    const std::string report = said_in_child([&] { return sweep(body, is_right, of_tree); });
    std::printf("%s: %s", name.c_str(), report.substr(0, report.find('\n') + 1).c_str());
    EXPECT_EQ(report.find('!'), std::string::npos) << name << ": " << report;
}

long expect_each_first_failure_told(const std::string &name, const std::function<outcome()> &body,
                                    const judgement &is_right, long skipped)
{
    const auto first_outcome = [&](long fail_at, int error) {
        const std::string said = said_in_child([&] {
            stop_calls();
            const outcome found = watch(body, fail_at, error);
            return std::to_string(state.calls) + ' ' + std::to_string(found.error) + ' ' + found.text;
        });
        EXPECT_EQ(said.find('!'), std::string::npos) << name << ": " << said;
        std::size_t end = 0;
        const long calls = std::stol(said, &end);
        const std::string rest = said.substr(end + 1);
        return std::pair(calls, outcome{std::stoi(rest, &end), rest.substr(end + 1)});
    };
    const auto [count, undisturbed] = first_outcome(-1, 0);
    EXPECT_EQ(undisturbed.error, 0);
    long errors = 0;
    for (long at = skipped; at < count; ++at) {
        for (const int error : {EIO, EMFILE, ENOMEM, EACCES}) {
            const outcome found = first_outcome(at, error).second;
            errors += found.error != 0;
            EXPECT_TRUE(is_right(found, undisturbed, error))
                << "call " << at << " fails with " << error << ": error " << found.error << ", "
                << found.text;
        }
    }
    std::printf("%s: %ld calls; %ld failures told\n", name.c_str(), count, errors);
    return count;
}

static long count_calls(const std::function<outcome()> &body, bool opens_only)
{
    return std::stol(said_in_child([&] {
        body();
        stop_calls();
        watch(body, -1, 0);
        long opens = 0;
        for (std::size_t kind = 0; kind < stopped.size(); ++kind) {
            if (stopped[kind].number == SYS_open || stopped[kind].number == SYS_openat)
                opens += state.of_kind[kind];
        }
        return std::to_string(opens_only ? opens : state.calls);
    }));
}

long calls_of(const std::function<outcome()> &body)
{
    return count_calls(body, false);
}

long opens_of(const std::function<outcome()> &body)
{
    return count_calls(body, true);
}

} // namespace devices_test

extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);

static bool is_refused(const void *caller)
{
    using namespace devices_test;
    if (!state.watching || !is_in_libblkid(caller) || !fails(allocation) || state.error != ENOMEM)
        return false;
    errno = ENOMEM;
    return true;
}

void *malloc(std::size_t size)
{
    return is_refused(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size)
{
    return is_refused(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}

} // extern "C"
