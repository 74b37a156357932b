// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>

#include "tools/console/Spawn.h"

namespace fbr {
namespace {

constexpr int kBySignal = 128;  // and the number of the signal, as shells have it
constexpr int kNotRun = 127;    // as they have this

// Those that run, for a signal handler; 0 for none.
std::array<volatile pid_t, 2> g_running = {};
volatile std::sig_atomic_t g_ended = 0;

void HandOn(int number) {
    g_ended = number;
    for (const pid_t child : g_running)
        if (child > 0) kill(child, number);
}

// The children of this program, as the system lists them.
std::vector<pid_t> Children() {
    std::vector<pid_t> found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        std::ifstream stat(entry.path() / "stat");
        std::string line;
        std::getline(stat, line);
        pid_t child = 0, parent = 0;
        const size_t behind = line.rfind(')');  // a name may hold anything
        if (behind == line.npos || std::sscanf(line.c_str(), "%d", &child) != 1) continue;
        if (std::sscanf(line.c_str() + behind, ") %*c %d", &parent) == 1 && parent == getpid())
            found.push_back(child);
    }
    return found;
}

// What a program that was ended had started becomes this one's and is ended, too, level by level;
// but for what left the group to live on.
void EndWhatIsLeft(int number) {
    constexpr int kLooks = 100;
    constexpr timespec kPause = {0, 10'000'000};
    std::set<pid_t> told;
    for (int i = 0; i < kLooks; ++i) {
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        bool any = false;
        for (const pid_t child : Children()) {
            if (getpgid(child) != getpgrp()) continue;
            any = true;
            if (told.insert(child).second) kill(child, number);
        }
        if (!any) return;
        nanosleep(&kPause, nullptr);
    }
}

// While one stands, what asks this program to end is handed on to those that it waits for, and ends
// it when they have. Ctrl-C is theirs alone.
class Waiting {
  public:
    Waiting() {
        g_ended = 0;
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        sigset_t ends;
        sigemptyset(&ends);
        sigaddset(&ends, SIGTERM);
        sigaddset(&ends, SIGHUP);
        sigprocmask(SIG_BLOCK, &ends, &mask_);  // until it is known who is to hear of them
        Put(0, SIGINT, SIG_IGN);
        Put(1, SIGQUIT, SIG_IGN);
        Put(2, SIGTERM, HandOn);
        Put(3, SIGHUP, HandOn);
    }
    ~Waiting() {
        if (g_ended != 0) EndWhatIsLeft(g_ended);
        prctl(PR_SET_CHILD_SUBREAPER, 0);
        GiveBack();
        if (g_ended != 0) std::raise(g_ended);
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    void GiveBack() const {
        for (const Before& one : before_) sigaction(one.number, &one.action, nullptr);
        Hear();
    }
    void Hear() const { sigprocmask(SIG_SETMASK, &mask_, nullptr); }

  private:
    struct Before {
        int number;
        struct sigaction action;
    };

    // What this program was started to live through its children live through as well.
    void Put(size_t at, int number, void (*handler)(int)) {
        Before& before = before_[at];
        before.number = number;
        sigaction(number, nullptr, &before.action);
        struct sigaction action = {};
        action.sa_handler = handler;
        if (before.action.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }

    std::array<Before, 4> before_ = {};
    sigset_t mask_ = {};
};

// The words with `input` and `output` as its first two streams, where these are not -1.
pid_t Start(const char* program, const std::vector<std::string>& words, int input, int output,
            const Waiting& waiting) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child != 0) return child;
    // It goes with this program also where that is killed.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(kNotRun);
    waiting.GiveBack();
    if (input >= 0) dup2(input, STDIN_FILENO);
    if (output >= 0) dup2(output, STDOUT_FILENO);
    execv(program, arguments.data());
    _exit(kNotRun);
}

int StatusOf(pid_t child) {
    int status = 0;
    if (child < 0) return 1;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return 1;
    return WIFSIGNALED(status) ? kBySignal + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int RunAgain(const std::vector<std::string>& words, const std::string& pipe) {
    std::vector<std::string> own = {"fbr"};
    own.insert(own.end(), words.begin(), words.end());
    int ends[2] = {-1, -1};
    if (!pipe.empty() && pipe2(ends, O_CLOEXEC) != 0) return 1;
    const Waiting waiting;
    g_running[0] = Start("/proc/self/exe", own, -1, ends[1], waiting);
    if (!pipe.empty()) g_running[1] = Start("/bin/sh", {"sh", "-c", pipe}, ends[0], -1, waiting);
    waiting.Hear();
    for (const int end : ends)
        if (end >= 0) close(end);
    int status = 1;
    for (volatile pid_t& child : g_running) {
        if (child != 0) status = StatusOf(child);
        child = 0;
    }
    return status;
}

}  // namespace fbr
