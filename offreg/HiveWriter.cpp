// SPDX-License-Identifier: MIT
#include "offreg/HiveWriter.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "offreg/HiveFormat.h"

namespace offreg {
namespace {

using namespace format;

constexpr uint32_t kLargestFile = 0x7FFFF000;

struct TooLarge {};

uint32_t RoundUp(uint64_t size, uint32_t unit) {
    const uint64_t rounded = (size + unit - 1) / unit * unit;
    if (rounded > kLargestFile) throw TooLarge{};
    return static_cast<uint32_t>(rounded);
}

bool IsNarrow(WStringView name) {
    return std::all_of(name.begin(), name.end(), [](WChar unit) { return unit <= 0xFF; });
}

uint32_t StoredBytes(WStringView name) {
    return static_cast<uint32_t>(IsNarrow(name) ? name.size() : name.size() * sizeof(WChar));
}

uint32_t WideBytes(WStringView name) {
    return static_cast<uint32_t>(name.size() * sizeof(WChar));
}

// Lays cells out in bins, one behind the other.
class CellSpace {
  public:
    explicit CellSpace(Bytes& file) : file_(file), binEnd_(kBlockSize) { file_.resize(kBlockSize); }

    // A new zeroed cell for `bytes` of content; its offset. Cells move in memory, never in the
    // file.
    uint32_t Add(uint64_t bytes);
    // What is left of the last bin becomes a free cell.
    void Finish();
    uint32_t Length() const { return binEnd_ - kBlockSize; }

    uint8_t* At(uint32_t cell) { return file_.data() + kBlockSize + cell + kCellHead; }
    template <class T>
    void Put(uint32_t cell, uint32_t position, T number) {
        Store(At(cell) + position, number);
    }
    void PutBytes(uint32_t cell, uint32_t position, const void* bytes, size_t count) {
        if (count != 0) std::memcpy(At(cell) + position, bytes, count);
    }
    void PutName(uint32_t cell, uint32_t position, WStringView name);

  private:
    void OpenBin(uint32_t bytes);

    Bytes& file_;
    uint32_t end_ = kBlockSize;  // of what is in use
    uint32_t binEnd_;
};

uint32_t CellSpace::Add(uint64_t bytes) {
    const uint32_t size = RoundUp(bytes + kCellHead, 8);
    if (size > binEnd_ - end_) {
        Finish();
        OpenBin(RoundUp(uint64_t{size} + bin::kHead, kBlockSize));
    }
    Store(file_.data() + end_, static_cast<uint32_t>(0 - size));
    end_ += size;
    return end_ - size - kBlockSize;
}

void CellSpace::OpenBin(uint32_t bytes) {
    const uint32_t start = binEnd_;
    const uint32_t newEnd = RoundUp(uint64_t{start} + bytes, kBlockSize);
    file_.resize(newEnd);
    std::memcpy(file_.data() + start, bin::kMagic, 4);
    Store(file_.data() + start + bin::kOffset, start - kBlockSize);
    Store(file_.data() + start + bin::kSize, bytes);
    end_ = start + bin::kHead;
    binEnd_ = newEnd;
}

void CellSpace::Finish() {
    if (end_ < binEnd_) Store(file_.data() + end_, binEnd_ - end_);
    end_ = binEnd_;
}

void CellSpace::PutName(uint32_t cell, uint32_t position, WStringView name) {
    if (!IsNarrow(name)) return PutBytes(cell, position, name.data(), WideBytes(name));
    std::transform(name.begin(), name.end(), At(cell) + position,
                   [](WChar unit) { return static_cast<uint8_t>(unit); });
}

class Writer {
  public:
    Writer(const Hive& hive, uint64_t time, Bytes& file)
        : hive_(hive), time_(time), file_(file), cells_(file) {}
    void Write(WStringView path);

  private:
    struct Pending {
        const Key* key;
        uint32_t cell;
    };
    struct SecurityCell {
        uint32_t cell = 0;
        uint32_t users = 0;
    };

