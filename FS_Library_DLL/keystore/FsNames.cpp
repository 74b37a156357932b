// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsNames.h"

#include <cstdlib>

namespace {

constexpr size_t kEscapeUnits = 5;

// For each of the first 128 units whether it is stored as it is.
struct PlainUnits {
    bool plain[128] = {};

    constexpr explicit PlainUnits(WStringView escaped) {
        for (unsigned unit = 0x20; unit < 0x7F; ++unit)
            if (escaped.find(static_cast<WChar>(unit)) == WStringView::npos) plain[unit] = true;
    }
    bool Holds(WChar unit) const {
        const auto code = static_cast<uint16_t>(unit);
        return code < 128 ? plain[code] : platform::IsPrintable(unit);
    }
};

constexpr PlainUnits kPlainInValues{WTEXT("\\/:*?\"<>|#")};
constexpr PlainUnits kPlainInKeys{WTEXT("/:*?\"<>|#")};

WChar* AppendEscape(WChar* out, WChar unit) {
    constexpr char digits[] = "0123456789ABCDEF";
    *out++ = '#';
    for (int shift = 12; shift >= 0; shift -= 4)
        *out++ = static_cast<WChar>(digits[static_cast<uint16_t>(unit) >> shift & 15]);
    return out;
}

// What the run time reads in up to four units as a hexadecimal number, cut to 16 bits.
WChar DecodeEscape(WStringView digits) {
    char text[5] = {};
    for (size_t i = 0; i < digits.size(); ++i)
        text[i] = static_cast<uint16_t>(digits[i]) < 128 ? static_cast<char>(digits[i]) : '?';
    return static_cast<WChar>(std::strtoul(text, nullptr, 16));
}

bool NeedsDecoding(WStringView stored) {
    return stored.find('#') != WStringView::npos;
}

// `out` has room for as many units as `stored` has. Returns the number written.
size_t Decode(WStringView stored, WChar* out) {
    size_t length = 0;
    const size_t begin = stored.starts_with(kCollisionMarker) ? kCollisionMarker.size() : 0;
    for (size_t i = begin; i < stored.size(); ++i) {
        if (stored[i] != '#') {
            out[length++] = stored[i];
            continue;
        }
        const WStringView digits = stored.substr(i + 1, kEscapeUnits - 1);
        out[length++] = DecodeEscape(digits);
        i += digits.size();
    }
    return length;
}

}  // namespace

bool FS_EscapeName(WStringView name, FsNameSet set, FsText* buffer, WStringView* stored) {
    const PlainUnits& plain = set == FsNameSet::Value ? kPlainInValues : kPlainInKeys;
    size_t first = 0;
    while (first < name.size() && plain.Holds(name[first])) ++first;
    if (first == name.size()) {
        *stored = name;
        return true;
    }
    size_t escapes = 0;
    for (const WChar unit : name) escapes += !plain.Holds(unit);
    const size_t length = name.size() + escapes * (kEscapeUnits - 1);
    if (!buffer->Reserve(length)) return false;
    WChar* out = buffer->Data();
    for (const WChar unit : name) {
        if (plain.Holds(unit))
            *out++ = unit;
        else
            out = AppendEscape(out, unit);
    }
    buffer->Truncate(length);
    *stored = buffer->View();
    return true;
}

bool FS_EscapeName(const WChar* name, FsNameSet set, FsText* buffer, WStringView* stored) {
    const PlainUnits& plain = set == FsNameSet::Value ? kPlainInValues : kPlainInKeys;
    size_t units = 0;
    while (plain.Holds(name[units])) ++units;  // the 0 at the end is not plain
    if (name[units] != 0) return FS_EscapeName(WStringView(name), set, buffer, stored);
    *stored = {name, units};
    return true;
}

bool FS_UnescapeName(const WChar* stored, WChar** out) {
    if (stored == nullptr || out == nullptr) return false;
    *out = nullptr;
    const WStringView text(stored);
    if (!NeedsDecoding(text)) return true;
    *out = FsUnescapedCopy(text);
    return *out != nullptr;
}

WChar* FsUnescapedCopy(WStringView stored) {
    WChar* name = static_cast<WChar*>(platform::HeapAllocate((stored.size() + 1) * sizeof(WChar)));
    if (name == nullptr) return nullptr;
    name[Decode(stored, name)] = 0;
    return name;
}

void FsAddUnescaped(WStringView stored, std::vector<WString>* names) {
    size_t plain = 0;
    while (plain < stored.size() && stored[plain] != '#' && stored[plain] != 0) ++plain;
    if (plain == stored.size() || (stored[plain] == 0 && !NeedsDecoding(stored))) {
        names->emplace_back(stored.data(), plain);
        return;
    }
    WString& name = names->emplace_back(stored.size(), WChar{0});
    name.resize(Decode(stored, name.data()));
    const size_t end = name.find(WChar{0});
    if (end != WString::npos) name.resize(end);
}

bool FsUnescapeInto(WStringView stored, FsText* out) {
    if (!out->Reserve(stored.size())) return false;
    out->Truncate(Decode(stored, out->Data()));
    return true;
}

bool FS_JoinPath(WStringView base, WStringView name, FsText* out) {
    if (!out->Reserve(base.size() + name.size() + 2)) return false;
    WChar* text = out->Data();
    size_t length = 0;
    if (base.empty() || base[0] != '\\') text[length++] = '\\';
    base.copy(text + length, base.size());
    length += base.size();
    if (!name.empty()) {
        if (text[length - 1] != '\\') text[length++] = '\\';
        name.copy(text + length, name.size());
        length += name.size();
    }
    while (length > 0 && text[length - 1] == '\\') --length;
    out->Truncate(length);
    return true;
}

bool FS_CollisionPath(WStringView path, FsText* out) {
    const size_t cut = path.rfind('\\') + 1;  // npos wraps to 0: a path of one component
    return out->Reserve(path.size() + kCollisionMarker.size()) &&
           out->Assign(path.substr(0, cut)) && out->Append(kCollisionMarker) &&
           out->Append(path.substr(cut));
}
