// SPDX-License-Identifier: MIT
// What an import would do to a store, known before it does it.
#pragma once

#include <optional>
#include <ostream>
#include <unordered_map>

#include "tools/commands/DifferenceReports.h"
#include "tools/commands/LastWords.h"
#include "tools/commands/Spelling.h"
#include "tools/format/RegWriter.h"
#include "tools/store/Store.h"

namespace fbr {

// The content of a store while nothing changes it; that of one that is missing without one.
class OldState {
  public:
    explicit OldState(const Store* store) : store_(store) {}

    bool Has(const platform::WString& path);
    // A value of the key that Has found last.
    std::optional<Value> Get(const platform::WString& name) const;
    const Store& TheStore() const { return *store_; }

  private:
    const Store* const store_;
    platform::WString path_;  // asked for last
    std::optional<Key> key_;
    bool asked_ = false;
};

// Writes what brings the old state back, whatever of the records was applied. Give it each of
// them, then call Finish.
class UndoWriter {
  public:
    UndoWriter(const Store& store, std::ostream& out) : old_(&store), writer_(out, {}) {}

    void Take(const platform::WString& path, const Record& record);
    void Finish() { writer_.Finish(); }

  private:
    void TakeBack(const platform::WString& path);
    void Restore(const platform::WString& path);

    OldState old_;
    RegWriter writer_;
    std::optional<platform::WString> current_;  // the key whose values may follow in the file
    platform::WString taken_;                   // taken back last
};

// Tells what the records come to, as a comparison with the store does afterwards, each thing once:
// where the last word on it stands in the file.
class DryRun {
  public:
    // `store` is null for one that is not there yet.
    DryRun(const Store* store, const LastWords& words, std::ostream& out, bool colored)
        : store_(store),
          words_(words),
          old_(store),
          spelling_(store, words.Hash()),
          lines_(out, {}, colored) {}

    void Take(const platform::WString& path, const Record& record);
    bool ChangesAnything() const { return changes_; }

  private:
    void TellRemoved(const platform::WString& path);
    void TellGone(const platform::WString& path);
    void TellWay(platform::WStringView path);
    void TellValues(const Key& key);
    void TellValue(const platform::WString& path, platform::WStringView name, const Value* here,
                   const Value* there);
    void GoTo(platform::WStringView path);
    void RememberFirst(const platform::WString& path, const Record& record);

    const Store* const store_;
    const LastWords& words_;
    OldState old_;
    Spelling spelling_;
    DifferenceLines lines_;
    uint64_t number_ = 0;  // of the record
    // How values of which the file speaks again are spelled where it does first.
    std::unordered_map<uint64_t, platform::WString> firsts_;
    bool changes_ = false;
};

}  // namespace fbr
