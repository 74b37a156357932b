// SPDX-License-Identifier: MIT
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "tools/console/Console.h"
#include "tools/console/Interrupt.h"

namespace fbr {

std::vector<std::string> CommandLine(int argc, char** argv) {
    return {argv + 1, argv + argc};
}

// A write past the limit of a file's size then fails like one on a full disk. Who has a store open
// closes it when nobody reads what he writes any more.
void PrepareStreams() {
    std::signal(SIGXFSZ, SIG_IGN);
    struct sigaction action = {}, old = {};
    action.sa_handler = [](int) { OutputIsBroken(); };
    sigaction(SIGPIPE, nullptr, &old);
    if (old.sa_handler != SIG_IGN) sigaction(SIGPIPE, &action, nullptr);
}

void HearOfSessionEnd() {}  // a signal

bool InputIsTerminal() {
    return isatty(STDIN_FILENO) == 1;
}

bool OutputIsTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

bool ErrorIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

unsigned TerminalColumns() {
    winsize size = {};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
    return known ? size.ws_col : 80;
}

namespace {

void (*g_interrupt)() = nullptr;

void HandleSignal(int) {
    if (g_interrupt != nullptr) g_interrupt();
}

}  // namespace

void OnInterrupt(void (*handler)()) {
    g_interrupt = handler;
    struct sigaction action = {}, old = {};
    action.sa_handler = handler != nullptr ? HandleSignal : SIG_DFL;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        // What the program was started to live through it lives through.
        sigaction(number, nullptr, &old);
        if (old.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
    }
}

void EndInterrupted() {
    const int number = WasOutputBroken() ? SIGPIPE : SIGINT;
    std::signal(number, SIG_DFL);
    std::raise(number);
    std::_Exit(128 + number);
}

}  // namespace fbr
