// SPDX-License-Identifier: MIT
// Puts keys and values into a store, and keeps open what the next key is likely to need.
#pragma once

#include <string>
#include <vector>

#include "tools/format/Record.h"
#include "tools/store/Store.h"

namespace fbr {

// A sink for a store whose write lock the caller holds. The keys on the way to the key given last
// stay open, so a list in tree order opens each key once.
class TreeWriter : public RecordSink {
  public:
    explicit TreeWriter(const Store& store);
    ~TreeWriter();
    TreeWriter(const TreeWriter&) = delete;
    TreeWriter& operator=(const TreeWriter&) = delete;

    void Key(platform::WStringView path) override;
    void Value(platform::WStringView name, uint32_t type, const Bytes& data) override;

    // What was counted before, and is not once more.
    struct Again {
        bool key, value;
    };
    // Does what the record of a file says of the key.
    void Apply(platform::WStringView path, const Record& record, Again again = {false, false});

    // To be called at the end: a store that many machines share has not all of it before. What
    // fails is thrown.
    void Finish();
    // What was done so far: "2 keys and 5 values set, 1 removed".
    std::string Done() const;

    // Deleting what is not there changes nothing.
    void DeleteKey(platform::WStringView path);
    void DeleteValue(platform::WStringView name);

  private:
    struct Level {
        size_t length;  // of the part of path_ that leads to `key`
        fbr::Key key;
    };
    fbr::Key& Current();
    void EnterBelow(size_t begin, size_t end);
    void EnterLevels(size_t begin, size_t end);

    const Store& store_;
    SharedStore* const shared_;  // null for other stores
    platform::WString path_;     // of the key given last
    std::vector<Level> levels_;  // the root first; empty before the first key
    uint64_t keys_ = 0, values_ = 0, removed_ = 0;
};

}  // namespace fbr
