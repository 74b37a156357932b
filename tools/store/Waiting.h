// SPDX-License-Identifier: MIT
// Waiting for the lock of a store that somebody else has.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace fbr {

// How long a lock is waited for, 0 for not at all, and that each wait is told on standard error.
// Without a number the library's own time holds. A store behind a server is locked by the server,
// for as long as each request takes, and not by who asks.
void SetWait(std::optional<uint64_t> seconds);

// Names the store that the next wait, if there is one, is for. Before the first call no wait is
// told.
void NextWaitIsFor(const std::string& store);

}  // namespace fbr
