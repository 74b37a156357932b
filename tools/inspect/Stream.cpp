// SPDX-License-Identifier: MIT
#include "tools/inspect/Stream.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "storage/core/Format.h"
#include "storage/namespace/Stream.h"
#include "tools/inspect/Fields.h"

namespace fbr {
namespace {

using storage::LoadU16;
using storage::LoadU32;

constexpr uint32_t kPlain = 0, kRunLengths = 4;  // methods of coding
constexpr uint64_t kLargestStream = uint64_t{1} << 32;

struct StreamRead {
    std::vector<uint8_t> bytes;  // from the start up to what is missing, all that is stored
    std::string fault;
    bool hasSize = false;
    uint64_t size = 0;  // that the object tells of
};

// What the header pages of an object tell of its stream.
struct Description {
    bool found = false, hasSize = false;
    uint64_t size = 0;
    uint32_t method = 0, link = 0, info = 0;
    uint32_t index = 0;  // page that begins the list of its pages
    uint64_t pagesPerBlock = 1;
    std::vector<uint8_t> payload;  // of a stream without pages
};

class Reader {
  public:
    Reader(const Image& image, const Objects& objects, const FoundObject& object)
        : image_(image), objects_(objects), object_(object) {}

    StreamRead Read();

  private:
    bool Enter(uint32_t number, uint16_t kind);
    bool Describe();
    void TakeRecords();
    bool FindChained();
    bool FindListed();
    void FindPages();
    bool TakePage(uint32_t number);
    bool AddBlock(uint64_t first, uint64_t count);
    bool Decode(const std::vector<uint8_t>& code, uint64_t largest);
    uint32_t Word(size_t offset) const { return LoadU32(page_.data(), offset); }
    // How many pages the stream has room for.
    uint64_t Levels() const { return (stream_.size + Room() - 1) / Room(); }
    uint64_t Room() const { return image_.PageSize() - storage::kPageHeaderSize; }

