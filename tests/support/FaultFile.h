// SPDX-License-Identifier: MIT
// Files that count their calls and fail the ones that a test names.
#pragma once

#include <cstdint>

#include "platform/Errors.h"
#include "tests/support/FileWrapper.h"

namespace support {

// While it lives, every file opened through the seam counts into it. Calls are numbered from 1,
// over all files together, from the making of the scope or the last Reset on.
class FaultFile final : public FileWrapper {
  public:
    // What a failing write leaves on the disk: nothing, or the first half of the transfer.
    enum class Write { Nothing, FirstHalf };

    // Fails call `number`, of the writes or of all, with `error`.
    void FailWrite(uint64_t number, platform::Error error) { Fail(number, error, true); }
    void FailAny(uint64_t number, platform::Error error) { Fail(number, error, false); }
    // From the failing call on, all calls of that kind (or all calls) fail.
    void KeepFailing(bool keep) { keepFailing_ = keep; }
    void OnFailingWrite(Write what) { failingWrite_ = what; }

    // How many calls have failed on purpose.
    uint64_t Hits() const { return hits_; }
    // Back to no calls counted and none to fail.
    void Reset() { Fail(0, platform::kErrorSuccess, false); }

    platform::PageFile* Wrap(platform::PageFile* opened, const platform::WChar* path) override;

  private:
    class File;
    void Fail(uint64_t number, platform::Error error, bool writesOnly);
    // Counts a call; true when it is to fail.
    bool Strikes(bool isWrite = false);

    uint64_t calls_ = 0, hits_ = 0, failing_ = 0;
    bool writesOnly_ = false, keepFailing_ = false;
    platform::Error error_ = platform::kErrorSuccess;
    Write failingWrite_ = Write::Nothing;
};

}  // namespace support
