#include <signal.h>
#include <unistd.h>

#include "tools/console/Console.h"

namespace fbr {

std::vector<std::string> CommandLine(int argc, char** argv) {
    return {argv + 1, argv + argc};
}

void PrepareStreams() {}

bool ErrorIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

namespace {

void (*g_interrupt)() = nullptr;

void HandleSignal(int) {
    if (g_interrupt != nullptr) g_interrupt();
}

}  // namespace

void OnInterrupt(void (*handler)()) {
    g_interrupt = handler;
    struct sigaction action = {};
    action.sa_handler = handler != nullptr ? HandleSignal : SIG_DFL;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

}  // namespace fbr
