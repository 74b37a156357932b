// SPDX-License-Identifier: MIT
// A store, or the differences of two, as one page for a browser, with all that it needs in it.
//
// The page holds its content as JSON, a record a line, and shows it by a script of its own. Nothing
// of the content is ever taken for markup: see page.html.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "tools/store/TreeCompare.h"

namespace fbr {

// The keys and values of a store.
class StorePage : public RecordSink {
  public:
    // `out` is open in binary mode and outlives the page. `name` is the store's, `map` a picture of
    // its pages as SVG, or empty.
    StorePage(std::ostream& out, const std::string& name, const std::string& map);

    // The time of the last change of the key that comes next, for people.
    void Time(std::string time) { time_ = std::move(time); }

    void Key(platform::WStringView path) override;
    void Value(platform::WStringView name, uint32_t type, const Bytes& data) override;
    // Call it once, after the last value.
    void Finish();

  private:
    std::ostream& out_;
    std::string time_;
    std::string line_;
};

// What a comparison found.
class DifferencePage : public DifferenceSink {
  public:
    // `out` is open in binary mode and outlives the page. The names are those of the two stores.
    DifferencePage(std::ostream& out, const std::string& here, const std::string& there);

    void KeyOnlyHere(platform::WStringView path) override;
    void KeyOnlyThere(platform::WStringView path) override;
    void ValueDiffers(platform::WStringView path, const platform::WString& name,
                      const fbr::Value* here, const fbr::Value* there) override;
    // Call it once, after the last difference.
    void Finish();

  private:
    void AddKey(const char* sign, platform::WStringView path);

    std::ostream& out_;
    std::string line_;
};

}  // namespace fbr
