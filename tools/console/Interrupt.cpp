// SPDX-License-Identifier: MIT
#include "tools/console/Interrupt.h"

#include <atomic>

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

}  // namespace fbr
