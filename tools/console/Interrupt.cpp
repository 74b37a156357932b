// SPDX-License-Identifier: MIT
#include "tools/console/Interrupt.h"

#include <atomic>

#include "tools/console/Console.h"

namespace fbr {
namespace {

std::atomic<bool> g_interrupted = false;
std::atomic<bool> g_outputBroken = false;
std::atomic<int> g_unbroken = 0;
int g_guards = 0;

void Heard() {
    g_interrupted = true;
    if (g_unbroken == 0) OnInterrupt(nullptr);
}

}  // namespace

InterruptGuard::InterruptGuard() {
    if (g_guards++ != 0) return;
    OnInterrupt(Heard);
}

InterruptGuard::~InterruptGuard() {
    if (--g_guards == 0) OnInterrupt(nullptr);
}

UnbrokenGuard::UnbrokenGuard() {
    ++g_unbroken;
    if (g_interrupted) OnInterrupt(Heard);
}

UnbrokenGuard::~UnbrokenGuard() {
    if (--g_unbroken == 0 && g_interrupted) OnInterrupt(nullptr);
}

void OutputIsBroken() {
    g_outputBroken = true;
    g_interrupted = true;
}

bool WasOutputBroken() {
    return g_outputBroken;
}

bool WasInterrupted() {
    return g_interrupted;
}

void StopIfInterrupted() {
    if (g_interrupted) throw Interrupted();
}

}  // namespace fbr
