// SPDX-License-Identifier: MIT
#include "storage/namespace/Objects.h"

#include <new>

#include "storage/core/PageCache.h"
#include "storage/namespace/EntryRecords.h"
#include "storage/namespace/Membership.h"
#include "storage/namespace/Search.h"
#include "storage/namespace/Stream.h"
#include "storage/namespace/TextBuffer.h"

namespace storage {

namespace {

FileObject* AllocateObject(ObjectState* state) {
    FileObject* object = state->spareObjects.Take();
    if (object != nullptr) return object;
    void* memory = platform::HeapAllocate(sizeof(FileObject));
    return memory == nullptr ? nullptr : new (memory) FileObject();
}

void DeleteObject(FileObject* object) {
    object->~FileObject();
    platform::HeapRelease(object);
}

// The list of handles keeps its room; nearly every object needs it and no other.
void RecycleObject(ObjectState* state, FileObject* object) {
    object->children.Reset();
    object->directoryPages.Reset();
    object->freeEntries.Reset();
    object->pageList.Reset();
    object->pageListPages.Reset();
    if (object->handles.Count() != 0 || !state->spareObjects.Keep(object)) DeleteObject(object);
}

void InitialiseObject(FileObject* object) {
    object->flags = 0;
    object->idlePrev = object->idleNext = nullptr;
    object->saved = ObjectSnapshot{};
    object->transaction = nullptr;
    object->orphanPrev = object->orphanNext = nullptr;
    object->orphans = {};
    object->lastFound = 0;
    object->glances = 0;
    object->listVersion = 0;
    object->lastUsed = 0;
    object->size = kUnknownSize;
    object->streamEnd = kUnknownSize;
    object->listCount = 0;
    object->denyReadCount = object->denyWriteCount = 0;
    object->readMethod = object->writeMethod = object->level = 0;
    object->pagesPerBlock = 1;
    object->linkTarget = nullptr;
}

uint16_t StreamTypeOf(const DirEntry* entry) {
    if (entry->fileId == kRootFileId) return kRootDataRecord;
    return (entry->attributes & kAttrLink) != 0 ? kLinkRecord : kDataRecord;
}

void LeaveTransaction(FileObject* object) {
    if (object->transaction == nullptr) return;
    PointerList<FileObject>& objects = object->transaction->objects;
    const int64_t place = objects.Find(object);
    if (place >= 0) objects.RemoveAt(static_cast<uint32_t>(place));
    object->transaction = nullptr;
}

// One object, with nothing below it in memory any more.
void FreeObject(FileObject* object) {
    ObjectState* state = object->context->objects;
    LeaveTransaction(object);
    state->fileObjects.Remove(object);
    LeaveIdle(object);
    if ((object->flags & kObjectHinted) != 0) ++state->hintedGone;
    if ((object->flags & kObjectRemembered) != 0 && state->paths.anyFilled)
        for (PathCache::Place& place : state->paths.places)
            if (place.directory == object) place.epoch = 0;
    if (state->root == object) state->root = nullptr;
    for (FileHandle* handle : object->handles) handle->object = nullptr;
    DropStreamState(object);
    object->handles.Clear();
    DirEntry* entry = object->entry;
    entry->object = nullptr;
    if ((entry->flags & kEntryDetached) != 0) {
        RemoveOrphan(object);
        DestroyDirEntry(entry);
    }
    platform::HeapRelease(object->linkTarget);
    object->linkTarget = nullptr;
    LeaveSlabs(&object->records);
    RecycleObject(state, object);
}

// Takes records off the object's lists until one with an object turns up; null when none is left.
FileObject* TakeChildObject(FileObject* object) {
    while (!object->children.Empty()) {
        DirEntry* entry = object->children.TakeLast();
        if (entry->object == nullptr) {
            DestroyDirEntry(entry);
            continue;
        }
        AddOrphan(object, entry->object);
        return entry->object;
    }
    return object->orphans.head;
}

void FreeSearch(FindContext* search) {
    ReleaseText(&search->prefix);
    ReleaseText(&search->pattern);
    ReleaseText(&search->savedName);
    ReleaseText(&search->name);
    ReleaseText(&search->fullName);
    platform::HeapRelease(search);
}

uint64_t HeldBytes(const ObjectState* state) {
    return state->entryBytes + uint64_t{state->fileObjects.Count()} * sizeof(FileObject);
}

void DestroyObjects(ObjectState* state) {
    // The tree first, then what a running transaction had taken out of it.
    if (state->root != nullptr) DestroyObject(state->root);
    while (state->fileObjects.Count() != 0) {
        FileObject* last = nullptr;
        state->fileObjects.ForEach([&last](FileObject* object) { last = object; });
        while (last->parent != nullptr) last = last->parent;
        last->entry->flags |= kEntryDetached;
        DestroyObject(last);
    }
}

}  // namespace

Status CreateObjectState(StorageContext* context) {
    void* memory = platform::HeapAllocate(sizeof(ObjectState));
    if (memory == nullptr) return kNoMemory;
    context->objects = new (memory) ObjectState();
    context->objectHooks = TransactionHooks();
    return kOk;
}

void DestroyObjectState(StorageContext* context) {
    ObjectState* state = context->objects;
    if (state == nullptr) return;
    while (FindContext* search = state->searches.head) {
        state->searches.Remove(search);
        if (search->record->search == search) *search->record = StorageSearchStruct{};
        FreeSearch(search);
    }
    ClearObjectState(context);
    while (FileHandle* handle = state->handles.head) {
        state->handles.Remove(handle);
        platform::HeapRelease(handle);
    }
    while (FileObject* object = state->spareObjects.Take()) DeleteObject(object);
    while (FileHandle* handle = state->spareHandles.Take()) platform::HeapRelease(handle);
    while (FindContext* search = state->spareSearches.Take()) FreeSearch(search);
    while (FileBlock* block = state->spareBlocks.Take()) platform::HeapRelease(block);
    for (PathCache::Place& place : state->paths.places)
        if (place.path.text != nullptr) ReleaseText(&place.path);
    state->~ObjectState();
    platform::HeapRelease(state);
    context->objects = nullptr;
    context->objectHooks = nullptr;
}

void ClearObjectState(StorageContext* context) {
    ForgetPaths(context);
    DestroyObjects(context->objects);
    context->objects->rootRecord = nullptr;
}

void ForgetObjects(StorageContext* context) {
    ObjectState* state = context->objects;
    while (state->idle.tail != nullptr) DestroyObject(state->idle.tail);
    while (state->idleDirectories.tail != nullptr) DestroyObject(state->idleDirectories.tail);
    state->fileObjects.ForEach([](FileObject* object) {
        DropEntries(object);
        DropStreamState(object);
        object->flags &= ~kStreamReady;
    });
}

Status CreateRootObject(StorageContext* context) {
    const DirectoryEntry& bytes = context->Super()->rootEntry;
    DirEntry* entry = NewDirEntry(context->objects, nullptr, 1);
    if (entry == nullptr) return kNoMemory;
    entry->fileId = bytes.fileId;
    entry->flags = kNameComplete | kEntryDetached;  // it stands in no directory
    entry->attributes = bytes.attributes;
    entry->headerPage = bytes.headerPage;
    FileObject* root = CreateObject(context, nullptr, entry, bytes.headerPage);
    if (root == nullptr) {
        DestroyDirEntry(entry);
        return kNoMemory;
    }
    // Its first reference is never given back, so that the root is never idle.
    context->objects->root = root;
    context->objects->rootRecord = entry;
    return kOk;
}

FileObject* CreateObject(StorageContext* context, FileObject* parent, DirEntry* entry,
                         uint32_t headerPage) {
    ObjectState* state = context->objects;
    FileObject* object = AllocateObject(state);
    if (object == nullptr) return nullptr;
    InitialiseObject(object);
    object->context = context;
    object->children.CountIn(&state->entryBytes);
    object->fileId = entry->fileId;
    if (!state->fileObjects.Insert(object)) {
        RecycleObject(state, object);
        return nullptr;
    }
    object->parent = parent;
    object->depth = parent == nullptr ? 1 : parent->depth + 1;
    object->entry = entry;
    object->headerPage = headerPage;
    object->streamType = StreamTypeOf(entry);
    object->references = 1;
    entry->object = object;
    return object;
}

// Trees in memory may be as deep as a path can be long: no recursion.
void DestroyObject(FileObject* top) {
    FileObject* object = top;
    for (;;) {
        if (FileObject* child = TakeChildObject(object)) {
            object = child;
            continue;
        }
        FileObject* parent = object == top ? nullptr : object->parent;
        FreeObject(object);
        if (parent == nullptr) return;
        object = parent;
    }
}

void LeaveIdle(FileObject* object) {
    if ((object->flags & kObjectIdle) == 0) return;
    ObjectState* state = object->context->objects;
    if ((object->flags & kIdleDirectory) != 0) {
        state->idleDirectories.Remove(object);
    } else {
        state->idle.Remove(object);
        --state->idleCount;
    }
    object->flags &= ~(kObjectIdle | kIdleDirectory);
}

void SettleObject(FileObject* object) {
    if (object->references > 0 || object->transaction != nullptr ||
        (object->flags & kObjectIdle) != 0)
        return;
    ObjectState* state = object->context->objects;
    object->flags |= kObjectIdle;
    object->lastUsed = state->operations;
    if ((object->flags & kEntriesLoaded) != 0 || !object->orphans.Empty()) {
        object->flags |= kIdleDirectory;
        state->idleDirectories.PushFront(object);
    } else {
        state->idle.PushFront(object);
        ++state->idleCount;
    }
}

void ReleaseObjectChain(FileObject* object) {
    for (; object != nullptr; object = object->parent) {
        --object->references;
        SettleObject(object);
    }
}

void EvictIdleObjects(StorageContext* context) {
    ObjectState* state = context->objects;
    ++state->operations;
    if (state->idleCount <= kIdleObjectLimit && HeldBytes(state) <= g_memoryLimits.directoryBytes)
        return;
    if (HasMembers(context)) return;
    while (state->idleCount > kIdleObjectLimit) DestroyObject(state->idle.tail);
    while (HeldBytes(state) > g_memoryLimits.directoryBytes) {
        FileObject* oldest = state->idleDirectories.tail;
        if (oldest == nullptr ||
            state->operations - oldest->lastUsed <= g_memoryLimits.recentOperations)
            return;
        DestroyObject(oldest);
    }
}

void ForgetPath(FileObject* object) {
    if ((object->flags & kObjectRemembered) == 0) return;
    PathCache& paths = object->context->objects->paths;
    for (PathCache::Place& place : paths.places) {
        if (place.epoch != paths.epoch) continue;
        FileObject* on = place.directory;
        while (on != nullptr && on != object) on = on->parent;
        if (on == object) place.epoch = 0;
    }
}

void ForgetPaths(StorageContext* context) {
    PathCache& paths = context->objects->paths;
    paths.anyFilled = false;
    if (++paths.epoch != 0) return;
    for (PathCache::Place& place : paths.places) place.epoch = 0;
    paths.epoch = 1;
}

FileHandle* AllocateHandle(StorageContext* context) {
    FileHandle* handle = context->objects->spareHandles.Take();
    if (handle == nullptr)
        return static_cast<FileHandle*>(platform::HeapAllocateZeroed(sizeof(FileHandle)));
    *handle = FileHandle{};
    return handle;
}

void RecycleHandle(StorageContext* context, FileHandle* handle) {
    if (!context->objects->spareHandles.Keep(handle)) platform::HeapRelease(handle);
}

FindContext* AllocateSearch(StorageContext* context) {
    FindContext* search = context->objects->spareSearches.Take();
    if (search != nullptr) return search;
    void* memory = platform::HeapAllocate(sizeof(FindContext));
    return memory == nullptr ? nullptr : new (memory) FindContext();
}

void RecycleSearch(StorageContext* context, FindContext* search) {
    if (!context->objects->spareSearches.Keep(search)) FreeSearch(search);
}

}  // namespace storage
