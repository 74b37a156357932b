// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsKeys.h"

#include <cmath>

#include "FS_Library_DLL/keystore/FsCollisions.h"
#include "FS_Library_DLL/keystore/FsEngineStatus.h"
#include "FS_Library_DLL/keystore/FsFrame.h"
#include "FS_Library_DLL/keystore/FsLookup.h"
#include "FS_Library_DLL/keystore/FsNames.h"
#include "FS_Library_DLL/keystore/FsOperation.h"
#include "FS_Library_DLL/keystore/FsVolatileKeys.h"

using storage::Status;

namespace {

Status AddKeyHandle(WStringView path, int64_t* key, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock) {
    FsHandleEntry* entry = context->handles.Add(0, nullptr, FsHandleKind::Key, path);
    if (entry == nullptr) return storage::kInternal;
    *key = entry->id;
    return storage::kOk;
}

// Makes one key of a path. A value of that name makes room; it is looked for at the whole path, so
// that only the last key can push one aside. On the way to it a value stays where those who set it
// look for it, and the engine makes the next key below the value, for callers that open what they
// made by its path.
Status CreateOneKey(const WChar* prefix, const WChar* wholePath, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock) {
    const Status code = FsEngine().StorageCreateDirectory(context->container, prefix);
    if (code != storage::kExists) return code;
    bool isKey = false;
    if (FsIsKey(prefix, context, &isKey) != storage::kOk || isKey) return code;
    const Status moved = FS_MoveValueAside(wholePath, context);
    return moved != storage::kOk ? moved
                                 : FsEngine().StorageCreateDirectory(context->container, prefix);
}

// Makes each key on the way. kExists when the last one was there.
Status CreateKeyPath(const FsText& path, FsStoreContext* context) ZRFS_REQUIRES(context->lock) {
    // Mostly the way is there. An engine of somebody else is asked for each key of it, as ever.
    if (FsHasOwnEngine() && path.Length() != 0) {
        const Status code = CreateOneKey(path.Text(), path.Text(), context);
        if (code != storage::kParentMissing) return code;
    }
    FsText prefix;
    if (!prefix.Assign(path.View())) return storage::kInternal;
    WChar* text = prefix.Data();
    size_t end = path.View().find_first_not_of('\\');
    while (end < path.Length()) {
        end = path.View().find('\\', end);
        if (end == WStringView::npos) return CreateOneKey(path.Text(), path.Text(), context);
        text[end] = 0;
        const Status code = CreateOneKey(text, path.Text(), context);
        text[end] = '\\';
        if (code != storage::kOk && code != storage::kExists) return code;
        end = path.View().find_first_not_of('\\', end);
    }
    return storage::kOk;  // the root
}

Status CreateKey(int64_t parent, const WChar* name, FBR_CREATEOPTIONS options, int64_t* key,
                 FsStoreContext* context) {
    if (context == nullptr || name == nullptr || key == nullptr) return storage::kInvalid;
    if (!FsMayWrite(context)) return storage::kSharing;
    FsText escaped;
    WStringView stored;
    if (!FS_EscapeName(name, FsNameSet::Key, &escaped, &stored)) return storage::kInternal;
    const FsGuard guard(context->lock);
    FsText path;
    if (!FsResolveUnderParent(parent, stored, context, &path)) return storage::kInvalid;
    // The root is there: to open it is no change, and must not wait for those who change something.
    const bool isRoot = path.Length() == 0;
    const Status code =
        isRoot ? storage::kOk
               : FsChange(
                     context,
                     [&]() ZRFS_REQUIRES(context->lock) { return CreateKeyPath(path, context); },
                     [](Status made) { return made == storage::kOk || made == storage::kExists; });
    if (code != storage::kOk && code != storage::kExists) return code;
    const Status added = AddKeyHandle(path.View(), key, context);
    if (added != storage::kOk) return added;
    if (code == storage::kOk && (static_cast<uint32_t>(options) & FSCREATEOPTIONS_VOLATILE) != 0)
        FsAddVolatileKey(path.View(), context);
    else
        FsDropVolatileKey(path.View(), context);
    return code;
}

Status OpenKey(int64_t parent, const WChar* name, int64_t* key, FsStoreContext* context) {
    if (context == nullptr || name == nullptr || key == nullptr) return storage::kInvalid;
    FsText escaped;
    WStringView stored;
    if (!FS_EscapeName(name, FsNameSet::Key, &escaped, &stored)) return storage::kInternal;
    if (FsOpenFoundKey(parent, stored, context, key)) return storage::kOk;
    FsText path;
    {
        const FsGuard guard(context->lock);
        if (!FsResolveUnderParent(parent, stored, context, &path)) return storage::kInternal;
    }
    bool isKey = false;
    const Status code = FsRead(context, [&] { return FsIsKey(path.Text(), context, &isKey); });
    if (code != storage::kOk) return code;
    const FsGuard guard(context->lock);
    return isKey ? AddKeyHandle(path.View(), key, context) : storage::kNotFound;
}

// A rename stays below the same parent; a backslash in the new name leads further down.
bool RenamedPath(WStringView path, WStringView stored, FsText* renamed) {
    const size_t cut = path.rfind('\\');
    if (cut == WStringView::npos) return FS_JoinPath(stored, {}, renamed);
    return renamed->Assign(path.substr(0, cut + 1)) && renamed->Append(stored);
}

Status MoveKey(const WChar* from, const WChar* to, FsStoreContext* context)
    ZRFS_REQUIRES(context->lock) {
    Status code = FS_MoveValueAside(to, context);
    if (code == storage::kOk) code = FsEngine().StorageMoveFile(context->container, from, to);
    return code == storage::kOk ? FS_MoveValueBack(from, context) : code;
}

Status RenameKey(int64_t key, const WChar* newName, FsStoreContext* context) {
    if (context == nullptr || key == 0 || newName == nullptr || newName[0] == 0)
        return storage::kInvalid;
    if (!FsMayWrite(context)) return storage::kSharing;
    FsText escaped;
    WStringView stored;
    if (!FS_EscapeName(newName, FsNameSet::Key, &escaped, &stored)) return storage::kInternal;
    const FsGuard guard(context->lock);
    const FsHandleEntry* entry = context->handles.FindKey(key);
    FsText from;
    FsText to;
    if (entry == nullptr || !RenamedPath(entry->Path(), stored, &to) || !from.Assign(entry->Path()))
        return storage::kInternal;
    const Status code = FsChange(context, [&]() ZRFS_REQUIRES(context->lock) {
        return MoveKey(from.Text(), to.Text(), context);
    });
    if (code != storage::kOk) return code;
    return context->handles.RenamePrefix(from.View(), to.View()) ? storage::kOk
                                                                 : storage::kInternal;
}

Status CloseKey(int64_t key, FsStoreContext* context) {
    if (context == nullptr || key == 0) return storage::kInvalid;
    const FsGuard guard(context->lock);
    FsHandleEntry* entry = context->handles.FindId(key);
    if (entry == nullptr) return storage::kInternal;
    context->handles.Remove(entry);
    return storage::kOk;
}

enum class NamePart { Last, Whole };

Status CopyName(int64_t key, NamePart part, WChar** name, FsStoreContext* context) {
    if (context == nullptr || key == 0 || name == nullptr) return storage::kInvalid;
    const FsGuard guard(context->lock);
    const FsHandleEntry* entry = context->handles.FindKey(key);
    if (entry == nullptr) return storage::kInternal;
    WStringView path = entry->Path();
    if (part == NamePart::Last) path.remove_prefix(path.rfind('\\') + 1);  // npos wraps to 0
    WChar* copy = FsUnescapedCopy(path);
    if (copy == nullptr) return storage::kInternal;
    *name = copy;
    return storage::kOk;
}

// The stored path is escaped once more on the way, so that a key with an escape in its path cannot
// be duplicated.
Status DuplicateKey(int64_t key, int64_t* newKey, FsStoreContext* context) {
    if (context == nullptr || key == 0 || newKey == nullptr) return storage::kInvalid;
    FsText path;
    {
        const FsGuard guard(context->lock);
        const FsHandleEntry* entry = context->handles.FindKey(key);
        if (entry == nullptr || !path.Assign(entry->Path())) return storage::kInternal;
    }
    const FBR_STATUS opened = FS_OpenDirEx(0, path.Text(), newKey, context);
    return opened == FSSTATUS_SUCCESS ? storage::kOk : storage::kInternal;
}

// wDayOfWeek stays as the caller had it.
void DecodeDate(double date, FBR_SYSTEMTIME* time) {
    FsEngine().StorageDecodeDate(date, &time->wYear, &time->wMonth, &time->wDay);
    const double fraction = date - std::floor(date);  // not a number for a date that is none
    const auto milliseconds = fraction < 1 ? static_cast<uint32_t>(fraction * 86400000.5) : 0;
    time->wHour = static_cast<uint16_t>(milliseconds / 3600000);
    time->wMinute = static_cast<uint16_t>(milliseconds % 3600000 / 60000);
    time->wSecond = static_cast<uint16_t>(milliseconds % 60000 / 1000);
    time->wMilliseconds = static_cast<uint16_t>(milliseconds % 1000);
}

Status TimeByPath(const WChar* path, FBR_SYSTEMTIME* time, FsStoreContext* context) {
    double created = 0;
    double modified = 0;
    double accessed = 0;
    const Status code = FsRead(context, [&] {
        return FsEngine().StorageGetFileTimes(context->container, path, &created, &modified,
                                              &accessed);
    });
    if (code == storage::kOk) DecodeDate(modified, time);
    return code;
}

// The engine is asked by the decoded name, so that a key whose name needs an escape is not found.
Status KeyTimes(int64_t key, FBR_SYSTEMTIME* time, FsStoreContext* context) {
    if (context == nullptr || key == 0 || time == nullptr) return storage::kInvalid;
    HeapString name;
    if (FS_GetFullName_DirEx(key, &name.text, context) != FSSTATUS_SUCCESS)
        return storage::kInternal;
    return TimeByPath(name.text, time, context);
}

}  // namespace

