// SPDX-License-Identifier: MIT
// A container file as plain bytes: opened for reading only, changed in nothing, and believed in
// nothing that it says of itself.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/Text.h"

namespace storage {
struct StorageContext;
}
namespace platform {
class PageFile;
}

namespace fbr {

using PageBytes = std::vector<uint8_t>;

class Image {
  public:
    // How the place and the size of the pages became known.
    enum class Known { kBySignature, kByPageOne, kByCaller };

    // `name` is the file in UTF-8. `pageSize`, a power of two that the format allows, serves when
    // the file does not tell; 0 when there is none to be given. Throws std::runtime_error when
    // the file cannot be read or no container begins in it.
    // `beforePage` is called before each page is read, and may throw.
    Image(std::string name, uint32_t pageSize, void (*beforePage)() = nullptr);
    ~Image();
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    const std::string& Name() const { return name_; }
    Known HowKnown() const { return known_; }
    uint64_t FileSize() const { return fileSize_; }
    uint32_t PageSize() const;
    uint32_t PageShift() const;
    uint32_t PageCount() const;
    uint32_t BasePage() const;       // pages in front of the container
    uint32_t TrailingBytes() const;  // behind the last whole page
    bool ByteSwapped() const;
    bool IsMapPage(uint32_t page) const;
    uint32_t ChangeCounter() const;         // rises with each change
    uint64_t PlaceOf(uint32_t page) const;  // its first byte in the file

    // The page as it lies in the file, zeros where the file ends. Throws std::runtime_error when
    // it cannot be read.
    PageBytes Raw(uint32_t page) const;
    // The same with its numbers and text in the order of this machine.
    PageBytes Page(uint32_t page) const;

  private:
    void Locate(uint32_t pageSize);
    void SetPageShift(uint32_t shift, uint64_t baseBlock);
    uint16_t KindOfPageOne() const;
    [[noreturn]] void Fail(const std::string& why) const;

    const std::string name_;
    void (*const beforePage_)();
    std::unique_ptr<platform::PageFile> file_;
    std::unique_ptr<storage::StorageContext> context_;  // nothing but the geometry
    Known known_ = Known::kBySignature;
    uint64_t fileSize_ = 0;
};

}  // namespace fbr
