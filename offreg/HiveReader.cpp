#include "offreg/HiveReader.h"

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <vector>

#include "offreg/HiveFormat.h"

namespace offreg {
namespace {

using namespace format;

bool HasMagic(const uint8_t* at, const char* magic) {
    return std::memcmp(at, magic, std::strlen(magic)) == 0;
}

// The content of a cell in use, less its size field.
struct Cell {
    const uint8_t* data = nullptr;
    uint32_t size = 0;

    uint16_t Word(uint32_t at) const { return Load<uint16_t>(data + at); }
    uint32_t Number(uint32_t at) const { return Load<uint32_t>(data + at); }
    bool Is(const char* magic) const { return HasMagic(data, magic); }
};

// The bins of a file, and which of their cells have found their owner.
class CellSpace {
  public:
    // False when the bins do not lie behind one another up to `length`.
    bool Open(const uint8_t* bins, uint32_t length);
    // The cell at `offset` with at least `minimum` bytes of content. False for anything else.
    bool Find(uint32_t offset, uint32_t minimum, Cell* cell) const;
    // The same for a cell that belongs to one owner: false also when it was claimed before.
    bool Claim(uint32_t offset, uint32_t minimum, Cell* cell);

  private:
    const uint8_t* bins_ = nullptr;
    uint32_t length_ = 0;
    std::vector<uint32_t> binEnd_;  // for each block
    std::vector<bool> claimed_;     // for each 8 bytes
};

bool CellSpace::Open(const uint8_t* bins, uint32_t length) {
    bins_ = bins;
    length_ = length;
    binEnd_.resize(length / kBlockSize);
    claimed_.resize(length / 8);
    for (uint32_t at = 0; at < length;) {
        const uint32_t size = Load<uint32_t>(bins + at + bin::kSize);
        const bool sound = HasMagic(bins + at, bin::kMagic) &&
                           Load<uint32_t>(bins + at + bin::kOffset) == at && size != 0 &&
                           size % kBlockSize == 0 && size <= length - at;
        if (!sound) return false;
        std::fill_n(binEnd_.begin() + at / kBlockSize, size / kBlockSize, at + size);
        at += size;
    }
    return true;
}

bool CellSpace::Find(uint32_t offset, uint32_t minimum, Cell* cell) const {
    if (offset % 8 != 0 || offset >= length_) return false;
    const uint32_t stored = Load<uint32_t>(bins_ + offset);
    const uint32_t size = 0 - stored;  // in use: the stored size is negative
    if (stored < 0x80000000 || size % 8 != 0 || size > binEnd_[offset / kBlockSize] - offset) {
        return false;
    }
    *cell = {bins_ + offset + kCellHead, size - kCellHead};
    return cell->size >= minimum;
}

bool CellSpace::Claim(uint32_t offset, uint32_t minimum, Cell* cell) {
    if (!Find(offset, minimum, cell) || claimed_[offset / 8]) return false;
    claimed_[offset / 8] = true;
    return true;
}

class Reader {
  public:
    Reader(CellSpace& cells, Hive& hive) : cells_(cells), hive_(hive) {}
    bool ReadTree(uint32_t rootCell);

  private:
    struct Pending {
        Key* key;
        Cell cell;
    };

    bool ReadKeyCell(uint32_t offset, Cell* cell, WString* name);
    bool ReadKey(Key& key, const Cell& cell);
    bool ReadName(const uint8_t* at, uint32_t bytes, bool narrow, WString* name);
    bool ReadClass(Key& key, const Cell& cell);
    bool ReadSecurity(Key& key, uint32_t offset);
    bool ReadValues(Key& key, const Cell& cell);
    bool ReadValue(Key& key, uint32_t offset);
    bool ReadData(const Cell& cell, Bytes* data);
    bool ReadBigData(const Cell& cell, uint32_t size, Bytes* data);
    bool ReadSubkeys(Key& key, const Cell& cell);
    bool ReadList(Key& key, const Cell& list, uint32_t* left);
    bool AddSubkey(Key& key, uint32_t offset);

