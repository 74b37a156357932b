// SPDX-License-Identifier: MIT
#include "tests/support/MemoryFiles.h"

#include <algorithm>

namespace support {

using platform::Error;
using platform::kErrorSuccess;

class MemoryFiles::File final : public ForwardingFile {
  public:
    File(platform::PageFile* shell, MemoryFiles& owner, platform::WString path,
         std::shared_ptr<Bytes> bytes)
        : ForwardingFile(shell), owner_(owner), path_(std::move(path)), bytes_(std::move(bytes)) {}

    Error Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) override {
        ++owner_.work_;
        const uint64_t left = offset < bytes_->size() ? bytes_->size() - offset : 0;
        *done = static_cast<uint32_t>(std::min<uint64_t>(left, bytes));
        if (*done != 0) std::copy_n(bytes_->data() + offset, *done, static_cast<uint8_t*>(buffer));
        return kErrorSuccess;
    }
    Error Write(uint64_t offset, const void* const* buffers, uint32_t count, uint32_t bytes,
                uint32_t* done) override {
        ++owner_.work_;
        *done = count * bytes;
        FileChange change{path_, false, offset};
        for (uint32_t i = 0; i < count; ++i)
            Overwrite(&change.bytes, uint64_t{i} * bytes, buffers[i], bytes);
        Overwrite(bytes_.get(), offset, change.bytes.data(), change.bytes.size());
        owner_.Note(std::move(change));
        return kErrorSuccess;
    }
    Error Cut(uint64_t length) override {
        bytes_->resize(length);
        owner_.Note({path_, true, length});
        return kErrorSuccess;
    }
    Error Size(uint64_t* length) override {
        *length = bytes_->size();
        return kErrorSuccess;
    }
    Error Flush() override { return kErrorSuccess; }
    bool IsAt(const platform::WChar* path, uint64_t* length) override {
        const bool at = ForwardingFile::IsAt(path, length);
        *length = bytes_->size();
        return at;
    }

  private:
    MemoryFiles& owner_;
    const platform::WString path_;
    std::shared_ptr<Bytes> bytes_;
};

void Overwrite(Bytes* image, uint64_t offset, const void* bytes, size_t count) {
    if (count != 0 && image->size() < offset + count) image->resize(offset + count);
    std::copy_n(static_cast<const uint8_t*>(bytes), count, image->data() + offset);
}

MemoryFiles::Recording::Recording(MemoryFiles& files) : files_(files) {
    for (const auto& [path, entry] : files.files_) start_[path] = *entry.bytes;
    files.recording_ = this;
}

Bytes MemoryFiles::Recording::Image(const std::filesystem::path& path, size_t count,
                                    size_t torn) const {
    const auto start = start_.find(Wide(path));
    Bytes image = start == start_.end() ? Bytes() : start->second;
    for (size_t i = 0; i < count; ++i) {
        const FileChange& change = changes_.at(i);
        if (change.path != Wide(path)) continue;
        const size_t limit = i + 1 == count ? torn : SIZE_MAX;
        if (change.cut)
            image.resize(change.offset);
        else
            Overwrite(&image, change.offset, change.bytes.data(),
                      std::min(limit, change.bytes.size()));
    }
    return image;
}

void MemoryFiles::Note(FileChange change) {
    if (recording_ != nullptr) recording_->changes_.push_back(std::move(change));
}

void MemoryFiles::Put(const std::filesystem::path& path, Bytes bytes) {
    if (!std::filesystem::exists(path)) WriteBytes(path, {1});
    files_[Wide(path)].bytes = std::make_shared<Bytes>(std::move(bytes));
}

void MemoryFiles::Remove(const std::filesystem::path& path) {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    files_.erase(Wide(path));
}

Bytes MemoryFiles::Get(const std::filesystem::path& path) const {
    const auto found = files_.find(Wide(path));
    return found == files_.end() || !std::filesystem::exists(path) ? Bytes() : *found->second.bytes;
}

MemoryFiles::Entry& MemoryFiles::EntryOf(const platform::WString& path,
                                         const platform::FileIdentity& identity) {
    if (!files_.contains(path)) {
        for (auto at = files_.begin(); at != files_.end(); ++at) {
            if (!(at->second.identity == identity)) continue;
            auto renamed = files_.extract(at);
            renamed.key() = path;
            return files_.insert(std::move(renamed)).position->second;
        }
    }
    return files_[path];
}

platform::PageFile* MemoryFiles::Wrap(platform::PageFile* opened, const platform::WChar* path) {
    platform::FileIdentity identity;
    opened->Identity(&identity);
    Entry& entry = EntryOf(path, identity);
    entry.identity = identity;
    std::shared_ptr<Bytes>& bytes = entry.bytes;
    uint64_t length = 0;
    // A shell without its one byte was made or emptied by the opening.
    if (bytes == nullptr || (opened->Size(&length) == kErrorSuccess && length == 0)) {
        bytes = std::make_shared<Bytes>();
        Note({path, true, 0});
        const uint8_t mark = 1;
        const void* buffer = &mark;
        uint32_t done = 0;
        opened->Write(0, &buffer, 1, 1, &done);
    }
    return new File(opened, *this, path, bytes);
}

}  // namespace support
