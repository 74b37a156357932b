// SPDX-License-Identifier: MIT
#include "tests/support/RecordingFile.h"

#include <algorithm>
#include <stdexcept>

namespace support {

using platform::Error;
using platform::kErrorSuccess;

class RecordingFile::File final : public ForwardingFile {
  public:
    File(platform::PageFile* inner, RecordingFile& log, platform::WString path)
        : ForwardingFile(inner), log_(log), path_(std::move(path)) {}

    Error Write(uint64_t offset, const void* const* buffers, uint32_t count, uint32_t bytes,
                uint32_t* done) override {
        const Error error = Inner().Write(offset, buffers, count, bytes, done);
        FileChange change{FileChange::Kind::Write, path_, offset, {}};
        for (uint32_t i = 0; i < count; ++i) {
            const auto* buffer = static_cast<const uint8_t*>(buffers[i]);
            change.bytes.insert(change.bytes.end(), buffer, buffer + bytes);
        }
        change.bytes.resize(std::min<size_t>(change.bytes.size(), *done));
        if (!change.bytes.empty()) log_.changes_.push_back(std::move(change));
        return error;
    }

    Error Cut(uint64_t length) override {
        const Error error = Inner().Cut(length);
        if (error == kErrorSuccess) {
            log_.changes_.push_back({FileChange::Kind::Cut, path_, length, {}});
        }
        return error;
    }

    Error Flush() override {
        const Error error = Inner().Flush();
        if (error == kErrorSuccess) {
            log_.changes_.push_back({FileChange::Kind::Flush, path_, 0, {}});
        }
        return error;
    }

  private:
    RecordingFile& log_;
    platform::WString path_;
};

namespace {

Bytes ReadWhole(platform::PageFile& file) {
    uint64_t length = 0;
    if (file.Size(&length) != kErrorSuccess) throw std::runtime_error("cannot size a file");
    Bytes bytes(static_cast<size_t>(length));
    uint32_t done = 0;
    if (file.Read(0, bytes.data(), static_cast<uint32_t>(length), &done) != kErrorSuccess ||
        done != length) {
        throw std::runtime_error("cannot read a file");
    }
    return bytes;
}

void Apply(Bytes& image, const FileChange& change, size_t torn) {
    switch (change.kind) {
        case FileChange::Kind::Flush:
            return;
        case FileChange::Kind::Cut:
            image.resize(static_cast<size_t>(change.offset));
            return;
        case FileChange::Kind::Write:
            break;
    }
    const size_t length = std::min(torn, change.bytes.size());
    const auto offset = static_cast<size_t>(change.offset);
    if (length > 0 && image.size() < offset + length) image.resize(offset + length);
    std::copy_n(change.bytes.begin(), length, image.begin() + static_cast<ptrdiff_t>(offset));
}

}  // namespace

void RecordingFile::Restart() {
    for (auto& [path, bytes] : start_) bytes = Image(path, changes_.size());
    changes_.clear();
}

Bytes RecordingFile::Image(const platform::WString& path, size_t count, size_t torn) const {
    Bytes image = start_.at(path);
    for (size_t i = 0; i < count; ++i) {
        if (changes_.at(i).path != path) continue;
        Apply(image, changes_[i], i + 1 == count ? torn : SIZE_MAX);
    }
    return image;
}

platform::PageFile* RecordingFile::Wrap(platform::PageFile* opened, const platform::WChar* path) {
    // A file opened again may have been emptied by the opening: that is a cut like any other.
    Bytes present = ReadWhole(*opened);
    const auto [known, fresh] = start_.try_emplace(path, present);
    if (!fresh && Image(known->first, changes_.size()) != present) {
        changes_.push_back({FileChange::Kind::Cut, path, 0, {}});
        if (!present.empty()) {
            changes_.push_back({FileChange::Kind::Write, path, 0, std::move(present)});
        }
    }
    return new File(opened, *this, path);
}

}  // namespace support