FBR_STATUS FS_CreateDirEx(int64_t parent, const WChar* name, FBR_CREATEOPTIONS options,
                          int64_t* key, FsStoreContext* context) {
    const FsFrame frame("FS_CreateDirEx", "[ENTER] DH[{:X}] DN[{}] CO[{}] PDH[{:X}] GH[{:X}]",
                        parent, name, options, key, context);
    const Status code = CreateKey(parent, name, options, key, context);
    const bool made = code == storage::kOk || code == storage::kExists;
    return frame.LeaveNamed(code, made ? *key : parent, context,
                            "[EXIT] FDN[{}] DH[{:X}] DN[{}] CO[{}] PDH[{:X}] GH[{:X}] S[{}] D[{}]",
                            parent, name, options, key, context);
}

FBR_STATUS FS_OpenDirEx(int64_t parent, const WChar* name, int64_t* key, FsStoreContext* context) {
    const FsFrame frame("FS_OpenDirEx", "[ENTER] DH[{:X}] DN[{}] PDH[{:X}] GH[{:X}]", parent, name,
                        key, context);
    const Status code = OpenKey(parent, name, key, context);
    return frame.LeaveNamed(code, code == storage::kOk ? *key : parent, context,
                            "[EXIT] FDN[{}] DH[{:X}] DN[{}] PDH[{:X}] GH[{:X}] S[{}] D[{}]", parent,
                            name, key, context);
}

