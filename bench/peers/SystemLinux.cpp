// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#define CALLGRIND_DUMP_STATS_AT(what) static_cast<void>(what)
#endif

#include "bench/peers/System.h"

namespace bench {
namespace {

// A mark is a call that the kernel does not know, so that it does nothing.
constexpr int kMark = 0x46425242;
constexpr unsigned long kBegin = 1, kEnd = 2;

using Entry = decltype(__ptrace_syscall_info::entry);

void Count(const Entry& call, Calls* calls) {
    switch (call.nr) {
        case SYS_read:
        case SYS_pread64:
        case SYS_readv:
        case SYS_preadv:
            ++calls->reads;
            return;
        case SYS_write:
        case SYS_pwrite64:
        case SYS_writev:
        case SYS_pwritev:
            ++calls->writes;
            return;
        case SYS_flock:
            ++calls->locks;
            return;
        case SYS_fcntl:
            switch (call.args[1]) {
                case F_SETLK:
                case F_SETLKW:
                case F_GETLK:
                case F_OFD_SETLK:
                case F_OFD_SETLKW:
                case F_OFD_GETLK:
                    ++calls->locks;
                    return;
                default:
                    ++calls->others;
                    return;
            }
        case SYS_mmap:
            if ((call.args[3] & MAP_ANONYMOUS) == 0) ++calls->others;
            return;
        case SYS_munmap:
        case SYS_mremap:
        case SYS_mprotect:
        case SYS_madvise:
        case SYS_brk:
        case SYS_futex:
        case SYS_clock_gettime:
        case SYS_gettimeofday:
            return;
        default:
            ++calls->others;
    }
}

void Child(const std::function<void()>& work) {
    int status = 0;
    try {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        work();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        status = 1;
    }
    std::fflush(nullptr);
    // Without what is done at an end in order: a leak sanitizer would trace for itself.
    _exit(status);
}

// Follows the child from call to call until it ends; its status.
int Follow(pid_t child, std::map<uint32_t, Calls>* byMark) {
    int status = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    Calls calls;
    bool counting = false;
    for (long signal = 0;;) {
        if (ptrace(PTRACE_SYSCALL, child, nullptr, signal) != 0) return -1;
        if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) return status;
        signal = WSTOPSIG(status) == (SIGTRAP | 0x80) ? 0 : WSTOPSIG(status);
        if (signal != 0) continue;
        __ptrace_syscall_info info{};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) <= 0 ||
            info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            continue;
        }
        const Entry& call = info.entry;
        if (call.nr == SYS_prctl && call.args[0] == kMark) {
            counting = call.args[1] == kBegin;
            if (counting) calls = {};
            if (!counting) {
                const double each = 1.0 / static_cast<double>(std::max<uint64_t>(call.args[3], 1));
                (*byMark)[static_cast<uint32_t>(call.args[2])] = {
                    calls.reads * each, calls.writes * each, calls.locks * each,
                    calls.others * each};
            }
        } else if (counting) {
            Count(call, &calls);
        }
    }
}

}  // namespace

double ThreadNs() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

bool HasThreadClock() {
    return true;
}

void UseFreshBlocks() {
    mallopt(M_MMAP_THRESHOLD, 256 << 10);
}

void MarkBegin() {
    prctl(kMark, kBegin, 0, 0, 0);
    CALLGRIND_START_INSTRUMENTATION;
}

void MarkEnd(uint32_t number, uint64_t operations, const char* what) {
    const std::string told = std::string(what) + "|" + std::to_string(operations);
    CALLGRIND_DUMP_STATS_AT(told.c_str());
    CALLGRIND_STOP_INSTRUMENTATION;
    prctl(kMark, kEnd, number, operations, 0);
}

std::map<uint32_t, Calls> CountCalls(const std::function<void()>& work) {
    std::fflush(nullptr);
    std::map<uint32_t, Calls> byMark;
    const pid_t child = fork();
    if (child == 0) Child(work);
    if (child < 0 || Follow(child, &byMark) != 0)
        throw std::runtime_error("the work whose system calls are counted failed");
    return byMark;
}

}  // namespace bench
