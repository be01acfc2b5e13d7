#include "appliance/input/confinement.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/landlock.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace input {
namespace {

// Those of Landlock's first version; refers and truncations came later.
constexpr std::uint64_t allAccess =
    LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_READ_FILE |
    LANDLOCK_ACCESS_FS_READ_DIR | LANDLOCK_ACCESS_FS_REMOVE_DIR | LANDLOCK_ACCESS_FS_REMOVE_FILE |
    LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
    LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK |
    LANDLOCK_ACCESS_FS_MAKE_SYM;

void allow(int rules, const std::string& path, std::uint64_t access) {
    const int fd = open(path.c_str(), O_PATH | O_CLOEXEC);
    struct stat file {};
    if (fd < 0)
        return;
    if (fstat(fd, &file) == 0) {
        if (!S_ISDIR(file.st_mode))
            access &= ~std::uint64_t{LANDLOCK_ACCESS_FS_READ_DIR};
        landlock_path_beneath_attr rule{};
        rule.allowed_access = access;
        rule.parent_fd = fd;
        syscall(SYS_landlock_add_rule, rules, LANDLOCK_RULE_PATH_BENEATH, &rule, 0);
    }
    close(fd);
}

void confineFiles(const NeededRights& rights) {
    landlock_ruleset_attr attributes{};
    attributes.handled_access_fs = allAccess;
    const int rules = static_cast<int>(syscall(SYS_landlock_create_ruleset, &attributes,
                                               offsetof(landlock_ruleset_attr, handled_access_fs) + 8, 0));
    if (rules < 0)
        return;
    for (const std::string& path : rights.readable)
        allow(rules, path, LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR);
    for (const std::string& path : rights.device)
        allow(rules, path, LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_WRITE_FILE);
    syscall(SYS_landlock_restrict_self, rules, 0);
    close(rules);
}

#if defined(__x86_64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_AARCH64;
#elif defined(__arm__)
constexpr std::uint32_t architecture = AUDIT_ARCH_ARM;
#else
constexpr std::uint32_t architecture = 0;
#endif

sock_filter load(std::size_t offset) {
    return {BPF_LD | BPF_W | BPF_ABS, 0, 0, static_cast<std::uint32_t>(offset)};
}
sock_filter result(std::uint32_t value) {
    return {BPF_RET | BPF_K, 0, 0, value};
}

// Calls that a decoder never makes fail as if it had no right to them.
void confineCalls(bool network) {
    std::vector<std::uint32_t> refused{
        SYS_execve, SYS_execveat, SYS_ptrace, SYS_process_vm_readv, SYS_process_vm_writev,
        SYS_mount,  SYS_setuid,   SYS_setgid, SYS_unshare,          SYS_setns,
        SYS_bpf,    SYS_keyctl};
#if defined(SYS_setuid32)
    refused.insert(refused.end(), {SYS_setuid32, SYS_setgid32});
#endif
    if (!network)
        refused.insert(refused.end(), {SYS_socket, SYS_connect, SYS_bind, SYS_listen});
    std::vector<sock_filter> program{load(offsetof(seccomp_data, arch)),
                                     {BPF_JMP | BPF_JEQ | BPF_K, 1, 0, architecture},
                                     result(SECCOMP_RET_ERRNO | 1), // EPERM
                                     load(offsetof(seccomp_data, nr))};
    for (const std::uint32_t call : refused) {
        program.push_back({BPF_JMP | BPF_JEQ | BPF_K, 0, 1, call});
        program.push_back(result(SECCOMP_RET_ERRNO | 1));
    }
    program.push_back(result(SECCOMP_RET_ALLOW));
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    if (architecture != 0)
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter);
}

} // namespace

void confine(const NeededRights& rights) {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    setrlimit(RLIMIT_FSIZE, &none);
    prctl(PR_SET_DUMPABLE, 0);
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return;
    confineFiles(rights);
    confineCalls(rights.network);
}

} // namespace input
