// SPDX-License-Identifier: MIT
#include "tests/support/FaultFile.h"

#include <vector>

namespace support {

using platform::Error;

class FaultFile::File final : public ForwardingFile {
  public:
    File(platform::PageFile* inner, FaultFile& plan) : ForwardingFile(inner), plan_(plan) {}

    Error Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) override {
        if (!plan_.Strikes(FileCall::Read)) return Inner().Read(offset, buffer, bytes, done);
        *done = 0;
        if (plan_.error_ == platform::kErrorSuccess) Inner().Read(offset, buffer, bytes / 2, done);
        return Fail();
    }

    Error Write(uint64_t offset, const void* const* buffers, uint32_t count, uint32_t bytes,
                uint32_t* done) override {
        if (!plan_.Strikes(FileCall::Write)) {
            return Inner().Write(offset, buffers, count, bytes, done);
        }
        *done = 0;
        if (plan_.failingWrite_ == FaultFile::Write::FirstHalf) {
            WriteHalf(offset, buffers, count, bytes, done);
        }
        return Fail();
    }

    Error Cut(uint64_t length) override {
        return plan_.Strikes(FileCall::Cut) ? Fail() : Inner().Cut(length);
    }
    Error Size(uint64_t* length) override {
        return plan_.Strikes(FileCall::Size) ? Fail() : Inner().Size(length);
    }
    Error Flush() override { return plan_.Strikes(FileCall::Flush) ? Fail() : Inner().Flush(); }

  private:
    Error Fail() const {
        platform::SetLastError(plan_.error_);
        return plan_.error_;
    }

    void WriteHalf(uint64_t offset, const void* const* buffers, uint32_t count, uint32_t bytes,
                   uint32_t* done) {
        std::vector<char> all;
        for (uint32_t i = 0; i < count; ++i) {
            const char* buffer = static_cast<const char*>(buffers[i]);
            all.insert(all.end(), buffer, buffer + bytes);
        }
        const void* start = all.data();
        Inner().Write(offset, &start, 1, static_cast<uint32_t>(all.size() / 2), done);
    }

    FaultFile& plan_;
};

void FaultFile::Fail(FileCall kind, uint64_t number, Error error) {
    kind_ = kind;
    anyKind_ = false;
    failing_ = number;
    error_ = error;
}

void FaultFile::FailAny(uint64_t number, Error error) {
    anyKind_ = true;
    failing_ = number;
    error_ = error;
}

void FaultFile::Reset() {
    calls_ = {};
    total_ = 0;
    hits_ = 0;
    failing_ = 0;
}

bool FaultFile::Strikes(FileCall kind) {
    const uint64_t ofKind = ++calls_[static_cast<size_t>(kind)];
    ++total_;
    if (failing_ == 0 || (!anyKind_ && kind != kind_)) return false;
    const uint64_t number = anyKind_ ? total_ : ofKind;
    const bool strikes = number == failing_ || (keepFailing_ && number > failing_);
    if (strikes) ++hits_;
    return strikes;
}

platform::PageFile* FaultFile::Wrap(platform::PageFile* opened, const platform::WChar*) {
    return new File(opened, *this);
}

}  // namespace support
