// SPDX-License-Identifier: MIT
#include "storage/namespace/Search.h"

namespace storage {

namespace {

using platform::WStringView;

// The match of one name. It goes back to a star once for each difference and never gives up what
// the star has passed already. A full backtrack would list names that such patterns never found.
struct Match {
    WStringView name;
    WStringView pattern;
    bool caseSensitive;
    size_t inName = 0;
    size_t inPattern = 0;
    bool hasStar = false;
    size_t star = 0;
    size_t questions = 0;  // "?" that followed the star
    bool sawDot = false;

    bool NameEnds() const { return inName >= name.size(); }
    WChar PatternUnit() const { return inPattern < pattern.size() ? pattern[inPattern] : WChar{0}; }
    bool AtPattern(WChar unit) const { return inPattern < pattern.size() && PatternUnit() == unit; }
    bool UnitsAgree() const {
        if (inPattern >= pattern.size()) return false;
        const WChar a = name[inName];
        const WChar b = pattern[inPattern];
        return caseSensitive ? a == b : platform::Fold(a) == platform::Fold(b);
    }

    void PassStar() {
        hasStar = true;
        star = inPattern++;
        questions = 0;
        for (; AtPattern('*') || AtPattern('?'); ++inPattern) {
            if (AtPattern('*')) continue;
            if (NameEnds()) return;
            ++inName;
            ++questions;
        }
        while (!NameEnds() && !UnitsAgree()) ++inName;
    }
    // False when the name cannot match any more.
    bool Turn() {
        if (name[inName] == '.') sawDot = true;
        if (AtPattern('*')) {
            PassStar();
        } else if (AtPattern('?') || UnitsAgree()) {
            ++inName;
            ++inPattern;
        } else {
            if (!hasStar) return false;
            inPattern = star;
            inName -= questions;
        }
        return true;
    }
    bool RestIsEmpty() {
        while (AtPattern('*')) ++inPattern;
        const WStringView rest = pattern.substr(inPattern);
        return rest.empty() || rest == WStringView(WTEXT(".*")) ||
               (rest == WStringView(WTEXT(".")) && !sawDot);
    }
};

}  // namespace

bool MatchPattern(WStringView name, WStringView pattern, bool caseSensitive) {
    Match match{name, pattern, caseSensitive};
    while (!match.NameEnds())
        if (!match.Turn()) return false;
    return match.RestIsEmpty();
}

}  // namespace storage
