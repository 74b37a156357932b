// SPDX-License-Identifier: MIT
// The open keys in the order of their paths, so that all keys below a path are found without a
// look at the others.
#pragma once

#include <cstdint>

#include "platform/Text.h"

struct FsHandleEntry;

// Part of an entry: its place in the tree.
struct FsPathNode {
    FsHandleEntry* entry;
    FsPathNode* left;
    FsPathNode* right;
    uint32_t priority;
};

// A search tree kept level by random priorities. It allocates nothing and compares
// case-sensitively, with the backslash before all else, so that what is below a path comes right
// behind it; several entries may have one path. An entry's path may not change while it is in here.
class FsPathTree {
  public:
    void Insert(FsHandleEntry* entry);
    void Remove(FsHandleEntry* entry);
    // Takes those at this path and below it (a backslash behind it) out and returns them as a chain
    // by `left`.
    FsPathNode* TakeSubtree(platform::WStringView path);

  private:
    FsPathNode* root_ = nullptr;
    uint32_t seed_ = 0x9E3779B9;
};
