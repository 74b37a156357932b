#include "tools/commands/DifferenceReports.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

constexpr size_t kShownBytes = 32;  // of binary data

std::string ShowData(const Value& value) {
    return TypeName(value.type) + " " + DataOnOneLine(value.type, value.data, kShownBytes);
}

// Data may be too long to show where it differs.
std::string ShowBoth(const Value& here, const Value& there) {
    const std::string one = ShowData(here), other = ShowData(there);
    std::string text = one + " -> " + other;
    if (one != other) return text;
    const auto end = std::min(here.data.size(), there.data.size());
    const auto at =
        std::mismatch(here.data.begin(), here.data.begin() + static_cast<ptrdiff_t>(end),
                      there.data.begin())
            .first -
        here.data.begin();
    return text + fmt::format(" (from byte {} on)", at);
}

}  // namespace

std::string DifferenceLines::Shown(WStringView path) const {
    return ShowKey(JoinKeys(key_, path));
}

void DifferenceLines::KeyOnlyHere(WStringView path) {
    out_ << "- " << Shown(path) << "\\\n";
}

void DifferenceLines::KeyOnlyThere(WStringView path) {
    out_ << "+ " << Shown(path) << "\\\n";
}

void DifferenceLines::ValueDiffers(WStringView path, const WString& name, const fbr::Value* here,
                                   const fbr::Value* there) {
    const char mark = here == nullptr ? '+' : there == nullptr ? '-' : '~';
    const std::string data = here == nullptr    ? ShowData(*there)
                             : there == nullptr ? ShowData(*here)
                                                : ShowBoth(*here, *there);
    const std::string shownName = name.empty() ? "(Default)" : "\"" + Printable(name) + "\"";
    out_ << mark << ' ' << Shown(path) << ' ' << shownName << ' ' << data << '\n';
}

void DifferenceReg::KeyOnlyHere(WStringView path) {
    writer_.DeleteKey(path);
    current_.reset();
}

void DifferenceReg::KeyOnlyThere(WStringView path) {
    ReadTree(there_.store, JoinKeys(there_.key, path), *this, {}, onLoss_);
    current_.reset();
}

void DifferenceReg::Key(WStringView path) {
    writer_.Key(PathBelow(path, there_.key));
}

void DifferenceReg::Value(WStringView name, uint32_t type, const Bytes& data) {
    writer_.Value(name, type, data);
}

void DifferenceReg::ValueDiffers(WStringView path, const WString& name, const fbr::Value*,
                                 const fbr::Value* there) {
    if (current_ != path) writer_.Key(current_.emplace(path));
    if (there == nullptr)
        writer_.DeleteValue(name);
    else
        writer_.Value(name, there->type, there->data);
}

}  // namespace fbr
