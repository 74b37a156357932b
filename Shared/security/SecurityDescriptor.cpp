// SPDX-License-Identifier: MIT
#include "Shared/security/SecurityDescriptor.h"

#include <cstring>

namespace security {
namespace {

constexpr size_t kHeader = 20;
constexpr size_t kListHeader = 8;
constexpr size_t kAceHeader = 4;
constexpr uint8_t kMostSubAuthorities = 15;

template <class T>
T Load(View bytes, size_t at) {
    T number;
    std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

template <class T>
void Append(Bytes* bytes, T number) {
    const auto* start = reinterpret_cast<const uint8_t*>(&number);
    bytes->insert(bytes->end(), start, start + sizeof number);
}

// The list at the start of `bytes`, empty when its size is not in them.
View ListAt(View bytes) {
    if (bytes.size() < kListHeader) return {};
    const size_t size = Load<uint16_t>(bytes, 2);
    return size >= kListHeader && size <= bytes.size() ? bytes.first(size) : View();
}

// One part: nothing at offset 0, else what `find` finds there.
bool PartAt(View bytes, uint32_t offset, View (*find)(View), View* part) {
    *part = {};
    if (offset == 0) return true;
    if (offset < kHeader || offset >= bytes.size()) return false;
    *part = find(bytes.subspan(offset));
    return !part->empty();
}

bool IsLabel(View entry) {
    return entry[0] == kLabelAce;
}

// A list of the entries that `keep` wants, of `first` and then of `second`. A list that is not well
// formed has none.
template <class First, class Second>
Bytes JoinLists(View first, First keepFirst, View second, Second keepSecond) {
    Bytes list(kListHeader);
    uint16_t count = 0;
    const auto add = [&](View source, auto keep) {
        std::vector<View> entries;
        if (!EntriesOf(source, &entries)) return;
        for (const View entry : entries) {
            if (!keep(entry) || list.size() + entry.size() > 0xFFFF) continue;
            list.insert(list.end(), entry.begin(), entry.end());
            ++count;
        }
    };
    add(first, keepFirst);
    add(second, keepSecond);
    list[0] = 2;  // the revision of lists with simple entries
    for (const View source : {first, second}) {
        if (!source.empty() && source[0] > list[0]) list[0] = source[0];
    }
    const auto size = static_cast<uint16_t>(list.size());
    std::memcpy(&list[2], &size, sizeof size);
    std::memcpy(&list[4], &count, sizeof count);
    return list;
}

constexpr auto kNone = [](View) { return false; };
constexpr auto kNoLabel = [](View entry) { return !IsLabel(entry); };

// The system list of `parts` as far as `information` names it; false when there is none.
bool SelectSystemList(const Parts& parts, uint32_t information, Bytes* list) {
    if ((information & (kSacl | kLabel)) == 0 || (parts.control & kSaclPresent) == 0) return false;
    if ((information & kSacl) != 0 && (information & kLabel) != 0) {
        list->assign(parts.sacl.begin(), parts.sacl.end());
        return true;
    }
    *list = (information & kLabel) != 0 ? JoinLists(parts.sacl, IsLabel, {}, kNone)
                                        : JoinLists(parts.sacl, kNoLabel, {}, kNone);
    return list->size() > kListHeader || (information & kSacl) != 0;
}

}  // namespace

View SidAt(View bytes) {
    if (bytes.size() < 8 || bytes[0] != 1 || bytes[1] > kMostSubAuthorities) return {};
    const size_t size = 8 + size_t{bytes[1]} * 4;
    return size <= bytes.size() ? bytes.first(size) : View();
}

bool EntriesOf(View list, std::vector<View>* entries) {
    entries->clear();
    if (list.size() < kListHeader) return list.empty();
    const uint16_t count = Load<uint16_t>(list, 4);
    size_t at = kListHeader;
    for (uint16_t i = 0; i < count; ++i) {
        if (list.size() - at < kAceHeader) return false;
        const size_t size = Load<uint16_t>(list, at + 2);
        if (size < kAceHeader || size > list.size() - at) return false;
        entries->push_back(list.subspan(at, size));
        at += size;
    }
    return true;
}

bool ReadAce(View entry, Ace* ace) {
    if (entry.size() < kAceHeader + 4) return false;
    const uint8_t type = entry[0];
    if (type > 3 && type != kLabelAce) return false;
    *ace = {type, entry[1], Load<uint32_t>(entry, 4), SidAt(entry.subspan(8))};
    return !ace->sid.empty();
}

bool TakeApart(View bytes, Parts* parts) {
    if (bytes.size() < kHeader || bytes[0] != 1) return false;
    parts->control = Load<uint16_t>(bytes, 2);
    if ((parts->control & kSelfRelative) == 0) return false;
    return PartAt(bytes, Load<uint32_t>(bytes, 4), SidAt, &parts->owner) &&
           PartAt(bytes, Load<uint32_t>(bytes, 8), SidAt, &parts->group) &&
           PartAt(bytes, Load<uint32_t>(bytes, 12), ListAt, &parts->sacl) &&
           PartAt(bytes, Load<uint32_t>(bytes, 16), ListAt, &parts->dacl);
}

Bytes PutTogether(const Parts& parts) {
    Bytes bytes;
    Append(&bytes, uint16_t{1});
    Append(&bytes, static_cast<uint16_t>(parts.control | kSelfRelative));
    uint32_t offset = kHeader;
    const auto place = [&offset](View part) {
        const uint32_t at = part.empty() ? 0 : offset;
        offset += static_cast<uint32_t>((part.size() + 3) & ~size_t{3});
        return at;
    };
    // The lists stand before the SIDs, as the system lays them out.
    const uint32_t sacl = place(parts.sacl);
    const uint32_t dacl = place(parts.dacl);
    const uint32_t owner = place(parts.owner);
    const uint32_t group = place(parts.group);
    for (const uint32_t at : {owner, group, sacl, dacl}) Append(&bytes, at);
    for (const View part : {parts.sacl, parts.dacl, parts.owner, parts.group}) {
        bytes.insert(bytes.end(), part.begin(), part.end());
        bytes.resize((bytes.size() + 3) & ~size_t{3});
    }
    return bytes;
}

Bytes Select(const Parts& parts, uint32_t information) {
    Parts chosen;
    Bytes systemList;
    if ((information & kOwner) != 0) chosen.owner = parts.owner;
    if ((information & kGroup) != 0) chosen.group = parts.group;
    if ((information & kDacl) != 0) {
        chosen.dacl = parts.dacl;
        chosen.control |= parts.control & (kDaclPresent | kDaclBits);
    }
    if (SelectSystemList(parts, information, &systemList)) {
        chosen.sacl = systemList;
        chosen.control |= parts.control & (kSaclPresent | kSaclBits);
    }
    return PutTogether(chosen);
}

Bytes Merge(const Parts& old, const Parts& changed, uint32_t information) {
    Parts merged = old;
    Bytes systemList;
    if ((information & kOwner) != 0) merged.owner = changed.owner;
    if ((information & kGroup) != 0) merged.group = changed.group;
    const auto takeBits = [&](uint16_t bits) {
        merged.control = static_cast<uint16_t>((merged.control & ~bits) | (changed.control & bits));
    };
    if ((information & kDacl) != 0) {
        merged.dacl = changed.dacl;
        takeBits(kDaclPresent | kDaclBits);
    }
    const bool audit = (information & kSacl) != 0;
    const bool labels = (information & kLabel) != 0;
    if (audit && labels) {
        merged.sacl = changed.sacl;
        takeBits(kSaclPresent | kSaclBits);
    } else if (audit || labels) {
        systemList = audit ? JoinLists(changed.sacl, kNoLabel, old.sacl, IsLabel)
                           : JoinLists(old.sacl, kNoLabel, changed.sacl, IsLabel);
        if (audit) takeBits(kSaclBits);
        const bool any = systemList.size() > kListHeader;
        merged.sacl = any ? View(systemList) : View();
        merged.control = static_cast<uint16_t>(any ? merged.control | kSaclPresent
                                                   : merged.control & ~kSaclPresent);
    }
    return PutTogether(merged);
}

}  // namespace security
