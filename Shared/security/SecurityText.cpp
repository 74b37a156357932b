// SPDX-License-Identifier: MIT
#include "Shared/security/SecurityText.h"

#include <cstring>
#include <limits>

#include "Shared/security/SecurityNames.h"
#include "platform/Errors.h"

namespace security {
namespace {

using platform::Fold;
using platform::WChar;
using platform::WString;
using platform::WStringView;

constexpr uint32_t kSuccess = platform::kErrorSuccess;
constexpr size_t kMostSubAuthorities = 15;
constexpr WStringView kNullList = WTEXT("NO_ACCESS_CONTROL");

// Which control bits belong to a list.
struct ListKind {
    uint16_t present, isProtected, inheritRequired, inherited;
};
constexpr ListKind kDiscretionary = {kDaclPresent, kDaclProtected, kDaclInheritRequired,
                                     kDaclInherited};
constexpr ListKind kSystem = {kSaclPresent, kSaclProtected, kSaclInheritRequired, kSaclInherited};

template <class T>
void Append(Bytes* bytes, T number) {
    const auto* start = reinterpret_cast<const uint8_t*>(&number);
    bytes->insert(bytes->end(), start, start + sizeof number);
}

Bytes MakeSid(uint64_t authority, std::span<const uint32_t> subAuthorities) {
    Bytes sid = {1, static_cast<uint8_t>(subAuthorities.size())};
    for (int shift = 40; shift >= 0; shift -= 8) {
        sid.push_back(static_cast<uint8_t>(authority >> shift));
    }
    for (const uint32_t number : subAuthorities) Append(&sid, number);
    return sid;
}

Bytes SidOf(const NamedSid& named) {
    const uint32_t numbers[] = {named.first, named.second};
    return MakeSid(named.authority, {numbers, named.second == kNoSubAuthority ? 1u : 2u});
}

// Reads text from its front on.
class Parser {
  public:
    explicit Parser(WStringView text) : text_(text) {}
    uint32_t Parse(Bytes* descriptor);

  private:
    bool Take(WStringView wanted);
    template <size_t N>
    bool TakeName(const NamedBits (&names)[N], uint32_t* bits);
    bool TakeNumber(uint64_t most, uint64_t* number);
    uint32_t TakeSid(Bytes* sid);
    bool TakeRights(uint32_t* mask);
    uint32_t TakeAce(Bytes* list);
    uint32_t TakeList(const ListKind& kind, uint16_t* control, Bytes* list);

