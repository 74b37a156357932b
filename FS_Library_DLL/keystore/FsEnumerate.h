// SPDX-License-Identifier: MIT
// Walks over the values or the subkeys of a key.
#pragma once

#include <vector>

#include "FS_Library_DLL/keystore/FsStoreContext.h"
#include "include/ZrFsTypes.h"

// Also the attribute mask of the search.
enum class FsEnumMode : uint32_t { Values = 1, Keys = 2 };

// What a walk shows each entry to: a callable that takes the entry's index from 0 on and its stored
// name, and returns true to go on. A null name begins a walk, the first one or one that is done
// again because the store has changed: what was shown before counts no more. It is referred to, not
// owned.
class FsVisitor {
  public:
    template <class Callable>
    FsVisitor(Callable& callable)
        : state_(&callable), call_([](void* state, uint32_t index, const WChar* name) -> bool {
              return (*static_cast<Callable*>(state))(index, name);
          }) {}
    bool operator()(uint32_t index, const WChar* name) const { return call_(state_, index, name); }

  private:
    void* state_;
    bool (*call_)(void* state, uint32_t index, const WChar* name);
};

// Runs under the store's lock from start to end, so that the visitor may call other operations; it
// may delete entries of the key but not walk the same key. FSSTATUS_NO_MORE_ENTRIES when the walk
// came to its end, FSSTATUS_SUCCESS when the visitor stopped it, FSSTATUS_FAILED for what is no
// open key.
FBR_STATUS FS_EnumInt_PrivateEx(int64_t key, FsEnumMode mode, FsStoreContext* context,
                                FsVisitor visitor);

// The name at `index` as a heap string of the caller's; a null `name` only asks whether it exists.
// FSSTATUS_NO_MORE_ENTRIES, with *name untouched, behind the last one. A name that finds no memory
// is null with FSSTATUS_SUCCESS.
FBR_STATUS FS_EnumInt_Private(int64_t key, uint32_t index, WChar** name, FsEnumMode mode,
                              FsStoreContext* context);

// Add all names to `names`, which is not cleared. FSSTATUS_NO_MORE_ENTRIES is success here.
FBR_STATUS FS_EnumerateAllValues(int64_t key, std::vector<WString>& names, FsStoreContext* context);
FBR_STATUS FS_EnumerateAllKeys(int64_t key, std::vector<WString>& names, FsStoreContext* context);
