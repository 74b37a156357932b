// SPDX-License-Identifier: MIT
#include "storage/namespace/AddEntry.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Operations.h"
#include "storage/namespace/ParentOperation.h"

namespace storage {

namespace {

using platform::WStringView;

struct Move {
    StorageContext* context;
    const WChar* oldPath;
    const WChar* newPath;
    StorageTransaction* transaction = nullptr;
    ResolvedPath from;
    ResolvedPath to;
    HandleTransaction fromOwn;
    HandleTransaction toOwn;
    HandleTransaction sourceOwn;
    FileObject* source = nullptr;  // with one reference of ours

    Move(StorageContext* container, const WChar* path, const WChar* target)
        : context(container), oldPath(path), newPath(target) {}

    Status Prepare();
    Status FindSource();
    Status TestTarget();
    Status ChangeDirectory();
    void MoveReferences(int32_t others);
    Status Run();
    Status End(Status status);
};

// The shallower directory enters first; of two of one depth the new one.
Status Move::Prepare() {
    Status status = BeginTransaction(context, &transaction, TransactionMode::Write);
    if (status == kOk)
        status = ResolvePath(context, oldPath, true, false, false, &from, transaction);
    if (status == kOk) status = ResolvePath(context, newPath, true, false, false, &to, transaction);
    if (status != kOk) return status;
    if (from.object->depth < to.object->depth) {
        status = EnterObject(transaction, from.object, &fromOwn);
        if (status == kOk) status = EnterObject(transaction, to.object, &toOwn);
    } else {
        status = EnterObject(transaction, to.object, &toOwn);
        if (status == kOk) status = EnterObject(transaction, from.object, &fromOwn);
    }
    return status == kOk && !CheckName(to.lastName) ? kBadName : status;
}

Status Move::FindSource() {
    Status status = OpenChild(from.object, from.lastName, &source, kNotFound, transaction);
    if (status != kOk) return status;
    // Below itself it would be out of reach for ever.
    for (FileObject* above = to.object; above != nullptr; above = above->parent)
        if (above == source) return kInvalid;
    return EnterObject(transaction, source, &sourceOwn);
}

// A target that exists must be the source itself under another spelling.
Status Move::TestTarget() {
    bool found = false;
    uint32_t position = 0;
    Status status = LoadDirectory(to.object, transaction);
    if (status == kOk) status = FindEntry(to.object, to.lastName, &found, &position, transaction);
    if (status != kOk || !found) return status;
    const bool isSource = to.object->children[position] == source->entry;
    const bool respelled = WStringView{oldPath} != WStringView{newPath};
    return isSource && !context->caseSensitive && respelled ? kOk : kExists;
}

Status Move::ChangeDirectory() {
    DirectoryEntry carried;
    Status status = ReadDirEntry(from.object, source->entry, &carried, nullptr, transaction);
    if (status == kOk)
        status = WriteDirEntry(from.object, DirectoryEntry{}, source->entry->entry, transaction);
    if (status != kOk) return status;
    ForgetPath(source);
    RemoveEntry(from.object, source->entry);
    source->parent = nullptr;
    const NewEntry wanted{to.lastName, source->entry->attributes, false, false};
    return AddMovedEntry(to.object, wanted, source, carried, transaction);
}

// Who holds the object or something below it holds its ancestors: from now on the new ones.
void Move::MoveReferences(int32_t others) {
    for (FileObject* above = to.object; above != nullptr; above = above->parent)
        above->references += others;
    for (FileObject* above = from.object; above != nullptr; above = above->parent)
        above->references -= others;
}

Status Move::Run() {
    Status status = Prepare();
    if (status == kOk) status = FindSource();
    if (status == kOk) status = TestTarget();
    if (status != kOk) return status;
    if (from.object == to.object)
        return SetEntryName(source, to.lastName, false, false, transaction);
    return ChangeDirectory();
}

Status Move::End(Status status) {
    if (transaction != nullptr) {
        if (status == kOk)
            status = CommitTransaction(context, transaction);
        else
            RollbackTransaction(context, transaction);
    }
    LeaveObject(&fromOwn);
    LeaveObject(&toOwn);
    if (source != nullptr) {
        // Also when the commit failed so late that the change stands.
        const bool moved = from.object != to.object && source->parent == to.object;
        if (moved) MoveReferences(source->references - 1);
        LeaveObject(&sourceOwn);
        --source->references;
        SettleObject(source);
    }
    ReleaseObjectChain(from.object);
    ReleaseObjectChain(to.object);
    return status;
}

}  // namespace

Status MoveAt(StorageContext* context, const WChar* oldPath, const WChar* newPath) {
    if (!context->active) return kNotOpen;
    if (context->readOnly) return kReadOnly;
    Move move(context, oldPath, newPath);
    return move.End(move.Run());
}

}  // namespace storage
