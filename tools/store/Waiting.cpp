// SPDX-License-Identifier: MIT
#include "tools/store/Waiting.h"

#include <fmt/format.h>

#include <algorithm>

#include "FS_Library_DLL/LockWait.h"
#include "platform/LockWaitLimit.h"
#include "tools/console/Interrupt.h"
#include "tools/console/TellError.h"

namespace fbr {
namespace {

constexpr uint64_t kLongest = 4'000'000;  // seconds that are a number of milliseconds in 32 bits

std::string g_store;

void TellWait() {
    if (g_store.empty()) return;
    const uint32_t seconds = LockWaitMilliseconds() / 1000;
    TellError(fmt::format("waiting for the lock of {}, {} second{} at most", g_store, seconds,
                          seconds == 1 ? "" : "s"));
}

}  // namespace

void SetWait(std::optional<uint64_t> seconds) {
    const uint32_t wait =
        seconds ? static_cast<uint32_t>(std::min(*seconds, kLongest) * 1000) : kDefaultLockWait;
    SetLockWait(wait, &TellWait);
    platform::SetLockWaitEnd(&WasInterrupted);
    // What the engine locks by itself, for a check, has a time of its own.
    static std::optional<platform::LockWaitLimit> limit;
    limit.reset();
    if (seconds) limit.emplace(wait);
}

void NextWaitIsFor(const std::string& store) {
    g_store = store;
}

}  // namespace fbr
