// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsEnumerate.h"

#include "FS_Library_DLL/FsSwitches.h"
#include "FS_Library_DLL/keystore/FsEngineStatus.h"
#include "FS_Library_DLL/keystore/FsKeys.h"
#include "FS_Library_DLL/keystore/FsNames.h"
#include "FS_Library_DLL/keystore/FsOperation.h"
#include "FS_Library_DLL/keystore/FsTrace.h"

using storage::Status;
using storage::StorageSearchStruct;

namespace {

bool BuildPattern(WStringView path, FsText* pattern) {
    const bool rooted = path.empty() || path.front() == '\\';
    return (rooted || pattern->Append(WTEXT("\\"))) && pattern->Append(path) &&
           (path.ends_with('\\') || pattern->Append(WTEXT("\\"))) && pattern->Append(WTEXT("*"));
}

StorageSearchStruct* SearchOf(FsHandleEntry* entry) {
    if (entry->search == nullptr)
        entry->search = static_cast<StorageSearchStruct*>(
            platform::HeapAllocateZeroed(sizeof(StorageSearchStruct)));
    return entry->search;
}

// Is the key still open that this search belongs to?
bool StillWalks(int64_t key, const StorageSearchStruct* search, const FsStoreContext* context)
    ZRFS_REQUIRES(context->lock) {
    const FsHandleEntry* entry = context->handles.FindKey(key);
    return entry != nullptr && entry->search == search;
}

Status ShowEntries(int64_t key, StorageSearchStruct* search, FsStoreContext* context,
                   const FsVisitor& visitor) ZRFS_REQUIRES(context->lock) {
    for (uint32_t index = 0; visitor(index, search->name); ++index) {
        // The visitor may have deleted the key, and the search with it.
        if (!StillWalks(key, search, context)) return storage::kNoMore;
        const Status code = FsEngine().StorageFindNext(context->container, search);
        if (code != storage::kOk) return code;
    }
    return storage::kOk;
}

void EndSearch(int64_t key, StorageSearchStruct* search, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock) {
    if (!StillWalks(key, search, context)) return;
    FsEngine().StorageFindClose(context->container, search);
    context->handles.FindKey(key)->search = nullptr;
    platform::HeapRelease(search);
}

// The caller is in a frame.
Status Walk(int64_t key, FsEnumMode mode, FsStoreContext* context, const FsVisitor& visitor)
    ZRFS_REQUIRES(context->lock) {
    FsHandleEntry* entry = context->handles.FindKey(key);
    StorageSearchStruct* search = entry != nullptr ? SearchOf(entry) : nullptr;
    FsText pattern;
    if (search == nullptr) return storage::kInternal;
    if (!BuildPattern(entry->Path(), &pattern)) {
        EndSearch(key, search, context);
        return storage::kInternal;
    }
    // By name and not through the table: a replaced table is not asked for a search's start.
    Status code = storage::StorageFindFirst(context->container, search, pattern.Text(),
                                            static_cast<uint32_t>(mode), 0);
    if (code == storage::kOk) code = ShowEntries(key, search, context, visitor);
    EndSearch(key, search, context);
    return code;
}

// The short way to all names of a key, where the library's own engine can be asked for its list
// and nothing is traced.
bool ListNames(int64_t key, std::vector<WString>& names, FsEnumMode mode, FsStoreContext* context,
               FBR_STATUS* status) {
    if (context == nullptr || g_switches.trace || !FsHasOwnEngine()) return false;
    const size_t before = names.size();
    bool answered = false;
    const Status code =
        FsRead(context, [&]() ZRFS_REQUIRES(context->lock) ZRFS_NO_ANALYSIS -> Status {
            names.resize(before);
            answered = false;
            FsHandleEntry* entry = context->handles.FindKey(key);
            storage::DirectoryListing listing;
            if (entry == nullptr || entry->path == nullptr || entry->search != nullptr ||
                !storage::ListDirectory(context->container, entry->path, &entry->hint, &listing))
                return storage::kOk;
            WStringView stored;
            while (listing.Next(static_cast<uint32_t>(mode), &stored))
                FsAddUnescaped(stored, &names);
            answered = true;
            return storage::kOk;
        });
    *status = code == storage::kOk ? FSSTATUS_NO_MORE_ENTRIES : FsStatusFromEngine(code);
    if (!answered || code != storage::kOk) names.resize(before);
    return answered || code == storage::kSharing;
}

// Adds the names to the caller's vector, all of one state of the store; one that finds no memory is
// skipped.
FBR_STATUS CollectNames(int64_t key, std::vector<WString>& names, FsEnumMode mode,
                        FsStoreContext* context) {
    FBR_STATUS status = FSSTATUS_NO_MORE_ENTRIES;
    if (ListNames(key, names, mode, context, &status)) return status;
    const size_t before = names.size();
    auto collect = [&names, before](uint32_t, const WChar* stored) {
        if (stored == nullptr) {
            names.resize(before);
            return true;
        }
        HeapString name;
        name.text = FsUnescapedCopy(stored);
        if (name.text != nullptr) names.emplace_back(name.text);
        return true;
    };
    return FS_EnumInt_PrivateEx(key, mode, context, collect);
}

// Runs a walk, or a look at one entry, between the lines of the trace.
template <class Look>
FBR_STATUS Enumerate(int64_t key, FsEnumMode mode, FsStoreContext* context, Look look) {
    const FsTraceScope trace("FS_EnumInt_PrivateEx", "[ENTER] FS_EnumInt_Private[{:X}] [{}] [{:X}]",
                             key, mode, context);
    const Status code = context != nullptr && key != 0 ? look() : storage::kInvalid;
    const FBR_STATUS status = FsStatusFromEngine(code);
    HeapString fullName;  // fetched whether it is traced or not
    FS_GetFullName_DirEx(key, &fullName.text, context);
    trace.Exit("[EXIT] FS_EnumInt_Private[{}] [{:X}] [{}] [{:X}] S[{}] D[{}]", fullName.text, key,
               mode, context, status);
    return status;
}

Status WalkInFrame(int64_t key, FsEnumMode mode, FsStoreContext* context,
                   const FsVisitor& visitor) {
    return FsRead(context, [&]() ZRFS_REQUIRES(context->lock) {
        visitor(0, nullptr);
        return Walk(key, mode, context, visitor);
    });
}

// The caller is in a frame. A key keeps where the last look at it ended, so that one after the
// other costs no walk from the first.
Status CopyNameAt(int64_t key, FsEnumMode mode, uint32_t index, FsStoreContext* context,
                  HeapString* name) ZRFS_REQUIRES(context->lock) {
    FsHandleEntry* entry = context->handles.FindKey(key);
    FsText pattern;
    if (entry == nullptr || !BuildPattern(entry->Path(), &pattern)) return storage::kInternal;
    WStringView stored;
    const Status code = storage::StorageNameAt(
        context->container, pattern.Text(), static_cast<uint32_t>(mode), index,
        mode == FsEnumMode::Values ? &entry->lastValue : &entry->lastSubkey, &stored);
    name->Reset(code == storage::kOk ? FsUnescapedCopy(stored) : nullptr);
    return code;
}

}  // namespace

