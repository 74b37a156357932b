// SPDX-License-Identifier: MIT
// The plain structures of the namespace: directory entries, objects, handles, blocks, searches.
// They have no behaviour here; the headers beside this one do.
#pragma once

#include <cstdint>

#include "platform/Text.h"
#include "storage/core/Context.h"
#include "storage/core/Format.h"
#include "storage/core/HashTable.h"
#include "storage/core/ItemList.h"
#include "storage/core/List.h"
#include "storage/core/SpareList.h"
#include "storage/core/Transaction.h"
#include "storage/namespace/EntryList.h"
#include "storage/namespace/MemoryLimits.h"

namespace storage {

struct FileBlock;
struct FileHandle;
struct FindContext;
struct StorageSearchStruct;

inline constexpr uint64_t kUnknownSize = 0xFFFFFFFFFFFFFFFF;

// Text of its own that keeps its room; storage/namespace/TextBuffer.h works on it.
struct TextBuffer {
    WChar* text = nullptr;  // zero-terminated, null before the first use
    uint32_t units = 0;
    uint32_t room = 0;  // units, the terminator included
};

enum ObjectFlag : uint32_t {
    kObjectCreated = 1,  // in the running transaction
    kObjectDeleted = 2,
    kObjectNameChanged = 4,
    kEntriesLoaded = 0x40,
    kNamesSorted = 0x80,  // every name complete, the list in full order
    kObjectIdle = 0x200,
    kIdleDirectory = 0x400,  // idle among the directories that hold memory
    kPageListComplete = 0x800,
    kSortedSensitive = 0x1000,   // the list is in case-sensitive order
    kDirectoryChanged = 0x2000,  // list, pages or free entries differ from before the transaction
    kStreamChanged = 0x4000,     // so may the stream
    kStreamReady = 0x8000,       // the stream record is there
    kBlockSettingsKnown = 0x10000,
    kObjectRemembered = 0x20000,  // the path cache may know it, or something below it
    kObjectHinted = 0x40000,      // the hint of a caller may point to it
};
inline constexpr uint32_t kCommitClears = 0xF | kDirectoryChanged | kStreamChanged;

// What a roll back gives back to an object that was there before the transaction. A changed name
// comes back from the entry on disk, when the directory is loaded again.
struct ObjectSnapshot {
    FileObject* parent;
    uint32_t depth;
    uint32_t headerPage;
    uint32_t flags;
    uint32_t entry;
    uint32_t attributes;
};

// The one image in memory of a file or directory, shared by all who reach it.
//
// `references` counts the holders of this object and of everything below it: who holds an object
// holds one reference on each of its ancestors too.
struct FileObject {
    // What a look-up in a directory touches stands together at the front.
    StorageContext* context;
    uint32_t flags;
    uint32_t fileId;
    StorageTransaction* transaction;
    uint64_t lastUsed;   // the operation that left it idle, as ObjectState counts them
    EntryList children;  // of a directory, sorted
    uint32_t lastFound;  // where in `children` the last look-up ended; a guess
    uint32_t headerPage;
    uint32_t depth;  // the root has 1
    int32_t references;
    FileObject* hashNext;
    FileObject* idlePrev;
    FileObject* idleNext;
    ObjectSnapshot saved;
    DirEntry* entry;
    FileObject* parent;

    // Directory.
    EntryPool records;          // the memory of `children`
    uint64_t listVersion;       // a new one, never used before, with each change of `children`
    NumberList directoryPages;  // in chain order
    NumberList freeEntries;     // taken from the front, added behind
    FileObject* orphanPrev;
    FileObject* orphanNext;
    // Children whose records are in no list since a roll back threw the list away; LoadDirectory
    // takes them up again.
    List<FileObject, &FileObject::orphanPrev, &FileObject::orphanNext> orphans;
    uint32_t glances;    // look-ups for which the entries were not loaded
    uint32_t purgeNext;  // while the object is purged: children not yet looked at

