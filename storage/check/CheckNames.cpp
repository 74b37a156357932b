// SPDX-License-Identifier: MIT
// Second pass: names. An entry is of use only when a path can lead to it: it has a name, without
// what parts the names of a path, and no neighbour has the same. In a container of the key store
// the name is also one that the store would write, for it asks for no other.
#include <algorithm>
#include <new>

#include "storage/check/CheckRun.h"

namespace storage {

namespace {

constexpr platform::WStringView kMarker = WTEXT("#FILE");
constexpr platform::WStringView kVersionName = WTEXT("FBRVersion");

// Units that stand for themselves in the names of the key store.
bool IsPlain(uint32_t unit) {
    constexpr platform::WStringView kEscaped = WTEXT("\\/:*?\"<>|#");
    if (unit < 128)
        return unit >= 0x20 && unit < 0x7F &&
               kEscaped.find(static_cast<WChar>(unit)) == platform::WStringView::npos;
    return platform::IsPrintable(static_cast<WChar>(unit));
}

int HexDigit(uint32_t unit) {
    if (unit >= '0' && unit <= '9') return static_cast<int>(unit - '0');
    const uint32_t folded = unit | 32;
    return folded >= 'a' && folded <= 'f' ? static_cast<int>(folded - 'a' + 10) : -1;
}

// Takes a name unit by unit.
class NameJudge {
  public:
    NameJudge(bool isStore, bool isKey) : isStore_(isStore), isKey_(isKey) {}

    void Add(uint32_t unit) {
        hash_ = (hash_ ^ platform::Fold(static_cast<WChar>(unit))) * 0x100000001B3u;
        const uint32_t place = count_++;
        if (unit == 0 && firstZero_ == kNone) firstZero_ = place;
        if (unit != 0 && firstZero_ != kNone) unitsBehindZero_ = true;
        if (unit == 0 || unit == '/' || unit == '\\') bad_ = true;
        if (isStore_) AddStored(unit, place);
    }
    bool Bad() const { return bad_ || count_ == 0 || (isStore_ && left_ != 0); }
    uint64_t Hash() const { return hash_; }
    // The length without zeros at the end, when there are no others; else that of the whole.
    uint32_t RightLength() const {
        return firstZero_ == kNone || unitsBehindZero_ ? count_ : firstZero_;
    }

  private:
    // "#" and four digits that stand for a unit that is not plain; "#FILE" before a value's name.
    void AddStored(uint32_t unit, uint32_t place) {
        if (!isKey_ && place < kMarker.size()) {
            marked_ = marked_ &&
                      platform::Fold(static_cast<WChar>(unit)) == platform::Fold(kMarker[place]);
            if (place + 1 == kMarker.size() && marked_) {
                left_ = 0;
                bad_ = false;
                return;
            }
        }
        if (left_ != 0) {
            const int digit = HexDigit(unit);
            value_ = value_ << 4 | static_cast<uint32_t>(digit & 15);
            if (digit < 0) bad_ = true;
            if (--left_ == 0 && (value_ == 0 || IsPlain(value_) || (isKey_ && value_ == '\\')))
                bad_ = true;
        } else if (unit == '#') {
            left_ = 4;
            value_ = 0;
        } else if (!IsPlain(unit)) {
            bad_ = true;
        }
    }

