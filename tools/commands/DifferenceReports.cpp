// SPDX-License-Identifier: MIT
#include "tools/commands/DifferenceReports.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/commands/Inspect.h"
#include "tools/commands/Shown.h"
#include "tools/format/Text.h"
#include "tools/store/TreeReader.h"

namespace fbr {
namespace {

// Data may be too long to show where it differs.
std::string ShowBoth(const Value& here, const Value& there) {
    const std::string one = ShowTypeAndData(here), other = ShowTypeAndData(there);
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

void NewInFull::KeyOnlyThere(WStringView path) {
    ReadTree(there_.store, JoinKeys(there_.key, path), *this, {}, onLoss_, Order::kByName);
}

void NewInFull::Key(WStringView path) {
    path_ = PathBelow(path, there_.key);
    report_.KeyOnlyThere(path_);
}

void NewInFull::Value(WStringView name, uint32_t type, const Bytes& data) {
    const fbr::Value value{type, data};
    report_.ValueDiffers(path_, WString(name), nullptr, &value);
}

std::string DifferenceLines::Shown(WStringView path) const {
    return ShowKey(JoinKeys(key_, path));
}

void DifferenceLines::Out(char mark, const std::string& text) {
    const Color color = mark == '+' ? Color::kGreen : mark == '-' ? Color::kRed : Color::kYellow;
    out_ << Colored(colored_, color, std::string(1, mark) + ' ' + text) << '\n';
}

void DifferenceLines::KeyOnlyHere(WStringView path) {
    Out('-', Shown(path) + "\\");
}

void DifferenceLines::KeyOnlyThere(WStringView path) {
    Out('+', Shown(path) + "\\");
}

void DifferenceLines::ValueDiffers(WStringView path, const WString& name, const fbr::Value* here,
                                   const fbr::Value* there) {
    const char mark = here == nullptr ? '+' : there == nullptr ? '-' : '~';
    const std::string data = here == nullptr    ? ShowTypeAndData(*there)
                             : there == nullptr ? ShowTypeAndData(*here)
                                                : ShowBoth(*here, *there);
    const std::string shownName = name.empty() ? "(Default)" : "\"" + Printable(name) + "\"";
    Out(mark, Shown(path) + ' ' + shownName + ' ' + data);
}

JsonObject DifferenceJson::Line(const char* change, WStringView path) const {
    JsonObject line(JsonObject::Place::kLine);
    line.Text("change", std::string(change)).Text("key", KeyInJson(JoinKeys(key_, path)));
    return line;
}

void DifferenceJson::KeyOnlyHere(WStringView path) {
    out_ << Line("-", path).Done() << '\n';
}

void DifferenceJson::KeyOnlyThere(WStringView path) {
    out_ << Line("+", path).Done() << '\n';
}

void DifferenceJson::ValueDiffers(WStringView path, const WString& name, const fbr::Value* here,
                                  const fbr::Value* there) {
    JsonObject line = Line(here == nullptr ? "+" : there == nullptr ? "-" : "~", path);
    line.Text("name", name);
    if (here != nullptr) line.Json("here", JsonObject().Data(here->type, here->data).Done());
    if (there != nullptr) line.Json("there", JsonObject().Data(there->type, there->data).Done());
    out_ << line.Done() << '\n';
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

DifferencePage::DifferencePage(std::ostream& out, const Place& here, const Place& there,
                               OnLoss onLoss)
    : here_(here),
      there_(there),
      onLoss_(std::move(onLoss)),
      page_(out, {{here.store.Name(), here.key, MapOf(here.store.FullName())},
                  {there.store.Name(), there.key, MapOf(there.store.FullName())}}) {}

// A key that one side has, with all below it.
void DifferencePage::AddAll(const Place& side, WStringView path) {
    onlyThere_ = &side == &there_;
    const WString root = JoinKeys(side.key, path);
    WalkKeys(
        side.store, root, onLoss_,
        [&](const fbr::Key& key) {
            const WStringView below = PathBelow(key.Path(), side.key);
            page_.Key(DepthOf(below), NameOf(below));
            if (onlyThere_) page_.Missing();
            page_.Time(ShowTime(key.Time(), ""));
            if (!onlyThere_) page_.Missing();
            ReadValues(key, *this, onLoss_, Order::kByName);
        },
        Order::kByName);
}

void DifferencePage::Value(WStringView name, uint32_t type, const Bytes& data) {
    page_.Value(name);
    if (onlyThere_) page_.Missing();
    page_.Data(type, data);
    if (!onlyThere_) page_.Missing();
}

void DifferencePage::KeyInBoth(WStringView path, const fbr::Key& here, const fbr::Key& there) {
    page_.Key(DepthOf(path), NameOf(path));
    page_.Time(ShowTime(here.Time(), ""));
    page_.Time(ShowTime(there.Time(), ""));
}

void DifferencePage::ValueDiffers(WStringView, const WString& name, const fbr::Value* here,
                                  const fbr::Value* there) {
    page_.Value(name);
    const bool both = here != nullptr && there != nullptr;
    const size_t from = both ? Page::PartThatDiffers(here->data, there->data) : 0;
    for (const fbr::Value* value : {here, there}) {
        if (value == nullptr)
            page_.Missing();
        else
            page_.Data(value->type, value->data, from);
    }
}

void DifferencePage::ValueIsSame(const WString& name, const fbr::Value& value) {
    page_.Value(name);
    page_.Data(value.type, value.data);
}

}  // namespace fbr