    WStringView text_;
};

bool Parser::Take(WStringView wanted) {
    if (platform::CompareFolded(text_.substr(0, wanted.size()), wanted) != 0) return false;
    text_.remove_prefix(wanted.size());
    return true;
}

// A name of two letters goes before one of one letter.
template <size_t N>
bool Parser::TakeName(const NamedBits (&names)[N], uint32_t* bits) {
    for (size_t length = 2; length > 0; --length) {
        for (const NamedBits& named : names) {
            if (named.name.size() != length || !Take(named.name)) continue;
            *bits = named.bits;
            return true;
        }
    }
    return false;
}

// Decimal, or hexadecimal with "0x" in front.
bool Parser::TakeNumber(uint64_t most, uint64_t* number) {
    const uint32_t base = Take(WTEXT("0x")) ? 16 : 10;
    *number = 0;
    size_t digits = 0;
    for (; digits < text_.size(); ++digits) {
        const WChar unit = Fold(text_[digits]);
        uint32_t digit = base;
        if (unit >= '0' && unit <= '9') digit = static_cast<uint32_t>(unit - '0');
        if (unit >= 'a' && unit <= 'f') digit = static_cast<uint32_t>(unit - 'a') + 10;
        if (digit >= base) break;
        *number = *number * base + digit;
        if (*number > most) return false;
    }
    text_.remove_prefix(digits);
    return digits > 0;
}

uint32_t Parser::TakeSid(Bytes* sid) {
    if (!Take(WTEXT("S-1-"))) {
        for (const NamedSid& named : kNamedSids) {
            if (!Take(named.name)) continue;
            *sid = SidOf(named);
            return kSuccess;
        }
        return kErrorInvalidSid;
    }
    uint64_t authority = 0;
    if (!TakeNumber((uint64_t{1} << 48) - 1, &authority)) return kErrorInvalidSid;
    std::vector<uint32_t> numbers;
    while (Take(WTEXT("-"))) {
        uint64_t number = 0;
        if (numbers.size() == kMostSubAuthorities ||
            !TakeNumber(std::numeric_limits<uint32_t>::max(), &number)) {
            return kErrorInvalidSid;
        }
        numbers.push_back(static_cast<uint32_t>(number));
    }
    *sid = MakeSid(authority, numbers);
    return kSuccess;
}

bool Parser::TakeRights(uint32_t* mask) {
    *mask = 0;
    if (!text_.empty() && text_.front() >= '0' && text_.front() <= '9') {
        uint64_t number = 0;
        if (!TakeNumber(std::numeric_limits<uint32_t>::max(), &number)) return false;
        *mask = static_cast<uint32_t>(number);
        return true;
    }
    uint32_t bits = 0;
    while (TakeName(kCombinedRights, &bits) || TakeName(kSingleRights, &bits) ||
           TakeName(kLabelRights, &bits)) {
        *mask |= bits;
    }
    return true;
}

// (type;flags;rights;;;sid)
uint32_t Parser::TakeAce(Bytes* list) {
    uint32_t type = 0;
    uint32_t flags = 0;
    uint32_t bits = 0;
    uint32_t mask = 0;
    if (!TakeName(kAceTypes, &type) || !Take(WTEXT(";"))) return kErrorInvalidAcl;
    while (TakeName(kAceFlags, &bits)) flags |= bits;
    if (!Take(WTEXT(";")) || !TakeRights(&mask) || !Take(WTEXT(";;;"))) return kErrorInvalidAcl;
    Bytes sid;
    const uint32_t error = TakeSid(&sid);
    if (error != kSuccess) return error;
    if (!Take(WTEXT(")"))) return kErrorInvalidAcl;
    list->push_back(static_cast<uint8_t>(type));
    list->push_back(static_cast<uint8_t>(flags));
    Append(list, static_cast<uint16_t>(8 + sid.size()));
    Append(list, mask);
    list->insert(list->end(), sid.begin(), sid.end());
    return list->size() <= 0xFFFF ? kSuccess : kErrorInvalidAcl;
}

uint32_t Parser::TakeList(const ListKind& kind, uint16_t* control, Bytes* list) {
    *control |= kind.present;
    bool isNull = false;
    for (bool more = true; more;) {
        more = true;
        if (Take(kNullList)) {
            isNull = true;
        } else if (Take(WTEXT("AR"))) {
            *control |= kind.inheritRequired;
        } else if (Take(WTEXT("AI"))) {
            *control |= kind.inherited;
        } else if (Take(WTEXT("P"))) {
            *control |= kind.isProtected;
        } else {
            more = false;
        }
    }
    if (isNull) return kSuccess;
    *list = {2, 0, 0, 0, 0, 0, 0, 0};
    uint16_t count = 0;
    for (; Take(WTEXT("(")); ++count) {
        const uint32_t error = TakeAce(list);
        if (error != kSuccess) return error;
    }
    const auto size = static_cast<uint16_t>(list->size());
    std::memcpy(list->data() + 2, &size, sizeof size);
    std::memcpy(list->data() + 4, &count, sizeof count);
    return kSuccess;
}

uint32_t Parser::Parse(Bytes* descriptor) {
    Parts parts;
    Bytes owner, group, dacl, sacl;
    while (!text_.empty()) {
        uint32_t error = platform::kErrorInvalidParameter;
        if (owner.empty() && Take(WTEXT("O:"))) {
            error = TakeSid(&owner);
        } else if (group.empty() && Take(WTEXT("G:"))) {
            error = TakeSid(&group);
        } else if ((parts.control & kDaclPresent) == 0 && Take(WTEXT("D:"))) {
            error = TakeList(kDiscretionary, &parts.control, &dacl);
        } else if ((parts.control & kSaclPresent) == 0 && Take(WTEXT("S:"))) {
            error = TakeList(kSystem, &parts.control, &sacl);
        }
        if (error != kSuccess) return error;
    }
    parts.owner = owner;
    parts.group = group;
    parts.dacl = dacl;
    parts.sacl = sacl;
    *descriptor = PutTogether(parts);
    return kSuccess;
}

void AppendNumber(uint64_t number, WString* text) {
    for (const char digit : std::to_string(number)) *text += static_cast<WChar>(digit);
}

void AppendHex(uint32_t number, WString* text) {
    *text += WTEXT("0x");
    int shift = 28;
    while (shift > 0 && number >> shift == 0) shift -= 4;
    for (; shift >= 0; shift -= 4) {
        *text += static_cast<WChar>("0123456789abcdef"[(number >> shift) & 0xF]);
    }
}

void AppendSid(View sid, WString* text) {
    for (const NamedSid& named : kNamedSids) {
        const Bytes bytes = SidOf(named);
        if (bytes.size() != sid.size() || std::memcmp(bytes.data(), sid.data(), sid.size()) != 0) {
            continue;
        }
        *text += named.name;
        return;
    }
    uint64_t authority = 0;
    for (size_t i = 2; i < 8; ++i) authority = authority << 8 | sid[i];
    *text += WTEXT("S-1-");
    AppendNumber(authority, text);
    for (size_t at = 8; at < sid.size(); at += 4) {
        uint32_t number = 0;
        std::memcpy(&number, sid.data() + at, sizeof number);
        *text += '-';
        AppendNumber(number, text);
    }
}

// The names of all bits of `bits`, in the table's order. False when one has no name.
template <size_t N>
bool AppendNames(const NamedBits (&names)[N], uint32_t bits, WString* text) {
    WString found;
    for (const NamedBits& named : names) {
        if ((bits & named.bits) == 0) continue;
        found += named.name;
        bits &= ~named.bits;
    }
    if (bits != 0) return false;
    *text += found;
    return true;
}

void AppendRights(const Ace& ace, WString* text) {
    if (ace.type == kLabelAce) {
        if (!AppendNames(kLabelRights, ace.mask, text)) AppendHex(ace.mask, text);
        return;
    }
    for (const NamedBits& named : kCombinedRights) {
        if (named.bits != ace.mask) continue;
        *text += named.name;
        return;
    }
    if (!AppendNames(kSingleRights, ace.mask, text)) AppendHex(ace.mask, text);
}

bool AppendAce(View entry, WString* text) {
    Ace ace;
    if (!ReadAce(entry, &ace)) return false;
    *text += '(';
    for (const NamedBits& named : kAceTypes) {
        if (named.bits == ace.type) *text += named.name;
    }
    *text += ';';
    if (!AppendNames(kAceFlags, ace.flags, text)) return false;
    *text += ';';
    AppendRights(ace, text);
    *text += WTEXT(";;;");
    AppendSid(ace.sid, text);
    *text += ')';
    return true;
}

bool AppendList(WStringView head, const ListKind& kind, uint16_t control, View list,
                WString* text) {
    if ((control & kind.present) == 0) return true;
    *text += head;
    if ((control & kind.isProtected) != 0) *text += 'P';
    if ((control & kind.inheritRequired) != 0) *text += WTEXT("AR");
    if ((control & kind.inherited) != 0) *text += WTEXT("AI");
    if (list.empty()) *text += kNullList;
    std::vector<View> entries;
    if (!EntriesOf(list, &entries)) return false;
    for (const View entry : entries) {
        if (!AppendAce(entry, text)) return false;
    }
    return true;
}

}  // namespace

uint32_t ParseSecurityText(const WChar* text, Bytes* descriptor) {
    if (text == nullptr) return platform::kErrorInvalidParameter;
    return Parser(text).Parse(descriptor);
}

uint32_t FormatSecurityText(View descriptor, uint32_t information, WString* text) {
    Parts parts;
    if (!TakeApart(descriptor, &parts)) return kErrorInvalidDescriptor;
    const Bytes chosen = Select(parts, information);
    TakeApart(chosen, &parts);
    text->clear();
    if (!parts.owner.empty()) AppendSid(parts.owner, &(*text += WTEXT("O:")));
    if (!parts.group.empty()) AppendSid(parts.group, &(*text += WTEXT("G:")));
    const bool done = AppendList(WTEXT("D:"), kDiscretionary, parts.control, parts.dacl, text) &&
                      AppendList(WTEXT("S:"), kSystem, parts.control, parts.sacl, text);
    return done ? kSuccess : kErrorInvalidAcl;
}

}  // namespace security