FBR_STATUS FS_RenameDirEx(int64_t key, const WChar* newName, FsStoreContext* context) {
    const FsFrame frame("FS_RenameDirEx", "[ENTER] [{:X}] [{}] [{:X}]", key, newName, context);
    return frame.LeaveNamed(RenameKey(key, newName, context), key, context,
                            "[EXIT] [{}] [{:X}] [{}] [{:X}] S[{}] D[{}]", key, newName, context);
}

FBR_STATUS FS_CloseDirEx(int64_t key, FsStoreContext* context) {
    const FsFrame frame("FS_CloseDirEx", "[ENTER] [{:X}] [{:X}]", key, context);
    return frame.Leave(CloseKey(key, context), "[EXIT] [{:X}] [{:X}] S[{}] D[{}]", key, context);
}

FBR_STATUS FS_GetName_DirEx(int64_t key, WChar** name, FsStoreContext* context) {
    const FsFrame frame("FS_GetName_DirEx", "[ENTER] [{:X}] [{:X}] [{:X}]", key, name, context);
    return frame.LeaveNamed(CopyName(key, NamePart::Last, name, context), key, context,
                            "[EXIT] [{}] [{:X}] [{:X}] [{:X}] S[{}] D[{}]", key, name, context);
}

// Not LeaveNamed, which comes here.
FBR_STATUS FS_GetFullName_DirEx(int64_t key, WChar** name, FsStoreContext* context) {
    const FsFrame frame("FS_GetFullName_DirEx", "[ENTER] [{:X}] [{:X}] [{:X}]", key, name, context);
    const Status code = CopyName(key, NamePart::Whole, name, context);
    const WChar* fullName = code == storage::kOk ? *name : nullptr;
    return frame.Leave(code, "[EXIT] [{}] [{:X}] [{:X}] [{:X}] S[{}] D[{}]", fullName, key, name,
                       context);
}

FBR_STATUS FS_DuplicateDirHandleEx(int64_t key, int64_t* newKey, FsStoreContext* context) {
    const FsFrame frame("FS_DuplicateDirHandleEx", "[ENTER] [{:X}] [{:X}] [{:X}]", key, newKey,
                        context);
    return frame.LeaveNamed(DuplicateKey(key, newKey, context), key, context,
                            "[EXIT] [{}] [{:X}] [{:X}] [{:X}] S[{}] D[{}]", key, newKey, context);
}

FBR_STATUS FS_GetDirTimesEx(int64_t key, FBR_SYSTEMTIME* time, FsStoreContext* context) {
    // The two blanks, and the brackets left open below, are part of the lines.
    const FsFrame frame("FS_GetDirTimesEx", "[ENTER] [{:X}]  [{:X}] [{:X}]", key, time, context);
    return frame.LeaveNamed(KeyTimes(key, time, context), key, context,
                            "[EXIT] [{}] (dh [{:X}] (lw [{:X}] (sh [{:X}] S[{}] D[{}]", key, time,
                            context);
}

FBR_STATUS FsTimeOfAnyKey(int64_t key, FBR_SYSTEMTIME* time, FsStoreContext* context) {
    FsText path;
    {
        const FsGuard guard(context->lock);
        const FsHandleEntry* entry = context->handles.FindKey(key);
        if (entry == nullptr || !path.Assign(entry->Path())) return FSSTATUS_FAILED;
    }
    return FsStatusFromEngine(TimeByPath(path.Text(), time, context));
}
