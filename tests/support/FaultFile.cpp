// SPDX-License-Identifier: MIT
#include "tests/support/FaultFile.h"

#include <vector>

namespace support {

using platform::Error;

class FaultFile::File final : public ForwardingFile {
  public:
    File(platform::PageFile* inner, FaultFile& plan) : ForwardingFile(inner), plan_(plan) {}

    Error Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) override {
        if (!plan_.Strikes()) return Inner().Read(offset, buffer, bytes, done);
        *done = 0;
        return Fail();
    }

    Error Write(uint64_t offset, const void* const* buffers, uint32_t count, uint32_t bytes,
                uint32_t* done) override {
        if (!plan_.Strikes()) return Inner().Write(offset, buffers, count, bytes, done);
        *done = 0;
        if (plan_.failingWrite_ == FaultFile::Write::FirstHalf) {
            std::vector<char> all;
            for (uint32_t i = 0; i < count; ++i) {
                const char* buffer = static_cast<const char*>(buffers[i]);
                all.insert(all.end(), buffer, buffer + bytes);
            }
            const void* start = all.data();
            Inner().Write(offset, &start, 1, static_cast<uint32_t>(all.size() / 2), done);
        }
        return Fail();
    }

    Error Cut(uint64_t length) override { return plan_.Strikes() ? Fail() : Inner().Cut(length); }
    Error Size(uint64_t* length) override {
        return plan_.Strikes() ? Fail() : Inner().Size(length);
    }
    Error Flush() override { return plan_.Strikes() ? Fail() : Inner().Flush(); }

  private:
    Error Fail() const {
        platform::SetLastError(plan_.error_);
        return plan_.error_;
    }

    FaultFile& plan_;
};

platform::PageFile* FaultFile::Wrap(platform::PageFile* opened, const platform::WChar*) {
    return new File(opened, *this);
}

}  // namespace support
