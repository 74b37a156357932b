// SPDX-License-Identifier: MIT
#include "tools/console/Interrupt.h"

#include <atomic>

#include "tools/console/Console.h"

namespace fbr {
namespace {

std::atomic<bool> g_interrupted = false;
int g_guards = 0;

}  // namespace

InterruptGuard::InterruptGuard() {
    if (g_guards++ != 0) return;
    OnInterrupt([] {
        g_interrupted = true;
        OnInterrupt(nullptr);
    });
}

InterruptGuard::~InterruptGuard() {
    if (--g_guards == 0) OnInterrupt(nullptr);
}

bool WasInterrupted() {
    return g_interrupted;
}

void StopIfInterrupted() {
    if (g_interrupted) throw Interrupted();
}

}  // namespace fbr
