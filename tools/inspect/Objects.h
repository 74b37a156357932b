// SPDX-License-Identifier: MIT
// The keys and values of a container file by what their pages say of themselves: each page has the
// number of its object, and each object that of its parent. So also what no path leads to any more
// has its place.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/inspect/Image.h"
#include "tools/inspect/Lists.h"

namespace fbr {

struct FoundObject {
    uint32_t id = 0;
    uint32_t parent = 0;      // its id; 0 for the root
    uint32_t headerPage = 0;  // the first one; 0 when there is none of it
    uint32_t entryPage = 0;   // where its directory entry is; 0 when there is none
    uint32_t entryOffset = 0;
    uint32_t attributes = 0;  // by its directory entry, which may lie
    bool isKey = false;
    bool agrees = false;  // the entry and the header page are of one object
    bool exact = false;   // and each says that the other is theirs
    bool inUse = false;   // the page map has its page for used, or is damaged there
};

struct ObjectPath {
    platform::WString key;   // names joined by backslashes, none in front
    platform::WString name;  // of a value, empty for the unnamed one
    bool isValue = false;
    bool leadsToRoot = false;
    bool isNamed = true;     // its own name is known
    bool wayIsNamed = true;  // and so are those of all keys above it
};

// "key \a", "value "n" of key \a"; "a value without a name of key \a".
std::string InWords(const ObjectPath& path);

// What its directory entry has in its attributes and no such object has, in words; else empty.
std::string AttributesFault(const FoundObject& object);

class Objects {
  public:
    // Reads every page once.
    explicit Objects(const Image& image);

    // In the order of their ids.
    const std::vector<FoundObject>& All() const { return objects_; }
    // Null where nothing is known.
    const FoundObject* WithId(uint32_t id) const;
    // A page of an object that says which one in its chain it is.
    struct LeveledPage {
        uint32_t id, level, page;
    };
    // Those of its data, and of its name, in the order of their levels.
    std::span<const LeveledPage> DataPagesOf(uint32_t id) const { return Of(id, data_); }
    std::span<const LeveledPage> NamePagesOf(uint32_t id) const { return Of(id, names_); }
    uint32_t RootId() const { return root_; }
    // Why not all that stands in a key may be here, in words; else empty.
    std::string ListFaultOf(uint32_t id) const;
    // For each page in use the id of the object that it belongs to, 0 for none.
    const std::vector<uint32_t>& OwnerIds() const { return ownerIds_; }
    // What the page belongs to, also one that is not in use.
    const FoundObject* OwnerOf(uint32_t page) const;
    // The entry on that page whose name in the entry itself, in stored form, is that.
    const FoundObject* AtEntry(uint32_t page, platform::WStringView stored) const;

    // Of a path longer than people read, the end.
    ObjectPath PathOf(const FoundObject& object) const;
    // A name that is not to be had is a question mark with the object's number; of one that is not
    // all there, or of which that is in doubt, what is there stands in front of that.
    platform::WString NameOf(const FoundObject& object) const;

  private:
    static std::span<const LeveledPage> Of(uint32_t id, const std::vector<LeveledPage>& pages);
    void Gather();
    void Take(uint32_t number, bool inUse);
    void TakeEntries(uint32_t number, const PageBytes& page, bool inUse);
    void TakeHeader(uint32_t number, const PageBytes& page, bool inUse);
    void Agree();
    void PlaceByLists();
    void JudgeByRecords();

    const Image& image_;
    uint32_t root_ = 1;
    std::vector<FoundObject> objects_;
    std::vector<uint32_t> ownerIds_;
    std::vector<LeveledPage> data_, names_;
    Lists lists_;
};

// The directory entries that a page has, and where.
struct EntryView {
    uint32_t offset, fileId, headerPage, attributes;
};
std::vector<EntryView> EntriesOf(const PageBytes& page);

// "#0041" as the unit it stands for, without the mark of a value that is called like a key.
platform::WString DecodedName(platform::WStringView stored);

}  // namespace fbr
