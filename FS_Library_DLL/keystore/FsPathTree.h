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
// case-sensitively; several entries may have one path. An entry's path may not change while it is
// in here.
class FsPathTree {
  public:
    void Insert(FsHandleEntry* entry);
    void Remove(FsHandleEntry* entry);
    // Take entries out and return them as a chain by `left`: those at exactly this path, those
    // below it (a backslash behind it), and those whose path has this literal prefix.
    FsPathNode* TakeEqual(platform::WStringView path);
    FsPathNode* TakeBelow(platform::WStringView path);

  private:
    template <class Place>
    FsPathNode* Take(Place place);

    FsPathNode* root_ = nullptr;
    uint32_t seed_ = 0x9E3779B9;
};
