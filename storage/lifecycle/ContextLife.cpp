#include "storage/lifecycle/ContextLife.h"

#include <atomic>
#include <new>

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
    context->lastAccess = context->created = CurrentDate();
    context->compact = [](StorageContext* owner, uint8_t* done) { return CompactPages(owner, done); };
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

Status CloseSearchesAndHandles(StorageContext* context) {
    Status first = kOk;
    CloseSearches(context);
    for (FileHandle* handle = context->objects->handles.tail; handle != nullptr;) {
        FileHandle* before = handle->prev;
        NoteFirst(&first, CloseStream(handle, true));
        handle = before;
    }
    return first;
}

// Another process may have raised the numbers in page 1 since it was read here; they only rise.
void MergeSuperblock(StorageContext* context) {
    uint8_t* buffer = AllocateBuffer(context);
    if (buffer == nullptr) return;
    const Superblock* onDisk = reinterpret_cast<const Superblock*>(buffer);
    if (ReadPage(context, buffer, kSuperblockNumber) == kOk && onDisk->kind == kSuperblockPage) {
        Superblock* super = context->Super();
        if (onDisk->lastFileId > super->lastFileId) super->lastFileId = onDisk->lastFileId;
        if (onDisk->transactionCounter > super->transactionCounter)
            super->transactionCounter = onDisk->transactionCounter;
        super->flags |= onDisk->flags & kFlagCorrupted;
    }
    ReleaseBuffer(context, buffer);
}

Status WriteRemains(StorageContext* context) {
    Status first = DropCache(context);
    NoteFirst(&first, FlushMapPages(context));
    if (context->readOnly || !context->wroteSinceOpen) return first;
    MergeSuperblock(context);
    context->Super()->logPending = 0;
    NoteFirst(&first, WriteSuperblock(context));
    return first;
}

// True when somebody wrote since this context last looked, so that nothing here may be written.
bool IsStale(const StorageContext* context) {
    if (context->sharedGeneration == nullptr) return false;
    return std::atomic_ref<uint32_t>(*context->sharedGeneration).load() != context->seenGeneration;
}

// Back to the state before the opening.
void EmptyContext(StorageContext* context) {
    ClearObjectState(context);
    DestroyTransactions(context);
    DestroyCache(context);
    platform::HeapRelease(context->superblock);
    platform::HeapRelease(context->swapBuffer);
    context->superblock = context->swapBuffer = nullptr;
    if (context->externalFile) context->file = nullptr;
    CloseFile(&context->file);
    CloseFile(&context->logFile);
    ReleaseText(&context->path);
    ReleaseText(&context->logPath);
    context->active = context->readOnly = context->logInFile = false;
    context->byteSwapped = context->compacting = context->evicting = false;
    context->wroteSinceOpen = context->grewSinceFlush = false;
    context->searchEnabled = true;
    context->pageSize = context->payloadSize = context->pageShift = 0;
    context->knownPages = context->totalPages = context->basePage = 0;
    context->freeCount = context->lastFree = context->mapPagesKnown = 0;
    context->firstFree = kUnknownPages;
}

}  // namespace

Status CloseContainer(StorageContext* context, Closing closing) {
    Status first = kOk;
    if (closing == Closing::Write && IsStale(context)) closing = Closing::Discard;
    if (context->active && closing != Closing::Fail) {
        if (closing == Closing::Write) {
            first = CloseSearchesAndHandles(context);
            NoteFirst(&first, WriteRemains(context));
        } else {
            CloseSearches(context);
        }
    }
    EmptyContext(context);
    return first;
}

void DestroyContext(StorageContext* context) {
    if (context->objects != nullptr) {
        while (FileHandle* handle = context->objects->handles.head) FreeHandle(handle);
        DestroyObjectState(context);
    }
    DestroyTransactions(context);
    DestroyCache(context);
    CloseSharedObjects(context);
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