    uint32_t AddKeyCell(const Key& key, uint32_t parentCell);
    void WriteKey(const Key& key, uint32_t cell);
    void WriteClass(const Key& key, uint32_t cell);
    void WriteSecurity(const Key& key, uint32_t cell);
    void WriteValues(const Key& key, uint32_t cell);
    uint32_t AddValue(const Value& value);
    uint32_t AddData(const Bytes& data);
    void WriteSubkeys(const Key& key, uint32_t cell);
    uint32_t AddList(const Key& key, const std::vector<uint32_t>& keyCells, size_t first);
    void LinkSecurities();
    void WriteBase(WStringView path, uint32_t rootCell);

    const Hive& hive_;
    const uint64_t time_;
    Bytes& file_;
    CellSpace cells_;
    bool wroteBigData_ = false;
    std::vector<Pending> pending_;
    std::unordered_map<const Security*, SecurityCell> securities_;
    std::vector<uint32_t> securityCells_;
};

void Writer::Write(WStringView path) {
    const uint32_t root = AddKeyCell(hive_.Root(), kNoCell);
    pending_.push_back({&hive_.Root(), root});
    while (!pending_.empty()) {
        const Pending next = pending_.back();
        pending_.pop_back();
        WriteKey(*next.key, next.cell);
    }
    LinkSecurities();
    cells_.Finish();
    WriteBase(path, root);
}

uint32_t Writer::AddKeyCell(const Key& key, uint32_t parentCell) {
    const uint32_t nameBytes = StoredBytes(key.name);
    const uint32_t cell = cells_.Add(key::kName + nameBytes);
    uint16_t flags = IsNarrow(key.name) ? key::kNarrowName : 0;
    if (key.isLink) flags |= key::kIsLink;
    if (key.parent == nullptr) flags |= key::kIsRoot | key::kCannotBeDeleted;
    cells_.PutBytes(cell, 0, key::kMagic, 2);
    cells_.Put(cell, key::kFlags, flags);
    cells_.Put(cell, key::kTime, key.lastWrite);
    cells_.Put(cell, key::kParent, parentCell);
    for (const uint32_t field :
         {key::kSubkeyList, key::kVolatileList, key::kValueList, key::kSecurity, key::kClass}) {
        cells_.Put(cell, field, kNoCell);
    }
    cells_.Put(cell, key::kNameBytes, static_cast<uint16_t>(nameBytes));
    cells_.PutName(cell, key::kName, key.name);
    return cell;
}

void Writer::WriteKey(const Key& key, uint32_t cell) {
    WriteClass(key, cell);
    WriteSecurity(key, cell);
    WriteValues(key, cell);
    WriteSubkeys(key, cell);
}

void Writer::WriteClass(const Key& key, uint32_t cell) {
    if (key.className.empty()) return;
    const uint32_t bytes = WideBytes(key.className);
    const uint32_t text = cells_.Add(bytes);
    cells_.PutBytes(text, 0, key.className.data(), bytes);
    cells_.Put(cell, key::kClass, text);
    cells_.Put(cell, key::kClassBytes, static_cast<uint16_t>(bytes));
}

void Writer::WriteSecurity(const Key& key, uint32_t cell) {
    if (key.security == nullptr) return;
    SecurityCell& shared = securities_[key.security];
    if (shared.users++ == 0) {
        const Bytes& descriptor = *key.security->descriptor;
        shared.cell = cells_.Add(security::kDescriptor + descriptor.size());
        cells_.PutBytes(shared.cell, 0, security::kMagic, 2);
        cells_.Put(shared.cell, security::kBytes, static_cast<uint32_t>(descriptor.size()));
        cells_.PutBytes(shared.cell, security::kDescriptor, descriptor.data(), descriptor.size());
        securityCells_.push_back(shared.cell);
    }
    cells_.Put(shared.cell, security::kUsers, shared.users);
    cells_.Put(cell, key::kSecurity, shared.cell);
}

void Writer::LinkSecurities() {
    const size_t count = securityCells_.size();
    for (size_t i = 0; i < count; ++i) {
        const uint32_t cell = securityCells_[i];
        const uint32_t next = securityCells_[(i + 1) % count];
        cells_.Put(cell, security::kNext, next);
        cells_.Put(next, security::kPrevious, cell);
    }
}

void Writer::WriteValues(const Key& key, uint32_t cell) {
    const size_t count = key.values.Count();
    if (count == 0) return;
    const uint32_t list = cells_.Add(uint64_t{count} * 4);
    uint32_t longestName = 0;
    uint32_t longestData = 0;
    for (size_t i = 0; i < count; ++i) {
        const Value& value = *key.values.At(i);
        longestName = std::max(longestName, WideBytes(value.name));
        longestData = std::max(longestData, static_cast<uint32_t>(value.data.size()));
        const uint32_t valueCell = AddValue(value);
        cells_.Put(list, static_cast<uint32_t>(i * 4), valueCell);
    }
    cells_.Put(cell, key::kValueCount, static_cast<uint32_t>(count));
    cells_.Put(cell, key::kValueList, list);
    cells_.Put(cell, key::kLongestValueName, longestName);
    cells_.Put(cell, key::kLongestData, longestData);
}

uint32_t Writer::AddValue(const Value& value) {
    const uint32_t nameBytes = StoredBytes(value.name);
    const uint32_t cell = cells_.Add(value::kName + nameBytes);
    cells_.PutBytes(cell, 0, value::kMagic, 2);
    cells_.Put(cell, value::kNameBytes, static_cast<uint16_t>(nameBytes));
    cells_.Put(cell, value::kType, value.type);
    cells_.Put(cell, value::kFlags, IsNarrow(value.name) ? value::kNarrowName : uint16_t{0});
    cells_.PutName(cell, value::kName, value.name);

    const auto size = static_cast<uint32_t>(value.data.size());
    if (size <= value::kMostInline) {
        cells_.Put(cell, value::kDataBytes, size | value::kInlineData);
        cells_.PutBytes(cell, value::kData, value.data.data(), size);
        return cell;
    }
    const uint32_t data = AddData(value.data);
    cells_.Put(cell, value::kDataBytes, size);
    cells_.Put(cell, value::kData, data);
    return cell;
}

uint32_t Writer::AddData(const Bytes& data) {
    if (data.size() <= big::kSegment) {
        const uint32_t cell = cells_.Add(data.size());
        cells_.PutBytes(cell, 0, data.data(), data.size());
        return cell;
    }
    wroteBigData_ = true;
    const size_t count = (data.size() - 1) / big::kSegment + 1;
    if (count > 0xFFFF) throw TooLarge{};
    const uint32_t head = cells_.Add(big::kHead);
    const uint32_t list = cells_.Add(uint64_t{count} * 4);
    cells_.PutBytes(head, 0, big::kMagic, 2);
    cells_.Put(head, big::kCount, static_cast<uint16_t>(count));
    cells_.Put(head, big::kList, list);
    for (size_t i = 0; i < count; ++i) {
        const size_t start = i * big::kSegment;
        const size_t part = std::min<size_t>(data.size() - start, big::kSegment);
        // Some readers take the last four bytes of a segment's cell for padding.
        const uint32_t segment = cells_.Add(part + 4);
        cells_.PutBytes(segment, 0, data.data() + start, part);
        cells_.Put(list, static_cast<uint32_t>(i * 4), segment);
    }
    return head;
}

void Writer::WriteSubkeys(const Key& key, uint32_t cell) {
    const size_t count = key.subkeys.Count();
    if (count == 0) return;
    uint32_t longestName = 0;
    uint32_t longestClass = 0;
    std::vector<uint32_t> keyCells;
    keyCells.reserve(count);
    key.subkeys.ForEach([&](const Key& subkey) {
        longestName = std::max(longestName, WideBytes(subkey.name));
        longestClass = std::max(longestClass, WideBytes(subkey.className));
        keyCells.push_back(AddKeyCell(subkey, cell));
        pending_.push_back({&subkey, keyCells.back()});
    });
    std::vector<uint32_t> lists;
    for (size_t first = 0; first < count; first += list::kMostHinted) {
        lists.push_back(AddList(key, keyCells, first));
    }
    if (lists.size() > 0xFFFF) throw TooLarge{};
    uint32_t top = lists.front();
    if (lists.size() > 1) {
        top = cells_.Add(list::kItems + uint64_t{lists.size()} * list::kBareItem);
        cells_.PutBytes(top, 0, "ri", 2);
        cells_.Put(top, list::kCount, static_cast<uint16_t>(lists.size()));
        cells_.PutBytes(top, list::kItems, lists.data(), lists.size() * list::kBareItem);
    }
    cells_.Put(cell, key::kSubkeyCount, static_cast<uint32_t>(count));
    cells_.Put(cell, key::kSubkeyList, top);
    cells_.Put(cell, key::kLongestSubkey, longestName);
    cells_.Put(cell, key::kLongestClass, longestClass);
}

// The hint of an "lf" list: the first four characters, or nothing when one of them is wide.
uint32_t FirstCharacters(WStringView name) {
    const WStringView first = name.substr(0, 4);
    uint32_t hint = 0;
    if (IsNarrow(first)) {
        for (size_t i = 0; i < first.size(); ++i) hint |= uint32_t{first[i]} << (8 * i);
    }
    return hint;
}

uint32_t Writer::AddList(const Key& key, const std::vector<uint32_t>& keyCells, size_t first) {
    const size_t count = std::min<size_t>(keyCells.size() - first, list::kMostHinted);
    const uint32_t cell = cells_.Add(list::kItems + uint64_t{count} * list::kHintedItem);
    cells_.PutBytes(cell, 0, "lf", 2);
    cells_.Put(cell, list::kCount, static_cast<uint16_t>(count));
    for (size_t i = 0; i < count; ++i) {
        const auto item = static_cast<uint32_t>(list::kItems + i * list::kHintedItem);
        cells_.Put(cell, item, keyCells[first + i]);
        cells_.Put(cell, item + 4, FirstCharacters(key.subkeys.At(first + i)->name));
    }
    return cell;
}

void Writer::WriteBase(WStringView path, uint32_t rootCell) {
    uint8_t* block = file_.data();
    std::memcpy(block, base::kMagic, 4);
    Store(block + base::kSequence1, uint32_t{1});
    Store(block + base::kSequence2, uint32_t{1});
    Store(block + base::kTime, time_);
    Store(block + base::kMajor, uint32_t{1});
    Store(block + base::kMinor, uint32_t{wroteBigData_ ? 5u : 3u});
    Store(block + base::kFormat, uint32_t{1});
    Store(block + base::kRootCell, rootCell);
    Store(block + base::kBinsLength, cells_.Length());
    Store(block + base::kClustering, uint32_t{1});
    const size_t units = std::min<size_t>(path.size(), base::kFileNameBytes / sizeof(WChar) - 1);
    const WStringView end = path.substr(path.size() - units);
    if (units != 0) std::memcpy(block + base::kFileName, end.data(), units * sizeof(WChar));
    Store(block + bin::kTime + kBlockSize, time_);
    Store(block + base::kChecksum, Checksum(block));
}

}  // namespace

platform::Error WriteHive(const Hive& hive, uint64_t time, WStringView path, Bytes* file) {
    file->clear();
    try {
        Writer(hive, time, *file).Write(path);
    } catch (const TooLarge&) {
        return kErrorFileTooLarge;
    }
    return platform::kErrorSuccess;
}

}  // namespace offreg
