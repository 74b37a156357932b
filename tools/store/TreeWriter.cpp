// SPDX-License-Identifier: MIT
#include "tools/store/TreeWriter.h"

#include <fmt/format.h>

#include <algorithm>

#include "FS_Library_DLL/SharedStore.h"
#include "tools/console/Interrupt.h"

namespace fbr {
namespace {

using platform::WStringView;

// The length of the longest path that is `a` or above it and `b` or above it.
size_t CommonPath(WStringView a, WStringView b) {
    const size_t limit = std::min(a.size(), b.size());
    size_t same = 0;
    while (same < limit && platform::Fold(a[same]) == platform::Fold(b[same])) ++same;
    const auto endsName = [same](WStringView path) {
        return same == path.size() || path[same] == '\\';
    };
    if (endsName(a) && endsName(b)) return same;
    const size_t cut = same == 0 ? WStringView::npos : a.rfind('\\', same - 1);
    return cut == WStringView::npos ? 0 : cut;
}

}  // namespace

TreeWriter::TreeWriter(const Store& store) : store_(store), shared_(store.Shared()) {
    if (shared_ != nullptr) shared_->Gather(true);
}

TreeWriter::~TreeWriter() {
    if (shared_ != nullptr) shared_->Gather(false);
}

void TreeWriter::Finish() {
    const FBR_STATUS status = shared_ != nullptr ? shared_->SendGathered() : FSSTATUS_SUCCESS;
    if (status != FSSTATUS_SUCCESS)
        store_.ThrowFailed("cannot write to store " + store_.Name(), status);
}

void TreeWriter::Key(WStringView path) {
    const bool same = !levels_.empty() && path == path_;
    if (levels_.empty()) levels_.push_back({0, store_.CreateKey({})});
    const size_t common = CommonPath(path_, path);
    while (levels_.back().length > common) levels_.pop_back();
    path_.assign(path);
    const size_t begin = levels_.back().length;
    if (begin < path_.size()) EnterBelow(begin != 0 ? begin + 1 : 0, path_.size());
    if (!same) ++keys_;
}

// Many levels in one step: a store takes as long for each level of a path as for the path. An
// interrupt ends it between two steps.
void TreeWriter::EnterBelow(size_t begin, size_t end) {
    constexpr int kLevels = 64;
    while (begin <= end) {
        StopIfInterrupted();
        size_t cut = std::min(path_.find('\\', begin), end);
        for (int i = 1; i < kLevels && cut < end; ++i)
            cut = std::min(path_.find('\\', cut + 1), end);
        EnterLevels(begin, cut);
        begin = cut + 1;
    }
}

// In one step where that works; the other way says at which level it does not.
void TreeWriter::EnterLevels(size_t begin, size_t end) {
    const WStringView path(path_);
    if (path.substr(begin, end - begin).find('\\') != WStringView::npos) {
        if (auto key = Current().TryCreateBelow(path.substr(begin, end - begin))) {
            levels_.push_back({end, std::move(*key)});
            return;
        }
    }
    while (begin <= end) {
        const size_t cut = std::min(path.find('\\', begin), end);
        levels_.push_back({cut, Current().CreateSubkey(path.substr(begin, cut - begin))});
        begin = cut + 1;
    }
}

Key& TreeWriter::Current() {
    return levels_.back().key;
}

void TreeWriter::Value(WStringView name, uint32_t type, const Bytes& data) {
    Current().Set(platform::WString(name), type, data);
    ++values_;
}

// Open keys may be part of the tree that goes, so they are closed first.
void TreeWriter::DeleteKey(WStringView path) {
    levels_.clear();
    path_.clear();
    if (store_.DeleteTree(path)) ++removed_;
}

void TreeWriter::DeleteValue(WStringView name) {
    if (Current().DeleteValue(platform::WString(name))) ++removed_;
}

void TreeWriter::Apply(WStringView path, const Record& record, Again again) {
    if (record.kind == Record::Kind::kDeleteKey) return DeleteKey(path);
    const uint64_t keys = keys_, values = values_;
    Key(path);
    if (again.key) keys_ = keys;
    if (record.kind == Record::Kind::kValue) Value(record.name, record.type, record.data);
    if (again.value) values_ = values;
    if (record.kind == Record::Kind::kDeleteValue) DeleteValue(record.name);
}

std::string TreeWriter::Done() const {
    const auto counted = [](uint64_t count, const char* what) {
        return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
    };
    const bool all = shared_ == nullptr || shared_->SendGathered() == FSSTATUS_SUCCESS;
    std::string text = (all ? "" : "at most ") + counted(keys_, "key") + " and " +
                       counted(values_, "value") + " set";
    return removed_ == 0 ? text : text + fmt::format(", {} removed", removed_);
}

}  // namespace fbr
