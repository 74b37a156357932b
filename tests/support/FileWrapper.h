// SPDX-License-Identifier: MIT
// A scope during which every file opened through the seam is replaced by one of a test's own.
// Scopes nest: the one made last lies outermost and sees each call first. They must go in the
// reverse order, and after the files that were opened in them.
#pragma once

#include <vector>

#include "platform/PageFile.h"

namespace support {

class FileWrapper {
  public:
    FileWrapper() {
        scopes_.push_back(this);
        platform::SetPageFileWrapper([](platform::PageFile* file, const platform::WChar* path) {
            for (FileWrapper* scope : scopes_) file = scope->Wrap(file, path);
            return file;
        });
    }
    virtual ~FileWrapper() {
        std::erase(scopes_, this);
        if (scopes_.empty()) platform::SetPageFileWrapper(nullptr);
    }
    FileWrapper(const FileWrapper&) = delete;
    FileWrapper& operator=(const FileWrapper&) = delete;

    // The file to use for `opened`, which it owns from then on.
    virtual platform::PageFile* Wrap(platform::PageFile* opened, const platform::WChar* path) = 0;

  private:
    static inline std::vector<FileWrapper*> scopes_;
};

// Forwards every call; the base of the files that wrappers make.
class ForwardingFile : public platform::PageFile {
  public:
    explicit ForwardingFile(platform::PageFile* inner) : inner_(inner) {}
    ~ForwardingFile() override { delete inner_; }
    ForwardingFile(const ForwardingFile&) = delete;
    ForwardingFile& operator=(const ForwardingFile&) = delete;

    platform::Error Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) override {
        return inner_->Read(offset, buffer, bytes, done);
    }
    platform::Error Write(uint64_t offset, const void* const* buffers, uint32_t count,
                          uint32_t bytes, uint32_t* done) override {
        return inner_->Write(offset, buffers, count, bytes, done);
    }
    platform::Error Cut(uint64_t length) override { return inner_->Cut(length); }
    platform::Error Size(uint64_t* length) override { return inner_->Size(length); }
    platform::Error Flush() override { return inner_->Flush(); }
    platform::Error Identity(platform::FileIdentity* identity) override {
        return inner_->Identity(identity);
    }
    bool IsWritable() const override { return inner_->IsWritable(); }
    bool IsAt(const platform::WChar* path, uint64_t* length) override {
        return inner_->IsAt(path, length);
    }
    platform::Error TakeMark(bool* taken) override { return inner_->TakeMark(taken); }
    void DropMark() override { inner_->DropMark(); }
    bool IsMarkedElsewhere() override { return inner_->IsMarkedElsewhere(); }

  protected:
    platform::PageFile& Inner() { return *inner_; }

  private:
    platform::PageFile* inner_;
};

}  // namespace support
