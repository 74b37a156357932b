#include "tools/console/Interrupt.h"

#include <atomic>
#include <csignal>
#include <cstdlib>

#include "tools/console/Console.h"

namespace fbr {
namespace {

std::atomic<bool> g_interrupted = false;

}  // namespace

InterruptGuard::InterruptGuard() {
    OnInterrupt([] {
        g_interrupted = true;
        OnInterrupt(nullptr);
    });
}

InterruptGuard::~InterruptGuard() {
    OnInterrupt(nullptr);
}

void StopIfInterrupted() {
    if (g_interrupted) throw Interrupted();
}

void EndInterrupted() {
    std::signal(SIGINT, SIG_DFL);
    std::raise(SIGINT);
    std::_Exit(EXIT_FAILURE);
}

}  // namespace fbr
