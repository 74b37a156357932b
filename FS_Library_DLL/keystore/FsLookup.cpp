// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsLookup.h"

#include <utility>

#include "FS_Library_DLL/FsSwitches.h"
#include "FS_Library_DLL/ValueName.h"
#include "FS_Library_DLL/keystore/FsEngineStatus.h"
#include "FS_Library_DLL/keystore/FsNames.h"
#include "FS_Library_DLL/keystore/FsOperation.h"
#include "FS_Library_DLL/keystore/FsValues.h"

using storage::FileObject;
using storage::Look;
using storage::PlainStream;

bool FsResolveUnderParent(int64_t parent, WStringView stored, FsStoreContext* context,
                          FsText* path) {
    const FsHandleEntry* entry = parent != 0 ? context->handles.FindKey(parent) : nullptr;
    return entry != nullptr ? FS_JoinPath(entry->Path(), stored, path)
                            : FS_JoinPath(stored, {}, path);
}

namespace {

// A value may stand under a marked name, moved aside for a key that is no more.
Look FindValueStream(FileObject* directory, WStringView stored,
                     PlainStream* stream) ZRFS_NO_ANALYSIS {
    const Look look = storage::FindPlainStream(directory, stored, stream);
    if (look != Look::Missing) return look;
    FsText marked;
    if (!FS_CollisionPath(stored, &marked)) return Look::Unusual;
    return storage::FindPlainStream(directory, marked.View(), stream);
}

struct ValueReader {
    void* buffer;
    uint64_t bufferSize;
    uint64_t* size;
    uint32_t* type;

    bool Read(const PlainStream& stream, FBR_STATUS* status) const ZRFS_NO_ANALYSIS {
        FsValueHeader header{0, 0};
        const uint32_t room = buffer == nullptr ? 0 : static_cast<uint32_t>(bufferSize);
        if (!storage::ReadPlainStream(stream, &header, sizeof header, buffer, room)) return false;
        if (type != nullptr) *type = header.type;
        *status = FSSTATUS_SUCCESS;
        if (buffer == nullptr) {
            *size = header.size;
            if (header.size != 0) *status = FSSTATUS_BUFFER_OVERFLOW;
            return true;
        }
        const uint32_t rest = stream.size - static_cast<uint32_t>(sizeof header);
        *size = room < rest ? room : rest;
        return true;
    }
};

}  // namespace

bool FsOpenFoundKey(int64_t parent, WStringView stored, FsStoreContext* context, int64_t* key) {
    if (g_switches.trace || !FsHasOwnEngine()) return false;
    // By its number, for another thread may close it, or delete its key, once the lock is let go.
    int64_t added = 0;
    const auto takeBack = [&]() ZRFS_REQUIRES(context->lock) ZRFS_NO_ANALYSIS {
        FsHandleEntry* entry = added != 0 ? context->handles.FindKey(added) : nullptr;
        if (entry != nullptr) context->handles.Remove(entry);
        added = 0;
    };
    const storage::Status code =
        FsRead(context, [&]() ZRFS_REQUIRES(context->lock) ZRFS_NO_ANALYSIS -> storage::Status {
            takeBack();
            FsText path;
            storage::DirectoryHint hint;
            FsHandleEntry* entry = nullptr;
            if (context->container->batch == nullptr &&
                FsResolveUnderParent(parent, stored, context, &path) &&
                storage::FindDirectory(context->container, path.Text(), &hint) != nullptr)
                entry = context->handles.Add(0, nullptr, FsHandleKind::Key, path.View());
            if (entry == nullptr) return storage::kOk;
            entry->hint = hint;
            added = entry->id;
            return storage::kOk;
        });
    if (added == 0) return false;
    *key = added;
    if (code == storage::kOk) return true;
    const FsGuard guard(context->lock);
    takeBack();
    return false;
}

bool FsLookUpValue(int64_t key, const WChar* name, void* buffer, uint64_t bufferSize,
                   uint64_t* size, uint32_t* type, FsStoreContext* context, FBR_STATUS* status) {
    if (g_switches.trace || !FsHasOwnEngine()) return false;
    FsHandleTable::PrefetchEntry(key);
    name = OrDefault(name);
    FsText escaped;
    WStringView stored;
    if (!FS_EscapeName(name, FsNameSet::Value, &escaped, &stored)) return false;
    bool answered = false;
    const ValueReader reader{buffer, bufferSize, size, type};
    const storage::Status code =
        FsRead(context, [&]() ZRFS_REQUIRES(context->lock) ZRFS_NO_ANALYSIS -> storage::Status {
            answered = false;
            FsHandleEntry* entry = context->handles.FindKey(key);
            if (entry == nullptr || entry->path == nullptr || context->container->batch != nullptr)
                return storage::kOk;
            FileObject* directory =
                storage::FindDirectory(context->container, entry->path, &entry->hint);
            if (directory == nullptr) return storage::kOk;
            PlainStream stream;
            const Look look = FindValueStream(directory, stored, &stream);
            if (look == Look::Missing) *status = FsStatusFromEngine(storage::kNotFound);
            answered =
                look == Look::Missing || (look == Look::Found && reader.Read(stream, status));
            return storage::kOk;
        });
    if (code == storage::kOk) return answered;
    // The long way would wait as long once more.
    *status = FsStatusFromEngine(code);
    return code == storage::kSharing;
}