FBR_STATUS FS_EnumInt_PrivateEx(int64_t key, FsEnumMode mode, FsStoreContext* context,
                                FsVisitor visitor) {
    return Enumerate(key, mode, context, [&] { return WalkInFrame(key, mode, context, visitor); });
}

FBR_STATUS FS_EnumInt_Private(int64_t key, uint32_t index, WChar** name, FsEnumMode mode,
                              FsStoreContext* context) {
    HeapString found;
    auto stopAtIndex = [index, &found](uint32_t at, const WChar* stored) {
        if (stored == nullptr) found.Reset();
        if (stored == nullptr || at != index) return true;
        found.text = FsUnescapedCopy(stored);
        return false;
    };
    const FBR_STATUS status = Enumerate(key, mode, context, [&]() -> Status {
        if (!FsHasOwnEngine()) return WalkInFrame(key, mode, context, stopAtIndex);
        return FsRead(context, [&]() ZRFS_REQUIRES(context->lock) {
            return CopyNameAt(key, mode, index, context, &found);
        });
    });
    if (status == FSSTATUS_SUCCESS && name != nullptr) {
        *name = found.text;
        found.text = nullptr;
    }
    return status;
}

FBR_STATUS FS_EnumerateAllValues(int64_t key, std::vector<WString>& names,
                                 FsStoreContext* context) {
    return CollectNames(key, names, FsEnumMode::Values, context);
}

FBR_STATUS FS_EnumerateAllKeys(int64_t key, std::vector<WString>& names, FsStoreContext* context) {
    return CollectNames(key, names, FsEnumMode::Keys, context);
}
