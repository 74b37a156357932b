// SPDX-License-Identifier: MIT
#include "tools/inspect/StoredName.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <vector>

#include "storage/core/Format.h"

namespace fbr {
namespace {

using platform::WChar;
using platform::WString;
using storage::DirectoryEntry;
using storage::LoadU16;
using storage::LoadU32;

constexpr WChar kEscape = '#';
constexpr size_t kEscapeUnits = 5;

class NameReader {
  public:
    NameReader(const Image& image, const Objects& objects, const FoundObject& object)
        : image_(image),
          objects_(objects),
          id_(object.id),
          entry_(storage::Load<DirectoryEntry>(image.Page(object.entryPage).data(),
                                               object.entryOffset)) {}
    StoredName Read();

  private:
    bool Follow();
    void FindPages();
    void AddUnits();
    void CutToLength();
    void CutToGood();
    void TellFault(std::string fault) {
        if (name_.fault.empty()) name_.fault = std::move(fault);
    }
    size_t UnitsPerPage() const { return (image_.PageSize() - storage::kPageHeaderSize) / 2; }
    // How many pages a name of that length has.
    size_t PagesNeeded() const {
        if (entry_.nameLength <= storage::kEntryNameUnits) return 0;
        return (entry_.nameLength - storage::kEntryNameUnits - 1) / UnitsPerPage() + 1;
    }

    const Image& image_;
    const Objects& objects_;
    const uint32_t id_;
    const DirectoryEntry entry_;
    std::vector<uint32_t> pages_;
    bool lengthIsWrong_ = false;
    StoredName name_;
};

// False when the chain breaks off or runs in a circle.
bool NameReader::Follow() {
    std::set<uint32_t> seen;
    for (uint32_t number = entry_.namePage; number != 0;) {
        if (number <= storage::kSuperblockNumber || number >= image_.PageCount() ||
            image_.IsMapPage(number) || !seen.insert(number).second)
            return false;
        const PageBytes page = image_.Page(number);
        if (LoadU16(page.data(), 0) != storage::kNamePage ||
            LoadU32(page.data(), offsetof(storage::PageHeader, fileId)) != id_)
            return false;
        pages_.push_back(number);
        number = LoadU32(page.data(), offsetof(storage::PageHeader, nextPage));
    }
    return true;
}

// The chain that the entry begins or, when that is not what the length asks for, the pages by what
// they say of themselves.
void NameReader::FindPages() {
    const bool ends = Follow();
    const size_t needed = PagesNeeded();
    if (ends && pages_.size() == needed) return;
    std::vector<uint32_t> leveled;
    size_t claimed = 0;  // how many the highest level tells of
    for (const auto& [id, level, page] : objects_.NamePagesOf(id_)) {
        if (level == leveled.size()) leveled.push_back(page);
        claimed = std::max<size_t>(claimed, size_t{level} + 1);
    }
    const bool isWhole = leveled.size() == needed && claimed <= needed;
    if (isWhole || leveled.size() > pages_.size()) pages_ = std::move(leveled);
    if (isWhole) return;
    lengthIsWrong_ = ends && claimed <= pages_.size();
    if (lengthIsWrong_)
        TellFault(
            fmt::format("it says {} units, which is not what its pages hold", entry_.nameLength));
    else
        TellFault(fmt::format("page {} of it is lost", pages_.size()));
}

void NameReader::AddUnits() {
    name_.units.assign(std::begin(entry_.name), std::end(entry_.name));
    for (const uint32_t number : pages_) {
        const PageBytes page = image_.Page(number);
        for (uint32_t at = storage::kPageHeaderSize; at + 2 <= page.size(); at += 2)
            name_.units += static_cast<WChar>(LoadU16(page.data(), at));
    }
}

// What stands behind the end means nothing, but the library writes zeros there: other units are
// those of a name that was longer, or the rest of one whose length is wrong.
void NameReader::CutToLength() {
    const size_t last = name_.units.find_last_not_of(WChar{0});
    const size_t used = last == WString::npos ? 0 : last + 1;
    if (used > entry_.nameLength)
        TellFault(fmt::format("units stand behind the {} that it says", entry_.nameLength));
    name_.units.resize(lengthIsWrong_ ? used
                                      : std::min<size_t>(name_.units.size(), entry_.nameLength));
}

// How much of it a store would write: what is not plain it writes as an escape.
size_t GoodUnits(platform::WStringView units) {
    constexpr platform::WStringView kBad = WTEXT("\"/\\?*:<>|"), kMarker = WTEXT("#FILE"),
                                    kDigits = WTEXT("0123456789ABCDEF");
    size_t at = units.starts_with(kMarker) ? kMarker.size() : 0;
    while (at < units.size()) {
        const bool isPlain =
            platform::IsPrintable(units[at]) && kBad.find(units[at]) == platform::WStringView::npos;
        const auto digits = units.substr(at, kEscapeUnits).substr(1);
        const bool isEscape = digits.size() == kEscapeUnits - 1 &&
                              digits.find_first_not_of(kDigits) == platform::WStringView::npos;
        if (!isPlain || (units[at] == kEscape && !isEscape)) break;
        at += units[at] == kEscape ? kEscapeUnits : 1;
    }
    return at;
}

// Up to what no name has, which may be the piece of an escape at the end of what was cut.
void NameReader::CutToGood() {
    WString& units = name_.units;
    const size_t good = GoodUnits(units);
    if (good != units.size()) TellFault("it holds what no name has");
    units.resize(good);
    if (units.empty()) TellFault("it is empty");
}

StoredName NameReader::Read() {
    FindPages();
    AddUnits();
    CutToLength();
    CutToGood();
    return std::move(name_);
}

}  // namespace

StoredName ReadStoredName(const Image& image, const Objects& objects, const FoundObject& object) {
    return NameReader(image, objects, object).Read();
}

}  // namespace fbr