    // Stream.
    uint64_t size;
    uint64_t streamEnd;
    uint16_t streamType;
    uint32_t listCount;        // pageList's count as last written to the index
    NumberList pageList;       // one a page of the stream, 0 for a hole
    NumberList pageListPages;  // the index pages
    int32_t denyReadCount;
    int32_t denyWriteCount;
    PointerList<FileHandle> handles;  // newest last
    uint32_t readMethod;
    uint32_t writeMethod;
    uint32_t level;
    uint32_t pagesPerBlock;
    PointerList<FileBlock> blocks;  // in use, sorted by start
    WChar* linkTarget;              // cached, null until read
};

struct FileHandle {
    FileObject* object ZRFS_GUARDED_BY(context->containerLock);  // null after close
    StorageContext* context;
    bool canRead;
    bool canWrite;
    bool deniesRead;
    bool deniesWrite;
    uint64_t position ZRFS_GUARDED_BY(context->containerLock);
    // The block last used, with a reference.
    FileBlock* block ZRFS_GUARDED_BY(context->containerLock);
    FileHandle* prev;
    FileHandle* next;
};

enum BlockFlag : uint32_t {
    kBlockInline = 1,
    kBlockDirty = 2,
    kBlockToPages = 16,    // must go to pages
    kBlockPlainOnce = 32,  // store plain this once
};

struct FileBlock {
    uint64_t start;  // a multiple of capacity
    uint32_t storedLength;
    uint32_t dataLength;
    uint32_t backupLength;
    uint32_t capacity;
    uint8_t* stored;  // capacity + 84 bytes
    uint8_t* data;    // the same buffer when no method is set
    uint8_t* backup;  // only when a method is set: the block as last stored
    int32_t references;
    uint32_t flags;
    FileObject* object;
    uint32_t room;         // bytes of the stored buffer
    FileBlock* nextSpare;  // while it is kept for reuse
};

struct FindContext {
    StorageContext* context;
    StorageTransaction* transaction;
    FileObject* directory;  // with its whole chain
    TextBuffer prefix;
    TextBuffer pattern;
    uint32_t attributeMask;
    uint32_t flags;
    int32_t position;  // in the sorted list; -2 and -1 stand for "." and ".."
    uint32_t savedId;
    bool hasSavedName;
    TextBuffer savedName;
    TextBuffer name;  // the record's strings live here
    TextBuffer fullName;
    StorageSearchStruct* record;  // null once its search was given up
    FindContext* prev;
    FindContext* next;
};

// Directories that paths led to, by the text of the path: a second walk of the same path costs one
// comparison. Each text has a pair of places, which the last two that came there have.
struct PathCache {
    static constexpr uint32_t kPlaces = 512;  // a power of two
    struct Place {
        FileObject* directory = nullptr;  // of use only while `epoch` is that of the cache
        TextBuffer path;
        uint32_t epoch = 0;
        bool caseSensitive = false;
    };
    Place places[kPlaces];
    uint32_t epoch = 1;  // a new one empties every place
    bool anyFilled = false;
};

// Every object, handle and search of a context.
struct ObjectState {
    FileObject* root = nullptr;
    DirEntry* rootRecord = nullptr;
    HashTable<FileObject, &FileObject::fileId, &FileObject::hashNext> fileObjects;
    List<FileObject, &FileObject::idlePrev, &FileObject::idleNext> idle;             // newest first
    List<FileObject, &FileObject::idlePrev, &FileObject::idleNext> idleDirectories;  // the same
    uint32_t idleCount = 0;                                                          // in `idle`
    uint64_t entryBytes = 0;  // of directory records and lists
    uint64_t operations = 0;  // counted as they begin
    uint64_t listVersions = 0;
    uint64_t hintedGone = 0;         // objects that hints may have pointed to
    const void* lookedIn = nullptr;  // the list of the last look-up by a hint: it is at hand
    List<FileHandle, &FileHandle::prev, &FileHandle::next> handles;  // oldest first
    List<FindContext, &FindContext::prev, &FindContext::next> searches;
    PathCache paths;

    SpareList<FileObject, &FileObject::hashNext, 64> spareObjects;
    SpareList<FileHandle, &FileHandle::next, 16> spareHandles;
    SpareList<FindContext, &FindContext::next, 1> spareSearches;
    SpareList<FileBlock, &FileBlock::nextSpare, 16> spareBlocks;  // with their stored buffers
};

}  // namespace storage
