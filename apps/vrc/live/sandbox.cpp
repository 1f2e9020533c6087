#include "live/sandbox.h"

#include <asm/ioctls.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "failure.h"

namespace vrc
{
namespace
{

// Landlock's interface as of version 6; the headers of the host may be older. A kernel takes a longer record than it knows as
// long as the rest is 0.
struct ruleset_rights {
    uint64_t files;
    uint64_t network; // from version 4
    uint64_t scoped;  // from version 6
};

constexpr uint64_t kTruncate = 1U << 14;                // from version 3
constexpr uint64_t kFilesFirst = (1U << 13) - 1;        // version 1
constexpr uint64_t kTcp = 1U << 0 | 1U << 1;            // to bind, to connect
constexpr uint64_t kOtherProcesses = 1U << 0 | 1U << 1; // their abstract sockets, signals to them

ruleset_rights rights_known(long version)
{
    ruleset_rights rights{kFilesFirst, 0, 0};
    rights.files |= version >= 2 ? LANDLOCK_ACCESS_FS_REFER : 0;
    rights.files |= version >= 3 ? kTruncate : 0;
    rights.network = version >= 4 ? kTcp : 0;
    rights.scoped = version >= 6 ? kOtherProcesses : 0;
    return rights;
}

class descriptor
{
  public:
    explicit descriptor(long number) : number_(static_cast<int>(number))
    {
    }

    ~descriptor()
    {
        if (number_ >= 0) {
            close(number_);
        }
    }

    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;

    int get() const
    {
        return number_;
    }

  private:
    int number_;
};

bool directory_allow(const descriptor &ruleset, const descriptor &directory, uint64_t known)
{
    landlock_path_beneath_attr rule{};
    rule.allowed_access = known & (LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_MAKE_REG | kTruncate);
    rule.parent_fd = directory.get();
    return syscall(SYS_landlock_add_rule, ruleset.get(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
}

// `directory` may be none.
bool files_restrict(const descriptor &directory)
{
    const long version = syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) {
        return false;
    }
    const ruleset_rights rights = rights_known(version);
    const descriptor ruleset(syscall(SYS_landlock_create_ruleset, &rights, sizeof rights, 0));
    const bool is_complete =
        ruleset.get() >= 0 && (directory.get() < 0 || directory_allow(ruleset, directory, rights.files));
    return is_complete && syscall(SYS_landlock_restrict_self, ruleset.get(), 0) == 0;
}

#if defined(__x86_64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
constexpr uint32_t kArchitecture = 0; // no filter is known for it
#endif

// What a receiver at work calls: sockets and files that are open, memory, time, its end. Some architectures lack some.
constexpr int kCalls[] = {
    // clang-format off
    SYS_read, SYS_write, SYS_readv, SYS_writev, SYS_lseek, SYS_ftruncate, SYS_close, SYS_fcntl,
    SYS_recvfrom, SYS_recvmsg, SYS_recvmmsg, SYS_sendto, SYS_sendmsg, SYS_sendmmsg, SYS_getsockname,
    SYS_epoll_ctl, SYS_epoll_pwait, SYS_ppoll,
    SYS_brk, SYS_munmap, SYS_mremap, SYS_madvise, SYS_futex,
    SYS_clock_gettime, SYS_clock_getres, SYS_clock_nanosleep, SYS_gettimeofday, SYS_getrandom,
    SYS_fstat, SYS_newfstatat,
    SYS_rt_sigaction, SYS_rt_sigprocmask, SYS_rt_sigreturn, SYS_sigaltstack, SYS_restart_syscall,
    SYS_getpid, SYS_gettid, SYS_tgkill, SYS_exit, SYS_exit_group,
#ifdef SYS_epoll_wait
    SYS_epoll_wait, SYS_poll, SYS_time,
#endif
    // clang-format on
};

// A filter's program: it looks at a call's number and at the lower halves of its arguments.
class call_filter
{
  public:
    call_filter()
    {
        load(offsetof(seccomp_data, arch));
        program_.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0));
        answer(SECCOMP_RET_KILL_PROCESS);
    }

    void allow(int call)
    {
        load(offsetof(seccomp_data, nr));
        program_.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call), 0, 1));
        answer(SECCOMP_RET_ALLOW);
    }

    // Only with this value of an argument.
    void allow_if_equal(int call, unsigned argument, uint32_t value)
    {
        check_argument(call, argument, BPF_JEQ, value, true);
    }

    // Only without these bits in an argument.
    void allow_without(int call, unsigned argument, uint32_t bits)
    {
        check_argument(call, argument, BPF_JSET, bits, false);
    }

    // What is not allowed looks as if the kernel did not have it, so that a library takes another way where it knows one.
    bool install()
    {
        answer(SECCOMP_RET_ERRNO | ENOSYS);
        sock_fprog program{static_cast<unsigned short>(program_.size()), program_.data()};
        return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
    }

  private:
    void load(size_t offset)
    {
        program_.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset)));
    }

    void answer(uint32_t what)
    {
        program_.push_back(BPF_STMT(BPF_RET | BPF_K, what));
    }

    void check_argument(int call, unsigned argument, unsigned test, uint32_t value, bool is_wanted)
    {
        load(offsetof(seccomp_data, nr));
        program_.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call), 0, 3));
        load(offsetof(seccomp_data, args) + argument * sizeof(uint64_t)); // little endian: the lower half comes first
        program_.push_back(BPF_JUMP(BPF_JMP | test | BPF_K, value, static_cast<uint8_t>(is_wanted ? 0 : 1),
                                    static_cast<uint8_t>(is_wanted ? 1 : 0)));
        answer(SECCOMP_RET_ALLOW);
    }

    std::vector<sock_filter> program_;
};

bool calls_restrict(bool creates_files)
{
    if (kArchitecture == 0) {
        return false;
    }
    call_filter filter;
    for (const int call : kCalls) {
        filter.allow(call);
    }
    constexpr unsigned ioctl_request = 1;
    constexpr unsigned protection = 2;
    filter.allow_if_equal(SYS_ioctl, ioctl_request, TCGETS); // whether it is a terminal
    filter.allow_without(SYS_mmap, protection, PROT_EXEC);
    filter.allow_without(SYS_mprotect, protection, PROT_EXEC);
    if (creates_files) {
        filter.allow(SYS_openat);
    }
    return filter.install();
}

descriptor directory_open(const std::string &directory)
{
    const int opened = directory.empty() ? -1 : open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (opened < 0 && !directory.empty()) {
        throw failure(exit_code::no_access, fmt::format("cannot write in '{}': {}", directory, std::strerror(errno)));
    }
    return descriptor(opened);
}

} // namespace

sandbox_state sandbox_enter(const std::string &directory)
{
    const descriptor created_in = directory_open(directory);
    sandbox_state state;
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0) {
        state.has_file_rules = files_restrict(created_in);
        state.has_call_filter = calls_restrict(!directory.empty());
    }
    return state;
}

std::string sandbox_text(const sandbox_state &state)
{
    const char *files = state.has_file_rules ? "no more files can be opened (Landlock)"
                                             : "this kernel has no Landlock: files can be opened as before";
    const char *calls = state.has_call_filter
                            ? "no programs started, no sockets made (seccomp)"
                            : "this kernel has no seccomp for this machine: all system calls are there";
    return fmt::format("{}; {}", files, calls);
}

} // namespace vrc
