// SPDX-License-Identifier: MIT
#include "offreg/HiveReader.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>
#include <vector>

#include "offreg/HiveCells.h"
#include "offreg/HiveFormat.h"

namespace offreg {
namespace {

using namespace format;
using namespace cells;

// A key's path as text for people: cut at the front where it is long, units below a blank escaped.
std::string PathOf(const Key& key) {
    constexpr size_t kLongest = 400;
    WString path;
    const Key* above = &key;
    for (; above->parent != nullptr && path.size() < kLongest; above = above->parent) {
        path.insert(0, WTEXT("\\") + above->name);
    }
    const bool isCut = above->parent != nullptr || path.size() > kLongest;
    if (path.size() > kLongest) path.erase(0, path.size() - kLongest);
    std::string text(isCut ? "..." : path.empty() ? "\\" : "");
    for (size_t start = 0; start < path.size();) {
        const auto plain = std::find_if(path.begin() + static_cast<ptrdiff_t>(start), path.end(),
                                        [](WChar unit) { return unit < ' '; });
        const auto end = static_cast<size_t>(plain - path.begin());
        text += platform::ToUtf8(WStringView(path).substr(start, end - start));
        if (end < path.size()) text += "%" + std::to_string(uint32_t{path[end]});
        start = end + 1;
    }
    return text;
}

struct PrecedesByName {
    bool operator()(WStringView a, WStringView b) const { return CompareNames(a, b) < 0; }
};

class Reader {
  public:
    Reader(CellSpace& cells, Hive& hive, LeftOut& leftOut)
        : cells_(cells), hive_(hive), leftOut_(leftOut) {}
    // False when there is no root.
    bool ReadTree(uint32_t rootCell);

  private:
    struct Pending {
        Key* key;
        Cell cell;
    };
    using Names = std::set<WStringView, PrecedesByName>;

    void LeaveOut(const std::string& what, const Key& key);
    bool ReadKeyCell(uint32_t offset, Cell* cell, WString* name);
    void ReadKey(Key& key, const Cell& cell);
    bool ReadName(const uint8_t* at, uint32_t bytes, bool narrow, WString* name);
    bool ReadClass(Key& key, const Cell& cell);
    bool ReadSecurity(Key& key, uint32_t offset);
    void ReadValues(Key& key, const Cell& cell);
    bool ReadValue(Key& key, uint32_t offset, Names& names);
    bool ReadData(const Cell& cell, Bytes* data);
    bool ReadBigData(const Cell& cell, uint32_t size, Bytes* data);
    void ReadSubkeys(Key& key, const Cell& cell);
    uint32_t ReadLists(Key& key, const Cell& top);
    uint32_t ReadList(Key& key, const Cell& list);
    bool AddSubkey(Key& key, uint32_t offset);

