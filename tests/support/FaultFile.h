// SPDX-License-Identifier: MIT
// Files that count their calls and fail the ones that a test names.
#pragma once

#include <cstdint>

#include "platform/Errors.h"
#include "tests/support/FileWrapper.h"

namespace support {

// While it lives, every file opened through the seam counts into it. Calls are numbered from 1,
// over all files together, from the making of the scope or the last FailAny on.
class FaultFile final : public FileWrapper {
  public:
    // What a failing write leaves on the disk: nothing, or the first half of the transfer.
    enum class Write { Nothing, FirstHalf };

    // Fails call `number` from now on (0: none) with `error`, and if need be all after it.
    void FailAny(uint64_t number, platform::Error error, bool keepFailing = false) {
        calls_ = hits_ = 0;
        failing_ = number;
        error_ = error;
        keepFailing_ = keepFailing;
    }
    void OnFailingWrite(Write what) { failingWrite_ = what; }

    // How many calls have failed on purpose.
    uint64_t Hits() const { return hits_; }

    platform::PageFile* Wrap(platform::PageFile* opened, const platform::WChar* path) override;

  private:
    class File;
    // Counts a call; true when it is to fail.
    bool Strikes() {
        ++calls_;
        const bool strikes =
            failing_ != 0 && (calls_ == failing_ || (keepFailing_ && calls_ > failing_));
        hits_ += strikes;
        return strikes;
    }

    uint64_t calls_ = 0, hits_ = 0, failing_ = 0;
    bool keepFailing_ = false;
    platform::Error error_ = platform::kErrorSuccess;
    Write failingWrite_ = Write::Nothing;
};

}  // namespace support
