// SPDX-License-Identifier: MIT
// The redo log of a commit that changes several pages: their new images in free pages, listed in
// the chained form that an opening replays. It counts from the moment page 1 names it.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// Pages that a log lies in; they are free in the file's map all the time.
class RedoLog {
  public:
    explicit RedoLog(StorageContext* context) : context_(context) {}
    RedoLog(const RedoLog&) = delete;
    RedoLog& operator=(const RedoLog&) = delete;
    // The pages are free again, in memory too.
    ~RedoLog();

    // Lays down images of all changed pages of the transaction that were there before it, `count`
    // of them. Nothing in the file refers to the log yet. On failure there is none.
    Status Write(StorageTransaction* transaction, uint32_t count);
    // Writes page 1 with the log in force; from then on the changes are final.
    Status SwitchOn();
    // Every page is in its place: the next writing of page 1 ends the log.
    void SwitchOff();
    // The log stays in force and is replayed by the next opening: its pages must not be used.
    void Leave() { pages_.Clear(); }

  private:
    Status Take(uint32_t count);
    Status WriteImage(const CachePage* page, uint32_t place, uint8_t* buffer);
    Status WriteLists(uint32_t images, uint8_t* buffer);
    Status WriteRaw(uint8_t* buffer, uint32_t place);

    StorageContext* context_;
    NumberList pages_;  // images first, then second-level pages, the first-level page last
};

}  // namespace storage
