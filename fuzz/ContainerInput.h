// SPDX-License-Identifier: MIT
// A container given to the engine by a fuzzer: in memory, with a bound on the work that may be done
// on it.
#pragma once

#include <filesystem>
#include <string>

#include "fuzz/Require.h"
#include "tests/container/Promise.h"
#include "tests/support/MemoryFiles.h"

namespace fuzz {

using support::Bytes;

class ContainerInput {
  public:
    // `log` is the file beside it; empty for none.
    explicit ContainerInput(const Bytes& container, const Bytes& log = {});
    ~ContainerInput();
    ContainerInput(const ContainerInput&) = delete;
    ContainerInput& operator=(const ContainerInput&) = delete;

    const std::filesystem::path& Path() const;
    Bytes Contents() const;

    // A run of check or repair, which must do no more than its share of work.
    support::container::CheckOutcome Check(uint32_t flags);
    // After a repair with status 0.
    void RequirePromise();
    // Opens, reads all that can be reached in bounds, writes here and there, and closes; whatever
    // the statuses are.
    void UseBlindly();

  private:
    void RequireBoundedWork(const char* what);
    uint64_t pages_;
};

}  // namespace fuzz