    static constexpr uint32_t kNone = 0xFFFFFFFF;
    const bool isStore_, isKey_;
    bool marked_ = true, bad_ = false, unitsBehindZero_ = false;
    uint64_t hash_ = 0xCBF29CE484222325u;
    uint32_t count_ = 0, firstZero_ = kNone;
    uint32_t left_ = 0, value_ = 0;  // of an escape
};

uint64_t HashOf(const WChar* name, uint32_t units) {
    NameJudge judge(false, false);
    for (uint32_t i = 0; i < units; ++i) judge.Add(name[i]);
    return judge.Hash();
}

// "what is left of it~number", with the first number that makes it one of its own.
uint32_t FreeName(const CheckNames& names, const DirectoryEntry& entry, WChar* name,
                  uint64_t* hash) {
    constexpr uint32_t kKept = 11;  // leaves room for a number of ten digits
    uint32_t kept = 0;
    for (uint32_t i = 0; i < std::min(entry.nameLength, kEntryNameUnits) && kept < kKept; ++i)
        if (entry.name[i] != '~' && IsPlain(entry.name[i]))
            name[kept++] = static_cast<WChar>(entry.name[i]);
    name[kept++] = '~';
    for (uint32_t number = entry.fileId;; ++number) {
        WChar digits[10];
        uint32_t count = 0, units = kept;
        for (uint32_t rest = number; rest != 0 || count == 0; rest /= 10)
            digits[count++] = static_cast<WChar>('0' + rest % 10);
        while (count > 0) name[units++] = digits[--count];
        const uint64_t now = HashOf(name, units);
        const bool taken = std::any_of(&names[0], &names[0] + names.Count(),
                                       [now](const CheckName& n) { return n.hash == now; });
        *hash = now;
        if (!taken) return units;
    }
}

// The pages of the old name are given up; nothing refers to them any more.
void LetNamePagesGo(CheckRun* run, uint32_t first) {
    for (uint32_t page = first; page != 0; page = run->digests[page].nextPage)
        run->marks[page] &= static_cast<uint8_t>(~(kMarkInUse | kMarkChanged));
}

Status Rename(CheckRun* run, CheckNames* names, CheckName* name) {
    const Status status = LoadChecked(run, name->page, run->header);
    if (status != kOk) return status;
    DirectoryEntry entry = Load<DirectoryEntry>(run->header, name->offset);
    TellBadEntry(run, name->page, entry);
    LetNamePagesGo(run, entry.namePage);
    WChar text[kEntryNameUnits];
    uint64_t hash = 0;
    entry.nameLength = FreeName(*names, entry, text, &hash);
    name->hash = hash;
    entry.namePage = 0;
    std::memset(entry.name, 0, sizeof entry.name);
    for (uint32_t i = 0; i < entry.nameLength; ++i) entry.name[i] = text[i];
    Store(run->header, name->offset, entry);
    return StoreChecked(run, name->page, run->header);
}

bool IsVersionName(const DirectoryEntry& entry) {
    if (entry.fileId == 0 || entry.nameLength != kVersionName.size()) return false;
    for (uint32_t i = 0; i < kVersionName.size(); ++i)
        if (entry.name[i] != static_cast<uint16_t>(kVersionName[i])) return false;
    return true;
}

bool HasVersion(const uint8_t* entries, uint32_t count, uint32_t* headerPage) {
    for (uint32_t i = 0; i < count; ++i) {
        const auto entry = Load<DirectoryEntry>(entries, i * kEntrySize);
        if (!IsVersionName(entry)) continue;
        *headerPage = entry.headerPage;
        return true;
    }
    return false;
}

}  // namespace

Status JudgeName(CheckRun* run, const DirectoryEntry& entry, uint32_t length, CheckName* name,
                 uint32_t* right) {
    NameJudge judge(run->isStore, (entry.attributes & kAttrDirectory) != 0);
    uint32_t done = std::min(length, kEntryNameUnits);
    for (uint32_t i = 0; i < done; ++i) judge.Add(entry.name[i]);
    const uint32_t capacity = run->context->payloadSize / 2;
    for (uint32_t page = entry.namePage; page != 0 && done < length;
         page = run->digests[page].nextPage) {
        const Status status = LoadChecked(run, page, run->other);
        if (status != kOk) return status;
        const uint32_t count = std::min(length - done, capacity);
        for (uint32_t i = 0; i < count; ++i)
            judge.Add(LoadU16(run->other, kPageHeaderSize + 2 * i));
        done += count;
    }
    name->hash = judge.Hash();
    name->bad = judge.Bad();
    *right = judge.RightLength();
    // A name that would be none, or would have pages without units, stays as long as it says.
    const uint32_t least =
        length <= kEntryNameUnits ? 1 : length - (length - kEntryNameUnits - 1) % capacity;
    if (*right < least) *right = length;
    return kOk;
}

Status CheckDirectoryNames(CheckRun* run, CheckNames* names) {
    if (names->Empty()) return kOk;
    // Of two with one name the one stays whose name was not touched, then the older one.
    std::sort(names->begin(), names->end(), [](const CheckName& a, const CheckName& b) {
        if (a.hash != b.hash) return a.hash < b.hash;
        if (a.bad != b.bad) return b.bad;
        return a.changed != b.changed ? b.changed : a.fileId < b.fileId;
    });
    Status status = kOk;
    for (uint32_t i = 0; i < names->Count() && status == kOk; ++i) {
        CheckName& name = (*names)[i];
        if (!name.bad && (i == 0 || (*names)[i - 1].hash != name.hash)) continue;
        name.bad = true;
    }
    for (CheckName& name : *names)
        if (name.bad && status == kOk) status = Rename(run, names, &name);
    return status;
}

Status LookForStore(CheckRun* run) {
    const uint32_t root = run->context->Super()->rootEntry.headerPage;
    const Status status = LoadChecked(run, root, run->header);
    if (status != kOk) return status;
    const uint32_t end = std::min<uint32_t>(LoadU16(run->header, 32), run->context->pageSize);
    uint32_t link = 0;
    for (uint32_t at = kRecordsStart; at + kRecordHeaderSize <= end;) {
        const uint32_t size = LoadU16(run->header, at + record::kSize);
        if (LoadU16(run->header, at) == kDirectoryRecord)
            link = LoadU32(run->header, at + record::kLink);
        if (size < kRecordHeaderSize || link != 0) break;
        at += size;
    }
    uint32_t left = run->pages;
    while (link > kSuperblockNumber && link < run->pages && left-- != 0 && !run->isStore) {
        const Status read = LoadChecked(run, link, run->other);
        if (read != kOk) return read;
        if (run->digests[link].kind != kEntryPage) break;
        run->isStore = HasVersion(run->other + kPageHeaderSize,
                                  run->context->payloadSize / kEntrySize, &run->versionHeader);
        link = run->digests[link].nextPage;
    }
    return kOk;
}

}  // namespace storage
