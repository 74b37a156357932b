// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsPathTree.h"

#include "FS_Library_DLL/keystore/FsHandles.h"

namespace {

WStringView PathOf(const FsPathNode* node) {
    return node->entry->Path();
}

// Equal paths are told apart by the entry's address.
int CompareNodes(const FsPathNode* a, const FsPathNode* b) {
    const int order = platform::Compare(PathOf(a), PathOf(b));
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

// `place` tells where a path stands: below 0 before the wanted run, 0 in it, above 0 behind it.
template <class Place>
FsPathNode* FsPathTree::Take(Place place) {
    FsPathNode* before = nullptr;
    FsPathNode* rest = nullptr;
    FsPathNode* run = nullptr;
    FsPathNode* behind = nullptr;
    Split(
        root_, [&](const FsPathNode* node) { return place(PathOf(node)) < 0; }, &before, &rest);
    Split(
        rest, [&](const FsPathNode* node) { return place(PathOf(node)) == 0; }, &run, &behind);
    root_ = Merge(before, behind);
    return Unravel(run, nullptr);
}

FsPathNode* FsPathTree::TakeEqual(WStringView path) {
    return Take([=](WStringView other) { return platform::Compare(other, path); });
}

FsPathNode* FsPathTree::TakeBelow(WStringView path) {
    return Take([=](WStringView other) {
        const int order = platform::Compare(other.substr(0, path.size()), path);
        if (order != 0) return order;
        if (other.size() == path.size()) return -1;
        return static_cast<int>(other[path.size()]) - '\\';
    });
}
