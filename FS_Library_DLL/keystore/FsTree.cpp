// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsTree.h"

#include "FS_Library_DLL/keystore/FsCollisions.h"
#include "FS_Library_DLL/keystore/FsEnumerate.h"
#include "FS_Library_DLL/keystore/FsFiles.h"
#include "FS_Library_DLL/keystore/FsFrame.h"
#include "FS_Library_DLL/keystore/FsKeys.h"
#include "FS_Library_DLL/keystore/FsNames.h"
#include "FS_Library_DLL/keystore/FsOperation.h"
#include "storage/namespace/Operations.h"

using storage::Status;

namespace {

// A value that could not be deleted. It stops the deletion, and the engine's refusal to delete a
// key that is not empty then tells the caller.
constexpr Status kValueStays = -1;

// One deletion. The recursion runs down one path buffer, so that its frames are small: a tree may
// be 513 keys deep on a host's small stack.
struct TreeDeletion {
    FsStoreContext* context;
    FsText path;     // of the key at hand, stored form
    FsText scratch;  // not kept across the recursion

    Status Delete(bool recurse, uint32_t depth);
    Status DeleteAtOnce();
    Status Empty(bool recurse, uint32_t depth, Status result);
    bool OpenHere(int64_t* key);
    Status DeleteValues(int64_t key, Status result);
    Status DeleteSubkeys(int64_t key, uint32_t depth);
    Status AppendChild(const WChar* name);
};

// The first name of a walk. False when there is none, or no more to be had.
bool FirstName(int64_t key, FsEnumMode mode, FsStoreContext* context, HeapString* name) {
    name->Reset();
    return FS_EnumInt_Private(key, 0, &name->text, mode, context) == FSSTATUS_SUCCESS;
}

Status TreeDeletion::Delete(bool recurse, uint32_t depth) {
    context->lock.AssertHeld();  // by FS_DeleteTree's caller
    if (depth > kMaxTreeDepth) return storage::kTreeDelete;
    const Status atOnce = DeleteAtOnce();
    if (atOnce != storage::kNotPlain)
        return atOnce == storage::kOk ? FS_MoveValueBack(path.Text(), context) : atOnce;
    uint8_t empty = 0;
    Status result = FsEngine().StorageIsDirectoryEmpty(context->container, path.Text(), &empty);
    if (empty == 0) result = Empty(recurse, depth, result);
    if (path.View() == WTEXT("\\")) return result;
    // Whatever failed before, the key itself is tried; but a tree that is too deep, or a lack of
    // memory, is the news, and not that the key is therefore not empty.
    const Status deleted = FsEngine().StorageDeleteDirectory(context->container, path.Text());
    if (deleted != storage::kOk)
        return result == storage::kTreeDelete || result == storage::kInternal ? result : deleted;
    return FS_MoveValueBack(path.Text(), context);
}

// A key without subkeys is one step of the library's own engine, where nobody looks at the steps of
// the long way.
Status TreeDeletion::DeleteAtOnce() {
    if (g_switches.trace || !FsHasOwnEngine() || path.View() == WTEXT("\\"))
        return storage::kNotPlain;
    context->container->containerLock.AssertHeld();  // by the frame
    return storage::DeleteWithFilesAt(context->container, path.Text());
}

Status TreeDeletion::Empty(bool recurse, uint32_t depth, Status result) {
    int64_t key = 0;
    if (!OpenHere(&key)) return result;
    result = DeleteValues(key, result);
    if (recurse && result == storage::kOk) result = DeleteSubkeys(key, depth);
    FS_CloseDirEx(key, context);
    return result;
}

// By the decoded path, which the open escapes again.
bool TreeDeletion::OpenHere(int64_t* key) {
    return FsUnescapeInto(path.View(), &scratch) &&
           FS_OpenDirEx(0, scratch.Text(), key, context) == FSSTATUS_SUCCESS;
}

Status TreeDeletion::DeleteValues(int64_t key, Status result) {
    HeapString name;
    while (FirstName(key, FsEnumMode::Values, context, &name)) {
        if (name.text == nullptr) return storage::kInternal;
        if (FS_DeleteFileNamedEx(key, name.text, context) != FSSTATUS_SUCCESS) return kValueStays;
        result = storage::kOk;
    }
    return result;
}

Status TreeDeletion::DeleteSubkeys(int64_t key, uint32_t depth) {
    const size_t length = path.Length();
    Status result = storage::kOk;
    HeapString name;
    while (result == storage::kOk && FirstName(key, FsEnumMode::Keys, context, &name)) {
        if (name.text == nullptr) return storage::kInternal;
        result = AppendChild(name.text);
        if (result == storage::kOk) result = Delete(true, depth + 1);
        path.Truncate(length);
    }
    return result;
}

Status TreeDeletion::AppendChild(const WChar* name) {
    WStringView stored;
    if (!FS_EscapeName(name, FsNameSet::Key, &scratch, &stored)) return storage::kInternal;
    if (stored.empty()) return storage::kTreeDelete;
    const bool parted = path.Length() > 0 && path.View().back() == '\\';
    const bool joined = (parted || path.Append(WTEXT("\\"))) && path.Append(stored);
    return joined ? storage::kOk : storage::kInternal;
}

Status DeleteKey(int64_t key, FsStoreContext* context) {
    if (context == nullptr || key == 0) return storage::kInvalid;
    if (!FsMayWrite(context)) return storage::kSharing;
    const FsGuard guard(context->lock);
    const FsHandleEntry* entry = context->handles.FindKey(key);
    if (entry == nullptr) return storage::kOk;
    return FS_DeleteTree(context, entry->Path(), false, 0);
}

Status DeleteNamedKey(const WChar* name, FsStoreContext* context) {
    if (context == nullptr || name == nullptr || name[0] == 0) return storage::kInvalid;
    if (!FsMayWrite(context)) return storage::kSharing;
    FsText escaped;
    WStringView stored;
    if (!FS_EscapeName(name, FsNameSet::Key, &escaped, &stored)) return storage::kInternal;
    const FsGuard guard(context->lock);
    return FS_DeleteTree(context, stored, true, 0);
}

}  // namespace