    CellSpace& cells_;
    Hive& hive_;
    std::unordered_map<uint32_t, Security*> securities_;
    // Keys whose content is still to be read. A stack of its own: the depth is the file's.
    std::vector<Pending> pending_;
};

bool Reader::ReadTree(uint32_t rootCell) {
    Cell cell;
    Key& root = hive_.Root();
    if (!ReadKeyCell(rootCell, &cell, &root.name)) return false;
    pending_.push_back({&root, cell});
    while (!pending_.empty()) {
        const Pending next = pending_.back();
        pending_.pop_back();
        if (!ReadKey(*next.key, next.cell)) return false;
    }
    return true;
}

bool Reader::ReadKeyCell(uint32_t offset, Cell* cell, WString* name) {
    if (!cells_.Claim(offset, key::kName, cell) || !cell->Is(key::kMagic)) return false;
    const uint32_t bytes = cell->Word(key::kNameBytes);
    const bool narrow = (cell->Word(key::kFlags) & key::kNarrowName) != 0;
    return bytes <= cell->size - key::kName &&
           ReadName(cell->data + key::kName, bytes, narrow, name);
}

bool Reader::ReadKey(Key& key, const Cell& cell) {
    key.lastWrite = Load<uint64_t>(cell.data + key::kTime);
    key.isLink = (cell.Word(key::kFlags) & key::kIsLink) != 0;
    return ReadClass(key, cell) && ReadSecurity(key, cell.Number(key::kSecurity)) &&
           ReadValues(key, cell) && ReadSubkeys(key, cell);
}

bool Reader::ReadName(const uint8_t* at, uint32_t bytes, bool narrow, WString* name) {
    if (narrow) {
        name->assign(at, at + bytes);
        return true;
    }
    if (bytes % sizeof(WChar) != 0) return false;
    name->resize(bytes / sizeof(WChar));
    if (bytes != 0) std::memcpy(name->data(), at, bytes);
    return true;
}

bool Reader::ReadClass(Key& key, const Cell& cell) {
    const uint32_t bytes = cell.Word(key::kClassBytes);
    const uint32_t offset = cell.Number(key::kClass);
    if (bytes == 0 || offset == kNoCell) return true;
    Cell text;
    return cells_.Claim(offset, bytes, &text) && ReadName(text.data, bytes, false, &key.className);
}

// Security cells are shared by many keys and therefore not claimed.
bool Reader::ReadSecurity(Key& key, uint32_t offset) {
    if (offset == kNoCell) {
        hive_.ShareSecurity(key, nullptr);
        return true;
    }
    const auto known = securities_.find(offset);
    if (known != securities_.end()) {
        hive_.ShareSecurity(key, known->second);
        return true;
    }
    Cell cell;
    if (!cells_.Find(offset, security::kDescriptor, &cell) || !cell.Is(security::kMagic)) {
        return false;
    }
    const uint32_t bytes = cell.Number(security::kBytes);
    if (bytes > cell.size - security::kDescriptor) return false;
    const uint8_t* descriptor = cell.data + security::kDescriptor;
    hive_.SetSecurity(key, Bytes(descriptor, descriptor + bytes));
    securities_.emplace(offset, key.security);
    return true;
}

bool Reader::ReadValues(Key& key, const Cell& cell) {
    const uint32_t count = cell.Number(key::kValueCount);
    if (count == 0) return true;
    Cell list;
    if (!cells_.Claim(cell.Number(key::kValueList), 0, &list) || count > list.size / 4) {
        return false;
    }
    for (uint32_t i = 0; i < count; ++i) {
        if (!ReadValue(key, list.Number(i * 4))) return false;
    }
    return true;
}

bool Reader::ReadValue(Key& key, uint32_t offset) {
    Cell cell;
    if (!cells_.Claim(offset, value::kName, &cell) || !cell.Is(value::kMagic)) return false;
    const uint32_t bytes = cell.Word(value::kNameBytes);
    const bool narrow = (cell.Word(value::kFlags) & value::kNarrowName) != 0;
    WString name;
    if (bytes > cell.size - value::kName ||
        !ReadName(cell.data + value::kName, bytes, narrow, &name)) {
        return false;
    }
    Value* value = key.values.Add(std::move(name));
    value->type = cell.Number(value::kType);
    return ReadData(cell, &value->data);
}

bool Reader::ReadData(const Cell& cell, Bytes* data) {
    const uint32_t stored = cell.Number(value::kDataBytes);
    const uint32_t size = stored & ~value::kInlineData;
    if (size == 0) return true;
    if (stored != size) {
        if (size > value::kMostInline) return false;
        data->assign(cell.data + value::kData, cell.data + value::kData + size);
        return true;
    }
    Cell content;
    if (!cells_.Claim(cell.Number(value::kData), 0, &content)) return false;
    if (size > content.size) return ReadBigData(content, size, data);
    data->assign(content.data, content.data + size);
    return true;
}

bool Reader::ReadBigData(const Cell& cell, uint32_t size, Bytes* data) {
    if (cell.size < big::kHead || !cell.Is(big::kMagic)) return false;
    const uint32_t count = cell.Word(big::kCount);
    Cell list;
    if (count != (size - 1) / big::kSegment + 1 ||
        !cells_.Claim(cell.Number(big::kList), count * 4, &list)) {
        return false;
    }
    // Nothing is set aside for the whole: the size is only what the file says.
    for (uint32_t i = 0, left = size; i < count; ++i) {
        const uint32_t part = std::min(left, big::kSegment);
        Cell segment;
        if (!cells_.Claim(list.Number(i * 4), part, &segment)) return false;
        data->insert(data->end(), segment.data, segment.data + part);
        left -= part;
    }
    return true;
}

bool Reader::ReadSubkeys(Key& key, const Cell& cell) {
    uint32_t left = cell.Number(key::kSubkeyCount);
    if (left == 0) return true;
    Cell list;
    if (key.depth >= kMaxDepth || !cells_.Claim(cell.Number(key::kSubkeyList), 4, &list)) {
        return false;
    }
    if (!list.Is("ri")) return ReadList(key, list, &left) && left == 0;
    const uint32_t count = list.Word(list::kCount);
    if (count > (list.size - list::kItems) / 4) return false;
    for (uint32_t i = 0; i < count; ++i) {
        Cell part;
        if (!cells_.Claim(list.Number(list::kItems + i * 4), 4, &part) ||
            !ReadList(key, part, &left)) {
            return false;
        }
    }
    return left == 0;
}

// One list of keys. `left` is what the key's own count still allows.
bool Reader::ReadList(Key& key, const Cell& list, uint32_t* left) {
    const bool hinted = list.Is("lf") || list.Is("lh");
    if (!hinted && !list.Is("li")) return false;
    const uint32_t step = hinted ? list::kHintedItem : list::kBareItem;
    const uint32_t count = list.Word(list::kCount);
    if (count > (list.size - list::kItems) / step || count > *left) return false;
    for (uint32_t i = 0; i < count; ++i) {
        if (!AddSubkey(key, list.Number(list::kItems + i * step))) return false;
    }
    *left -= count;
    return true;
}

bool Reader::AddSubkey(Key& key, uint32_t offset) {
    Cell cell;
    WString name;
    if (!ReadKeyCell(offset, &cell, &name) || name.empty()) return false;
    Key* subkey = hive_.AddKey(key, std::move(name));
    pending_.push_back({subkey, cell});
    return true;
}

}  // namespace

platform::Error ReadHive(const uint8_t* bytes, size_t size, Hive& hive) {
    if (size == 0 || size > 0xFFFFFFFF) return kErrorBadDatabase;
    if (size < kBlockSize || !HasMagic(bytes, base::kMagic)) return kErrorNotRegistryFile;
    const uint32_t length = Load<uint32_t>(bytes + base::kBinsLength);
    const uint32_t minor = Load<uint32_t>(bytes + base::kMinor);
    const bool sound = Load<uint32_t>(bytes + base::kChecksum) == Checksum(bytes) &&
                       Load<uint32_t>(bytes + base::kMajor) == 1 && minor >= 1 && minor <= 6 &&
                       Load<uint32_t>(bytes + base::kType) == 0 && length % kBlockSize == 0 &&
                       length <= size - kBlockSize;
    CellSpace cells;
    if (!sound || !cells.Open(bytes + kBlockSize, length)) return kErrorNotRegistryFile;
    Reader reader(cells, hive);
    return reader.ReadTree(Load<uint32_t>(bytes + base::kRootCell)) ? platform::kErrorSuccess
                                                                    : kErrorNotRegistryFile;
}

}  // namespace offreg
