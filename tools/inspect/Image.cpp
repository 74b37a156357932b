// SPDX-License-Identifier: MIT
#include "tools/inspect/Image.h"

#include <filesystem>
#include <stdexcept>

#include "platform/Resources.h"
#include "storage/core/PageIo.h"
#include "storage/lifecycle/Locate.h"
#include "tools/format/Reason.h"
#include "tools/format/Text.h"

namespace fbr {
namespace {

std::string InWords(platform::Error error) {
    switch (error) {
        case platform::kErrorFileNotFound:
            return "there is no such file";
        case platform::kErrorPathNotFound:
            return "there is no such folder";
        default:
            return ReasonOf(error);
    }
}

bool IsPageShift(uint32_t shift) {
    return shift >= storage::kMinPageShift && shift <= storage::kMaxPageShift;
}

bool IsFolder(const std::string& name) {
    std::error_code ignored;
    return std::filesystem::is_directory(FilePath(name), ignored);
}

}  // namespace

Image::Image(std::string name, uint32_t pageSize, void (*beforePage)())
    : name_(std::move(name)),
      beforePage_(beforePage),
      context_(std::make_unique<storage::StorageContext>()) {
    WString path;
    if (!FromStrictUtf8(name_, path)) Fail("its name is not UTF-8");
    if (IsFolder(name_)) Fail("it is a folder");
    const platform::Handle handle = platform::OpenFileHandle(
        path.c_str(), true, static_cast<uint32_t>(platform::Disposition::OpenExisting), nullptr);
    if (!platform::IsValid(handle)) Fail(InWords(platform::LastError()));
    file_.reset(platform::AdoptFileHandle(handle, path.c_str()));
    if (file_ == nullptr) throw std::bad_alloc();
    const platform::Error error = file_->Size(&fileSize_);
    if (error != 0) Fail(InWords(error));
    context_->file = file_.get();
    Locate(pageSize);
}

Image::~Image() = default;

void Image::Fail(const std::string& why) const {
    throw std::runtime_error("cannot read " + name_ + ": " + why);
}

void Image::Locate(uint32_t pageSize) {
    storage::ContainerPlace place;
    storage::Status status = storage::LocateContainer(file_.get(), fileSize_, &place);
    if (status > 0) Fail(InWords(static_cast<platform::Error>(status)));
    uint32_t shift = place.pageShift;
    if (status == storage::kOk && IsPageShift(shift)) {
        context_->byteSwapped = place.byteSwapped;
        SetPageShift(shift, place.base);
        // Page 1 stands elsewhere when the size is wrong.
        if (KindOfPageOne() == storage::kSuperblockPage) return;
        if (storage::ProbePageShift(file_.get(), place.base, &shift) == storage::kOk)
            SetPageShift(shift, place.base);
        return;
    }
    status = storage::ProbePageShift(file_.get(), place.base, &shift);
    if (status > 0) Fail(InWords(static_cast<platform::Error>(status)));
    if (status == storage::kOk) {
        known_ = Known::kByPageOne;
        SetPageShift(shift, place.base);
        const PageBytes super = Raw(storage::kSuperblockNumber);
        context_->byteSwapped = storage::LoadU16(super.data(), 0) != storage::kSuperblockPage;
        return;
    }
    if (pageSize == 0) {
        Fail(
            "it is no container: neither page 0 nor page 1 is known. If it was one, fbr salvage "
            "--page-size 512 reads what is left of it, and fbr dump --page-size 512 shows its "
            "pages");
    }
    known_ = Known::kByCaller;
    for (shift = storage::kMinPageShift; 1u << shift != pageSize;) ++shift;
    SetPageShift(shift, place.base);
}

void Image::SetPageShift(uint32_t shift, uint64_t baseBlock) {
    const uint64_t base = baseBlock * storage::kLocateBlock >> shift;
    const uint64_t pages = fileSize_ >> shift;
    if (pages >= storage::kUnknownPages) Fail("it is larger than any container");
    context_->pageShift = shift;
    context_->pageSize = 1u << shift;
    context_->payloadSize = context_->pageSize - storage::kPageHeaderSize;
    context_->basePage = static_cast<uint32_t>(std::min(base, pages));
    context_->totalPages = static_cast<uint32_t>(pages) - context_->basePage;
}

uint16_t Image::KindOfPageOne() const {
    return storage::LoadU16(Page(storage::kSuperblockNumber).data(), 0);
}

uint32_t Image::PageSize() const {
    return context_->pageSize;
}
uint32_t Image::PageShift() const {
    return context_->pageShift;
}
uint32_t Image::PageCount() const {
    return context_->totalPages;
}
uint32_t Image::BasePage() const {
    return context_->basePage;
}
uint32_t Image::TrailingBytes() const {
    return static_cast<uint32_t>(fileSize_ & (PageSize() - 1));
}
bool Image::ByteSwapped() const {
    return context_->byteSwapped;
}
bool Image::IsMapPage(uint32_t page) const {
    return context_->IsMapPage(page);
}
uint32_t Image::ChangeCounter() const {
    return storage::LoadU32(Page(storage::kSuperblockNumber).data(),
                            offsetof(storage::Superblock, transactionCounter));
}
uint64_t Image::PlaceOf(uint32_t page) const {
    return (uint64_t{BasePage()} + page) << PageShift();
}

PageBytes Image::Raw(uint32_t page) const {
    if (beforePage_ != nullptr) beforePage_();
    PageBytes bytes(PageSize());
    const storage::Status status = storage::ReadPageRaw(file_.get(), bytes.data(), PageSize(),
                                                        uint64_t{BasePage()} + page, PageSize());
    if (status != storage::kOk) {
        Fail("page " + std::to_string(page) + ": " + InWords(static_cast<platform::Error>(status)));
    }
    return bytes;
}

// A map page is known by its place, since its first number may be damaged.
PageBytes Image::Page(uint32_t page) const {
    PageBytes bytes = Raw(page);
    if (!ByteSwapped()) return bytes;
    if (IsMapPage(page)) {
        for (size_t at = 0; at < bytes.size(); at += 2) std::swap(bytes[at], bytes[at + 1]);
    } else {
        storage::ConvertPage(context_.get(), bytes.data(), storage::Direction::Read);
    }
    return bytes;
}

}  // namespace fbr