    CellSpace& cells_;
    Hive& hive_;
    LeftOut& leftOut_;
    std::unordered_map<uint32_t, Security*> securities_;
    // Keys whose content is still to be read. A stack of its own: the depth is the file's.
    std::vector<Pending> pending_;
};

void Reader::LeaveOut(const std::string& what, const Key& key) {
    if (++leftOut_.count <= kMostTold) leftOut_.told.push_back(what + " of key " + PathOf(key));
}

bool Reader::ReadTree(uint32_t rootCell) {
    Cell cell;
    Key& root = hive_.Root();
    if (!ReadKeyCell(rootCell, &cell, &root.name)) return false;
    pending_.push_back({&root, cell});
    while (!pending_.empty()) {
        const Pending next = pending_.back();
        pending_.pop_back();
        ReadKey(*next.key, next.cell);
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

void Reader::ReadKey(Key& key, const Cell& cell) {
    key.lastWrite = Load<uint64_t>(cell.data + key::kTime);
    key.isLink = (cell.Word(key::kFlags) & key::kIsLink) != 0;
    if (!ReadClass(key, cell)) LeaveOut("the class", key);
    if (!ReadSecurity(key, cell.Number(key::kSecurity))) {
        hive_.ShareSecurity(key, nullptr);
        LeaveOut("the security", key);
    }
    ReadValues(key, cell);
    ReadSubkeys(key, cell);
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

void Reader::ReadValues(Key& key, const Cell& cell) {
    const uint32_t count = cell.Number(key::kValueCount);
    if (count == 0) return;
    Cell list;
    if (!cells_.Claim(cell.Number(key::kValueList), 0, &list)) {
        return LeaveOut("the list of the " + std::to_string(count) + " values", key);
    }
    const uint32_t listed = std::min(count, list.size / 4);
    Names names;
    for (uint32_t i = 0; i < listed; ++i) {
        if (!ReadValue(key, list.Number(i * 4), names)) {
            LeaveOut("value " + std::to_string(i), key);
        }
    }
    if (listed < count) {
        LeaveOut(
            "what should be values " + std::to_string(listed) + " to " + std::to_string(count - 1),
            key);
    }
}

bool Reader::ReadValue(Key& key, uint32_t offset, Names& names) {
    Cell cell;
    if (!cells_.Claim(offset, value::kName, &cell) || !cell.Is(value::kMagic)) return false;
    const uint32_t bytes = cell.Word(value::kNameBytes);
    const bool narrow = (cell.Word(value::kFlags) & value::kNarrowName) != 0;
    WString name;
    Bytes data;
    if (bytes > cell.size - value::kName ||
        !ReadName(cell.data + value::kName, bytes, narrow, &name) || names.contains(name) ||
        !ReadData(cell, &data)) {
        return false;
    }
    Value* value = key.values.Add(std::move(name));
    value->type = cell.Number(value::kType);
    value->data = std::move(data);
    names.insert(value->name);
    return true;
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

void Reader::ReadSubkeys(Key& key, const Cell& cell) {
    const uint32_t count = cell.Number(key::kSubkeyCount);
    if (count == 0) return;
    Cell top;
    if (key.depth >= kMaxDepth || !cells_.Claim(cell.Number(key::kSubkeyList), 4, &top)) {
        return LeaveOut("the list of the " + std::to_string(count) + " subkeys", key);
    }
    const uint32_t listed = ReadLists(key, top);
    if (listed != count) {
        LeaveOut("what makes " + std::to_string(count) + " subkeys of the " +
                     std::to_string(listed) + " that are listed",
                 key);
    }
}

// A list, or a list of lists. The number of entries, whether they could be read or not.
uint32_t Reader::ReadLists(Key& key, const Cell& top) {
    if (!top.Is("ri")) return ReadList(key, top);
    const uint32_t count =
        std::min<uint32_t>(top.Word(list::kCount), (top.size - list::kItems) / list::kBareItem);
    uint32_t listed = 0;
    for (uint32_t i = 0; i < count; ++i) {
        Cell part;
        if (cells_.Claim(top.Number(list::kItems + i * list::kBareItem), 4, &part)) {
            listed += ReadList(key, part);
        } else {
            LeaveOut("list " + std::to_string(i) + " of subkeys", key);
        }
    }
    return listed;
}

uint32_t Reader::ReadList(Key& key, const Cell& list) {
    const bool hinted = list.Is("lf") || list.Is("lh");
    if (!hinted && !list.Is("li")) {
        LeaveOut("a list of subkeys", key);
        return 0;
    }
    const uint32_t step = hinted ? list::kHintedItem : list::kBareItem;
    const uint32_t count =
        std::min<uint32_t>(list.Word(list::kCount), (list.size - list::kItems) / step);
    for (uint32_t i = 0; i < count; ++i) {
        if (!AddSubkey(key, list.Number(list::kItems + i * step))) {
            LeaveOut("subkey " + std::to_string(i) + " of a list", key);
        }
    }
    return count;
}

bool Reader::AddSubkey(Key& key, uint32_t offset) {
    Cell cell;
    WString name;
    if (!ReadKeyCell(offset, &cell, &name) || name.empty() || name.find('\\') != WString::npos ||
        key.subkeys.Find(name) != nullptr) {
        return false;
    }
    Key* subkey = hive_.AddKey(key, std::move(name));
    pending_.push_back({subkey, cell});
    return true;
}

}  // namespace

platform::Error ReadHive(const uint8_t* bytes, size_t size, Hive& hive, LeftOut* leftOut) {
    if (size == 0 || size > 0xFFFFFFFF) return kErrorBadDatabase;
    if (size < kBlockSize || !HasMagic(bytes, base::kMagic)) return kErrorNotRegistryFile;
    const uint32_t length = Load<uint32_t>(bytes + base::kBinsLength);
    const uint32_t minor = Load<uint32_t>(bytes + base::kMinor);
    const bool sound = Load<uint32_t>(bytes + base::kChecksum) == Checksum(bytes) &&
                       Load<uint32_t>(bytes + base::kMajor) == 1 && minor >= 1 && minor <= 6 &&
                       Load<uint32_t>(bytes + base::kType) == 0 && length % kBlockSize == 0 &&
                       length <= size - kBlockSize;
    if (!sound) return kErrorNotRegistryFile;
    LeftOut unused;
    LeftOut& told = leftOut != nullptr ? *leftOut : unused;
    CellSpace cells;
    const uint32_t lost = cells.Open(bytes + kBlockSize, length);
    if (lost != 0) {
        ++told.count;
        told.told.push_back(std::to_string(lost) + " blocks that belong to no bin");
    }
    Reader reader(cells, hive, told);
    return reader.ReadTree(Load<uint32_t>(bytes + base::kRootCell)) ? platform::kErrorSuccess
                                                                    : kErrorNotRegistryFile;
}

}  // namespace offreg
