#include "appliance/confinement/calls.h"

#include "appliance/confinement/filter.h"

#include <cerrno>
#include <linux/netlink.h>
#include <linux/sched.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#ifndef PR_SET_VMA
#define PR_SET_VMA 0x53564d41
#endif

namespace confinement {
namespace {

// Calls that only concern the process itself, or what it has open already. Those of other architectures are left out.
constexpr long harmless[] = {
// Reading and writing.
#ifdef SYS_fadvise64
    SYS_fadvise64,
#endif
#ifdef SYS_fadvise64_64
    SYS_fadvise64_64,
#endif
#ifdef SYS_arm_fadvise64_64
    SYS_arm_fadvise64_64,
#endif
#ifdef SYS__llseek
    SYS__llseek,
#endif
#ifdef SYS_fcntl64
    SYS_fcntl64,
#endif
#ifdef SYS_dup2
    SYS_dup2,
#endif
#ifdef SYS_pipe
    SYS_pipe,
#endif
#ifdef SYS_ftruncate64
    SYS_ftruncate64,
#endif
#ifdef SYS_fstatfs64
    SYS_fstatfs64, SYS_statfs64,
#endif
    SYS_read, SYS_write, SYS_readv, SYS_writev, SYS_pread64, SYS_pwrite64, SYS_preadv, SYS_pwritev, SYS_lseek,
    SYS_close, SYS_dup, SYS_dup3, SYS_fcntl, SYS_flock, SYS_fsync, SYS_fdatasync, SYS_ftruncate,
    SYS_fallocate, SYS_fchmod, SYS_pipe2, SYS_memfd_create, SYS_statfs, SYS_fstatfs, SYS_getcwd, SYS_umask,
    SYS_sendfile, SYS_splice,
// Files by name. Landlock decides which.
#ifdef SYS_open
    SYS_open, SYS_stat, SYS_lstat, SYS_access, SYS_readlink, SYS_mkdir, SYS_rename, SYS_unlink,
#endif
#ifdef SYS_stat64
    SYS_stat64, SYS_lstat64, SYS_fstat64, SYS_fstatat64,
#endif
#ifdef SYS_newfstatat
    SYS_newfstatat,
#endif
#ifdef SYS_renameat
    SYS_renameat,
#endif
#ifdef SYS_getdents
    SYS_getdents,
#endif
#ifdef SYS_utimensat_time64
    SYS_utimensat_time64,
#endif
    SYS_fstat, SYS_openat, SYS_statx, SYS_faccessat, SYS_faccessat2, SYS_readlinkat, SYS_mkdirat,
    SYS_renameat2, SYS_unlinkat, SYS_getdents64, SYS_utimensat,
    // Memory, apart from what changes mappings.
    SYS_brk, SYS_mincore, SYS_msync, SYS_membarrier, SYS_mlock, SYS_munlock,
// Threads.
#ifdef SYS_set_thread_area
    SYS_set_thread_area,
#endif
#ifdef SYS_futex_time64
    SYS_futex_time64,
#endif
#ifdef SYS_ugetrlimit
    SYS_ugetrlimit,
#endif
#ifdef SYS_getrlimit
    SYS_getrlimit,
#endif
#ifdef SYS_arch_prctl
    SYS_arch_prctl,
#endif
#ifdef __ARM_NR_cacheflush
    __ARM_NR_cacheflush, __ARM_NR_set_tls,
#endif
    SYS_futex, SYS_set_robust_list, SYS_rseq, SYS_set_tid_address, SYS_exit, SYS_exit_group, SYS_gettid,
    SYS_getpid, SYS_getppid, SYS_sched_yield, SYS_sched_getaffinity, SYS_sched_getparam,
    SYS_sched_getscheduler, SYS_sched_get_priority_max, SYS_sched_get_priority_min, SYS_getpriority,
    SYS_getrandom, SYS_getcpu, SYS_uname, SYS_sysinfo, SYS_getrusage, SYS_times, SYS_wait4, SYS_waitid,
    SYS_restart_syscall,
// Signals to itself.
#ifdef SYS_sigreturn
    SYS_sigreturn,
#endif
#ifdef SYS_pause
    SYS_pause,
#endif
#ifdef SYS_rt_sigtimedwait_time64
    SYS_rt_sigtimedwait_time64,
#endif
    SYS_rt_sigaction, SYS_rt_sigprocmask, SYS_rt_sigreturn, SYS_rt_sigpending, SYS_rt_sigtimedwait,
    SYS_rt_sigsuspend, SYS_sigaltstack, SYS_signalfd4,
// Who it is.
#ifdef SYS_getuid32
    SYS_getuid32, SYS_geteuid32, SYS_getgid32, SYS_getegid32, SYS_getresuid32, SYS_getresgid32,
    SYS_getgroups32,
#endif
    SYS_getuid, SYS_geteuid, SYS_getgid, SYS_getegid, SYS_getresuid, SYS_getresgid, SYS_getgroups,
    SYS_getpgid, SYS_getsid,
// Time and waiting.
#ifdef SYS_time
    SYS_time,
#endif
#ifdef SYS_poll
    SYS_poll,
#endif
#ifdef SYS_select
    SYS_select,
#endif
#ifdef SYS__newselect
    SYS__newselect,
#endif
#ifdef SYS_epoll_wait
    SYS_epoll_wait, SYS_epoll_create,
#endif
#ifdef SYS_eventfd
    SYS_eventfd,
#endif
#ifdef SYS_clock_gettime64
    SYS_clock_gettime64, SYS_clock_getres_time64, SYS_clock_nanosleep_time64, SYS_ppoll_time64,
    SYS_pselect6_time64, SYS_timerfd_settime64, SYS_timerfd_gettime64, SYS_recvmmsg_time64,
#endif
    SYS_clock_gettime, SYS_clock_getres, SYS_clock_nanosleep, SYS_nanosleep, SYS_gettimeofday, SYS_ppoll,
    SYS_pselect6, SYS_epoll_create1, SYS_epoll_ctl, SYS_epoll_pwait, SYS_eventfd2, SYS_timerfd_create,
    SYS_timerfd_settime, SYS_timerfd_gettime,
// Sockets, apart from making and listening.
#ifdef SYS_send
    SYS_send, SYS_recv,
#endif
    SYS_sendto, SYS_recvfrom, SYS_sendmsg, SYS_recvmsg, SYS_sendmmsg, SYS_recvmmsg, SYS_shutdown,
    SYS_getsockname, SYS_getpeername, SYS_setsockopt, SYS_getsockopt};

// Memory below the limit must stay as it is, because a sealed message is there: no range that begins below is changed.
void confineMemory(Filter& filter, std::uint64_t limit) {
#ifdef SYS_mmap2
    filter.allowFromWhenBits(SYS_mmap2, 0, limit, 3, MAP_FIXED);
#endif
#ifdef SYS_mmap
    filter.allowFromWhenBits(SYS_mmap, 0, limit, 3, MAP_FIXED);
#endif
    for (const long call : {SYS_munmap, SYS_mprotect, SYS_madvise})
        filter.allowFrom(call, 0, limit);
    // A move of memory has two addresses. Nothing here moves to a given one, and what is moved may grow in its place.
    filter.allowFromWithoutBits(SYS_mremap, 0, limit, 3, MREMAP_FIXED);
}

void confineProcesses(Filter& filter, bool children) {
    const auto self = static_cast<std::uint32_t>(getpid());
    // The arguments of clone3() are in memory, where a filter can't look. The C library then uses clone().
    filter.refuse(SYS_clone3, ENOSYS);
    constexpr std::uint32_t newSpaces = CLONE_NEWNS | CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET |
                                        CLONE_NEWIPC | CLONE_NEWUTS | CLONE_NEWCGROUP | CLONE_PTRACE;
    if (children)
        filter.allowWithoutBits(SYS_clone, 0, newSpaces);
    else
        filter.allowWithBits(SYS_clone, 0, CLONE_THREAD);
#ifdef SYS_fork
    if (children)
        filter.allow(SYS_fork);
#endif
    filter.allowValues(SYS_tgkill, 0, {self});
    filter.allowValues(SYS_rt_tgsigqueueinfo, 0, {self});
    // Signal 0 only asks whether a process is there.
    filter.allowValueOrValue(SYS_kill, 0, self, 1, 0);
    filter.allowValues(SYS_prlimit64, 0, {0, self});
    filter.allowValues(SYS_prctl, 0,
                       {PR_SET_NAME, PR_GET_NAME, PR_SET_PDEATHSIG, PR_GET_PDEATHSIG, PR_GET_DUMPABLE,
                        PR_SET_VMA, PR_SET_NO_NEW_PRIVS, PR_GET_NO_NEW_PRIVS, PR_SET_TIMERSLACK,
                        PR_GET_TIMERSLACK, PR_GET_SECCOMP});
}

void confineSockets(Filter& filter, bool listens) {
    for (const long call : {SYS_socketpair, SYS_connect, SYS_bind})
        filter.allow(call);
    filter.allowSockets(SYS_socket, {AF_UNIX, AF_INET, AF_INET6}, AF_NETLINK, NETLINK_ROUTE);
    if (listens)
        for (const long call : {SYS_listen, SYS_accept, SYS_accept4})
            filter.allow(call);
}

void confineQueues(Filter& filter, const Queues& queues) {
    // Finding a queue is allowed, making one is not.
    filter.allowWithoutBits(SYS_msgget, 1, IPC_CREAT);
#if defined(__arm__)
    constexpr std::uint32_t version = 0x100; // IPC_64: the C library asks for the newer form of the answer
#else
    constexpr std::uint32_t version = 0;
#endif
    filter.allowValues(SYS_msgctl, 1, {IPC_STAT | version});
    if (queues.received >= 0)
        filter.allowValues(SYS_msgrcv, 0, {static_cast<std::uint32_t>(queues.received)});
    const auto sent = static_cast<std::uint32_t>(queues.sent);
    if (queues.sent < 0)
        return;
    if (queues.lowestMemoryEnd == 0)
        return filter.allowValues(SYS_msgsnd, 0, {sent});
    std::vector<std::uint64_t> addresses;
    for (const void* message : queues.messages)
        addresses.push_back(reinterpret_cast<std::uintptr_t>(message));
    filter.allowAddresses(SYS_msgsnd, 0, sent, 1, addresses);
}

// What ALSA's plug-in for mixing uses.
void allowMixing(Filter& filter) {
    for (const long call :
         {SYS_semget, SYS_semctl, SYS_semop, SYS_semtimedop, SYS_shmget, SYS_shmctl, SYS_shmdt, SYS_setsid})
        filter.allow(call);
    filter.allowWithoutBits(SYS_shmat, 2, SHM_REMAP);
}

} // namespace

Part confineCalls(const Needs& needs) {
    Filter filter;
    for (const long call : harmless)
        filter.allow(call);
    // Neither typing into a terminal nor its selection.
    filter.allowUnless(SYS_ioctl, 1, {TIOCSTI, TIOCLINUX});
    confineMemory(filter, needs.queues.lowestMemoryEnd);
    confineProcesses(filter, needs.soundCard);
    if (needs.sockets)
        confineSockets(filter, needs.soundCard);
    confineQueues(filter, needs.queues);
    if (needs.soundCard)
        allowMixing(filter);
    if (filter.install())
        return Part::done;
    return errno == EINVAL || errno == ENOSYS ? Part::unknownToKernel : Part::failed;
}

} // namespace confinement