Status FS_DeleteTree(FsStoreContext* context, WStringView path, bool recurse, uint32_t depth) {
    TreeDeletion deletion{context, {}, {}};
    FsText top;
    if (!deletion.path.Assign(path) || !top.Assign(path)) return storage::kInternal;
    // What was deleted before it came to what it must leave stays deleted.
    const Status code = FsChange(
        context, [&] { return deletion.Delete(recurse, depth); },
        [](Status deleted) {
            return deleted == storage::kOk || deleted == storage::kNotEmpty ||
                   deleted == storage::kTreeDelete || deleted == storage::kNotFound;
        });
    if (code == storage::kOk && top.View() != WTEXT("\\"))
        context->handles.ForgetSubtree(top.View(), [&](storage::StorageSearchStruct* search) {
            FsEngine().StorageFindClose(context->container, search);
        });
    return code;
}

FBR_STATUS FS_DeleteDirEx(int64_t key, FsStoreContext* context) {
    const FsFrame frame("FS_DeleteDirEx", "[ENTER] DH[{:X}] GH[{:X}]", key, context);
    return frame.Leave(DeleteKey(key, context), "[EXIT] DH[{:X}] GH[{:X}] S[{}] D[{}]", key,
                       context);
}

FBR_STATUS FS_DeleteDirNamedEx(const WChar* name, FsStoreContext* context) {
    const FsFrame frame("FS_DeleteDirNamedEx", "[ENTER] DN[{}] GH[{:X}]", name, context);
    return frame.Leave(DeleteNamedKey(name, context), "[EXIT] FDN[{}] GH[{:X}] S[{}] D[{}]", name,
                       context);
}
