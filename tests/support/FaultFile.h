// SPDX-License-Identifier: MIT
// Files that count their calls and fail the ones that a test names.
#pragma once

#include <array>
#include <cstdint>

#include "platform/Errors.h"
#include "tests/support/FileWrapper.h"

namespace support {

enum class FileCall { Read, Write, Cut, Size, Flush };

// While it lives, every file opened through the seam counts into it. Calls are numbered from 1,
// over all files together, from the making of the scope or the last Reset on.
//
//     FaultFile faults;
//     faults.Fail(FileCall::Write, 3, platform::kErrorDiskFull);
class FaultFile final : public FileWrapper {
  public:
    // What a failing write leaves on the disk: nothing, or the first half of the transfer.
    enum class Write { Nothing, FirstHalf };

    // Fails call `number` of one kind, or of any kind, with `error`. A failing read fills nothing;
    // with error 0 it is a short read: half of the bytes and status 0. A failing call of another
    // kind with error 0 does nothing and says so with no error.
    void Fail(FileCall kind, uint64_t number, platform::Error error);
    void FailAny(uint64_t number, platform::Error error);
    // From the failing call on, all calls of that kind (or all calls) fail.
    void KeepFailing(bool keep) { keepFailing_ = keep; }
    void OnFailingWrite(Write what) { failingWrite_ = what; }

    uint64_t Calls(FileCall kind) const { return calls_[static_cast<size_t>(kind)]; }
    uint64_t Calls() const { return total_; }
    // How many calls have failed on purpose.
    uint64_t Hits() const { return hits_; }
    // Back to no calls counted and none to fail.
    void Reset();

    platform::PageFile* Wrap(platform::PageFile* opened, const platform::WChar* path) override;

  private:
    class File;
    // Counts a call; true when it is to fail.
    bool Strikes(FileCall kind);

    std::array<uint64_t, 5> calls_{};
    uint64_t total_ = 0;
    uint64_t hits_ = 0;
    uint64_t failing_ = 0;
    bool anyKind_ = false;
    FileCall kind_ = FileCall::Read;
    platform::Error error_ = platform::kErrorSuccess;
    bool keepFailing_ = false;
    Write failingWrite_ = Write::Nothing;
};

}  // namespace support
