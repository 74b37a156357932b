#include "tools/store/TreeWriter.h"

#include <algorithm>

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

void TreeWriter::Key(WStringView path) {
    if (levels_.empty()) levels_.push_back({0, store_.CreateKey({})});
    const size_t common = CommonPath(path_, path);
    while (levels_.back().length > common) levels_.pop_back();
    path_.assign(path);
    for (size_t begin = levels_.back().length; begin < path_.size();) {
        if (begin != 0) ++begin;
        const size_t end = std::min(path_.find('\\', begin), path_.size());
        const WStringView name = WStringView(path_).substr(begin, end - begin);
        levels_.push_back({end, Current().CreateSubkey(name)});
        begin = end;
    }
}

Key& TreeWriter::Current() {
    return levels_.back().key;
}

void TreeWriter::Value(WStringView name, uint32_t type, const Bytes& data) {
    Current().Set(platform::WString(name), type, data);
}

// Open keys may be part of the tree that goes, so they are closed first.
void TreeWriter::DeleteKey(WStringView path) {
    levels_.clear();
    path_.clear();
    store_.DeleteTree(path);
}

void TreeWriter::DeleteValue(WStringView name) {
    Current().DeleteValue(platform::WString(name));
}

}  // namespace fbr
