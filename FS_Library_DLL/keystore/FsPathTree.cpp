// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsPathTree.h"

#include <cstring>

#include "FS_Library_DLL/keystore/FsHandles.h"

namespace {

WStringView PathOf(const FsPathNode* node) {
    return node->entry->Path();
}

// Where two texts part, or the end of the shorter one.
size_t CommonUnits(WStringView a, WStringView b) {
    constexpr size_t kStep = sizeof(uint64_t) / sizeof(WChar);
    const size_t count = a.size() < b.size() ? a.size() : b.size();
    size_t at = 0;
    for (uint64_t x = 0, y = 0; at + kStep <= count; at += kStep) {
        std::memcpy(&x, a.data() + at, sizeof x);
        std::memcpy(&y, b.data() + at, sizeof y);
        if (x != y) break;
    }
    while (at < count && a[at] == b[at]) ++at;
    return at;
}

// The end of a path, then what is below it, then all else.
uint32_t Rank(WStringView path, size_t at) {
    if (at == path.size()) return 0;
    return path[at] == '\\' ? 1 : path[at] + 2u;
}

int ComparePaths(WStringView a, WStringView b) {
    const size_t at = CommonUnits(a, b);
    return static_cast<int>(Rank(a, at)) - static_cast<int>(Rank(b, at));
}

// Where a node stands to the run of those at a path and below it: before it, in it (0), or behind.
int SideOfRun(const FsPathNode* node, WStringView path) {
    const WStringView text = PathOf(node);
    const size_t at = CommonUnits(text, path);
    if (at == path.size() && Rank(text, at) <= 1) return 0;
    return Rank(text, at) < Rank(path, at) ? -1 : 1;
}

// Equal paths are told apart by the entry's address.
int CompareNodes(const FsPathNode* a, const FsPathNode* b) {
    const int order = ComparePaths(PathOf(a), PathOf(b));
    if (order != 0) return order;
    return a < b ? -1 : a > b;
}

FsPathNode* Merge(FsPathNode* low, FsPathNode* high) {
    if (low == nullptr) return high;
    if (high == nullptr) return low;
    if (low->priority > high->priority) {
        low->right = Merge(low->right, high);
        return low;
    }
    high->left = Merge(low, high->left);
    return high;
}

// Parts a tree: those for which `isLow` holds, a run at its lower end, and the others.
template <class IsLow>
void Split(FsPathNode* tree, IsLow isLow, FsPathNode** low, FsPathNode** high) {
    while (tree != nullptr) {
        if (isLow(tree)) {
            *low = tree;
            low = &tree->right;
            tree = tree->right;
        } else {
            *high = tree;
            high = &tree->left;
            tree = tree->left;
        }
    }
    *low = *high = nullptr;
}

// Turns a tree into a chain by `left`.
FsPathNode* Unravel(FsPathNode* tree, FsPathNode* chain) {
    if (tree == nullptr) return chain;
    chain = Unravel(tree->right, chain);
    FsPathNode* left = tree->left;
    tree->left = chain;
    return Unravel(left, tree);
}

}  // namespace

void FsPathTree::Insert(FsHandleEntry* entry) {
    FsPathNode* node = &entry->node;
    seed_ = seed_ * 1664525 + 1013904223;
    *node = {entry, nullptr, nullptr, seed_ ^ (seed_ >> 16)};
    FsPathNode** link = &root_;
    while (*link != nullptr && (*link)->priority >= node->priority)
        link = CompareNodes(node, *link) < 0 ? &(*link)->left : &(*link)->right;
    Split(
        *link, [&](const FsPathNode* other) { return CompareNodes(other, node) < 0; }, &node->left,
        &node->right);
    *link = node;
}

void FsPathTree::Remove(FsHandleEntry* entry) {
    FsPathNode* node = &entry->node;
    FsPathNode** link = &root_;
    while (*link != nullptr && *link != node)
        link = CompareNodes(node, *link) < 0 ? &(*link)->left : &(*link)->right;
    if (*link != nullptr) *link = Merge(node->left, node->right);
}

FsPathNode* FsPathTree::TakeSubtree(WStringView path) {
    // All of the run are at or below the first of it that a walk comes to.
    FsPathNode** link = &root_;
    for (int side; *link != nullptr && (side = SideOfRun(*link, path)) != 0;)
        link = side < 0 ? &(*link)->right : &(*link)->left;
    FsPathNode* before = nullptr;
    FsPathNode* rest = nullptr;
    FsPathNode* run = nullptr;
    FsPathNode* behind = nullptr;
    Split(
        *link, [&](const FsPathNode* node) { return SideOfRun(node, path) < 0; }, &before, &rest);
    Split(
        rest, [&](const FsPathNode* node) { return SideOfRun(node, path) == 0; }, &run, &behind);
    *link = Merge(before, behind);
    return Unravel(run, nullptr);
}
