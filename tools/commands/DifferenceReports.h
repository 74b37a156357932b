// SPDX-License-Identifier: MIT
// What a comparison found: as lines and as a page for people, as objects and as a .reg file for
// programs.
#pragma once

#include <functional>
#include <optional>
#include <ostream>

#include "tools/format/Json.h"
#include "tools/format/RegWriter.h"
#include "tools/page/Page.h"
#include "tools/store/TreeCompare.h"

namespace fbr {

// Hands on to `report`, and of a key that is only there all that is in it: key by key and value by
// value, as one would make it here. A key that is only here goes in one step, and stands for all
// below it.
class NewInFull : public DifferenceSink, private RecordSink {
  public:
    // `report` and `there` outlive the object. `onLoss` is told of what `there` lists and does not
    // give.
    NewInFull(DifferenceSink& report, const Place& there, OnLoss onLoss)
        : report_(report), there_(there), onLoss_(std::move(onLoss)) {}

    void KeyOnlyHere(platform::WStringView path) override { report_.KeyOnlyHere(path); }
    void KeyOnlyThere(platform::WStringView path) override;
    void ValueDiffers(platform::WStringView path, const platform::WString& name,
                      const fbr::Value* here, const fbr::Value* there) override {
        report_.ValueDiffers(path, name, here, there);
    }

  private:
    void Key(platform::WStringView path) override;
    void Value(platform::WStringView name, uint32_t type, const Bytes& data) override;

    DifferenceSink& report_;
    const Place& there_;
    const OnLoss onLoss_;
    platform::WString path_;  // of the key whose values come
};

// One line a difference, with the key's path in the store that is here:
//
//   - \a\b\                       a key, and all below it, that is only here
//   + \a\c\                       only there
//   - \a "name" REG_SZ text       a value that is only here
//   ~ \a "name" REG_SZ text -> REG_DWORD 1 (0x00000001)
class DifferenceLines : public DifferenceSink {
  public:
    // `out` outlives the object. `key` is the one that is compared here.
    DifferenceLines(std::ostream& out, platform::WString key, bool colored)
        : out_(out), key_(std::move(key)), colored_(colored) {}

    void KeyOnlyHere(platform::WStringView path) override;
    void KeyOnlyThere(platform::WStringView path) override;
    void ValueDiffers(platform::WStringView path, const platform::WString& name,
                      const fbr::Value* here, const fbr::Value* there) override;

  private:
    void Out(char mark, const std::string& text);
    std::string Shown(platform::WStringView path) const;

    std::ostream& out_;
    const platform::WString key_;
    const bool colored_;
};

// The same as objects: "change" is "-", "+" or "~", then the "key", for a value its "name", and
// its data "here" and "there".
class DifferenceJson : public DifferenceSink {
  public:
    DifferenceJson(std::ostream& out, platform::WString key) : out_(out), key_(std::move(key)) {}

    void KeyOnlyHere(platform::WStringView path) override;
    void KeyOnlyThere(platform::WStringView path) override;
    void ValueDiffers(platform::WStringView path, const platform::WString& name,
                      const fbr::Value* here, const fbr::Value* there) override;

  private:
    JsonObject Line(const char* change, platform::WStringView path) const;

    std::ostream& out_;
    const platform::WString key_;
};

// A registry export which, imported here, makes what is here like what is there.
class DifferenceReg : public DifferenceSink, private RecordSink {
  public:
    // `out`, open in binary mode, and `there` outlive the object. `prefix` stands in front of every
    // path.
    // `onLoss` is told of what `there` lists and does not give.
    DifferenceReg(std::ostream& out, platform::WString prefix, const Place& there, OnLoss onLoss)
        : writer_(out, std::move(prefix)), there_(there), onLoss_(std::move(onLoss)) {}

    void KeyOnlyHere(platform::WStringView path) override;
    void KeyOnlyThere(platform::WStringView path) override;
    void ValueDiffers(platform::WStringView path, const platform::WString& name,
                      const fbr::Value* here, const fbr::Value* there) override;
    // Call it once, after the last difference.
    void Finish() { writer_.Finish(); }

  private:
    void Key(platform::WStringView path) override;
    void Value(platform::WStringView name, uint32_t type, const Bytes& data) override;

    RegWriter writer_;
    const Place& there_;
    const OnLoss onLoss_;
    std::optional<platform::WString> current_;  // the key whose values are being written
};

// Both stores whole, side by side.
class DifferencePage : public DifferenceSink, private RecordSink {
  public:
    // `out`, open in binary mode, and both places outlive the object. `onLoss` as for
    // DifferenceReg, of keys that one side alone has.
    DifferencePage(std::ostream& out, const Place& here, const Place& there, OnLoss onLoss);

    void KeyOnlyHere(platform::WStringView path) override { AddAll(here_, path); }
    void KeyOnlyThere(platform::WStringView path) override { AddAll(there_, path); }
    void ValueDiffers(platform::WStringView path, const platform::WString& name,
                      const fbr::Value* here, const fbr::Value* there) override;
    void KeyInBoth(platform::WStringView path, const fbr::Key& here,
                   const fbr::Key& there) override;
    void ValueIsSame(const platform::WString& name, const fbr::Value& value) override;
    // Call it once, after the last difference.
    void Finish() { page_.Finish(); }

  private:
    void AddAll(const Place& side, platform::WStringView path);
    void Key(platform::WStringView) override {}
    void Value(platform::WStringView name, uint32_t type, const Bytes& data) override;

    const Place &here_, &there_;
    const OnLoss onLoss_;
    Page page_;
    bool onlyThere_ = false;  // the values of the walk
};

}  // namespace fbr
