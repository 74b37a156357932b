// SPDX-License-Identifier: MIT
// Lays out container files byte by byte, so that tests can have every sort of container that the
// format allows, also those that the engine never writes.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "tests/support/ContainerBytes.h"

namespace support::container {

enum class ItemKind { Directory, File, Link };

// What a container holds, as a tree.
struct Item {
    std::u16string name;
    ItemKind kind = ItemKind::File;
    uint32_t attributes = 0;         // beside the bit of the kind
    Bytes body;                      // the stream; files have one even when empty
    std::optional<uint64_t> size;    // as said in the FileInfoRecord, when not the body's
    bool inPages = false;            // the stream has pages even if it would fit inline
    bool indexed = false;            // also with less than 17 pages
    std::optional<uint32_t> method;  // any value makes a BlockSettingsRecord
    uint32_t pagesPerBlock = 1;
    bool secondHeader = false;   // the stream record goes to a HeaderPage of its own
    bool inlineEntries = false;  // a directory's entries stay in its DirectoryRecord
    uint32_t freeEntries = 0;    // unused entries in front of the used ones
    std::vector<Item> children;
    uint32_t fileId = 0, headerPage = 0;  // where the reader found it
};

struct Form {
    uint32_t pageSize = 512;
    bool foreign = false;    // byte order
    Bytes prefix{};          // what lies before the container; whole pages
    Bytes trailing{};        // a partial page behind it
    uint32_t freePages = 0;  // free pages at the end
    std::optional<uint32_t> findSettings{};
    uint16_t logPending = 0;
    uint16_t inFileLog = 0;
    uint32_t maxPages = 0;
    uint32_t flags = 2;
};

// Where an object came to lie.
struct Place {
    uint32_t fileId = 0;
    uint32_t headerPage = 0;
    uint32_t entryPage = 0;    // page with its directory entry
    uint32_t entryOffset = 0;  // of the entry in that page
    std::vector<uint32_t> headerPages, entryPages, namePages, streamPages, indexPages;
};

// A record in a HeaderPage; null when there is none.
uint8_t* RecordIn(uint8_t* page, uint16_t type);

class Builder {
  public:
    // `root` is the root directory; its name does not matter.
    Builder(Form form, const Item& root);

    uint32_t PageCount() const { return static_cast<uint32_t>(pages_.size()); }
    // A page in little-endian order, to be looked at and changed.
    uint8_t* Page(uint32_t number) { return pages_.at(number).data(); }
    const Bytes& PageBytes(uint32_t number) const { return pages_.at(number); }
    // Where the object at `path` lies: "" is the root, "\a\b" b in a.
    const Place& At(const std::u16string& path) const { return places_.at(path); }
    // A record in the object's first HeaderPage, which is there; and its directory entry.
    uint8_t* Record(const std::u16string& path, uint16_t type);
    uint8_t* Entry(const std::u16string& path) {
        return Page(At(path).entryPage) + At(path).entryOffset;
    }
    uint32_t AddPage(uint16_t kind);
    void SetSlot(uint32_t page, uint16_t slot);

    // Logged pages of a chained log, spread over `chains` second-level chains: adds the pages of
    // the log and points the superblock at them.
    void AddChainedLog(const std::vector<uint32_t>& logged, uint32_t chains = 1);
    // A log in the file's last pages, log page 0 last of all. The pages are made by SequentialLog.
    void AddInFileLog(const std::vector<Bytes>& logPages, uint32_t sparePages);

    // The container file. A page whose pendingKind is set is laid out as that kind where its own
    // kind is 0.
    Bytes Finish() const;

  private:
    struct Records;
    uint32_t Payload() const { return form_.pageSize - 32; }
    uint8_t* Append(std::vector<uint32_t>* chain, uint16_t kind, const Place& place, uint32_t head,
                    size_t level);
    uint32_t AddNumbers(std::span<const uint32_t> numbers, size_t first, size_t width, size_t link);
    void PutSuperblock();
    void PlaceObject(const Item& item, const std::u16string& path, uint32_t parentId,
                     uint32_t entryPage);
    void PlaceStream(const Item& item, Records* records, Place* place);
    void PlaceStreamPages(const Item& item, uint16_t type, Records* records, Place* place);
    void PlaceIndex(const std::vector<uint32_t>& list, Records* records, Place* place);
    void PlaceChildren(const Item& item, const std::u16string& path, Records* records,
                       Place* place);
    void PlaceEntry(const Item& item, const std::u16string& path, uint32_t page, uint32_t offset,
                    uint32_t parentId);

    Form form_;
    uint32_t shift_ = 0;
    uint32_t lastFileId_ = 0;
    std::vector<Bytes> pages_;
    std::set<uint32_t> rawPages_;    // log pages: 32-bit numbers behind their first two words
    std::set<uint32_t> readyPages_;  // in the container's byte order already
    std::map<std::u16string, Place> places_;
};

// One page of a sequential log: an image, or a marker with a list of pages.
struct LogPage {
    uint16_t kind = 0;
    uint32_t target = 0;
    uint32_t transaction = 0;
    Bytes image;  // a whole page in little-endian order
    std::vector<uint32_t> list;
};
inline constexpr uint16_t kListOfFrees = 65534, kListOfRewrites = 65533;
// The pages of a log, page 0 first, in the byte order of the container.
std::vector<Bytes> SequentialLog(const Form& form, const std::vector<uint32_t>& committed,
                                 const std::vector<LogPage>& pages);
Bytes Joined(const std::vector<Bytes>& pages);

// What can lie before a container: a partition table or a volume's boot sector, filled up with
// zeros to `bytes` bytes. The container begins at block `firstBlock` of 512 bytes, or behind
// `sectors` sectors of `sectorSize` bytes, told in the 32-bit field if `wide`.
Bytes PartitionTable(uint32_t firstBlock, size_t bytes);
Bytes VolumeSector(uint32_t sectorSize, uint32_t sectors, size_t bytes, bool wide = false);

}  // namespace support::container
