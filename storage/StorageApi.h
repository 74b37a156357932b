// SPDX-License-Identifier: MIT
// The engine's public operations: 28 that the key store reaches through StorageFunctionTable, and
// check and repair beside them.
//
// Every operation that takes a container or a file holds the container's lock (containerLock) while
// it runs; open, create, close and check own their context. A null first argument is kInvalid and
// touches nothing, but for StorageGetFileId and the two decoders, which test nothing.
//
// An operation that changes something wants the lock of the file. Where nobody has it through this
// container it is taken for as long as the operation's transaction runs, up to 60 s, and memory is
// brought up to date: kSharing when it cannot be had. An operation that reads looks at memory and
// the file as they stand; who shares the file brackets it with BeginRead and EndRead
// (storage/lifecycle/Sharing.h).
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Text.h"
#include "storage/core/Status.h"

namespace storage {

using platform::WChar;

struct StorageContext;
struct FileHandle;
struct ListPlace;
struct StorageSearchStruct;

// Bit 0 of the container's flags, as memory has them. kNotOpen, kInvalid on a null output.
Status StorageIsCorrupted(StorageContext* container, uint8_t* corrupted);
// How names compare from now on; off in a new context.
Status StorageSetCaseSensitive(StorageContext* container, uint8_t caseSensitive);
// Closes handles and searches, which commits what files hold, gives up the lock, and frees the
// context in every case. Nothing else is written. The status is the first failure met.
Status StorageClose(StorageContext* container);
// Waits up to 60 s for the lock of the file, and reloads the container if another one wrote. Any
// lock type but 0 is alike. Handles and searches do not live across a reload. It nests, and is
// released by the same thread. kInternal when it cannot be had: at once when the thread has it
// through another container on the file, and when the file is not at its path any more.
Status StorageGetLock(StorageContext* container, int32_t lockType);
// kInternal, and nothing changed, when another thread has the lock, or when it was never taken.
Status StorageReleaseLock(StorageContext* container, int32_t lockType);
// Makes or (openIfExists) opens a file; `truncate` empties it. The ignored arguments are part of
// the table's form.
Status StorageCreateFile(StorageContext* container, const WChar* path, uint8_t wantRead,
                         uint8_t wantWrite, uint8_t denyRead, uint8_t denyWrite, uint32_t ignored1,
                         const WChar* ignored2, uint32_t ignored3, FileHandle** file,
                         uint8_t openIfExists, uint8_t truncate);
// Closes the handle, commits its write transaction, and frees it in every case. After a failure the
// file is as it was before the transaction, the truncation at its opening taken back too.
Status StorageCloseFile(FileHandle* file);
Status StorageGetFileAttributes(StorageContext* container, const WChar* path, uint32_t* attributes);
Status StorageOpenFile(StorageContext* container, const WChar* path, uint8_t wantRead,
                       uint8_t wantWrite, uint8_t denyRead, uint8_t denyWrite,
                       const WChar* ignored1, uint32_t ignored2, FileHandle** file);
// A file, link or empty directory.
Status StorageDeleteFile(StorageContext* container, const WChar* path);
Status StorageMoveFile(StorageContext* container, const WChar* oldPath, const WChar* newPath);
// `origin` 0 start, 1 current, 2 end of data; any other sets the position to 0. No bound is
// checked; the low 32 bits of the new position are returned.
Status StorageSeekFile(FileHandle* file, int32_t offset, uint16_t origin, uint32_t* position);
Status StorageReadFile(FileHandle* file, void* buffer, uint32_t count, uint32_t* done);
Status StorageWriteFile(FileHandle* file, const void* buffer, uint32_t count, uint32_t* done);
Status StorageFindFirst(StorageContext* container, StorageSearchStruct* record, const WChar* path,
                        uint32_t attributeMask, int32_t flags);
// Not in the table: what the library's own engine does besides. See storage/namespace/Listing.h.
Status StorageNameAt(StorageContext* container, const WChar* pattern, uint32_t attributeMask,
                     uint32_t index, ListPlace* place, platform::WStringView* name);
// On kNoMore the search is closed as well.
Status StorageFindNext(StorageContext* container, StorageSearchStruct* record);
Status StorageFindClose(StorageContext* container, StorageSearchStruct* record);
// Days since 1899-12-30 in UTC; each output may be null.
Status StorageGetFileTimes(StorageContext* container, const WChar* path, double* created,
                           double* modified, double* accessed);
void StorageDecodeDate(double date, uint16_t* year, uint16_t* month, uint16_t* day);
void StorageDecodeTime(double date, uint16_t* hour, uint16_t* minute, uint16_t* second,
                       uint16_t* millisecond);
// Reads the container as one state of it, beside others' changes. The file's lock is taken for a
// moment only when no such state is to be had, or to end what a writer that died had begun.
Status StorageOpen(const WChar* path, StorageContext** container, uint16_t separator,
                   void* reserved, uint8_t updateAccessTime);
// Makes a container of page size 256 to 65536, a power of two. A null or empty banner is the
// default one. No lock is taken: others who look at the path see the file come into being.
// kBadPageSize; 80 for an existing file without `overwrite`.
Status StorageCreate(const WChar* path, uint8_t overwrite, uint32_t pageSize, const WChar* banner,
                     StorageContext** container, uint16_t separator, void* reserved,
                     uint8_t updateAccessTime);
// Free share in percent above which a commit compacts; 0 is off.
Status StorageSetAutoCompact(StorageContext* container, uint32_t percent);
Status StorageIsDirectoryEmpty(StorageContext* container, const WChar* path, uint8_t* empty);
Status StorageDeleteDirectory(StorageContext* container, const WChar* path);
Status StorageCreateDirectory(StorageContext* container, const WChar* path);
Status StorageGetFileId(FileHandle* file, uint32_t* fileId);
// Under the file's lock, which is taken where nobody has it through this container; kSharing. 255
// in `done` (may be null) when it ran.
Status StorageCompact(StorageContext* container, uint8_t* done);

// Told of progress and findings; see include/ZrFsTypes.h for the codes' form.
using CheckCallback = void (*)(void* userData, uint32_t code, uint32_t a, uint32_t b, uint8_t clean,
                               uint8_t* cancel);
enum CheckCode : uint32_t {
    kCheckRead = 1,
    kCheckLinks = 2,
    kCheckReferences = 3,
    kCheckWrite = 4,
    kFoundBadLink = 8,
    kFoundLostPage = 9,
    kFoundBadEntry = 15,
};
inline constexpr uint32_t kCheckOnly = 1;
inline constexpr uint32_t kCheckDeep = 2;
// A repair gives a pending redo log up instead of replaying it: the way out when it cannot be.
inline constexpr uint32_t kCheckDiscardLog = 4;
// The caller holds the container's lock already, and the run takes none.
inline constexpr uint32_t kCheckLocked = 8;
// Checks, and without kCheckOnly repairs, a container, under its lock: kSharing when somebody else
// has it for longer than 5 seconds, and for a repair when the calling thread has it. A check writes
// nothing, whatever it finds, and tells all that a repair would mend: 9 for each page that is in
// use to the map and reached by nothing; 15 for an entry whose object, name or place among its
// neighbours is wrong; 8 for every other wrong field, with the page it is on (of the map its own
// page, of the superblock and a log that cannot be replayed page 1, of a part of a page at the end
// the number of pages). A repair whose pending log cannot be replayed is kCorrupt and changes
// nothing. `userData` has room for 64 units.
Status StorageCheckAndRepair(const WChar* path, const void* unused1, uint32_t flags,
                             const void* unused2, const void* unused3, void* userData,
                             CheckCallback callback);

// Compacts the container file at `path` under its lock, which is given back before the end.
// `progress` (may be null) is asked between steps and ends the run with kCancelled when it answers
// false: what was moved until then stays moved, and the container is sound. kSharing as above.
using CompactProgress = bool (*)(void* userData);
Status StorageCompactFile(const WChar* path, void* userData, CompactProgress progress);

// In this order; 28 pointers.
struct StorageFunctionTable {
    decltype(&storage::StorageIsCorrupted) StorageIsCorrupted;
    decltype(&storage::StorageSetCaseSensitive) StorageSetCaseSensitive;
    decltype(&storage::StorageClose) StorageClose;
    decltype(&storage::StorageGetLock) StorageGetLock;
    decltype(&storage::StorageReleaseLock) StorageReleaseLock;
    decltype(&storage::StorageCreateFile) StorageCreateFile;
    decltype(&storage::StorageCloseFile) StorageCloseFile;
    decltype(&storage::StorageGetFileAttributes) StorageGetFileAttributes;
    decltype(&storage::StorageOpenFile) StorageOpenFile;
    decltype(&storage::StorageDeleteFile) StorageDeleteFile;
    decltype(&storage::StorageMoveFile) StorageMoveFile;
    decltype(&storage::StorageSeekFile) StorageSeekFile;
    decltype(&storage::StorageReadFile) StorageReadFile;
    decltype(&storage::StorageWriteFile) StorageWriteFile;
    decltype(&storage::StorageFindFirst) StorageFindFirst;
    decltype(&storage::StorageFindNext) StorageFindNext;
    decltype(&storage::StorageFindClose) StorageFindClose;
    decltype(&storage::StorageGetFileTimes) StorageGetFileTimes;
    decltype(&storage::StorageDecodeDate) StorageDecodeDate;
    decltype(&storage::StorageDecodeTime) StorageDecodeTime;
    decltype(&storage::StorageOpen) StorageOpen;
    decltype(&storage::StorageCreate) StorageCreate;
    decltype(&storage::StorageSetAutoCompact) StorageSetAutoCompact;
    decltype(&storage::StorageIsDirectoryEmpty) StorageIsDirectoryEmpty;
    decltype(&storage::StorageDeleteDirectory) StorageDeleteDirectory;
    decltype(&storage::StorageCreateDirectory) StorageCreateDirectory;
    decltype(&storage::StorageGetFileId) StorageGetFileId;
    decltype(&storage::StorageCompact) StorageCompact;
};
static_assert(sizeof(StorageFunctionTable) == 28 * sizeof(void*));

// The engine's own operations.
StorageFunctionTable OwnFunctions();
// The table of the process, the engine's own operations until somebody replaces it, which is done
// by SetFunctions only.
extern StorageFunctionTable g_storageFunctions;
void SetFunctions(const StorageFunctionTable& table);
// Is every function of it the engine's own?
extern std::atomic<bool> g_hasOwnFunctions;

}  // namespace storage
