// SPDX-License-Identifier: MIT
// A container file with changes laid over it: what is written stays in memory, so that a run can
// work on a container as it would be, and the file is as it was.
#pragma once

#include "storage/core/Context.h"

namespace storage {

class CheckOverlay final : public platform::PageFile {
  public:
    // Takes the file over.
    explicit CheckOverlay(platform::PageFile* file) : file_(file) {}
    ~CheckOverlay() override;
    CheckOverlay(const CheckOverlay&) = delete;
    CheckOverlay& operator=(const CheckOverlay&) = delete;

    // To be told before the first write; writes are of whole pages.
    void SetPageSize(uint32_t size) { pageSize_ = size; }
    platform::PageFile* File() const { return file_; }
    // Forgets all changes.
    void Drop();
    // Numbers of the changed pages, counted from the start of the file, rising. False when there
    // is no memory.
    bool Changed(NumberList* pages);

    platform::Error Read(uint64_t offset, void* buffer, uint32_t bytes, uint32_t* done) override;
    platform::Error Write(uint64_t offset, const void* const* buffers, uint32_t count,
                          uint32_t bytes, uint32_t* done) override;
    platform::Error Cut(uint64_t) override { return platform::kErrorInvalidParameter; }
    platform::Error Size(uint64_t* length) override { return file_->Size(length); }
    platform::Error Flush() override { return platform::kErrorSuccess; }
    platform::Error Identity(platform::FileIdentity* identity) override {
        return file_->Identity(identity);
    }
    bool IsWritable() const override { return file_->IsWritable(); }
    bool IsAt(const WChar* path, uint64_t* length) override { return file_->IsAt(path, length); }
    platform::Error TakeMark(bool* taken) override { return file_->TakeMark(taken); }
    void DropMark() override { file_->DropMark(); }
    bool IsMarkedElsewhere() override { return file_->IsMarkedElsewhere(); }

  private:
    struct Page {
        uint32_t number;
        Page* next;
        uint8_t* Bytes() { return reinterpret_cast<uint8_t*>(this + 1); }
    };

    platform::PageFile* file_;
    uint32_t pageSize_ = 0;
    HashTable<Page, &Page::number, &Page::next> pages_;
};

}  // namespace storage
