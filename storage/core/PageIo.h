// SPDX-License-Identifier: MIT
// Whole pages between the file and memory; nothing is cached here.
#pragma once

#include "Shared/security/LowIntegrityResource.h"
#include "storage/core/Context.h"

namespace storage {

// Opens or makes a file with the label of low integrity. Null: it cannot be had, and
// OpenFailure() says why.
platform::PageFile* OpenPageFile(const WChar* path, ResourceType type, platform::Disposition how);
// The system's error of the last opening, kNoMemory when it left none.
Status OpenFailure();
// The existing file at `path` becomes the context's: for reading and writing if that can be had,
// else for reading only. The system's error, or kNoMemory.
Status OpenContainerFile(StorageContext* context, const WChar* path);

// Reads `size` bytes at page `index` of `file`. kOk also after a plain short read at the end of
// the file; what was not read is zeroed.
Status ReadPageRaw(platform::PageFile* file, void* buffer, uint32_t size, uint64_t index,
                   uint32_t pageSize);
// Writes `size` bytes at page `index`; notes the write in `context` unless that is null.
Status WritePageRaw(StorageContext* context, platform::PageFile* file, const void* buffer,
                    uint32_t size, uint64_t index, uint32_t pageSize);
// Sets the length of the file to `count` pages.
Status CutFile(platform::PageFile* file, uint64_t count, uint32_t pageSize);

// One page of the container, in native byte order in `buffer`. A page past the end marks the
// container corrupted (see MarkCorrupted) and is read all the same. kSharing for a page that
// somebody is just writing (storage/core/SwitchMark.h).
Status ReadPage(StorageContext* context, void* buffer, uint32_t page);
// The bytes of a page, to look at until the next call for a page; none when they cannot be had
// without more ado: ReadPage then says why. `readsOn`: those behind it are wanted next. `place`: a
// number that the caller keeps for this page, 0 at first, by which it is found at once.
PageBytes ViewPage(StorageContext* context, uint32_t page, bool readsOn = false,
                   uint32_t* place = nullptr);
// The page is about to be viewed.
inline void PrefetchPage(const StorageContext* context, uint32_t page, uint32_t place = 0)
    ZRFS_REQUIRES(context->containerLock) {
    context->blocks.Prefetch((uint64_t{context->basePage} + page) * context->pageSize, place);
}
// Reads up to `count` pages from `page` on in one transfer, and answers how many: 0 where ViewPage
// is to be asked instead.
uint32_t ReadPageRun(StorageContext* context, uint8_t* buffer, uint32_t page, uint32_t count);
Status WritePage(StorageContext* context, const void* buffer, uint32_t page);
// `count` adjacent pages from `page` on, in as few transfers as the byte order allows.
Status WritePages(StorageContext* context, const void* const* buffers, uint32_t count,
                  uint32_t page);
// `count` new pages from `first` on that nobody will read before they are written again: memory
// does not keep them. In the other byte order the bytes at `pages` are turned.
Status WriteFreshPages(StorageContext* context, uint8_t* pages, uint32_t count, uint32_t first);
// Page `index` of the pending redo log.
Status ReadLogPage(StorageContext* context, void* buffer, uint32_t index);

// Turns a page from one byte order to the other, in place. The direction tells in which order
// the fields are that steer the conversion.
enum class Direction { Read, Write };
void ConvertPage(const StorageContext* context, void* page, Direction direction);
uint16_t Swap16(uint16_t value);
uint32_t Swap32(uint32_t value);

// Sets the corruption bit in memory and in page 1 as it stands in the file, in an open writable
// container under its lock. Without the lock what looks like damage may be a change under way:
// nothing is marked.
Status MarkCorrupted(StorageContext* context);
// Where every corruption is noticed: marks the container and answers kCorrupt.
Status Corrupt(StorageContext* context);
// The superblock from memory to page 1, without a list of pages.
Status WriteSuperblock(StorageContext* context);

}  // namespace storage
