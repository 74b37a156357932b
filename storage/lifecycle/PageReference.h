// Corrects what refers to a page that got another number.
#pragma once

#include "storage/core/Context.h"

namespace storage {

// Pages of the file as they were before a run changed them in memory, to be written back when it
// fails half-way.
class SavedPages {
  public:
    explicit SavedPages(StorageContext* context) : context_(context) {}
    ~SavedPages();
    SavedPages(const SavedPages&) = delete;
    SavedPages& operator=(const SavedPages&) = delete;

    // Keeps the page as it is now, unless the run changed it before. kNoMemory.
    Status Keep(const CachePage* page);
    void WriteBack();

  private:
    struct Saved {
        uint32_t number;
        uint8_t* buffer;
    };
    StorageContext* context_;
    ItemList<Saved> pages_;
};

// In page `page`, which has exactly one reference to page `old` of kind `kind`, makes it `now`.
// Any other number of references, or one where a page of that kind has no place, is corruption.
Status FixPageReference(StorageContext* context, uint32_t page, uint32_t old, uint32_t now,
                        StorageTransaction* transaction, uint16_t kind, SavedPages* saved);
// The pages below a renumbered page, which refer to it as the page before them or as the index
// page that lists them.
Status FixChildReferences(StorageContext* context, CachePage* page, uint32_t old,
                          StorageTransaction* transaction, SavedPages* saved);

}  // namespace storage