    const Image& image_;
    const Objects& objects_;
    const FoundObject& object_;
    PageBytes page_;  // the one entered last
    Description stream_;
    std::map<uint32_t, uint32_t> pages_;  // by level
    bool broken_ = false;                 // not all pages could be followed
    StreamRead read_;
};

bool Reader::Enter(uint32_t number, uint16_t kind) {
    if (number <= storage::kSuperblockNumber || number >= image_.PageCount() ||
        image_.IsMapPage(number))
        return false;
    page_ = image_.Page(number);
    return LoadU16(page_.data(), 0) == kind &&
           Word(offsetof(storage::PageHeader, fileId)) == object_.id;
}

void Reader::TakeRecords() {
    uint32_t end = 0;
    for (const RecordView& record : RecordsOf(page_, &end)) {
        const uint8_t* at = page_.data() + record.offset;
        if (record.type == storage::kFileInfoRecord && record.size >= storage::kFileInfoSize) {
            stream_.size = storage::LoadU64(at, storage::record::kFileSize);
            stream_.hasSize = true;
        } else if (record.type == storage::kDataRecord && !stream_.found) {
            stream_.found = true;
            stream_.link = record.link;
            stream_.info = LoadU32(at, storage::record::kInfo);
            stream_.payload.assign(at + storage::record::kPayload, at + record.size);
        } else if (record.type == storage::kBlockSettingsRecord && record.size >= 22) {
            stream_.method = LoadU32(at, storage::record::kPayload);
            stream_.pagesPerBlock = std::max<uint64_t>(1, LoadU16(at, 20));
        } else if (record.type == storage::kPageListRecord && stream_.index == 0) {
            stream_.index = record.link;
        }
    }
}

bool Reader::Describe() {
    std::set<uint32_t> seen;
    for (uint32_t number = object_.headerPage; number != 0;) {
        if (!seen.insert(number).second || !Enter(number, storage::kHeaderPage)) break;
        TakeRecords();
        number = Word(offsetof(storage::PageHeader, nextPage));
    }
    return stream_.found;
}

// True when it is one that was not taken yet.
bool Reader::TakePage(uint32_t number) {
    if (!Enter(number, storage::kDataPage)) return false;
    // A copy of another one stands in the place of one that is lost.
    if (Word(offsetof(storage::PageHeader, pageNumber)) != number) broken_ = true;
    return pages_.emplace(Word(offsetof(storage::PageHeader, level)), number).second;
}

// Each finder is false when not all could be followed.
bool Reader::FindChained() {
    for (uint32_t number = stream_.link; number != 0;) {
        if (!TakePage(number) || pages_.rbegin()->second != number) return false;  // levels rise
        number = Word(offsetof(storage::PageHeader, nextPage));
    }
    return true;
}

bool Reader::FindListed() {
    uint32_t level = 0;
    std::set<uint32_t> seen;
    for (uint32_t number = stream_.index; number != 0;) {
        if (!seen.insert(number).second || !Enter(number, storage::kPageListPage)) return false;
        const PageBytes list = page_;
        for (size_t at = storage::kPageHeaderSize; at + 4 <= list.size(); at += 4, ++level) {
            const uint32_t page = LoadU32(list.data(), at);
            if (page == 0) continue;
            if (!Enter(page, storage::kDataPage)) return false;
            // One that says of both its places that they are elsewhere has another one's bytes.
            if (Word(offsetof(storage::PageHeader, level)) == level ||
                Word(offsetof(storage::PageHeader, pageNumber)) == page)
                pages_.emplace(level, page);
            else
                broken_ = true;
        }
        number = LoadU32(list.data(), offsetof(storage::PageHeader, nextPage));
    }
    return stream_.index != 0;
}

void Reader::FindPages() {
    const bool sound = FindChained();
    const bool isBeyond = !pages_.empty() && pages_.rbegin()->first >= Levels();
    if (sound && !isBeyond && pages_.size() >= Levels()) return;
    const auto chained = std::exchange(pages_, {});
    if (FindListed()) return;
    pages_ = chained;
    // Or there are holes.
    broken_ = broken_ || !sound || isBeyond;
    for (const auto& [id, level, number] : objects_.DataPagesOf(object_.id)) TakePage(number);
}

bool Reader::Decode(const std::vector<uint8_t>& code, uint64_t largest) {
    if (stream_.method != kRunLengths) return false;
    std::vector<uint8_t> plain(largest);
    auto length = static_cast<uint32_t>(largest);
    if (!storage::DecodeRuns(code.data(), static_cast<uint32_t>(code.size()), plain.data(),
                             &length))
        return false;
    read_.bytes.insert(read_.bytes.end(), plain.begin(), plain.begin() + length);
    return true;
}

// The pages of one block, of which `first` is the first level. Levels without a page are those that
// its code does not need, unless pages are missing.
bool Reader::AddBlock(uint64_t first, uint64_t count) {
    std::vector<uint8_t> bytes, code;
    const auto begin = pages_.lower_bound(static_cast<uint32_t>(first));
    if (begin == pages_.end() || begin->first >= first + count) return false;
    for (uint64_t level = first; level < first + count; ++level) {
        const auto at = pages_.find(static_cast<uint32_t>(level));
        if (at == pages_.end()) {
            if (broken_) return false;
            bytes.resize(bytes.size() + Room());
            continue;
        }
        page_ = image_.Page(at->second);
        const uint8_t* payload = page_.data() + storage::kPageHeaderSize;
        const uint32_t coded = LoadU16(page_.data(), offsetof(storage::PageHeader, recordInfo));
        if (coded != 0 && stream_.method != kPlain)
            code.insert(code.end(), payload, payload + std::min<uint64_t>(coded, Room()));
        bytes.insert(bytes.end(), payload, payload + Room());
    }
    const size_t before = read_.bytes.size();
    if (code.empty())
        read_.bytes.insert(read_.bytes.end(), bytes.begin(), bytes.end());
    else if (!Decode(code, bytes.size()))
        return false;
    if (read_.bytes.size() < before + bytes.size()) read_.bytes.resize(before + bytes.size());
    return true;
}

StreamRead Reader::Read() {
    if (object_.headerPage == 0 || !Describe()) {
        read_.fault = "the page that describes it is lost";
        return read_;
    }
    read_.hasSize = stream_.hasSize;
    read_.size = stream_.size;
    if (stream_.size > std::min(image_.FileSize(), kLargestStream)) {
        read_.fault = fmt::format("it claims {} bytes, more than the store holds", stream_.size);
        stream_.size = std::min(image_.FileSize(), kLargestStream);
    }
    if (stream_.link == 0) {
        const bool coded = stream_.info != 0 && stream_.method != kPlain;
        if (!coded) read_.bytes = stream_.payload;
        if (coded && !Decode(stream_.payload, std::min(stream_.pagesPerBlock, Levels()) * Room()))
            read_.fault = "its code is broken";
    } else {
        FindPages();
        const uint64_t stored = pages_.empty() ? 0 : uint64_t{pages_.rbegin()->first} + 1;
        const uint64_t levels = std::max(stored, Levels());
        for (uint64_t at = 0; at < levels; at += stream_.pagesPerBlock) {
            if (AddBlock(at, std::min<uint64_t>(stream_.pagesPerBlock, levels - at))) continue;
            if (at < Levels()) read_.fault = fmt::format("page {} of its data is lost", at);
            break;
        }
    }
    return read_;
}

// Both the value and its object tell its size. Where they do not agree, nothing that is stored is
// left out.
uint64_t SizeOf(uint64_t told, uint64_t ofObject, uint64_t stored) {
    const uint64_t larger = std::max(told, ofObject);
    return larger <= stored ? larger : std::min(told, ofObject);
}

}  // namespace

ValueRead ValueOf(const Image& image, const Objects& objects, const FoundObject& object) {
    constexpr size_t kHead = 8;  // type and size in front of the data, in little-endian
    StreamRead read = Reader(image, objects, object).Read();
    ValueRead value;
    value.fault = std::move(read.fault);
    value.found = read.bytes.size() >= kHead;
    if (!value.found) {
        if (value.fault.empty()) value.fault = "it has no type";
        return value;
    }
    value.type = LoadU32(read.bytes.data(), 0);
    const uint32_t told = LoadU32(read.bytes.data(), 4);
    const size_t there = read.bytes.size() - kHead;
    const uint64_t ofObject = !read.hasSize ? told : read.size < kHead ? 0 : read.size - kHead;
    value.size = static_cast<uint32_t>(SizeOf(told, ofObject, there));
    if (told != ofObject && value.fault.empty())
        value.fault = fmt::format("it says {} of itself, and its object {}", told, ofObject);
    if (value.size > there && value.fault.empty()) value.fault = "its data ends before its size";
    const auto begin = read.bytes.begin() + kHead;
    value.data.assign(begin, begin + static_cast<ptrdiff_t>(std::min<size_t>(value.size, there)));
    return value;
}

}  // namespace fbr
