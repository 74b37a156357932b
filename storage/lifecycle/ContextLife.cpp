// SPDX-License-Identifier: MIT
#include "storage/lifecycle/ContextLife.h"

#include <new>

#include "platform/RealPath.h"
#include "storage/core/Dates.h"
#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/PageMap.h"
#include "storage/lifecycle/Compaction.h"
#include "storage/lifecycle/Sharing.h"
#include "storage/namespace/Handles.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Search.h"

namespace storage {

StorageContext* MakeContext() {
    void* memory = platform::HeapAllocate(sizeof(StorageContext));
    if (memory == nullptr) return nullptr;
    StorageContext* context = new (memory) StorageContext();
    context->containerLock.AssertAlone();
    context->lastAccess = context->created = CurrentDate();
    context->compact = [](StorageContext* owner, uint8_t* done) ZRFS_REQUIRES(
                           owner->containerLock) { return CompactPages(owner, done); };
    context->enterWrite = &EnterWrite;
    context->leaveWrite = &LeaveWrite;
    if (CreateObjectState(context) == kOk) return context;
    DestroyContext(context);
    return nullptr;
}

namespace {

void CloseFile(platform::PageFile** file) {
    delete *file;
    *file = nullptr;
}

void ReleaseText(WChar** text) {
    platform::HeapRelease(*text);
    *text = nullptr;
}

void NoteFirst(Status* first, Status status) {
    if (*first == kOk) *first = status;
}

Status CloseSearchesAndHandles(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    Status first = kOk;
    CloseSearches(context);
    for (FileHandle* handle = context->objects->handles.tail; handle != nullptr;) {
        FileHandle* before = handle->prev;
        handle->context->containerLock.AssertHeld();  // which is this context
        NoteFirst(&first, CloseStream(handle, true));
        handle = before;
    }
    return first;
}

// What memory holds of the container; the file stays open.
void EmptyMemory(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    CloseSearches(context);
    ClearObjectState(context);
    DestroyTransactions(context);
    DestroyCache(context);
    context->blocks.Forget();
    platform::HeapRelease(context->superblock);
    platform::HeapRelease(context->swapBuffer);
    context->superblock = context->swapBuffer = nullptr;
    context->batch = nullptr;
    context->writers = 0;
    context->active = context->logInFile = context->inlineEntries = false;
    context->byteSwapped = context->compacting = context->changing = false;
    context->unsettled = context->mapMarked = false;
    context->awaited.count = 0;
    context->searchEnabled = true;
    context->pageSize = context->payloadSize = context->pageShift = 0;
    context->knownPages = context->totalPages = context->basePage = 0;
    context->freeCount = context->lastFree = context->mapPagesKnown = 0;
    context->firstFree = kUnknownPages;
}

}  // namespace

Status CloseContainer(StorageContext* context, Closing closing) {
    Status first = kOk;
    if (context->active && closing == Closing::Write) first = CloseSearchesAndHandles(context);
    DetachLock(context);
    EmptyMemory(context);
    if (context->externalFile) context->file = nullptr;
    CloseFile(&context->file);
    CloseFile(&context->logFile);
    CloseFile(&context->retiredFile);
    ReleaseText(&context->path);
    ReleaseText(&context->logPath);
    context->readOnly = context->writingDenied = context->stale = context->everLocked = false;
    context->metSwitch = false;
    context->grewSinceFlush = context->wroteSinceLock = false;
    return first;
}

Status ReloadContainer(StorageContext* context, bool locked) {
    EmptyMemory(context);
    const Status status = LoadContainer(context, locked);
    if (status != kOk) EmptyMemory(context);
    return status;
}

void DestroyContext(StorageContext* context) {
    if (context->objects != nullptr) {
        while (FileHandle* handle = context->objects->handles.head) {
            handle->context->containerLock.AssertHeld();  // which is this context
            FreeHandle(handle);
        }
        DestroyObjectState(context);
    }
    DestroyTransactions(context);
    DestroyCache(context);
    DetachLock(context);
    if (!context->externalFile) delete context->file;
    delete context->logFile;
    platform::HeapRelease(context->superblock);
    platform::HeapRelease(context->swapBuffer);
    platform::HeapRelease(context->path);
    platform::HeapRelease(context->logPath);
    context->~StorageContext();
    platform::HeapRelease(context);
}

WChar* CopyString(const WChar* text) {
    const size_t bytes = (platform::Length(text) + 1) * sizeof(WChar);
    WChar* copy = static_cast<WChar*>(platform::HeapAllocate(bytes));
    if (copy != nullptr) std::memcpy(copy, text, bytes);
    return copy;
}

WChar* CopyRealPath(const WChar* path) {
    try {
        platform::WString real;
        return CopyString(platform::RealPath(path, &real) == 0 ? real.c_str() : path);
    } catch (const std::bad_alloc&) {  // the seam's texts are the one thing here that throws
        return nullptr;
    }
}

WChar* MakeLogPath(const WChar* path) {
    constexpr WChar kExtension[] = WTEXT(".log");
    size_t dot = platform::Length(path);
    while (dot > 0 && path[dot] != '.') --dot;
    WChar* result =
        static_cast<WChar*>(platform::HeapAllocate(dot * sizeof(WChar) + sizeof kExtension));
    if (result == nullptr) return nullptr;
    std::memcpy(result, path, dot * sizeof(WChar));
    std::memcpy(result + dot, kExtension, sizeof kExtension);
    return result;
}

}  // namespace storage
