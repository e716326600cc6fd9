#include "study/model/import_sandbox.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstddef>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace insolate::study {

namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define INSOLATE_IS_WATCHED 1 // by a sanitizer, which needs memory and calls of its own
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define INSOLATE_IS_WATCHED 1
#endif
#ifdef INSOLATE_IS_WATCHED
constexpr bool isWatched = true;
#else
constexpr bool isWatched = false;
#endif

/// @param grace how much further than the limit one can go once the process has been asked to end
bool limit(decltype(RLIMIT_AS) resource, rlim_t most, rlim_t grace = 0) {
    rlimit now = {};
    if (getrlimit(resource, &now) != 0) {
        return false;
    }
    now.rlim_max = std::min(now.rlim_max, most + grace);
    now.rlim_cur = std::min(now.rlim_max, most);
    return setrlimit(resource, &now) == 0;
}

/// Files can be read in the model's folder and below, and nothing else of the file system touched.
void keepToFolder(const std::filesystem::path& model) {
    constexpr std::uint64_t readFile = LANDLOCK_ACCESS_FS_READ_FILE;
    constexpr std::uint64_t allOfTheFirstVersion = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1U) - 1U;
    std::error_code problem;
    const auto folder = std::filesystem::canonical(model, problem).parent_path();
    const landlock_ruleset_attr handled = {.handled_access_fs = allOfTheFirstVersion};
    const auto rules =
        static_cast<int>(syscall(SYS_landlock_create_ruleset, &handled, sizeof handled, 0));
    if (rules < 0) {
        return;
    }
    const int place = open(folder.c_str(), O_PATH | O_CLOEXEC);
    const landlock_path_beneath_attr rule = {.allowed_access = readFile, .parent_fd = place};
    if (place >= 0) {
        syscall(SYS_landlock_add_rule, rules, LANDLOCK_RULE_PATH_BENEATH, &rule, 0);
        close(place);
    }
    syscall(SYS_landlock_restrict_self, rules, 0);
    close(rules);
}

/// Leaves the calls that reading, memory and ending take; all others fail.
void keepToCalls() {
#if defined(__x86_64__)
    constexpr std::uint32_t machine = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
    constexpr std::uint32_t machine = AUDIT_ARCH_AARCH64;
#else
    return;
#endif
    constexpr std::array allowed = {
        __NR_read,
        __NR_pread64,
        __NR_write,
        __NR_close,
        __NR_fstat,
        __NR_newfstatat,
        __NR_statx,
        __NR_lseek,
        __NR_readlinkat,
        __NR_getcwd,
        __NR_faccessat,
        __NR_mmap,
        __NR_munmap,
        __NR_mremap,
        __NR_mprotect,
        __NR_madvise,
        __NR_brk,
        __NR_futex,
        __NR_getrandom,
        __NR_clock_gettime,
        __NR_getpid,
        __NR_gettid,
        __NR_rt_sigaction,
        __NR_rt_sigprocmask,
        __NR_rt_sigreturn,
        __NR_exit,
        __NR_exit_group,
#if defined(__x86_64__)
        __NR_stat,
        __NR_lstat,
        __NR_readlink,
        __NR_access,
#endif
    };
    const auto load = [](std::size_t offset) {
        return sock_filter(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset)));
    };
    /// Goes on with the next step when the loaded value is this one, else skips so many.
    const auto unlessSkip = [](std::uint32_t value, std::uint8_t skipped) {
        return sock_filter(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, skipped));
    };
    const sock_filter allow = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    const sock_filter refuse = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM);
    std::vector<sock_filter> filter = {load(offsetof(seccomp_data, arch)),
                                       BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, machine, 1, 0), refuse,
                                       load(offsetof(seccomp_data, nr))};
    for (const int call : allowed) {
        filter.push_back(unlessSkip(static_cast<std::uint32_t>(call), 1));
        filter.push_back(allow);
    }
    // abort() sends its signal to a thread of this process; no signal goes to any other.
    filter.push_back(unlessSkip(__NR_tgkill, 4));
    filter.push_back(load(offsetof(seccomp_data, args)));
    filter.push_back(unlessSkip(static_cast<std::uint32_t>(getpid()), 1));
    filter.push_back(allow);
    filter.push_back(refuse);
    // Files are opened for reading only: the low half of the third argument has no bit of these.
    constexpr std::uint32_t writing = O_WRONLY | O_RDWR | O_CREAT | O_TRUNC | O_APPEND;
    filter.push_back(unlessSkip(__NR_openat, 3));
    filter.push_back(load(offsetof(seccomp_data, args) + 2 * sizeof(std::uint64_t)));
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, writing, 1, 0));
    filter.push_back(allow);
    filter.push_back(refuse);
    const sock_fprog program = {.len = static_cast<unsigned short>(filter.size()),
                                .filter = filter.data()};
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

} // namespace

bool limitProcess(std::uint64_t bytes, std::uint64_t seconds) {
    constexpr rlim_t stackBytes = 64U << 20U; // readers of nested formats call themselves
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_DUMPABLE, 0);
    // SIGXCPU comes at the soft limit; at the hard one it is SIGKILL, which does not name the
    // cause.
    return limit(RLIMIT_CPU, seconds, 1) && limit(RLIMIT_CORE, 0) && limit(RLIMIT_FSIZE, 0) &&
           limit(RLIMIT_NOFILE, 32) && limit(RLIMIT_STACK, stackBytes) &&
           (isWatched || limit(RLIMIT_AS, bytes));
}

void enterSandbox(const std::filesystem::path& model) {
    if (!isWatched && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0) {
        keepToFolder(model);
        keepToCalls();
    }
}

} // namespace insolate::study
